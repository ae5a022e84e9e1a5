"""The engine process dies, or is stopped for a while."""

import re
import signal
import time

from fault_support import AT_ONCE, DESTRUCTION, IDLE, PINGING, RUNNING, STOPPING, WIRING, FaultTest, main
from promises import Bound

FROZEN_SECONDS = 5


class Killed(FaultTest):
    """Rows of deaths by signals."""

    number = signal.SIGKILL
    fault = "engine: SIGKILL"
    cause = logs = r"engine process \d+ died: signal 9 \(Killed\)"

    def expect_last_words(self):
        self.host.wait_for(rf"^notification EngineDied 0 {self.cause}")
        self.expect_within(AT_ONCE, self.name_of("EngineDied"), self.since_fault())

    def test_during_wiring(self):
        call = self.reach(WIRING)
        self.strike(self.engine_process(), self.number)
        if self.number != signal.SIGKILL:
            # A frozen process dies of the signal when it is continued.
            self.kill(self.engine_process(), signal.SIGCONT)
        self.expect_told(call, AT_ONCE, self.cause)
        self.expect_engines_gone(AT_ONCE)
        self.expect_destroyed()
        self.conclude("AddEngineDescription throws the refusal with the cause")

    def test_idle(self):
        self.reach(IDLE)
        self.strike(self.engine_process(), self.number)
        self.expect_last_words()
        self.told = self.since_fault()
        # Later calls do not wait either, and log the cause.
        self.host.call("run", AT_ONCE)
        self.host.wait_for_errors("Failed sending ping to remote engine on:")
        self.assertRegex(self.host.errors(), self.cause)
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("`EngineDied`; Run, Ping and RequestStop log the cause and return")

    def test_running(self):
        call = self.reach(RUNNING)
        self.strike(self.engine_process(), self.number)
        self.expect_told(call, AT_ONCE)
        self.expect_last_words()
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("Run returns; `EngineDied`")

    def test_ping_pending(self):
        call = self.reach(PINGING)
        self.strike(self.engine_process(), self.number)
        self.expect_told(call, AT_ONCE)
        self.assertEqual(self.host.wait_for_end_of("run", AT_ONCE)[1], "returned")
        self.host.wait_for_errors("Failed sending ping to remote engine on:")
        self.expect_last_words()
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("Ping logs and returns; Run returns; `EngineDied`")

    def test_stopping(self):
        call = self.reach(STOPPING)
        self.strike(self.engine_process(), self.number)
        self.expect_told(call, AT_ONCE)
        self.assertEqual(self.host.wait_for_end_of("run", AT_ONCE)[1], "returned")
        self.expect_last_words()
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("WaitForStop and Run return; `EngineDied`")

    def test_destruction(self):
        call = self.reach(DESTRUCTION)
        engine = self.engine_process()
        self.strike(engine, self.number)
        if self.number != signal.SIGKILL:
            self.kill(engine, signal.SIGCONT)
        self.expect_told(call, AT_ONCE)
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("the destructor returns")


class SegmentationFault(Killed):
    number = signal.SIGSEGV
    fault = "engine: SIGSEGV"
    cause = logs = r"engine process \d+ died: signal 11 \(Segmentation fault\)"


class Aborted(Killed):
    number = signal.SIGABRT
    fault = "engine: SIGABRT"
    cause = logs = r"engine process \d+ died: signal 6 \(Aborted\)"


class Exits(FaultTest):
    fault = "engine: exits inside Run"
    logs = r"ended after \d+ s: died: engine process \d+ died: exit code 3"

    def document(self, stage):
        # The next host gets an engine without faults.
        return super().document(stage) if hasattr(self, "struck") else (
            '{"engine": "test", "behaviour": "exit", "when": "command", "notifications": 1}')

    def test_running(self):
        call = self.reach(RUNNING)
        self.struck = time.monotonic()
        self.host.call("push 1 Fault")
        self.expect_told(call, AT_ONCE)
        self.host.wait_for(r"^notification EngineDied 0 engine process \d+ died: exit code 3")
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("Run returns; `EngineDied`")


