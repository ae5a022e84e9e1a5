"""Our back end with a host on stock sockets: the reply to each request, and the statuses."""

import time
import unittest

import zmq

from engine_support import (
    HEARTBEAT, PATIENCE, PING, REQUEST_START, REQUEST_STOP, RUN, TERMINATION, WAIT_FOR_STOP, EngineTest, request)


class OurBackEnd(EngineTest):
    def setUp(self):
        super().setUp()
        self.engine = self.engine_process()
        self.host = self.stock_connected(zmq.REQ, self.engine.request_endpoint)

    def test_answers_every_kind_of_request_over_tcp_as_well(self):
        over_tcp = self.engine_process("tcp://127.0.0.1:0", "tcp://127.0.0.1:0")
        for process in (self.engine, over_tcp):
            host = self.stock_connected(zmq.REQ, process.request_endpoint)
            self.expect_success(host, request(HEARTBEAT, 0))
            self.expect_success(host, request(PING, 1234))
            self.assertEqual(process.event("pinged"), "pinged 1234")
            self.expect_failure(host, request(WAIT_FOR_STOP, 0), "Request error")
            self.expect_success(host, request(RUN, 0))
            process.event("engine runs")
            self.expect_success(host, request(REQUEST_STOP, 0))
            process.event("stop requested")
            process.event("engine ran")
            self.expect_success(host, request(TERMINATION, 0))

    def test_takes_the_time_out_for_absent_as_zero_and_at_its_largest(self):
        for time_out, shown in ((None, "0"), (0, "0"), (2**32 - 1, str(2**32 - 1))):
            self.expect_success(self.host, request(PING, time_out))
            self.assertEqual(self.engine.event("pinged"), "pinged " + shown)

    def test_runs_its_engine_once(self):
        self.expect_success(self.host, request(RUN))
        self.engine.event("engine runs")
        self.expect_failure(self.host, request(RUN), "An engine run thread already exists")
        self.engine.tell("finish")
        self.engine.event("engine ran")
        self.expect_failure(self.host, request(RUN), "An engine run thread already exists")
        self.assertFalse(self.engine.has_event("engine runs"))

    def test_replies_with_the_text_of_an_engine_that_throws(self):
        self.engine.from_now_on("ping-throws größer als je zuvor")
        answer = self.expect_failure(self.host, request(PING), "größer als je zuvor")
        self.assertEqual(answer.errorString, "größer als je zuvor")
        self.engine.from_now_on("ping-throws-unknown")
        self.expect_failure(self.host, request(PING), "Unknown failure")
        self.engine.from_now_on("stop-throws not now")
        answer = self.expect_failure(self.host, request(REQUEST_STOP), "not now")
        self.assertEqual(answer.errorString, "not now")
        self.expect_success(self.host, request(HEARTBEAT))

    def test_answers_what_it_does_not_know_or_cannot_read_with_a_failure_and_starts_nothing(self):
        strange = {
            "number 99": b"\x08\x63",
            "a negative number": b"\x08" + b"\xff" * 9 + b"\x01",
            "no type": b"\x10\x05",
            "nothing": b"",
            "garbage": b"\xff\xff\xff\xff",
            "a text": b"GET / HTTP/1.1\r\n\r\n",
            "a type that is cut off": b"\x08",
            "more than is taken": request(RUN) + b"\x1a\xf0\xa2\x04" + b"a" * 70000,
        }
        for what, encoding in strange.items():
            with self.subTest(what):
                self.expect_failure(self.host, encoding, "Request error")
                self.expect_success(self.host, request(HEARTBEAT, 0))
        self.assertFalse(self.engine.has_event("engine runs", 0.3))

    def test_gives_request_start_no_reply_and_serves_the_next_requester(self):
        self.host.send(request(REQUEST_START, 0))
        self.assert_silent(self.host)
        other = self.stock_connected(zmq.REQ, self.engine.request_endpoint)
        self.expect_success(other, request(HEARTBEAT, 0))
        # The peer without a reply can also continue, if its kind of socket allows that.
        dealer = self.stock_connected(zmq.DEALER, self.engine.request_endpoint)
        dealer.send_multipart([b"", request(REQUEST_START, 0)])
        dealer.send_multipart([b"", request(HEARTBEAT, 0)])
        self.assertEqual(dealer.recv_multipart()[0], b"")
        self.assert_silent(dealer)

    def test_serves_requests_in_the_order_of_their_arrival_however_slow_the_engine(self):
        self.engine.from_now_on("ping-takes 600000")
        self.host.send(request(PING, 5))
        self.engine.event("pinged 5")
        other = self.stock_connected(zmq.REQ, self.engine.request_endpoint)
        other.send(request(HEARTBEAT, 0))
        self.assert_silent(other)
        self.engine.tell("release")
        self.assertNotEqual(self.host.poll(1000 * PATIENCE), 0)
        self.assertNotEqual(other.poll(1000 * PATIENCE), 0)

    def test_publishes_at_once_and_on_every_change_and_at_least_every_second(self):
        subscriber = self.subscriber(self.engine.status_endpoint)
        self.assertEqual(self.next_status(subscriber), "Idle")
        # The same status again, without any change.
        start = time.monotonic()
        for _ in range(3):
            self.assertEqual(self.next_status(subscriber), "Idle")
        self.assertGreater(time.monotonic() - start, 1)
        self.expect_success(self.host, request(RUN))
        self.engine.event("engine runs")
        self.expect_status(subscriber, "Running", after=["Idle"])
        self.assertEqual(self.next_status(subscriber), "Running")
        self.engine.tell("finish")
        self.expect_status(subscriber, "Idle", after=["Running"])
        late = self.subscriber(self.engine.status_endpoint)
        self.assertEqual(self.next_status(late), "Idle")

    def test_publishes_a_change_without_waiting_for_the_second_to_be_over(self):
        subscriber = self.subscriber(self.engine.status_endpoint)
        self.expect_status(subscriber, "Idle")
        # Right after a publication, so that the next regular one is a second away.
        self.expect_status(subscriber, "Idle")
        start = time.monotonic()
        self.expect_success(self.host, request(RUN))
        self.expect_status(subscriber, "Running", after=["Idle"])
        self.assertLess(time.monotonic() - start, 0.9)

    def test_is_idle_again_when_its_engine_has_failed_and_says_why(self):
        subscriber = self.subscriber(self.engine.status_endpoint)
        self.expect_success(self.host, request(RUN))
        self.expect_status(subscriber, "Running", after=["Idle"])
        self.engine.tell("run-throws out of tape")
        self.expect_status(subscriber, "Idle", after=["Running"])
        self.engine.wait_for_log("Error", "engineRunThreadFunction failed running engine: out of tape")

    def expect_end_of_life_as_the_last(self, subscriber, before):
        self.expect_status(subscriber, "EndOfLife", after=before)
        self.engine.milliseconds_of("destroy")
        while subscriber.poll(300):
            self.assertEqual(self.next_status(subscriber), "EndOfLife")

    def test_publishes_its_end_of_life_last(self):
        subscriber = self.subscriber(self.engine.status_endpoint)
        self.expect_status(subscriber, "Idle")
        self.engine.tell("destroy")
        self.expect_end_of_life_as_the_last(subscriber, ["Idle"])

    def test_publishes_its_end_of_life_last_when_its_engine_still_runs(self):
        subscriber = self.subscriber(self.engine.status_endpoint)
        self.expect_success(self.host, request(RUN))
        self.expect_status(subscriber, "Running", after=["Idle"])
        self.engine.tell("destroy")
        self.assertFalse(self.engine.has_event("destroy", 0.3), "did not wait for its engine")
        self.engine.tell("finish")
        self.expect_end_of_life_as_the_last(subscriber, ["Running"])

    def test_returns_from_the_wait_at_once_when_its_front_end_terminates(self):
        self.expect_success(self.host, request(HEARTBEAT, 0))
        self.engine.tell("wait")
        self.assertFalse(self.engine.has_event("wait", 0.3))
        self.expect_success(self.host, request(TERMINATION, 0))
        self.assertLess(self.engine.milliseconds_of("wait"), 5000)
        self.assertNotIn("timeout on frontend heartbeat", self.engine.whole_log())
        # A late caller returns at once.
        self.assertLess(self.engine.call("wait"), 2000)

    def test_serves_on_when_hosts_vanish_with_their_requests_unanswered(self):
        self.engine.from_now_on("ping-takes 600000")
        for number in range(5):
            vanishing = self.stock_connected(zmq.REQ, self.engine.request_endpoint)
            vanishing.send(request(PING, number))
            if number == 0:
                self.engine.event("pinged 0")
            vanishing.close(linger=1000)
        self.engine.tell("release")
        self.expect_success(self.host, request(HEARTBEAT, 0))


if __name__ == "__main__":
    unittest.main()
