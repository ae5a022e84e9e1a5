"""No requester, however it behaves, prevents our replier from serving the next one."""

import unittest

import zmq

from wire_support import PATIENCE, PeerFailure, WireTest, numbered, number_of, reply, status


class OurReplier(WireTest):
    def setUp(self):
        super().setUp()
        self.ours, self.endpoint = self.bound("Replier", name="Listening")

    def requester(self, options=None):
        return self.stock_connected(zmq.REQ, self.endpoint, options)

    def serve(self, stock, text):
        """One complete exchange."""
        stock.send(status().SerializeToString())
        self.expect_request(status())
        self.ours.send(reply(text))
        self.assertEqual(stock.recv(), reply(text).SerializeToString())

    def expect_request(self, message):
        self.assertEqual(self.ours.receive(type(message).__name__), (0, message.SerializeToString()))

    def test_serves_the_next_when_a_requester_vanishes_before_its_reply(self):
        before = self.ours.descriptors()
        vanishing = self.requester()
        vanishing.send(status().SerializeToString())
        self.expect_request(status())
        vanishing.close()
        self.wait_until_gone(self.ours, before)
        try:
            self.ours.send(reply("too late"))
        except PeerFailure as failure:
            # The replier may or may not have noticed it yet.
            self.assertIn("the requester disconnected before its reply", str(failure))
        self.serve(self.requester(), "next")

    def test_serves_the_next_when_a_requester_vanishes_before_its_request_is_taken(self):
        before = self.ours.descriptors()
        vanishing = self.requester()
        vanishing.send(status().SerializeToString())
        self.assertEqual(self.ours.poll(1000 * PATIENCE), 0)
        vanishing.close()
        self.wait_until_gone(self.ours, before)
        self.expect_request(status())
        with self.assertRaisesRegex(PeerFailure, "Listening.*the requester disconnected before its reply"):
            # During the poll the replier has noticed it.
            self.assertEqual(self.ours.poll(0), 1)
            self.ours.send(reply("too late"))
        self.serve(self.requester(), "next")

    def test_serves_the_next_when_a_request_is_never_answered(self):
        ignored, next_one = self.requester(), self.requester()
        ignored.send(numbered(1).SerializeToString())
        self.expect_request(numbered(1))
        self.serve(next_one, "next")
        self.assert_silent(ignored)

    def test_serves_a_requester_whose_last_request_was_never_answered(self):
        patient = self.requester({zmq.REQ_RELAXED: 1, zmq.REQ_CORRELATE: 1})
        patient.send(numbered(1).SerializeToString())
        self.expect_request(numbered(1))
        self.serve(patient, "second")

    def test_answers_each_requester_of_many_with_its_own_reply(self):
        requesters = [self.requester() for _ in range(50)]
        for number, stock in enumerate(requesters):
            stock.send(numbered(number).SerializeToString())
        for _ in requesters:
            result, encoding = self.ours.receive("EngineBackEndReply")
            self.assertEqual(result, 0)
            self.ours.send(reply(f"to {number_of(encoding)}"))
        for number, stock in enumerate(requesters):
            self.assertEqual(stock.recv(), reply(f"to {number}").SerializeToString())

    def test_answers_requests_that_were_sent_ahead_in_their_order(self):
        stock = self.stock_connected(zmq.DEALER, self.endpoint)
        for number in range(20):
            stock.send_multipart([b"", numbered(number).SerializeToString()])
        for number in range(20):
            self.expect_request(numbered(number))
            self.ours.send(reply(str(number)))
        for number in range(20):
            self.assertEqual(stock.recv_multipart(), [b"", reply(str(number)).SerializeToString()])

    def test_drops_a_message_without_the_empty_part_with_one_line_and_serves_on(self):
        stock = self.stock_connected(zmq.DEALER, self.endpoint)
        other = self.requester()
        endless = [b"\x08\x01"] * 100 + [b"", b"\x08\x01"]
        for parts in ([b"\x08\x01"], [b"\x08\x01", b"\x08\x01"], [b""], endless):
            stock.send_multipart(parts)
            stock.send_multipart([b"", status().SerializeToString()])
            self.expect_request(status())
            self.assert_only_line(self.ours, "Listening", "dropped a message that is not a request")
            self.ours.send(reply("well-formed"))
            self.assertEqual(stock.recv_multipart(), [b"", reply("well-formed").SerializeToString()])
            self.serve(other, "other")

    def test_sends_one_reply_to_a_request_and_none_without(self):
        with self.assertRaisesRegex(PeerFailure, "Listening.*no request is waiting for an answer"):
            self.ours.send(reply("unasked"))
        stock = self.requester()
        self.serve(stock, "only")
        with self.assertRaisesRegex(PeerFailure, "no request is waiting for an answer"):
            self.ours.send(reply("twice"))
        self.serve(stock, "next")

    def test_serves_its_requesters_again_after_it_was_closed_and_opened_on_the_same_endpoint(self):
        stock = self.requester({zmq.REQ_RELAXED: 1, zmq.REQ_CORRELATE: 1})
        self.serve(stock, "first")
        monitor = stock.get_monitor_socket(zmq.EVENT_HANDSHAKE_SUCCEEDED)
        self.ours.close()
        self.assertFalse(self.ours.is_open())
        self.ours.open("Replier", self.endpoint)
        # Requests that a stock requester sends before it notices the loss are lost.
        self.assertEqual(monitor.poll(1000 * PATIENCE), zmq.POLLIN)
        stock.disable_monitor()
        monitor.close()
        self.serve(stock, "second")


if __name__ == "__main__":
    unittest.main()
