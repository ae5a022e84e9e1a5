"""A host goes on when the process of its engine is frozen, and works with it again once that goes on."""

import signal
import time
import unittest

import zmq

from engine_support import PATIENCE, RUN, EngineTest, freeze, request

# How long a call may go on after its engine was frozen, in milliseconds. That is noticed within 3 s; the rest is for a
# heartbeat that is ahead, and for a busy machine.
CALL_BOUND = 6000
DESTRUCTION_BOUND = 8000


class OurFrontEnd(EngineTest):
    def lives(self):
        """For each transport, a host and its engine, idle."""
        for transport in self.each_transport():
            engine = self.engine_over(transport)
            host = self.host_process()
            host.configure(engine)
            host.call("ping 0")
            yield engine, host

    def expect_calls_that_fail_in_time(self, host):
        self.assertLess(host.call("ping 5"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending ping to remote engine on:")
        self.assertLess(host.call("request_stop"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending request stop to remote engine on:")
        host.wait_for_log("Error", "TcpEngineFrontEnd::heartBeatThreadFunction: failed sending heartbeat: ")

    def thaw(self, engine, host):
        """The engine goes on: the host's calls reach it again."""
        engine.signal(signal.SIGCONT)

        def is_pinged():
            host.call("ping 4711", PATIENCE)
            return engine.has_event("pinged 4711")

        self.wait_until(is_pinged, "the host does not find its engine again")

    def expect_end(self, engine, host):
        host.forget_log()
        engine.tell("wait")
        host.call("destroy")
        engine.milliseconds_of("wait", 5)
        self.assertEqual(host.whole_log(), "")
        self.assertEqual((host.end(), engine.end()), (0, 0))

    def test_goes_on_when_its_idle_engine_is_frozen(self):
        for engine, host in self.lives():
            freeze(engine)
            self.expect_calls_that_fail_in_time(host)
            self.assertLess(host.call("wait_for_stop 60000"), CALL_BOUND)
            self.thaw(engine, host)
            self.expect_end(engine, host)

    def test_goes_on_with_its_run_when_its_engine_does(self):
        for engine, host in self.lives():
            host.tell("run")
            engine.event("engine runs")
            self.begin_wait_for_stop(host)
            freeze(engine)
            self.assertLess(host.call("ping 5"), CALL_BOUND)
            host.wait_for_log("Error", "Failed sending ping to remote engine on:")
            self.assertFalse(host.has_event("run"))
            self.thaw(engine, host)
            self.assertFalse(host.has_event("run"))
            engine.tell("finish")
            host.milliseconds_of("run")
            host.milliseconds_of("wait_for_stop")
            self.expect_end(engine, host)

    def test_notices_that_its_engine_is_frozen_while_a_ping_is_pending(self):
        for engine, host in self.lives():
            engine.from_now_on("ping-takes 600000")
            host.tell("ping 5")
            engine.event("pinged 5")
            start = time.monotonic()
            freeze(engine)
            host.milliseconds_of("ping")
            self.assertLess(1000 * (time.monotonic() - start), CALL_BOUND)
            host.wait_for_log("Error", "Failed sending ping to remote engine on:",
                              "the connection was lost before the reply came")
            engine.tell("release")
            self.thaw(engine, host)
            self.expect_end(engine, host)

    def expect_destruction_in_time(self, engine, host):
        freeze(engine)
        self.assertLess(host.call("destroy"), DESTRUCTION_BOUND)
        host.wait_for_log("Error", "Failed sending termination request to backend: ")
        self.assertEqual(host.end(), 0)
        engine.signal(signal.SIGCONT)
        self.assertEqual(engine.end(), 0)

    def test_is_destroyed_in_time_when_its_idle_engine_is_frozen(self):
        for engine, host in self.lives():
            self.expect_destruction_in_time(engine, host)

    def test_is_destroyed_in_time_when_its_running_engine_is_frozen(self):
        for engine, host in self.lives():
            self.expect_success(self.stock_connected(zmq.REQ, engine.request_endpoint), request(RUN))
            engine.event("engine runs")
            self.expect_destruction_in_time(engine, host)

    def test_is_destroyed_in_time_after_its_engine_was_frozen_within_a_ping(self):
        for engine, host in self.lives():
            engine.from_now_on("ping-takes 600000")
            host.tell("ping 5")
            engine.event("pinged 5")
            freeze(engine)
            host.milliseconds_of("ping")
            self.expect_destruction_in_time(engine, host)


if __name__ == "__main__":
    unittest.main()
