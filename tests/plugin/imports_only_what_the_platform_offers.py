"""The plug-in's undefined symbols: a platform has to provide all of these, and no others."""

import os
import re
import subprocess
import unittest

# By qualified name, regardless of the arguments.
FRAMEWORK = {f"tamb::{name}" for name in (
    "CreateNotificationHub", "CreateParametersCollectionInstance", "CreateParametersCollectionPrototype",
    "DefineContextEngine_deprecated", "GetCurrentContextString", "GetCurrentLoggerWriter", "GetCurrentTimeString",
    "GetRegistryEntryPrototype", "GetTAMBCoreIdInternal", "GetThreadId", "GetUUIDString", "RegisterFactory", "ToString")}
SOCKETS = {f"qor::socket::{name}" for name in (
    "Socket::Socket", "Socket::~Socket", "Socket::close", "Socket::createAndConnect", "Socket::debugString",
    "Socket::isOpen", "Socket::poll", "Socket::receiveProtoBuf", "Socket::sendProtoBuf", "SocketEndpoint::FromString",
    "SocketEndpoint::toString")}
UTILITIES = {f"qor::utils::{name}" for name in (
    "IMessageFormatter::formatMessage", "MessageFormatter::MessageFormatter", "MessageFormatter::messageHeader",
    "logDebug", "logError", "logInfo", "logWarning")} | {
        "typeinfo for qor::utils::MessageFormatter", "vtable for qor::utils::MessageFormatter"}
OFFERED = FRAMEWORK | SOCKETS | UTILITIES
# The generated classes of the service's messages and their library.
GENERATED = ("google::protobuf::", "qor::proto::api_service::")
# Symbols of the compiler's and the system's libraries have a version.
SYSTEM = re.compile(r"@@?(GLIBC|GLIBCXX|CXXABI|GCC)_")
# Optional hooks of the start-up code.
OPTIONAL = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}


def qualified(symbol):
    """The name of a function without its tags, template arguments and parameters; other names in full."""
    return re.sub(r"\[abi:\w+\]|\(.*", "", symbol)


def undefined_symbols():
    output = subprocess.run([os.environ["NM"], "--dynamic", "--undefined-only", "--demangle", os.environ["PLUGIN"]],
                            check=True, capture_output=True, text=True).stdout
    # Kind and name, without an address.
    return [line.split(maxsplit=1) for line in output.splitlines()]


class ThePlugin(unittest.TestCase):
    def test_imports_only_what_the_platform_offers(self):
        needed = [name for kind, name in undefined_symbols()
                  if not SYSTEM.search(name) and not (kind in "wv" and name in OPTIONAL)]
        self.assertIn("tamb::CreateNotificationHub()", needed)
        self.assertEqual([name for name in needed
                          if qualified(name) not in OFFERED
                          and not re.sub(r"^(\w+ )*(typeinfo|vtable) for ", "", name).startswith(GENERATED)
                          and not any(space in name.split("(")[0] for space in GENERATED)], [])

    def test_the_list_names_only_what_is_needed(self):
        needed = {qualified(name) for _, name in undefined_symbols()}
        # The optimiser decides whether a base class's table is needed.
        self.assertEqual({name for name in OFFERED - needed if " for " not in name}, set())


if __name__ == "__main__":
    unittest.main()