class Throws(FaultTest):
    fault = "engine: throws inside Run"
    logs = r"ended after \d+ s: failed: TestEngine: thrown on a command"

    def document(self, stage):
        # The next host gets an engine without faults.
        return super().document(stage) if hasattr(self, "struck") else (
            '{"engine": "test", "behaviour": "throw", "when": "command", "notifications": 1}')

    def test_running(self):
        call = self.reach(RUNNING)
        self.struck = time.monotonic()
        self.host.call("push 1 Fault")
        self.expect_told(call, AT_ONCE)
        self.host.wait_for("^notification Failed 0 TestEngine: thrown on a command")
        # The engine process is not affected, and answers commands that come too late.
        self.host.call("push 2 Hello")
        self.host.wait_for("^notification CommandFailed 2 the run has failed: TestEngine: thrown on a command")
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("`Failed` with the exception's text; Run returns; the engine answers on")


class Stopped(FaultTest):
    fault = "engine: SIGSTOP, SIGCONT after 5 s"
    logs = r"Engine process \d+ was suspended; it is killed unless it is continued within 10 s"

    def freeze(self):
        """Stops the process, and continues it."""
        engine = self.engine_process()
        self.strike(engine, signal.SIGSTOP)
        # The duration of the fault.
        time.sleep(FROZEN_SECONDS)
        self.kill(engine, signal.SIGCONT)

    def expect_whole_rest(self):
        """The host continues with its engine as before the fault."""
        self.host.call("push 1 Hello")
        self.host.wait_for("^notification CommandDone 1 ")
        self.host.call("stop", 20)
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()
        self.expect_engines_gone(FROZEN_SECONDS + 20)

    def test_during_wiring(self):
        call = self.reach(WIRING)
        self.freeze()
        self.expect_told(call, FROZEN_SECONDS + AT_ONCE)
        self.host.begin("run")
        self.expect_whole_rest()
        self.conclude("wiring takes 5 s longer")

    def test_idle(self):
        self.reach(IDLE)
        self.freeze()
        self.host.begin("run")
        self.expect_whole_rest()
        self.assertRegex(self.host.errors(), "failed sending heartbeat: ")
        self.conclude("heartbeats that fail are logged; commands wait and arrive")

    def test_running(self):
        self.reach(RUNNING)
        self.freeze()
        self.assertFalse(re.search("^run ", self.host.output(), re.MULTILINE), self.host.everything())
        self.expect_whole_rest()
        self.conclude("Run goes on; commands wait and arrive")

    def test_ping_pending(self):
        call = self.reach(PINGING)
        self.freeze()
        self.expect_told(call, FROZEN_SECONDS + AT_ONCE)
        self.host.wait_for_errors("Failed sending ping to remote engine on:")
        self.host.call("stop", 20)
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()
        self.expect_engines_gone(FROZEN_SECONDS + 20)
        self.conclude("Ping logs and returns; Run goes on")

    def test_stopping(self):
        # The engine ignores the stop, and is therefore killed, frozen or not.
        call = self.reach(STOPPING)
        self.strike(self.engine_process(), signal.SIGSTOP)
        self.expect_told(call, Bound(10, promised=6))
        self.host.wait_for(r"^notification EngineDied 0 engine process \d+ was killed by signal 9: "
                           "it did not stop within 5 s")
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("the time to stop goes on: `EngineDied` after 5 s in all")

    def test_destruction(self):
        call = self.reach(DESTRUCTION)
        self.freeze()
        self.expect_told(call, FROZEN_SECONDS + AT_ONCE)
        self.expect_destroyed()
        self.expect_engines_gone(FROZEN_SECONDS + 20)
        self.conclude("the destructor returns; the engine goes once it is continued")


class KeptStopped(FaultTest):
    fault = "engine: SIGSTOP for good"
    cause = logs = r"engine process \d+ was killed by signal 9: it was suspended for 10 s"

    def test_running(self):
        call = self.reach(RUNNING)
        self.strike(self.engine_process(), signal.SIGSTOP)
        self.expect_told(call, Bound(15, promised=11))
        self.host.wait_for(rf"^notification EngineDied 0 {self.cause}")
        self.expect_destroyed()
        self.expect_engines_gone(30)
        self.conclude("Run returns; `EngineDied`: it was suspended")


if __name__ == "__main__":
    main()
