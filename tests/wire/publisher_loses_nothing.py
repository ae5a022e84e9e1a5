"""A stock subscriber receives everything that our publisher sends, in order, whenever it joins and however slow it is."""

import unittest

import zmq

from wire_support import WireTest, numbered, number_of, status


class OurPublisher(WireTest):
    def expect_numbers(self, stock, first, count):
        for number in range(first, first + count):
            self.assertEqual(number_of(stock.recv()), number)

    def each_endpoint(self):
        return self.ipc(), "tcp://127.0.0.1:0"

    def test_keeps_everything_for_a_subscriber_that_joins_late(self):
        for endpoint in self.each_endpoint():
            ours, endpoint = self.bound("Publisher", endpoint)
            ours.send_numbered(0, 5000)
            stock = self.subscriber(endpoint)
            self.expect_numbers(stock, 0, 5000)
            ours.close()
            self.assert_silent(stock)

    def test_keeps_the_order_when_a_subscriber_joins_in_the_middle(self):
        for endpoint in self.each_endpoint():
            ours, endpoint = self.bound("Publisher", endpoint)
            ours.send_numbered(0, 5000)
            ours.begin_send_numbered(5000, 20000)
            stock = self.subscriber(endpoint)
            self.expect_numbers(stock, 0, 25000)
            self.assertEqual(ours.answer(), "ok")
            ours.close()

    def test_keeps_what_is_sent_between_one_subscriber_and_the_next(self):
        ours, endpoint = self.bound("Publisher")
        alone = ours.descriptors()
        first = self.subscriber(endpoint)
        ours.send_numbered(0, 10)
        self.expect_numbers(first, 0, 10)
        first.close()
        self.wait_until_gone(ours, alone)
        ours.send_numbered(10, 1000)
        second = self.subscriber(endpoint)
        self.expect_numbers(second, 10, 1000)
        second.close()
        self.wait_until_gone(ours, alone)
        ours.send_numbered(1010, 5)
        self.expect_numbers(self.subscriber(endpoint), 1010, 5)

    def test_keeps_what_is_sent_between_a_subscriber_that_unsubscribes_and_the_next(self):
        ours, endpoint = self.bound("Publisher")
        first = self.subscriber(endpoint)
        ours.send(numbered(0))
        self.expect_numbers(first, 0, 1)
        first.unsubscribe(b"")
        # It is still connected, so only a missing message shows that the publisher has noticed.
        number = 1
        ours.send(numbered(number))
        while first.poll(50) != 0:
            self.expect_numbers(first, number, 1)
            number += 1
            ours.send(numbered(number))
        ours.send_numbered(number + 1, 100)
        second = self.subscriber(endpoint)
        seen = number_of(second.recv())
        # This message may have been lost.
        self.assertIn(seen, (number, number + 1))
        self.expect_numbers(second, seen + 1, number + 100 - seen)

    def test_does_not_count_a_subscriber_to_a_topic(self):
        ours, endpoint = self.bound("Publisher")
        topical = self.subscriber(endpoint, topic=numbered(0).SerializeToString()[:2])
        ours.send(numbered(0))
        self.assert_silent(topical)
        real = self.subscriber(endpoint)
        self.expect_numbers(real, 0, 1)
        # Its subscription still counts if there is another subscriber.
        number = 0
        while topical.poll(10) == 0:
            number += 1
            ours.send(numbered(number))
            self.expect_numbers(real, number, 1)
        both = ours.descriptors()
        real.close()
        self.wait_until_gone(ours, both - 1)
        ours.send_numbered(number + 1, 100)
        self.expect_numbers(self.subscriber(endpoint), number + 1, 100)

    def test_loses_nothing_to_a_subscriber_that_does_not_read(self):
        for endpoint in self.each_endpoint():
            ours, endpoint = self.bound("Publisher", endpoint)
            stock = self.subscriber(endpoint)
            ours.send_numbered(0, 1)
            self.expect_numbers(stock, 0, 1)
            ours.send_numbered(1, 50000)
            self.expect_numbers(stock, 1, 50000)
            ours.close()

    def test_sends_the_same_to_several_subscribers(self):
        ours, endpoint = self.bound("Publisher")
        subscribers = [self.subscriber(endpoint) for _ in range(5)]
        number = 0
        waiting = set(subscribers)
        while waiting:
            ours.send(numbered(number))
            waiting = {stock for stock in waiting if stock.poll(10) == 0}
            number += 1
        for stock in subscribers:
            while number_of(stock.recv()) != number - 1:
                pass
        ours.send_numbered(number, 1000)
        for stock in subscribers:
            self.expect_numbers(stock, number, 1000)

    def test_keeps_the_newest_only_when_each_message_supersedes_the_last(self):
        ours, endpoint = self.bound("Publisher", close_policy=0)
        for value in ("Running", "Idle", "EndOfLife"):
            ours.send(status(value))
        stock = self.subscriber(endpoint)
        self.assertEqual(stock.recv(), status("EndOfLife").SerializeToString())
        self.assert_silent(stock)

    def test_delivers_on_closing_what_a_slow_subscriber_has_not_read(self):
        for endpoint in self.each_endpoint():
            ours, endpoint = self.bound("Publisher", endpoint)
            # With its queue full, a stock subscriber drops unread messages when its publisher closes.
            stock = self.stock_connected(zmq.SUB, endpoint, {zmq.SUBSCRIBE: b"", zmq.RCVHWM: 0})
            ours.send_numbered(0, 20000)
            ours.begin("close")
            self.expect_numbers(stock, 0, 20000)
            self.assertEqual(ours.answer(), "ok")

    def test_continues_with_the_next_subscriber_when_one_leaves_while_it_receives_the_backlog(self):
        for taken in (0, 100, 700, 1500, 3000, 5000):
            ours, endpoint = self.bound("Publisher")
            alone = ours.descriptors()
            ours.send_numbered(0, 10000, 1000)
            first = self.subscriber(endpoint)
            self.expect_numbers(first, 0, taken)
            first.close()
            self.wait_until_gone(ours, alone)
            ours.send_numbered(10000, 100)
            # Messages in transit to the first one are lost; from there on, the second receives everything.
            second = self.subscriber(endpoint)
            number = number_of(second.recv())
            self.assertLessEqual(number, 10000)
            self.expect_numbers(second, number + 1, 10100 - number - 1)
            second.close()
            ours.close()

    def test_logs_how_many_messages_it_discards_on_closing(self):
        ours, _ = self.bound("Publisher", name="Telling", close_policy=1)
        ours.send_numbered(0, 7)
        ours.close()
        line, = ours.log()
        self.assertTrue(line.startswith("Warning "), line)
        self.assertIn("Telling", line)
        self.assertIn("closed with 7 messages still unsent after 1000 ms", line)


if __name__ == "__main__":
    unittest.main()
