"""Every kind of message passes between our socket and a stock one, in every role and both directions, byte for byte."""

import unittest

import zmq

from wire_support import EVERY_MESSAGE, WireTest


class EveryMessage(WireTest):
    def expect_received(self, ours, name, message):
        """Our side receives the message, and encodes it as Python does."""
        self.assertEqual(ours.receive(type(message).__name__), (0, message.SerializeToString()), name)

    def test_goes_from_our_publisher_to_a_stock_subscriber(self):
        ours, endpoint = self.bound("Publisher")
        stock = self.subscriber(endpoint)
        for name, message in EVERY_MESSAGE.items():
            ours.send(message)
            self.assertEqual(stock.recv_multipart(), [message.SerializeToString()], name)

    def test_goes_from_a_stock_xpub_to_our_subscriber(self):
        ours = self.ours()
        stock = self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))
        for name, message in EVERY_MESSAGE.items():
            stock.send(message.SerializeToString())
            self.expect_received(ours, name, message)

    def test_goes_from_a_stock_pub_to_our_subscriber(self):
        stock, endpoint = self.stock_bound(zmq.PUB)
        ours = self.connected("Subscriber", endpoint)
        # A stock publisher silently drops messages until it knows a subscriber.
        greeting, last = EVERY_MESSAGE["status Idle"], EVERY_MESSAGE["status EndOfLife"]
        stock.send(greeting.SerializeToString())
        while ours.poll(10) == 1:
            stock.send(greeting.SerializeToString())
        stock.send(last.SerializeToString())
        while ours.receive("EngineStatus") != (0, last.SerializeToString()):
            pass
        for name, message in EVERY_MESSAGE.items():
            stock.send(message.SerializeToString())
            self.expect_received(ours, name, message)

    def exchange_with_our_replier(self, kind, options, envelope):
        """Each message as a request, and the same as its reply."""
        ours, endpoint = self.bound("Replier")
        stock = self.stock_connected(kind, endpoint, options)
        for name, message in EVERY_MESSAGE.items():
            stock.send_multipart(envelope + [message.SerializeToString()])
            self.expect_received(ours, name, message)
            ours.send(message)
            self.assertEqual(stock.recv_multipart(), envelope + [message.SerializeToString()], name)

    def test_is_exchanged_between_a_stock_req_and_our_replier(self):
        self.exchange_with_our_replier(zmq.REQ, {}, [])

    def test_is_exchanged_between_a_stock_req_that_numbers_its_requests_and_our_replier(self):
        self.exchange_with_our_replier(zmq.REQ, {zmq.REQ_CORRELATE: 1}, [])

    def test_is_exchanged_between_a_stock_req_that_may_ask_again_and_our_replier(self):
        self.exchange_with_our_replier(zmq.REQ, {zmq.REQ_RELAXED: 1}, [])

    def test_is_exchanged_between_a_stock_req_that_numbers_and_may_ask_again_and_our_replier(self):
        self.exchange_with_our_replier(zmq.REQ, {zmq.REQ_CORRELATE: 1, zmq.REQ_RELAXED: 1}, [])

    def test_is_exchanged_between_a_stock_dealer_in_the_role_of_a_req_and_our_replier(self):
        self.exchange_with_our_replier(zmq.DEALER, {}, [b""])

    def test_is_exchanged_between_a_stock_dealer_that_numbers_its_requests_and_our_replier(self):
        self.exchange_with_our_replier(zmq.DEALER, {}, [b"\0\0\0\x2a", b""])

    def test_is_exchanged_between_our_requester_and_a_stock_rep(self):
        stock, endpoint = self.stock_bound(zmq.REP)
        ours = self.connected("Requester", endpoint)
        for name, message in EVERY_MESSAGE.items():
            ours.send(message)
            self.assertEqual(stock.recv_multipart(), [message.SerializeToString()], name)
            stock.send(message.SerializeToString())
            self.expect_received(ours, name, message)

    def test_is_exchanged_between_our_requester_and_a_stock_router(self):
        stock, endpoint = self.stock_bound(zmq.ROUTER)
        ours = self.connected("Requester", endpoint)
        for name, message in EVERY_MESSAGE.items():
            ours.send(message)
            *envelope, empty, content = stock.recv_multipart()
            self.assertEqual((empty, content), (b"", message.SerializeToString()), name)
            stock.send_multipart([*envelope, empty, content])
            self.expect_received(ours, name, message)


if __name__ == "__main__":
    unittest.main()
