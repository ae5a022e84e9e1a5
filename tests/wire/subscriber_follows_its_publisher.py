"""Our subscriber connects whenever its stock publisher starts, and reconnects when that has died and restarted."""

import unittest

import zmq

from wire_support import WireTest, numbered, number_of, status


class OurSubscriber(WireTest):
    def join(self, publisher, ours, first):
        """Publishes until our subscriber, which connects by itself, has received a message; returns the next number."""
        number = first
        publisher.send(numbered(number))
        while ours.poll(20) == 1:
            number += 1
            publisher.send(numbered(number))
        # It may have joined several messages ago; after the first one that it received, none is missing.
        result, encoding = ours.receive("EngineBackEndReply")
        self.assertEqual(result, 0)
        got = number_of(encoding)
        self.assertGreaterEqual(got, first)
        self.expect_numbers(ours, got + 1, number - got)
        return number + 1

    def expect_numbers(self, ours, first, count):
        for number in range(first, first + count):
            self.assertEqual(ours.receive("EngineBackEndReply"), (0, numbered(number).SerializeToString()))

    def follow(self, endpoint):
        """Our subscriber, then the publisher, its death and its return."""
        ours = self.connected("Subscriber", endpoint)
        self.assertEqual(ours.poll(100), 1)
        publisher = self.stock_process("PUB", endpoint)
        number = self.join(publisher, ours, 0)
        for following in range(number, number + 100):
            publisher.send(numbered(following))
        self.expect_numbers(ours, number, 100)
        publisher.kill()
        self.assertEqual(ours.poll(100), 1)
        self.assertTrue(ours.is_open())
        successor = self.stock_process("PUB", endpoint)
        number = self.join(successor, ours, 1000)
        successor.send(numbered(number))
        self.expect_numbers(ours, number, 1)
        ours.close()

    def test_joins_a_publisher_that_appears_later_dies_and_comes_back_on_a_socket_file(self):
        self.follow(self.ipc())

    def test_joins_a_publisher_that_appears_later_dies_and_comes_back_on_a_port(self):
        self.follow(f"tcp://127.0.0.1:{self.held_port()}")

    def test_receives_what_its_publisher_sent_ahead_of_its_end_however_much_that_was(self):
        for endpoint in (self.ipc(), "tcp://127.0.0.1:*"):
            publisher = self.stock_process("XPUB", endpoint)
            ours = self.connected("Subscriber", publisher.endpoint)
            self.assertEqual(publisher.receive(), b"\x01")
            for number in range(10000):
                publisher.send(numbered(number))
            publisher.end()
            self.expect_numbers(ours, 0, 10000)
            self.assertEqual(ours.poll(100), 1)
            ours.close()

    def test_reads_on_after_it_was_closed_and_opened_again(self):
        ours = self.ours()
        publisher = self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))
        publisher.send(status("Idle").SerializeToString())
        self.assertEqual(ours.receive("EngineStatus"), (0, status("Idle").SerializeToString()))
        ours.close()
        self.assertEqual(publisher.recv(), b"\x00")
        ours.open("Subscriber", self.ipc())
        self.assertEqual(publisher.recv(), b"\x01")
        publisher.send(status("EndOfLife").SerializeToString())
        self.assertEqual(ours.receive("EngineStatus"), (0, status("EndOfLife").SerializeToString()))

    def test_may_be_closed_at_any_moment_of_joining(self):
        ours = self.ours()
        publisher, endpoint = self.stock_bound(zmq.XPUB)
        for _ in range(200):
            ours.open("Subscriber", endpoint)
            ours.close()
        # From here on it stays connected: whatever the others left behind, this subscription comes last.
        ours.open("Subscriber", endpoint)
        ours.begin_poll()
        while not ours.has_answer_within(0.05):
            publisher.send(status("Idle").SerializeToString())
        ours.end_poll()
        self.assertEqual(ours.receive("EngineStatus"), (0, status("Idle").SerializeToString()))

    def test_keeps_the_order_of_many_messages(self):
        ours = self.ours()
        publisher = self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))
        for start in range(0, 5000, 500):
            for number in range(start, start + 500):
                publisher.send(numbered(number).SerializeToString())
            self.expect_numbers(ours, start, 500)


if __name__ == "__main__":
    unittest.main()
