"""The connections between host and engine are cut, are slow, or carry foreign bytes."""

import random
import re
import socket
import time

from fault_support import AT_ONCE, DESTRUCTION, IDLE, PINGING, RUNNING, STOPPING, FaultTest, Table, main
from programs_support import PATIENCE, wait_until
from promises import Bound
from relay import RelayedService

CUT_SECONDS = 5
SHORT_CUTS = 8


class RelayedTest(FaultTest):
    """A host whose connections to its engine are controlled by the test."""

    def reach(self, stage):
        self.stage = stage
        self.relayed = RelayedService(self.folder, lambda *arguments: self.start("TAMB_ENGINE", *arguments))
        self.addCleanup(self.relayed.close)
        self.host = self.staged_host()
        return self.lead(self.host, self.relayed.endpoint, stage)

    def answered(self):
        """The commands that were answered, in the order of the answers."""
        return [int(number) for number in re.findall("^notification CommandDone (\\d+) ", self.host.output(), re.MULTILINE)]

    def conclude(self, said="", logs=None):
        self.expect_nothing_left_but()
        self.expect_logged(logs or self.logs)
        logged = next(iter(self.failures_logged()), "nothing")
        Table.add(self.fault, self.stage, self.told, self.gone, said, logged[:100])


class Cut(RelayedTest):
    fault = "connection: cut, restored after 5 s"
    # Traffic during the cut: a heartbeat or the disconnection.
    logs = "the connection was lost|no peer answered|failed sending heartbeat|timeout on frontend heartbeat"

    def cut(self):
        self.relayed.cut()
        self.struck = time.monotonic()

    def wait_and_restore(self):
        # The duration of the fault.
        time.sleep(CUT_SECONDS)
        self.relayed.restore()

    def expect_whole_rest(self, pushed):
        self.host.call("push 100 Hello")
        wait_until(lambda: len(self.answered()) == pushed + 100, lambda: f"answered: {self.answered()}")
        self.assertEqual(self.answered(), list(range(1, pushed + 101)))
        self.told = self.since_fault()
        self.host.call("stop", 20)
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()
        self.expect_engines_gone(CUT_SECONDS + 20)

    def test_idle(self):
        self.reach(IDLE)
        self.cut()
        self.host.call("push 100 Hello")
        self.wait_and_restore()
        self.host.begin("run")
        self.expect_whole_rest(100)
        self.conclude("heartbeats that fail are logged; commands wait and arrive")

    def test_run_that_takes_no_time(self):
        """A run requested during a short cut ends before the host could wait for the next periodic status."""
        self.stage, self.fault = IDLE, "connection: cut, restored after 0.2 s"
        runs = 0
        for number in range(SHORT_CUTS):
            folder = self.folder / f"cut-{number}"
            folder.mkdir()
            self.relayed = RelayedService(folder, lambda *arguments: self.start("TAMB_ENGINE", *arguments))
            self.addCleanup(self.relayed.close)
            self.host = self.staged_host()
            self.host.call(f'wire {self.relayed.endpoint} {{"engine": "test", "behaviour": "throw"}}')
            self.cut()
            self.host.begin("run")
            # The duration of the fault.
            time.sleep(0.2)
            self.relayed.restore()
            self.expect_told("run", AT_ONCE)
            # On a busy machine the connection may be restored too late for the request.
            runs += "Failed sending ping" not in self.host.errors()
            self.expect_destroyed()
            self.expect_engines_gone(CUT_SECONDS + 20)
        self.assertGreater(runs, 0, self.host.everything())
        self.conclude("Run returns when the run has ended", "thrown in the run")

    def test_running(self):
        self.reach(RUNNING)
        self.host.call("push 100 Hello")
        wait_until(lambda: len(self.answered()) == 100, "not all commands are answered")
        self.cut()
        self.host.call("push 100 Hello")
        self.wait_and_restore()
        self.assertFalse(re.search("^run ", self.host.output(), re.MULTILINE))
        self.expect_whole_rest(200)
        self.conclude("Run goes on; what was pushed meanwhile arrives, in order")

    def test_ping_pending(self):
        call = self.reach(PINGING)
        self.cut()
        self.expect_told(call, AT_ONCE)
        self.host.wait_for_errors("Failed sending ping to remote engine on:")
        self.wait_and_restore()
        self.host.call("stop", 20)
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()
        self.expect_engines_gone(CUT_SECONDS + 20)
        self.conclude("Ping logs and returns; Run goes on")

    def test_stopping(self):
        call = self.reach(STOPPING)
        self.cut()
        self.wait_and_restore()
        # The engine ignores its stop, and is killed meanwhile.
        self.expect_told(call, 20)
        self.host.wait_for("^notification EngineDied 0 .*did not stop within 5 s")
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("WaitForStop and Run return once the status is back")

    def test_destruction(self):
        self.reach(IDLE)
        self.stage = DESTRUCTION
        self.cut()
        self.host.begin("destroy")
        self.expect_told("destroy", AT_ONCE)
        self.wait_and_restore()
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("the destructor returns; the engine goes after 10 s of silence")

    def test_for_good_while_running(self):
        call = self.reach(RUNNING)
        self.cut()
        self.stage = RUNNING
        self.fault = "connection: cut for good"
        self.expect_told(call, Bound(25, promised=16))
        self.host.wait_for_errors("no engine status and no successful reply received for 15 s, the backend is taken for gone")
        self.expect_destroyed()
        self.expect_engines_gone(30)
        self.conclude("Run returns, and the silence is logged")


