"""The plug-in's dynamic symbols: any other exported symbol could clash with one of a host's process."""

import os
import re
import subprocess
import unittest

NAMESPACE = "qor::multiprocess_communication::"
SHARED = "std::shared_ptr<{}>".format
ENDPOINT = "qor::socket::SocketEndpoint const&"
STRING = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char>> const&"
STATUS_TO_STRING = f"EngineStatus::ToString[abi:cxx11]({NAMESPACE}EngineStatus::EngineStatus)"
# The constructors of the back ends.
BACK_ENDS = {
    "TcpEngineBackEnd": {
        (SHARED("tamb::IEngineFrontEnd"), ENDPOINT, ENDPOINT),
        (SHARED("tamb::IEngineFrontEnd"), ENDPOINT, ENDPOINT, SHARED("qor::multiprocess_communication::IClock")),
        (f"{NAMESPACE}EngineDeath", ENDPOINT, ENDPOINT, SHARED("qor::multiprocess_communication::IClock")),
    },
    "TcpCommandProcessorBackEnd": {
        (SHARED("tamb::ICommandProcessorFrontEnd"), SHARED("tamb::ICommandProcessorBackEnd"), ENDPOINT),
    },
    "TcpNotificationHubBackEnd": {(STRING, "unsigned long", ENDPOINT)},
}


def defined_symbols(*options):
    """The names that the plug-in exports, as nm prints them with these options."""
    output = subprocess.run(
        [os.environ["NM"], "--dynamic", "--defined-only", *options, os.environ["PLUGIN"]],
        check=True, capture_output=True, text=True).stdout
    # Address, kind, name.
    return [line.split(maxsplit=2)[2] for line in output.splitlines()]


class ThePlugin(unittest.TestCase):
    def test_has_its_entry_point_under_its_plain_name(self):
        self.assertEqual(defined_symbols().count("RegisterAll"), 1)

    def test_shows_its_entry_point_and_its_back_ends_and_nothing_else(self):
        back_end = NAMESPACE + "(" + "|".join(BACK_ENDS) + ")"
        to_string = re.escape(NAMESPACE + STATUS_TO_STRING)
        allowed = re.compile(f"RegisterAll|{to_string}|{back_end}::.+|(vtable|typeinfo|typeinfo name) for {back_end}")
        self.assertEqual([name for name in defined_symbols("--demangle") if not allowed.fullmatch(name)], [])

    def test_makes_its_back_ends_of_what_their_users_were_built_with(self):
        # Some print the ends of nested templates with a space.
        shown = {name.replace("> >", ">>") for name in defined_symbols("--demangle")}
        for back_end, constructors in BACK_ENDS.items():
            start = f"{NAMESPACE}{back_end}::{back_end}("
            with self.subTest(back_end):
                self.assertEqual({name for name in shown if name.startswith(start)},
                                 {start + ", ".join(parameters) + ")" for parameters in constructors})

    def test_shows_what_users_of_its_back_ends_link_to(self):
        shown = defined_symbols("--demangle")
        for back_end in BACK_ENDS:
            wanted = [f"{NAMESPACE}{back_end}::~{back_end}()"]
            # It has no virtual function of its own, so each user's compiler generates its table.
            if back_end != "TcpEngineBackEnd":
                wanted += [f"{what} for {NAMESPACE}{back_end}" for what in ("vtable", "typeinfo", "typeinfo name")]
            for start in wanted:
                with self.subTest(start):
                    self.assertTrue(any(name.startswith(start) for name in shown))
        self.assertIn(f"{NAMESPACE}TcpEngineBackEnd::waitForFrontEndTermination()", shown)
        self.assertIn(NAMESPACE + STATUS_TO_STRING, shown)


if __name__ == "__main__":
    unittest.main()
