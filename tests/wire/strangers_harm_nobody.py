"""Peers that connect to our bound sockets without following the protocol do not affect others."""

import random
import socket
import unittest

import zmq

from wire_support import PATIENCE, WireTest, number_of, reply, status

GREETING = b"\xff\0\0\0\0\0\0\0\x01\x7f\x03\0" + b"NULL".ljust(20, b"\0") + b"\0" * 32


def speeches():
    """The bytes that strangers send."""
    noise = random.Random(20250301)
    yield b""
    yield b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"
    yield b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + noise.randbytes(512)
    yield GREETING[:11]
    yield GREETING
    yield GREETING + noise.randbytes(1000)
    # A command, then a message, with lengths beyond any memory.
    yield GREETING + b"\x06" + b"\x7f" * 8
    yield GREETING + b"\x02" + b"\xff" * 8 + noise.randbytes(100)
    for size in (1, 9, 10, 64, 65, 1000, 65536):
        yield noise.randbytes(size)
        yield b"\xff" + noise.randbytes(size)


class AStranger(WireTest):
    def address_of(self, endpoint):
        host, _, port = endpoint.removeprefix("tcp://").rpartition(":")
        return host, int(port)

    def visit(self, ours, endpoint):
        """Sends each of these bytes on a separate connection; returns the connections that stay open."""
        connections = []
        for speech in speeches():
            connection = socket.create_connection(self.address_of(endpoint), PATIENCE)
            self.addCleanup(connection.close)
            try:
                connection.sendall(speech)
            except OSError:  # it was thrown out while it spoke
                pass
            connections.append(connection)
        return connections

    def discard_complaints(self, ours):
        """Noise may be a valid message of an old peer, which is then logged; all other bytes are not."""
        for line in ours.log():
            self.assertRegex(line, "^Error Ours .*dropped a message that is not a request")

    def test_does_not_keep_our_replier_from_serving(self):
        ours, endpoint = self.bound("Replier", "tcp://127.0.0.1:0")
        before = self.stock_connected(zmq.REQ, endpoint)
        connections = self.visit(ours, endpoint)
        after = self.stock_connected(zmq.REQ, endpoint)
        for _ in range(2):
            for stock in (before, after):
                stock.send(status().SerializeToString())
                self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))
                ours.send(reply("served"))
                self.assertEqual(stock.recv(), reply("served").SerializeToString())
            for connection in connections:
                connection.close()
        self.discard_complaints(ours)

    def test_does_not_keep_our_publisher_from_publishing_nor_takes_what_it_keeps(self):
        ours, endpoint = self.bound("Publisher", "tcp://127.0.0.1:0")
        ours.send_numbered(0, 100)
        connections = self.visit(ours, endpoint)
        ours.send_numbered(100, 100)
        stock = self.subscriber(endpoint)
        for number in range(200):
            self.assertEqual(number_of(stock.recv()), number)
        for connection in connections:
            connection.close()
        ours.send_numbered(200, 100)
        for number in range(200, 300):
            self.assertEqual(number_of(stock.recv()), number)

    def test_does_not_keep_our_subscriber_from_joining_a_publisher_that_takes_its_place(self):
        stranger = self.stranger(b"\xff" + random.Random(1).randbytes(5000))
        ours = self.connected("Subscriber", stranger.endpoint)
        ours.begin_poll()
        self.wait_until(lambda: stranger.accepted() > 2, "the subscriber does not try again")
        self.assertFalse(ours.has_answer_within(0))
        stranger.close()
        publisher, _ = self.stock_bound(zmq.XPUB, stranger.endpoint)
        self.assertEqual(publisher.recv(), b"\x01")
        publisher.send(status().SerializeToString())
        ours.end_poll()
        self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))

    def test_of_another_role_does_not_keep_our_subscriber_from_joining_a_publisher_that_takes_its_place(self):
        stock, endpoint = self.stock_bound(zmq.REP)
        monitor = stock.get_monitor_socket(zmq.EVENT_ACCEPTED)
        ours = self.connected("Subscriber", endpoint)
        ours.begin_poll()
        for _ in range(3):
            self.assertEqual(monitor.poll(1000 * PATIENCE), zmq.POLLIN)
            monitor.recv_multipart()
        stock.disable_monitor()
        monitor.close()
        stock.close()
        publisher, _ = self.stock_bound(zmq.XPUB, endpoint)
        self.assertEqual(publisher.recv(), b"\x01")
        publisher.send(status().SerializeToString())
        ours.end_poll()
        self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))

    def test_of_another_role_is_turned_away(self):
        ours, endpoint = self.bound("Replier")
        for kind in (zmq.SUB, zmq.PUSH, zmq.PAIR):
            stock = self.stock_connected(kind, endpoint)
            if kind != zmq.SUB:
                stock.send(status().SerializeToString(), zmq.NOBLOCK)
        requester = self.stock_connected(zmq.REQ, endpoint)
        requester.send(status("Idle").SerializeToString())
        self.assertEqual(ours.receive("EngineStatus"), (0, status("Idle").SerializeToString()))


if __name__ == "__main__":
    unittest.main()
