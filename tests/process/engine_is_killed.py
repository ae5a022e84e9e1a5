"""A host goes on when the process of its engine is killed: no call waits, and each says why it failed."""

import time
import unittest

import zmq

from engine_support import RUN, EngineTest, request

# How long a call may go on after its engine's death, in milliseconds. It takes at most half a second for the connection
# to come back, and as much for a heartbeat that is ahead; the rest is for a busy machine.
CALL_BOUND = 2000


class OurFrontEnd(EngineTest):
    def lives(self):
        """For each transport, a host and its engine, idle."""
        for transport in self.each_transport():
            engine = self.engine_over(transport)
            host = self.host_process()
            host.configure(engine)
            host.call("ping 0")
            yield engine, host

    def let_run_without_the_host(self, engine):
        """Another host has the engine run, so that ours waits for nothing."""
        self.expect_success(self.stock_connected(zmq.REQ, engine.request_endpoint), request(RUN))
        engine.event("engine runs")

    def expect_calls_that_fail_in_time(self, host):
        host.forget_log()
        self.assertLess(host.call("ping 5"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending ping to remote engine on:", "TcpEngineFrontEndCommandSocket")
        self.assertLess(host.call("request_stop"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending request stop to remote engine on:", "src/TcpEngineFrontEnd")
        self.assertLess(host.call("run"), CALL_BOUND)
        host.wait_for_log("Error", "TcpEngineFrontEnd::heartBeatThreadFunction: failed sending heartbeat: ")

    def expect_destruction_in_time(self, host):
        self.assertLess(host.call("destroy"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending termination request to backend: ")
        self.assertEqual(host.end(), 0)

    def test_goes_on_when_its_idle_engine_is_killed(self):
        for engine, host in self.lives():
            self.kill_engine(engine)
            self.expect_calls_that_fail_in_time(host)
            self.assertLess(host.call("wait_for_stop 60000"), CALL_BOUND)
            self.expect_destruction_in_time(host)

    def test_goes_on_when_its_running_engine_is_killed(self):
        for engine, host in self.lives():
            self.let_run_without_the_host(engine)
            self.begin_wait_for_stop(host)
            self.kill_engine(engine)
            self.expect_calls_that_fail_in_time_while_running(host)
            # The wait under way has a minute; another one ends when its own time is over.
            host.tell("wait_for_stop 1500")
            self.assertLess(host.milliseconds_of("wait_for_stop", outcome="threw"), 1500 + 1000 + CALL_BOUND)
            successor = self.engine_process(engine.request_endpoint, engine.status_endpoint)
            host.milliseconds_of("wait_for_stop")
            host.call("ping 7")
            successor.event("pinged 7")
            host.call("destroy")
            self.assertEqual((host.end(), successor.end()), (0, 0))

    def expect_calls_that_fail_in_time_while_running(self, host):
        self.assertLess(host.call("ping 5"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending ping to remote engine on:")
        self.assertLess(host.call("request_stop"), CALL_BOUND)
        host.wait_for_log("Error", "Failed sending request stop to remote engine on:")
        host.wait_for_log("Error", "failed sending heartbeat: ")

    def test_is_destroyed_in_time_when_its_running_engine_is_killed(self):
        for engine, host in self.lives():
            self.let_run_without_the_host(engine)
            self.kill_engine(engine)
            self.expect_destruction_in_time(host)

    def test_notices_at_once_that_its_engine_is_killed_while_a_ping_is_pending(self):
        for engine, host in self.lives():
            engine.from_now_on("ping-takes 600000")
            host.tell("ping 5")
            engine.event("pinged 5")
            start = time.monotonic()
            self.kill_engine(engine)
            host.milliseconds_of("ping")
            self.assertLess(1000 * (time.monotonic() - start), CALL_BOUND)
            host.wait_for_log("Error", "Failed sending ping to remote engine on:",
                              "the connection was lost before the reply came")
            self.expect_destruction_in_time(host)

    def test_is_destroyed_in_time_right_after_its_engine_was_killed(self):
        for engine, host in self.lives():
            self.kill_engine(engine)
            self.expect_destruction_in_time(host)

    def test_ends_its_run_as_soon_as_the_endpoints_of_the_killed_engine_are_taken_over(self):
        for engine, host in self.lives():
            host.tell("run")
            engine.event("engine runs")
            self.begin_wait_for_stop(host)
            self.kill_engine(engine)
            self.expect_calls_that_fail_in_time_while_running(host)
            successor = self.engine_process(engine.request_endpoint, engine.status_endpoint)
            start = time.monotonic()
            host.milliseconds_of("run")
            host.milliseconds_of("wait_for_stop")
            self.assertLess(1000 * (time.monotonic() - start), CALL_BOUND)
            host.call("destroy")
            self.assertEqual((host.end(), successor.end()), (0, 0))

    def test_works_with_each_of_many_engines_that_are_killed_one_after_the_other(self):
        engine = self.engine_process()
        host = self.host_process()
        host.configure(engine)
        for number in range(5):
            engine.from_now_on("ping-takes 600000")
            host.tell(f"ping {number}")
            engine.event(f"pinged {number}")
            self.kill_engine(engine)
            host.milliseconds_of("ping")
            engine = self.engine_process(engine.request_endpoint, engine.status_endpoint)

            def is_pinged():
                host.call("ping 99")
                return engine.has_event("pinged 99")

            self.wait_until(is_pinged, "the host does not find the next engine")
        self.kill_engine(engine)
        self.expect_destruction_in_time(host)


if __name__ == "__main__":
    unittest.main()
