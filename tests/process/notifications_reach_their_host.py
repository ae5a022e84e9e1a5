"""Notifications of an engine reach a host in another process: none is lost while that process is not there."""

import unittest

from channels_support import NOTIFICATION_BATCHES, ChannelsTest, arrived_notification, notification, notifications

MANY = 4000
LAST = notification(line="Last", commandId=0)


class OurNotificationChannel(ChannelsTest):
    def engines(self):
        """For each transport, an engine and the endpoint that it is bound to."""
        for endpoint in self.each_endpoint():
            engine = self.engine_process()
            yield engine, engine.bind(endpoint)

    def listening_host(self, endpoint):
        host = self.host_process()
        host.subscribe(endpoint)
        return host

    def kill_host(self, host, engine, descriptors_without):
        """The engine has noticed it afterwards: what it publishes from now on waits for the next host."""
        self.kill_side(host)
        self.wait_until_gone(engine, descriptors_without)

    def expect_end(self, *sides):
        for side in sides:
            self.assertEqual(side.end(), 0)

    def test_brings_every_kind_of_batch(self):
        for engine, endpoint in self.engines():
            host = self.listening_host(endpoint)
            for what, batch in NOTIFICATION_BATCHES.items():
                with self.subTest(what):
                    engine.push(batch)
                    self.expect_notifications(host, batch)
            self.expect_end(host, engine)

    def test_delivers_notifications_published_before_the_host_was_started(self):
        for engine, endpoint in self.engines():
            engine.push_each(notifications(MANY))
            engine.push(NOTIFICATION_BATCHES["an object of five types"])
            host = self.listening_host(endpoint)
            identifiers = self.expect_notifications(
                host, notifications(MANY) + NOTIFICATION_BATCHES["an object of five types"])
            self.assertEqual(len(set(identifiers)), MANY + 1)
            self.expect_end(host, engine)

    def test_keeps_the_order_when_the_host_comes_while_notifications_are_published(self):
        for engine, endpoint in self.engines():
            engine.push_each(notifications(MANY // 2))
            host = self.host_process()
            engine.begin_push_each(notifications(MANY // 2, first=MANY // 2))
            host.subscribe(endpoint)
            self.expect_notifications(host, notifications(MANY))
            engine.end_push_each()
            self.expect_end(host, engine)

    def test_delivers_notifications_that_the_engine_sends_while_it_exits(self):
        for engine, endpoint in self.engines():
            engine.push_each(notifications(100))
            # There before the engine ends, which waits for a moment only.
            host = self.host_process()
            engine.tell("destroy")
            host.subscribe(endpoint)
            self.expect_notifications(host, notifications(100))
            engine.milliseconds_of("destroy")
            self.expect_end(host, engine)

    def test_brings_to_the_next_host_what_is_published_after_one_was_killed(self):
        for engine, endpoint in self.engines():
            alone = engine.descriptors()
            for life in range(3):
                host = self.listening_host(endpoint)
                engine.push_each(notifications(20))
                if life:
                    self.expect_notifications(host, notifications(MANY // 4, first=life))
                self.expect_notifications(host, notifications(20))
                self.kill_host(host, engine, alone)
                engine.push_each(notifications(MANY // 4, first=life + 1))
            host = self.listening_host(endpoint)
            self.expect_notifications(host, notifications(MANY // 4, first=3))
            self.expect_end(host, engine)

    def test_continues_without_a_gap_when_a_host_with_unread_notifications_is_killed(self):
        for engine, endpoint in self.engines():
            alone = engine.descriptors()
            engine.push_each(notifications(MANY))
            host = self.listening_host(endpoint)
            self.expect_notifications(host, notifications(50))
            self.kill_host(host, engine, alone)
            engine.push_each(notifications(20, first=MANY))
            successor = self.listening_host(endpoint)
            # What was on its way to the one that was killed has gone with it.
            first, _ = successor.notification()
            self.assertGreaterEqual(first["commandId"], 50)
            self.assertLessEqual(first["commandId"], MANY)
            expected = notifications(MANY + 20)[first["commandId"]:]
            self.assertEqual(first, arrived_notification(expected[0]))
            self.expect_notifications(successor, expected[1:])
            self.expect_end(successor, engine)

    def test_brings_the_notifications_of_the_next_engine_after_one_was_killed(self):
        for engine, endpoint in self.engines():
            host = self.listening_host(endpoint)
            for number in range(3):
                engine.push_each(notifications(100, first=number))
                self.expect_notifications(host, notifications(100, first=number))
                self.kill_side(engine, endpoint)
                engine = self.engine_process()
                self.assertEqual(engine.bind(endpoint), endpoint)
            engine.push([LAST])
            self.expect_notifications(host, [LAST])
            self.expect_end(host, engine)


if __name__ == "__main__":
    unittest.main()
