"""Commands of a host reach an engine in another process; none is lost while that process is not running."""

import unittest

from channels_support import COMMAND_BATCHES, ChannelsTest, arrived_command, command, commands

MANY = 4000
LAST = command(name="Last", id=0)


class OurCommandChannel(ChannelsTest):
    def hosts(self):
        """For each transport, a host and the endpoint that it is bound to."""
        for endpoint in self.each_endpoint():
            host = self.host_process()
            yield host, host.bind(endpoint)

    def listening_engine(self, endpoint):
        engine = self.engine_process()
        engine.subscribe(endpoint)
        return engine

    def kill_engine(self, engine, host, descriptors_without):
        """The host has noticed it afterwards: what it pushes from now on waits for the next engine."""
        self.kill_side(engine)
        self.wait_until_gone(host, descriptors_without)

    def expect_end(self, *sides):
        for side in sides:
            self.assertEqual(side.end(), 0)

    def test_brings_every_kind_of_batch(self):
        for host, endpoint in self.hosts():
            engine = self.listening_engine(endpoint)
            for what, batch in COMMAND_BATCHES.items():
                with self.subTest(what):
                    host.push(batch)
                    self.expect_commands(engine, batch)
            self.expect_end(engine, host)

    def test_delivers_commands_pushed_before_the_engine_was_started(self):
        for host, endpoint in self.hosts():
            host.push_each(commands(MANY))
            host.push(COMMAND_BATCHES["arguments of five types"])
            engine = self.listening_engine(endpoint)
            self.expect_commands(engine, commands(MANY) + COMMAND_BATCHES["arguments of five types"])
            self.expect_end(engine, host)

    def test_keeps_the_order_when_the_engine_comes_while_commands_are_pushed(self):
        for host, endpoint in self.hosts():
            host.push_each(commands(MANY // 2))
            engine = self.engine_process()
            host.begin_push_each(commands(MANY // 2, first=MANY // 2))
            engine.subscribe(endpoint)
            self.expect_commands(engine, commands(MANY))
            host.end_push_each()
            self.expect_end(engine, host)

    def test_delivers_commands_that_the_host_sends_while_it_exits(self):
        for host, endpoint in self.hosts():
            host.push_each(commands(100))
            engine = self.engine_process()
            # Has nothing to destroy, and answers once it is there: a host that ends waits for a moment only.
            engine.call("destroy")
            host.tell("destroy")
            engine.subscribe(endpoint)
            self.expect_commands(engine, commands(100))
            host.milliseconds_of("destroy")
            self.expect_end(engine, host)

    def test_brings_to_the_next_engine_what_is_pushed_after_one_was_killed(self):
        for host, endpoint in self.hosts():
            alone = host.descriptors()
            for life in range(3):
                engine = self.listening_engine(endpoint)
                host.push_each(commands(20))
                if life:
                    self.expect_commands(engine, commands(MANY // 4, first=life))
                self.expect_commands(engine, commands(20))
                self.kill_engine(engine, host, alone)
                host.push_each(commands(MANY // 4, first=life + 1))
            engine = self.listening_engine(endpoint)
            self.expect_commands(engine, commands(MANY // 4, first=3))
            self.expect_end(engine, host)

    def test_continues_without_a_gap_when_an_engine_with_unread_commands_is_killed(self):
        for host, endpoint in self.hosts():
            alone = host.descriptors()
            host.push_each(commands(MANY))
            engine = self.listening_engine(endpoint)
            self.expect_commands(engine, commands(50))
            self.kill_engine(engine, host, alone)
            host.push_each(commands(20, first=MANY))
            successor = self.listening_engine(endpoint)
            # What was on its way to the one that was killed has gone with it.
            first = successor.command()
            self.assertGreaterEqual(first["id"], 50)
            self.assertLessEqual(first["id"], MANY)
            expected = commands(MANY + 20)[first["id"]:]
            self.assertEqual(first, arrived_command(expected[0]))
            self.expect_commands(successor, expected[1:])
            self.expect_end(successor, host)

    def test_brings_the_commands_of_the_next_host_after_one_was_killed(self):
        for host, endpoint in self.hosts():
            engine = self.listening_engine(endpoint)
            for number in range(3):
                host.push_each(commands(100, first=number))
                self.expect_commands(engine, commands(100, first=number))
                self.kill_side(host, endpoint)
                host = self.host_process()
                self.assertEqual(host.bind(endpoint), endpoint)
            host.push([LAST])
            self.expect_commands(engine, [LAST])
            self.expect_end(engine, host)


if __name__ == "__main__":
    unittest.main()