class Slow(RelayedTest):
    fault = "connection: 20 000 bytes a second"

    def test_running(self):
        self.reach(RUNNING)
        self.relayed.slow_down(20_000)
        self.struck = time.monotonic()
        self.host.call("push 500 Hello", 60)
        wait_until(lambda: len(self.answered()) == 500, lambda: f"answered: {len(self.answered())}", 90)
        self.told = self.since_fault()
        self.assertEqual(self.answered(), list(range(1, 501)))
        self.host.call("stop", 30)
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed(20)
        self.conclude("all commands and answers arrive, in order")


class SlowPeer(FaultTest):
    fault = "host: takes 10 ms for each notification"

    def document(self, stage):
        return '{"engine": "test", "notifications": 600}'

    def test_running(self):
        self.stage = RUNNING
        self.service_program, self.endpoint = self.service()
        self.host = self.staged_host()
        self.host.call(f"slow 10")
        self.host.call(f"wire {self.endpoint} {self.document(RUNNING)}")
        self.struck = time.monotonic()
        self.host.begin("run")
        self.host.call("push 200 Hello")
        self.host.wait_for("^notification CommandDone 200 ", 60)
        self.told = self.since_fault()
        ticks = re.findall(r"^notification Tick 0 (\d+)$", self.host.output(), re.MULTILINE)
        self.assertEqual(list(map(int, ticks)), list(range(600)))
        self.host.call("stop")
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()
        self.conclude("all notifications, in order")


class Noise(FaultTest):
    """A stranger sends invalid bytes to every endpoint of the engine, and to the service."""

    fault = "stranger: random bytes to every endpoint"

    def paths(self):
        (directory,) = self.temporary.glob("qor-*")
        return [*directory.iterdir(), self.folder / "service"]

    def make_noise(self):
        noise = random.Random(20261121)
        self.struck = time.monotonic()
        for path in self.paths():
            for size in (0, 1, 9, 10, 64, 65, 1000, 65536):
                with socket.socket(socket.AF_UNIX) as stranger:
                    stranger.settimeout(PATIENCE)
                    stranger.connect(str(path))
                    try:
                        stranger.sendall(noise.randbytes(size))
                    except OSError:  # it was thrown out while it spoke
                        pass

    def expect_whole_rest(self):
        self.host.call("push 100 Hello")
        self.host.wait_for("^notification CommandDone 100 ")
        self.told = self.since_fault()
        self.host.call("ping 5000")
        self.assertNotIn("Failed sending ping", self.host.errors())
        self.host.call("stop")
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()

    def test_idle(self):
        self.reach(IDLE)
        self.make_noise()
        self.host.begin("run")
        self.host.wait_for("^notification Tick ")
        self.expect_whole_rest()
        self.conclude("nothing")

    def test_running(self):
        self.reach(RUNNING)
        self.make_noise()
        self.expect_whole_rest()
        self.conclude("nothing")


class SecondHost(RelayedTest):
    """A second host gets the endpoints of an engine that already has a host."""

    fault = "host: a second one for the same engine"

    def test_running(self):
        self.reach(RUNNING)
        self.host.call("push 10 Hello")
        wait_until(lambda: len(self.answered()) == 10, "not all commands are answered")
        self.struck = time.monotonic()
        second = self.staged_host()
        # It cannot send commands, because the first host has bound their endpoint.
        second.begin(f"wire {self.relayed.endpoint} {self.document(RUNNING)}")
        end = second.wait_for_end_of("wire")
        self.told = self.since_fault()
        self.assertEqual(end[1], "threw", second.everything())
        self.assertIn(str(self.relayed.path("host", "command")), end[2])
        self.assertEqual(second.quit(), 0)
        # The first host is not affected.
        self.host.call("push 10 Hello")
        wait_until(lambda: len(self.answered()) == 20, "not all commands are answered")
        self.host.call("stop")
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.conclude("the second one is refused: the command endpoint is in use; the first one goes on")


if __name__ == "__main__":
    main()
