"""Our front end when the engine on stock sockets is silent, dies, and comes back."""

import signal
import time
import unittest

import TcpEngine_pb2 as engine
from engine_support import (
    HEARTBEAT, PING, REQUEST_STOP, SUCCESS, TERMINATION, EngineTest, StockEngine, freeze)
from wire_support import PATIENCE

# In milliseconds, with a margin for a busy machine: half a second until the connection is restored, the same for a
# heartbeat that is sent first; 3 s more until a frozen peer is noticed.
CALL_BOUND = 2000
FROZEN_CALL_BOUND = 6000
LOST = "the connection was lost before the reply came"


class Engines:
    """A stock replier and a stock publisher in their own processes."""

    def __init__(self, test, request_endpoint, status_endpoint):
        self.replier = test.stock_process("REP", request_endpoint)
        self.publisher = test.stock_process("XPUB", status_endpoint)
        self.request_endpoint = self.replier.endpoint
        self.status_endpoint = self.publisher.endpoint

    def next_request(self):
        return engine.EngineFrontEndRequest.FromString(self.replier.receive())

    def serve_until(self, kind):
        """Answers every request until one of that kind arrives, which gets no answer."""
        while self.next_request().type != kind:
            self.replier.send(SUCCESS)

    def kill(self):
        self.replier.kill()
        self.publisher.kill()


class OurFrontEnd(EngineTest):
    def lives(self):
        for transport in self.each_transport():
            endpoints = ("tcp://127.0.0.1:*",) * 2 if transport == "tcp" else (self.ipc("request"), self.ipc("status"))
            stock = Engines(self, *endpoints)
            host = self.host_process()
            host.configure(stock)
            yield stock, host

    def begin_ping(self, stock, host):
        """A ping that the engine has received, but not answered."""
        host.tell("ping 5")
        stock.serve_until(PING)

    def expect_destruction_in_time(self, host, bound=CALL_BOUND):
        self.assertLess(host.call("destroy"), bound)
        host.wait_for_log("Error", "Failed sending termination request to backend: ")
        self.assertEqual(host.end(), 0)

    def expect_end_with(self, stock, host):
        host.tell("destroy")
        stock.serve_until(TERMINATION)
        stock.replier.send(SUCCESS)
        host.milliseconds_of("destroy")
        self.assertEqual(host.end(), 0)

    def test_goes_on_when_its_engine_dies_between_request_and_reply(self):
        for stock, host in self.lives():
            self.begin_ping(stock, host)
            start = time.monotonic()
            stock.kill()
            host.milliseconds_of("ping")
            self.assertLess(1000 * (time.monotonic() - start), CALL_BOUND)
            host.wait_for_log("Error", "Failed sending ping to remote engine on:", LOST)
            self.assertLess(host.call("request_stop"), CALL_BOUND)
            host.wait_for_log("Error", "Failed sending request stop to remote engine on:",
                              "the connection was lost and not re-established within 500 ms")
            host.wait_for_log("Error", "failed sending heartbeat: ")
            self.expect_destruction_in_time(host)

    def test_goes_on_when_its_engine_dies_between_heartbeat_and_reply(self):
        for stock, host in self.lives():
            stock.serve_until(HEARTBEAT)
            stock.kill()
            host.wait_for_log("Error", "failed sending heartbeat: ", LOST)
            self.expect_destruction_in_time(host)

    def test_is_destroyed_when_its_engine_dies_between_disconnection_and_reply(self):
        for stock, host in self.lives():
            host.tell("destroy")
            stock.serve_until(TERMINATION)
            start = time.monotonic()
            stock.kill()
            host.milliseconds_of("destroy")
            self.assertLess(1000 * (time.monotonic() - start), CALL_BOUND)
            host.wait_for_log("Error", "Failed sending termination request to backend: ", LOST)
            self.assertEqual(host.end(), 0)

    def test_works_with_the_next_engine_on_the_same_endpoints(self):
        for stock, host in self.lives():
            self.begin_ping(stock, host)
            stock.kill()
            host.milliseconds_of("ping")
            successor = Engines(self, stock.request_endpoint, stock.status_endpoint)
            # Heartbeats are sent automatically; no earlier request is left.
            successor.serve_until(HEARTBEAT)
            successor.replier.send(SUCCESS)
            host.forget_log()
            self.begin_ping(successor, host)
            successor.replier.send(SUCCESS)
            host.milliseconds_of("ping")
            self.assertEqual(successor.publisher.receive(), b"\x01")
            self.assertEqual(host.whole_log(), "")
            self.expect_end_with(successor, host)

    def test_goes_on_when_its_engine_is_frozen_between_request_and_reply(self):
        for stock, host in self.lives():
            self.begin_ping(stock, host)
            start = time.monotonic()
            freeze(stock.replier)
            host.milliseconds_of("ping")
            self.assertLess(1000 * (time.monotonic() - start), FROZEN_CALL_BOUND)
            host.wait_for_log("Error", "Failed sending ping to remote engine on:", LOST)
            stock.replier.signal(signal.SIGCONT)
            # Its late reply is discarded, and not mistaken for the next request's.
            stock.replier.send(engine.EngineBackEndReply(type=engine.EngineBackEndReply.Failure, errorString="late"))
            stock.serve_until(HEARTBEAT)
            stock.replier.send(SUCCESS)
            self.begin_ping(stock, host)
            stock.replier.send(SUCCESS)
            host.milliseconds_of("ping")
            self.expect_end_with(stock, host)
            self.assertNotIn("late", host.whole_log())

    def test_waits_for_an_engine_that_is_silent_but_lives_and_sends_no_more_meanwhile(self):
        stock = StockEngine(self)
        host = self.host_process()
        host.configure(stock)
        stock.answers[HEARTBEAT] = None
        stock.serve_until(lambda: HEARTBEAT in stock.kinds())
        host.tell("ping 5")
        host.tell("request_stop")
        # Several heartbeats are due; the pending exchange comes first.
        self.assertFalse(host.has_event("", 4), "a call has ended without a reply")
        self.assertEqual(stock.replier.poll(0), 0)
        self.assertEqual(stock.kinds(), [HEARTBEAT])
        del stock.answers[HEARTBEAT]
        stock.answer(stock.unanswered[0][1], SUCCESS.SerializeToString())
        stock.serve_until(lambda: host.has_event("ping ") and host.has_event("request_stop "), PATIENCE)
        self.assertEqual(sorted(kind for kind in stock.kinds() if kind != HEARTBEAT), [PING, REQUEST_STOP])
        stock.requests.clear()
        stock.serve_until(lambda: stock.kinds().count(HEARTBEAT) >= 2)
        self.assertEqual(host.whole_log(), "")
        stock.serve_call(host, "destroy")

    def test_ends_every_call_that_waits_when_its_silent_engine_dies(self):
        for stock, host in self.lives():
            stock.serve_until(HEARTBEAT)
            for call in ("ping 1", "ping 2", "request_stop"):
                host.tell(call)
            self.assertFalse(host.has_event("", 0.5), "a call has ended without a reply")
            start = time.monotonic()
            stock.kill()
            for call in ("ping", "ping", "request_stop"):
                host.milliseconds_of(call)
            # Each of them, and a heartbeat or two, waits half a second for the connection.
            self.assertLess(time.monotonic() - start, 5)
            self.expect_destruction_in_time(host)


if __name__ == "__main__":
    unittest.main()
