"""What the fault tests share: a host that is led through the stages of an engine's life, and a table of what came of it.

A cell of the fault matrix is a fault at a stage. Whatever happens, what the host waits for comes to an end, the engine's
process goes, nothing of it is left, and the service serves the next host.
"""

import json
import os
import re
import signal
import subprocess
import sys
import time
import unittest

import promises
from promises import Bound
from programs_support import (
    ENGINE, PATIENCE, SUPERVISOR, Program, ProgramsTest, only, processes_below, state_of, wait_until)

# The stages. In the last one the engine process is frozen, so that the disconnection takes some time.
BEFORE, WIRING, IDLE, RUNNING, PINGING, STOPPING, DESTRUCTION = (
    "before wiring", "during wiring", "idle", "running", "ping pending", "stopping", "destruction")
STAGES = (BEFORE, WIRING, IDLE, RUNNING, PINGING, STOPPING, DESTRUCTION)

# The time until a host notices a death.
AT_ONCE = Bound(5, promised=1)

# The engine's behaviour that makes the stage last.
DOCUMENTS = {
    WIRING: {"behaviour": "freeze", "when": "construct"},
    PINGING: {"behaviour": "stall", "notifications": 1},
    STOPPING: {"behaviour": "ignoreStop", "notifications": 1},
}
PING_MILLISECONDS = 8000
STOP_MILLISECONDS = 60000


class StagedHost(Program):
    """A host controlled by the test; each call runs on its own thread."""

    def __init__(self, folder, environment):
        super().__init__([os.environ["STAGED_HOST"], os.environ["TAMB_MULTIPROCESS"]], folder, environment,
                         stdin=subprocess.PIPE)

    def wait_for(self, pattern, seconds=PATIENCE):
        """The first line of its output that matches."""
        def found():
            return next(filter(None, (re.search(pattern, line) for line in self.output().splitlines())), None)

        wait_until(lambda: found() or self.has_ended(), lambda: f"{pattern} is not said: {self.everything()}", seconds)
        if not (match := found()):
            raise AssertionError(f"ended without saying {pattern}: {self.everything()}")
        return match

    def wait_for_end_of(self, call, seconds=PATIENCE):
        """The result of a call: "returned", or the text of its exception."""
        return self.wait_for(rf"^{call} (returned|threw) after \d+(?:: )?(.*)$", seconds)

    def call(self, line, seconds=PATIENCE):
        """Makes a call, and expects that it returns."""
        self.begin(line)
        end = self.wait_for_end_of(line.split()[0], seconds)
        if end[1] != "returned":
            raise AssertionError(f"{line}: {end[0]}\n{self.everything()}")

    def quit(self):
        self.begin("quit")
        return self.wait()


class Table:
    """The executed cells with their measurements; printed at the end of the program."""

    rows = []

    @classmethod
    def add(cls, fault, stage, told, gone, said, logged="", left="nothing"):
        cls.rows.append((fault, stage, told, gone, said, logged, left))

    @classmethod
    def print(cls):
        def seconds(value):
            return "" if value is None else f"{value:.2f} s"

        print("\n| what fails | when | noticed after | exited after | what the host receives | logged, first line | left |")
        print("|---|---|---|---|---|---|---|")
        for fault, stage, told, gone, said, logged, left in cls.rows:
            print(f"| {fault} | {stage} | {seconds(told)} | {seconds(gone)} | {said} | {logged} | {left} |")
        sys.stdout.flush()


# A warning or an error of any of our programs, with its time and its text.
FAILURE = re.compile(r"(?:Warning|Error  ) (\S+Z) \[.*?\] \d+ (.*)")
# Caused by the test's own commands, which have no edit rate, and by its own freezing of engines for a stage.
NOISE = "is due at once: its edit rate|commands without a time, due at once"
FREEZING = "was suspended; it is killed unless it is continued"


