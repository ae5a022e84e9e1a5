"""With few descriptors, or little memory, programs end in time, with a message that names the limit."""

import os
import re
import signal
import time
import unittest

from programs_support import TEST_ENGINES, Program, ProgramsTest, clip

# The message of the loader, which ends a program before its start if its libraries do not fit into memory.
NOT_LOADED = 127
# The signal that ends a thread without memory.
ABORTED = -signal.SIGABRT
# The exit code of a host whose engine did not report how the run ended.
UNREPORTED = 5

# The terms of the system, the language and the libraries.
NO_MEMORY = "Cannot allocate memory|bad_alloc|OUT OF MEMORY|Resource temporarily unavailable|ulimit -v"


class Limited(Program):
    def __init__(self, kind, limit, arguments, folder, environment):
        # The shell sets the limit, so that it applies from the start.
        option, value = {"descriptors": ("-n", limit), "memory": ("-v", limit * 1024)}[kind]
        super().__init__(["/bin/sh", "-c", f'ulimit {option} {value}; exec "$@"', "sh", *map(str, arguments)], folder, environment)


class UnderLimits(ProgramsTest):
    # A start that notices a channel which does not open waits 5 s for it.
    WITHIN = 25

    def end_of(self, kind, limit, *arguments):
        """How a host with that limit ends, and its own message."""
        start = time.monotonic()
        host = self.watched(Limited(kind, limit, [os.environ["TAMB_HOST"], "run", "--json", "--input", clip(), *arguments],
                                    self.folder, self._environment))
        code = host.wait(self.WITHIN + 10)
        self.assertLess(time.monotonic() - start, self.WITHIN, host.everything())
        return code, host

    def expect_named(self, limit, code, host, pattern):
        if code == 0:
            return
        self.assertEqual(code, 4, f"{limit}: {host.everything()}")
        words = [line for line in host.errors().splitlines() if re.match("tamb-host: |qor-engine-service: ", line)]
        self.assertTrue(any(re.search(pattern, line) for line in words), f"{limit}: {host.everything()}")

    def test_of_descriptors_a_host_names_them(self):
        codes = {}
        for limit in (6, 10, 16, 22, 26, 30, 34, 36, 38, 40, 64):
            with self.subTest(limit=limit):
                codes[limit], host = self.end_of("descriptors", limit)
                self.expect_named(limit, codes[limit], host, r"Too many open files.*ulimit -n")
        self.assertEqual(codes[16], 4)
        self.assertEqual(codes[64], 0)

    def test_of_descriptors_a_service_names_them(self):
        service = self.watched(Limited("descriptors", 8, [os.environ["QOR_ENGINE_SERVICE"], "--endpoint",
                                                          f"ipc://{self.folder / 'few'}"], self.folder, self._environment))
        self.expect_exit(service, 1)
        self.assertRegex(service.errors(), r"^qor-engine-service: .*Too many open files \(this process may open 8 files: ulimit -n\)\n$")

    def test_of_descriptors_an_engine_names_them(self):
        channels = [f"--{channel}=ipc://{self.folder / channel}" for channel in ("request", "status", "command", "notification")]
        engine = self.watched(Limited("descriptors", 16, [
            os.environ["TAMB_ENGINE"], f"--engines={TEST_ENGINES}", "--workflow-manager-id=studio", "--engine-id=3",
            f"--description={self.file('description.json', {'engine': 'test'})}", *channels], self.folder, self._environment))
        self.expect_exit(engine, 1)
        self.assertRegex(engine.output(), r'"failed".*Too many open files.*may open 16 files: ulimit -n')

    def test_of_memory_a_host_names_it(self):
        named, code = 0, None
        limits = iter(range(220, 2000, 30))
        # Up to the first limit that suffices.
        while code != 0:
            limit = next(limits)
            with self.subTest(limit=limit):
                code, host = self.end_of("memory", limit)
                # The loader reports missing memory itself, and so does libzmq, which aborts the process.
                if code == NOT_LOADED or "error while loading shared libraries" in host.errors():
                    continue
                if code == ABORTED:
                    self.assertRegex(host.errors(), r"(?m)^(Resource temporarily unavailable|FATAL ERROR: OUT OF MEMORY) \(src/")
                    continue
                if code == UNREPORTED and re.search(NO_MEMORY, host.errors()):
                    # The memory sufficed for everything except the thread of the run.
                    continue
                if code in (1, 3):
                    # The memory sufficed to start a run, which has failed, or whose engine has died, for lack of
                    # memory.
                    self.assertRegex(host.notifications()[-1]["values"]["reason"], NO_MEMORY)
                else:
                    self.expect_named(limit, code, host, "ulimit -v")
                named += code != 0
        self.assertGreater(named, 0)


if __name__ == "__main__":
    unittest.main()
