"""The limits of what a peer can make our sockets keep: a few messages per connection, however many it sends."""

import select
import socket
import time
import unittest

import zmq

from wire_support import BOUND, PATIENCE, WireTest, number_of, reply, status

PEERS = 8
# The number that a replier keeps for each connection.
REQUESTS = 16
# As large as a message may be; far more are sent than our side may keep.
LARGE = reply("x" * (BOUND - 20)).SerializeToString()
FLOOD_MEBIBYTES = 400
# A flood is over when it has stalled that long, because our side reads no more.
STANDSTILL = 1.0


class Flood:
    """Sends on stock sockets until all has been sent, or until no peer has read for a while."""

    def __init__(self, sockets, parts, mebibytes):
        self._sockets = sockets
        self._parts = parts
        self._messages = (mebibytes << 20) // max(1, sum(map(len, parts)))

    def run(self):
        last = time.monotonic()
        sent = 0
        while sent < self._messages and time.monotonic() - last < STANDSTILL:
            for stock in self._sockets:
                try:
                    stock.send_multipart(self._parts, zmq.NOBLOCK, copy=False)
                except zmq.Again:
                    continue
                sent += 1
                last = time.monotonic()
        return sent


class OurMemory(WireTest):
    def grown(self, ours, before):
        return ours.resident_mebibytes() - before

    def flooding(self, kind, endpoint):
        # The flooding side's own queue must not count as received by ours.
        return self.stock_connected(kind, endpoint, {zmq.SNDHWM: 1})

    def test_does_not_grow_by_requests_that_pile_up(self):
        ours, endpoint = self.bound("Replier")
        # Its owner is busy with a slow ping.
        busy = self.stock_connected(zmq.REQ, endpoint)
        busy.send(status().SerializeToString())
        self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))
        before = ours.resident_mebibytes()
        requesters = [self.flooding(zmq.DEALER, endpoint) for _ in range(PEERS)]
        Flood(requesters, [b"", LARGE], FLOOD_MEBIBYTES).run()
        # The queue of each connection, and the data that the library reads ahead.
        self.assertLess(self.grown(ours, before), PEERS * REQUESTS * BOUND / (1 << 20) + 8)
        for stock in requesters:
            stock.close()
        ours.send(reply("late"))
        self.assertEqual(busy.recv(), reply("late").SerializeToString())
        self.drain(ours, "EngineBackEndReply")

    def test_does_not_grow_by_the_largest_frames(self):
        ours, endpoint = self.bound("Replier")
        before = ours.resident_mebibytes()
        requesters = [self.flooding(zmq.DEALER, endpoint) for _ in range(PEERS)]
        Flood(requesters, [b"", bytes(128 << 10)], FLOOD_MEBIBYTES).run()
        self.assertLess(self.grown(ours, before), PEERS * REQUESTS * (128 << 10) / (1 << 20) + 8)
        for stock in requesters:
            stock.close()
        self.drain(ours, "EngineBackEndReply")

    def test_does_not_grow_by_what_a_subscriber_does_not_read(self):
        ours = self.ours()
        stock = self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))
        before = ours.resident_mebibytes()
        content = reply("x" * (4 << 10)).SerializeToString()
        Flood([stock], [content], FLOOD_MEBIBYTES).run()
        # 10 000 messages, each of which may be alone in a buffer of 8 KiB.
        self.assertLess(self.grown(ours, before), 10_000 * 2 * len(content) / (1 << 20) + 20)
        ours.close()

    def test_does_not_grow_by_topics(self):
        ours, endpoint = self.bound("Publisher")
        before = ours.resident_mebibytes()
        subscribers = [self.flooding(zmq.XSUB, endpoint) for _ in range(PEERS)]
        for number in range(50):
            for stock in subscribers:
                topic = bytes([1]) + number.to_bytes(2, "big") + bytes(BOUND)
                try:
                    stock.send(topic, zmq.NOBLOCK)
                except zmq.Again:
                    pass
        reader = self.subscriber(endpoint)
        ours.send_numbered(0, 10)
        for number in range(10):
            self.assertEqual(number_of(reader.recv()), number)
        self.assertLess(self.grown(ours, before), 8)

    def test_does_not_grow_by_those_that_its_one_reader_keeps_out(self):
        ours, endpoint = self.bound("Publisher", self.ipc() + "?readers=1")
        address = endpoint.partition("?")[0]
        ours.send_numbered(0, 1)
        reader = self.subscriber(address)
        self.assertEqual(number_of(reader.recv()), 0)
        waiting = [self.subscriber(address) for _ in range(PEERS)]
        self.wait_until(lambda: ours.log(), "nobody is refused")
        flooding = [self.flooding(zmq.XSUB, address) for _ in range(3)]
        before = ours.resident_mebibytes()
        topics = 0
        for begin in range(1, 30_001, 100):
            ours.send_numbered(begin, 100, 1000)
            for stock in flooding:
                try:
                    stock.send(b"\x01" + topics.to_bytes(4, "big") + bytes(3000), zmq.NOBLOCK)
                    topics += 1
                except zmq.Again:
                    pass
            for number in range(begin, begin + 100):
                self.assertEqual(number_of(reader.recv()), number)
        # 30 MB were sent for each waiting subscriber; a topic costs many times its size.
        self.assertLess(self.grown(ours, before), 20)
        for stock in waiting:
            self.assertEqual(stock.poll(0), 0)
        ours.log()

    def drain(self, ours, type_name):
        while ours.poll(300) == 0:
            ours.begin_receive(type_name)
            ours.end_receive()
        ours.log()


class ASilentConnection(WireTest):
    def test_is_closed_within_seconds(self):
        for role in ("Replier", "Publisher"):
            _, endpoint = self.bound(role, "tcp://127.0.0.1:0")
            host, _, port = endpoint.removeprefix("tcp://").rpartition(":")
            silent = [socket.create_connection((host, int(port)), PATIENCE) for _ in range(20)]
            for connection in silent:
                self.addCleanup(connection.close)
            open_ones = set(silent)
            # By default libzmq allows a peer 30 s for the handshake.
            deadline = time.monotonic() + 15
            while open_ones and time.monotonic() < deadline:
                for connection in select.select(list(open_ones), [], [], 0.1)[0]:
                    try:
                        if connection.recv(1024):
                            continue
                    except ConnectionResetError:
                        pass
                    open_ones.discard(connection)
            self.assertEqual(len(open_ones), 0, role)


if __name__ == "__main__":
    unittest.main()