class FaultTest(ProgramsTest):
    """One row of the matrix: the tests are its cells."""

    fault = ""
    # A pattern that the log of host, service or engine has to contain after the fault; None if none is required.
    logs = None
    # Whether the service of the cell still runs at its end.
    service_survives = True

    def setUp(self):
        super().setUp()
        self.told = self.gone = None
        self.said = ""

    def staged_host(self):
        host = self.watched(StagedHost(self.folder, self._environment))
        host.wait_for("^ready$")
        return host

    def document(self, stage):
        return json.dumps({"engine": "test", "notifications": 1, **DOCUMENTS.get(stage, {})})

    def reach(self, stage):
        """A service and a host at that stage, and the pending call of the host; None if there is none."""
        self.stage = stage
        self.service_program, self.endpoint = self.service()
        self.host = self.staged_host()
        return self.lead(self.host, self.endpoint, stage)

    def lead(self, host, endpoint, stage):
        if stage == BEFORE:
            return None
        wire = f"wire {endpoint} {self.document(stage)}"
        if stage == WIRING:
            host.begin(wire)
            wait_until(lambda: state_of(only(self.engines()) or 0) == "T", "the engine does not freeze")
            return "wire"
        host.call(wire)
        if stage == IDLE:
            return None
        if stage == DESTRUCTION:
            self.kill(self.engine_process(), signal.SIGSTOP)
            host.begin("destroy")
            host.wait_for("^destroying$")
            return "destroy"
        host.begin("run")
        host.wait_for("^notification Tick ")
        host.call("watch")
        if stage == RUNNING:
            return "run"
        if stage == PINGING:
            host.begin(f"ping {PING_MILLISECONDS}")
            host.wait_for("^notification Pinged ")
            return "ping"
        host.call("stop")
        host.begin(f"await {STOP_MILLISECONDS}")
        return "await"

    def engines(self):
        return processes_below(os.getpid(), ENGINE)

    def supervisor_process(self):
        return wait_until(lambda: only(processes_below(os.getpid(), SUPERVISOR)), "there is no supervisor")

    def strike(self, process, number):
        """Marks the fault: times count from now on."""
        self.kill(process, number)
        self.struck = time.monotonic()

    def name_of(self, event):
        return f"{self.fault}, {self.stage}: {event}"

    def since_fault(self):
        return time.monotonic() - self.struck

    def expect_told(self, call, within, pattern="^returned$"):
        """The host's pending call ends in time, with that result."""
        end = self.host.wait_for_end_of(call, within + PATIENCE)
        self.told = self.since_fault()
        self.assertRegex(end[2] or end[1], pattern, self.host.everything())
        self.expect_within(within, self.name_of(f"{call} ends"), self.told)
        return end[2]

    def expect_engines_gone(self, within):
        wait_until(lambda: not self.engines() and not processes_below(os.getpid(), SUPERVISOR),
                   lambda: f"left: {processes_below(os.getpid())}", within + PATIENCE)
        self.gone = self.since_fault()
        self.expect_within(within, self.name_of("the engine's processes have exited"), self.gone)

    def expect_destroyed(self, within=10):
        """The host releases its engine, and exits by itself."""
        if not re.search("^destroying$", self.host.output(), re.MULTILINE):
            self.host.begin("destroy")
        start = time.monotonic()
        self.assertEqual(self.host.wait_for_end_of("destroy", within + PATIENCE)[1], "returned")
        self.assertLess(time.monotonic() - start, within)
        self.assertEqual(self.host.quit(), 0, self.host.everything())

    def expect_nothing_left_but(self, *programs, within=20):
        """No other process than those exists, and no file."""
        pids = {program.pid for program in programs}

        def left():
            self.reap_orphans()
            others = [each for each in processes_below(os.getpid()).items() if each[0] not in pids]
            return others + sorted(self.temporary.iterdir())

        wait_until(lambda: not left(), lambda: f"left behind: {left()}", within)

    def expect_service_serves(self):
        """Another host runs a complete life of an engine."""
        host = self.staged_host()
        host.call(f"wire {self.endpoint} {self.document(RUNNING)}")
        host.begin("run")
        host.wait_for("^notification Tick ")
        host.call("push 1 Hello")
        host.wait_for("^notification CommandDone 1 ")
        host.call("watch")
        host.call("stop")
        self.assertEqual(host.wait_for_end_of("run")[1], "returned")
        host.call("destroy")
        self.assertEqual(host.quit(), 0)

    def failures_logged(self):
        """The different texts of warnings and errors of all its programs, without ids and paths."""
        lines = [line for program in self._processes for line in program.errors().splitlines()]
        noise = NOISE if "engine: SIGSTOP" in self.fault else f"{NOISE}|{FREEZING}"
        found = sorted(match.groups() for match in map(FAILURE.match, lines) if match and not re.search(noise, match[2]))
        texts = (re.sub(r"\d+", "N", re.sub(r"(ipc://)?/[^\s\"):]+", "…", text)) for _, text in found)
        return list(dict.fromkeys(texts))

    def expect_logged(self, pattern):
        """A log contains the text, or will soon."""
        if pattern is not None:
            wait_until(lambda: any(re.search(pattern, program.errors()) for program in self._processes),
                       lambda: f"not logged: {pattern}: {[program.errors() for program in self._processes]}")

    def files_left(self):
        """The remaining files of the programs, except for the socket of a running service."""
        return sorted(path.name for path in self.folder.iterdir()
                      if path != self.temporary and not (path.name == "service" and not self.service_program.has_ended()))

    def conclude(self, said="", logs=None):
        """The checks at the end of every cell."""
        self.expect_nothing_left_but(self.service_program)
        self.assertEqual(self.files_left(), [])
        self.expect_logged(logs or self.logs)
        logged = next(iter(self.failures_logged()), "nothing")
        if self.service_survives:
            self.expect_service_serves()
        Table.add(self.fault, self.stage, self.told, self.gone, said, logged[:100])


def main():
    unittest.addModuleCleanup(Table.print)
    promises.main(verbosity=2)
