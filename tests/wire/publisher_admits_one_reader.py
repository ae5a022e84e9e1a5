"""Our publisher with an endpoint for one reader, and several stock subscribers that compete for it."""

import os
import re
import resource
import signal
import socket
import unittest

import zmq

from wire_support import PATIENCE, WireTest, number_of

REFUSED = re.compile(r"^Warning Ours \(Publisher \S+\?readers=1\): refused a subscriber, (process \d+|port \d+ of "
                     r"127\.0\.0\.1|which has disconnected): the limit of one reader is reached$")


# Each attempt may interrupt the publisher between two steps that belong together.
BROKEN_PEERS = 3000

GREETING = b"\xff" + 8 * b"\0" + b"\x7f\3\0" + b"NULL".ljust(20, b"\0") + 32 * b"\0"
READY = b"\4\x19\5READY\x0bSocket-Type\0\0\0\3SUB"
SUBSCRIPTION = b"\0\1\1"
# Announces 1 MiB, which a subscriber never sends.
TOO_LONG = b"\2" + (1 << 20).to_bytes(8, "big")


REFUSED_CONNECTIONS = re.compile(r"Warning refused (a connection|\d+ connections): Too many open files")


def subscribe_and_break(path):
    """Subscribes, and breaks the protocol in the same write."""
    with socket.socket(socket.AF_UNIX) as peer:
        peer.settimeout(PATIENCE)
        try:
            peer.connect(path)
            peer.sendall(GREETING + READY)
            received = b""
            while b"READY" not in received:
                piece = peer.recv(4096)
                if not piece:
                    return
                received += piece
            peer.sendall(SUBSCRIPTION + TOO_LONG)
            while peer.recv(4096):
                pass
        except (ConnectionResetError, BrokenPipeError):
            # Disconnected earlier, because it could not be distinguished from its predecessor.
            pass


def connected_to(address):
    """A connection that nothing is sent on."""
    if address.startswith("ipc://"):
        stranger = socket.socket(socket.AF_UNIX)
        stranger.settimeout(PATIENCE)
        stranger.connect(address.removeprefix("ipc://"))
        return stranger
    host, port = address.removeprefix("tcp://").split(":")
    return socket.create_connection((host, int(port)), PATIENCE)


def address_of(endpoint):
    return endpoint.partition("?")[0]


