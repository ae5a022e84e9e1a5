"""Our front end with an engine on stock sockets, and how it handles each kind of reply and status."""

import unittest

import zmq

import TcpEngine_pb2 as engine
from engine_support import (
    HEARTBEAT, PING, REQUEST_STOP, RUN, SUCCESS, TERMINATION, WAIT_FOR_STOP, EngineTest, StockEngine)
from promises import Bound

Reply = engine.EngineBackEndReply


class OurFrontEnd(EngineTest):
    def setUp(self):
        super().setUp()
        self.host = self.host_process()

    def configured(self, **options):
        """A stock engine, and our front end configured with it; the front end has received the status Idle."""
        stock = StockEngine(self, **options)
        self.host.configure(stock)
        stock.serve_until(lambda: HEARTBEAT in stock.kinds() and stock.publisher.poll(0))
        self.assertEqual(stock.publisher.recv(), b"\x01")
        stock.publish("Idle")
        return stock

    def serve_end(self, stock):
        """The front end finally disconnects, and the log contains nothing that the test has not checked."""
        self.host.forget_log()
        stock.serve_call(self.host, "destroy")
        self.assertEqual(stock.kinds()[-1], TERMINATION)
        self.assertEqual(stock.kinds().count(TERMINATION), 1)
        self.assertEqual(self.host.end(), 0)
        self.assertEqual(self.host.whole_log(), "")

    def ping_answered_with(self, stock, encoding):
        stock.answers[PING] = encoding
        stock.serve_call(self.host, "ping 5")

    def expect_ping_failure(self, stock, encoding, *texts):
        """The ping nevertheless returns, and the host continues."""
        self.host.forget_log()
        self.ping_answered_with(stock, encoding)
        self.host.wait_for_log("Error", "Failed sending ping to remote engine on:", "TcpEngineFrontEndCommandSocket",
                               *texts)
        self.host.forget_log()
        self.ping_answered_with(stock, SUCCESS.SerializeToString())
        self.assertEqual(self.host.whole_log(), "")

    def test_sends_a_type_and_a_time_out_with_every_request(self):
        for kind, transport in ((zmq.ROUTER, "ipc"), (zmq.REP, "ipc"), (zmq.ROUTER, "tcp"), (zmq.REP, "tcp")):
            self.host = self.host_process()
            stock = self.configured(kind=kind, name=f"stock-{kind}", transport=transport)
            stock.serve_call(self.host, "ping 0")
            stock.serve_call(self.host, f"ping {2**32 - 1}")
            stock.serve_call(self.host, "request_stop")
            self.serve_end(stock)
            sent = [(received.type, received.timeOutMilliseconds) for _, received in stock.requests
                    if received.type != HEARTBEAT]
            self.assertEqual(sent, [(PING, 0), (PING, 2**32 - 1), (REQUEST_STOP, 0), (TERMINATION, 0)])
            for _, received in stock.requests:
                self.assertTrue(received.HasField("type"))
                self.assertTrue(received.HasField("timeOutMilliseconds"))
                if received.type == HEARTBEAT:
                    self.assertEqual(received.timeOutMilliseconds, 0)

    def test_sends_a_heartbeat_about_every_second(self):
        stock = self.configured()
        stock.requests.clear()
        stock.serve_until(lambda: len(stock.requests) >= 5)
        self.assertEqual(set(stock.kinds()), {HEARTBEAT})
        times = [time for time, _ in stock.requests]
        self.assertGreater(times[-1] - times[0], 4 * 0.9)
        for earlier, later in zip(times, times[1:]):
            self.assertLess(later - earlier, 3)
        self.serve_end(stock)

    def test_takes_success_with_and_without_texts(self):
        stock = self.configured()
        for success in (SUCCESS, Reply(type=Reply.Success), Reply(type=Reply.Success, replyString="ß" * 1000),
                        Reply(type=Reply.Success, errorString="not looked at")):
            self.ping_answered_with(stock, success.SerializeToString())
        self.assertEqual(self.host.whole_log(), "")
        self.serve_end(stock)

    def test_logs_a_failure_with_its_text_or_that_it_has_none(self):
        stock = self.configured()
        with_text = Reply(type=Reply.Failure, errorString="no täpe", replyString="")
        self.expect_ping_failure(stock, with_text.SerializeToString(), "no täpe")
        self.expect_ping_failure(stock, Reply(type=Reply.Failure).SerializeToString(), "Command failure")
        stock.answers[REQUEST_STOP] = with_text.SerializeToString()
        stock.serve_call(self.host, "request_stop")
        self.host.wait_for_log("Error", "Failed sending request stop to remote engine on:", "no täpe")
        stock.answers[RUN] = with_text.SerializeToString()
        self.assertLess(stock.serve_call(self.host, "run"), 2000)
        self.host.wait_for_log("Error", "Failed sending ping to remote engine on:", "no täpe")
        stock.answers[HEARTBEAT] = with_text.SerializeToString()
        stock.requests.clear()
        stock.serve_until(lambda: stock.kinds().count(HEARTBEAT) >= 2)
        self.host.wait_for_log("Error", "heartBeatThreadFunction: failed sending heartbeat: ", "no täpe")
        del stock.answers[HEARTBEAT]
        stock.answers[TERMINATION] = with_text.SerializeToString()
        stock.serve_call(self.host, "destroy")
        self.host.wait_for_log("Error", "Failed sending termination request to backend: ", "no täpe")

    def test_refuses_a_reply_of_an_unknown_type_and_one_that_cannot_be_read(self):
        stock = self.configured()
        self.expect_ping_failure(stock, b"\x08\x09", "Unexpected reply type: ")
        self.expect_ping_failure(stock, b"", "Unexpected reply type: ")
        self.expect_ping_failure(stock, b"\xff\xff\xff", "Unexpected reply type: ")
        self.expect_ping_failure(stock, b"\x12\x02no", "Unexpected reply type: ")
        self.serve_end(stock)

    def test_refuses_an_oversized_reply_but_not_the_largest(self):
        stock = self.configured()
        largest = Reply(type=Reply.Success, replyString="a" * 8187)
        self.assertEqual(largest.ByteSize(), 8192)
        self.ping_answered_with(stock, largest.SerializeToString())
        self.assertEqual(self.host.whole_log(), "")
        for size in (8188, 10000, 1000000):
            oversized = Reply(type=Reply.Success, replyString="a" * size)
            self.expect_ping_failure(stock, oversized.SerializeToString(), "Unexpected reply type: ")
        self.serve_end(stock)

    def test_runs_as_long_as_the_status_says_so(self):
        for end in ("Idle", "EndOfLife", "Undefined"):
            self.host = self.host_process()
            stock = self.configured(name=end)
            self.host.tell("run")
            stock.serve_until(lambda: RUN in stock.kinds())
            self.assertFalse(self.host.has_event("run", 0.3))
            stock.publish("Running")
            stock.serve_until(lambda: stock.kinds().count(HEARTBEAT) >= 4)
            # Neither an unknown status nor garbage ends a run.
            stock.publisher.send(b"\x08\x63")
            stock.publisher.send(b"\xff")
            stock.publisher.send(b"a" * 2000)
            self.host.wait_for_log("Error", "unknown engine status received")
            self.assertFalse(self.host.has_event("run", 0.3))
            stock.publish(end)
            stock.serve_until(lambda: self.host.has_event("run"))
            self.host.milliseconds_of("run")
            self.serve_end(stock)

    def test_gives_a_run_up_when_the_status_does_not_change_within_two_seconds(self):
        stock = self.configured()
        self.host.tell("run")
        stock.serve_until(lambda: self.host.has_event("run"))
        event = self.host.event("run threw after ")
        self.assertIn("Run: Remote engine not switching to Running state", event)
        milliseconds = int(event.split()[3].rstrip(":"))
        self.assertGreaterEqual(milliseconds, 1900)
        self.expect_within(Bound(5, promised=2.1), "a run that does not begin fails", milliseconds / 1000)
        self.serve_end(stock)

    def test_waits_for_the_stop_by_itself(self):
        stock = self.configured()
        self.assertLess(stock.serve_call(self.host, "wait_for_stop 60000"), 1000)
        self.host.tell("run")
        stock.serve_until(lambda: RUN in stock.kinds())
        stock.publish("Running")

        def is_running():
            self.host.tell("wait_for_stop 0")
            stock.serve_until(lambda: self.host.has_event("wait_for_stop "))
            return "WaitForStop: timeout" in self.host.event("wait_for_stop ")

        self.wait_until(is_running, "the status does not arrive")
        self.host.tell("wait_for_stop 60000")
        self.assertFalse(self.host.has_event("wait_for_stop", 0.3))
        stock.publish("Idle")
        stock.serve_until(lambda: self.host.has_event("wait_for_stop ") and self.host.has_event("run "))
        self.host.milliseconds_of("wait_for_stop")
        self.assertNotIn(WAIT_FOR_STOP, stock.kinds())
        self.serve_end(stock)


if __name__ == "__main__":
    unittest.main()