class APublisherForOneReader(WireTest):
    def limited(self, address=None, close_policy=2):
        """Our publisher for one reader, and the address that stock peers connect to."""
        ours, endpoint = self.bound("Publisher", (address or self.ipc()) + "?readers=1", close_policy=close_policy)
        return ours, address_of(endpoint)

    def await_refusals(self, ours, count):
        lines = []

        def have_come():
            lines.extend(ours.log())
            return len(lines) >= count

        self.wait_until(have_come, f"{count} refusals are not logged")
        for line in lines:
            self.assertRegex(line, REFUSED)
        return lines

    def send_until_heard_by(self, ours, stock, sent):
        """Sends consecutive numbers until the subscriber has received one; returns the count."""
        while stock.poll(10) == 0:
            ours.send_numbered(sent, 1)
            sent += 1
        return sent

    def test_serves_the_first_and_refuses_the_others(self):
        for address in (self.ipc(), "tcp://127.0.0.1:0"):
            ours, address = self.limited(address)
            ours.send_numbered(0, 100)
            first = self.subscriber(address)
            self.assertEqual(number_of(first.recv()), 0)
            others = [self.subscriber(address) for _ in range(3)]
            self.await_refusals(ours, 3)
            ours.send_numbered(100, 100)
            for number in range(1, 200):
                self.assertEqual(number_of(first.recv()), number)
            for other in others:
                self.assertEqual(other.poll(100), 0)
            # Each was logged once, however long it waits.
            self.assertEqual(ours.log(), [])
            for stock in (first, *others):
                stock.close()
            ours.close()
            ours.log()

    def test_is_not_held_up_by_another_that_reads_nothing(self):
        ours, address = self.limited("tcp://127.0.0.1:0")
        ours.send_numbered(0, 1)
        first = self.subscriber(address)
        self.assertEqual(number_of(first.recv()), 0)
        idle = self.stock_process("SUB", address)
        self.await_refusals(ours, 1)
        idle.signal(signal.SIGSTOP)
        # Far more than all queues to a reader can contain.
        for begin in range(1, 100_001, 5000):
            ours.send_numbered(begin, 5000, 100)
            for number in range(begin, begin + 5000):
                self.assertEqual(number_of(first.recv()), number)
        idle.kill()

    def test_admits_one_that_waits_when_the_first_ends_or_is_killed(self):
        ours, address = self.limited()
        ours.send_numbered(0, 1)
        first = self.stock_process("SUB", address)
        self.assertEqual(number_of(first.receive()), 0)
        second = self.subscriber(address)
        self.await_refusals(ours, 1)
        first.kill()
        sent = self.send_until_heard_by(ours, second, 1)
        third = self.subscriber(address)
        self.await_refusals(ours, 1)
        heard = number_of(second.recv())
        for number in range(heard + 1, sent):
            self.assertEqual(number_of(second.recv()), number)
        second.close()
        sent = self.send_until_heard_by(ours, third, sent)
        ours.send_numbered(sent, 100)
        heard = number_of(third.recv())
        for number in range(heard + 1, sent + 100):
            self.assertEqual(number_of(third.recv()), number)

    def test_keeps_messages_for_a_reader_and_not_for_refused_subscribers(self):
        ours, address = self.limited()
        ours.send_numbered(0, 1)
        first = self.stock_process("SUB", address)
        self.assertEqual(number_of(first.receive()), 0)
        descriptors = ours.descriptors()
        first.kill()
        self.wait_until_gone(ours, descriptors - 1)
        ours.send_numbered(1, 1000)
        second = self.subscriber(address)
        for number in range(1, 1001):
            self.assertEqual(number_of(second.recv()), number)

    def test_is_not_confused_by_peers_that_connect_and_disconnect(self):
        ours, address = self.limited()
        ours.send_numbered(0, 1)
        first = self.subscriber(address)
        self.assertEqual(number_of(first.recv()), 0)
        for begin in range(1, 2001, 10):
            passing = self.subscriber(address)
            ours.send_numbered(begin, 10)
            passing.close()
            for number in range(begin, begin + 10):
                self.assertEqual(number_of(first.recv()), number)
        # At most ten lines in ten seconds, and a count of the others.
        self.assertLess(len(ours.log()), 60)
        ours.close()
        ours.log()

    def test_disconnects_peers_that_do_not_subscribe_to_everything(self):
        ours, address = self.limited()
        # XSUB sends any bytes.
        for message in (b"\x01topic", b"\x02", b"", b"\x01" * 1000):
            stranger = self.stock_connected(zmq.XSUB, address)
            monitor = stranger.get_monitor_socket(zmq.EVENT_DISCONNECTED)
            stranger.send(message)
            self.assertNotEqual(monitor.poll(10_000), 0, message)
            stranger.disable_monitor()
            monitor.close()
            stranger.close()
        ours.send_numbered(0, 10)
        reader = self.subscriber(address)
        for number in range(10):
            self.assertEqual(number_of(reader.recv()), number)

    def test_keeps_nothing_less_for_a_stranger_that_connects_first_and_never_subscribes(self):
        ours, address = self.limited()
        silent = self.stock_connected(zmq.SUB, address)
        elsewhere = self.stock_connected(zmq.SUB, address)
        elsewhere.subscribe(b"elsewhere")
        ours.send_numbered(0, 1000)
        reader = self.subscriber(address)
        for number in range(1000):
            self.assertEqual(number_of(reader.recv()), number)
        for stranger in (silent, elsewhere):
            self.assertEqual(stranger.poll(0), 0)

    def test_admits_another_when_its_reader_does_not_want_to_be_it_any_more(self):
        ours, address = self.limited()
        ours.send_numbered(0, 1)
        first = self.subscriber(address)
        self.assertEqual(number_of(first.recv()), 0)
        first.unsubscribe(b"")
        second = self.subscriber(address)
        self.send_until_heard_by(ours, second, 1)
        for line in ours.log():
            self.assertRegex(line, REFUSED)

    def test_survives_a_storm_of_subscribers(self):
        ours, address = self.limited("tcp://127.0.0.1:0")
        for _ in range(100):
            passing = [self.subscriber(address) for _ in range(10)]
            ours.send_numbered(0, 1)
            for stock in passing:
                stock.close()
        reader = self.subscriber(address)
        # The first messages may have been kept, or lost with an earlier subscriber.
        self.send_until_heard_by(ours, reader, 1000)
        ours.send_numbered(9000, 10)
        numbers = []
        while not numbers or numbers[-1] != 9009:
            numbers.append(number_of(reader.recv()))
        self.assertEqual(numbers[-10:], list(range(9000, 9010)))
        ours.log()
        ours.close()
        ours.log()


    def test_admits_one_that_waits_when_strangers_have_used_up_its_descriptors(self):
        for transport in ("tcp", "ipc"):
            with self.subTest(transport=transport):
                self.expect_admission_without_descriptors(transport)

    def expect_admission_without_descriptors(self, transport):
        ours, address = self.limited("tcp://127.0.0.1:0" if transport == "tcp" else None)
        ours.send_numbered(0, 1)
        first = self.stock_process("SUB", address)
        self.assertEqual(number_of(first.receive()), 0)
        second = self.subscriber(address)
        self.await_refusals(ours, 1)
        in_use = {int(number) for number in os.listdir(f"/proc/{ours.pid}/fd")}
        limit = max(in_use) + 1
        before = resource.prlimit(ours.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(ours.pid, resource.RLIMIT_NOFILE, (limit, before[1]))
        # Those beyond the free numbers are refused.
        strangers = []
        for _ in range(limit - len(in_use) + 20):
            strangers.append(connected_to(address))
        monitor = second.get_monitor_socket(zmq.EVENT_DISCONNECTED)
        first.kill()
        self.assertNotEqual(monitor.poll(1000 * PATIENCE), 0, "the publisher does not let the other one try again")
        second.disable_monitor()
        monitor.close()
        for stranger in strangers:
            stranger.close()
        resource.prlimit(ours.pid, resource.RLIMIT_NOFILE, before)
        self.send_until_heard_by(ours, second, 1)
        self.assertTrue(any(REFUSED_CONNECTIONS.match(line) for line in ours.log()))

    def test_is_not_left_to_a_peer_that_breaks_the_protocol(self):
        ours, address = self.limited()
        # Its two threads alternate, so that each may be interrupted between any two of its steps.
        os.sched_setaffinity(ours.pid, {min(os.sched_getaffinity(0))})
        ours.send_numbered(0, 1000)
        for _ in range(BROKEN_PEERS):
            subscribe_and_break(address.removeprefix("ipc://"))
        reader = self.subscriber(address)
        for number in range(1000):
            self.assertNotEqual(reader.poll(1000 * PATIENCE), 0, f"message {number} does not come")
            self.assertEqual(number_of(reader.recv()), number)
        ours.log()
        ours.close()
        ours.log()


class ASubscriber(WireTest):
    def test_of_ours_ignores_how_many_readers_there_may_be(self):
        publisher, endpoint = self.stock_bound(zmq.XPUB)
        ours = self.connected("Subscriber", endpoint + "?readers=1")
        self.assertEqual(publisher.recv(), b"\x01")
        self.assertIn("?readers=1)", ours.ask("state"))
        self.assertTrue(os.path.exists(endpoint.removeprefix("ipc://")))


if __name__ == "__main__":
    unittest.main()
