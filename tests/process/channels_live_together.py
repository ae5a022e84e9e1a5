"""A host commands an engine in another process and receives its answers; no resources remain."""

import os
import unittest

from channels_support import (
    COMMAND_BATCHES, ENGINE, ChannelsTest, arrived_command, arrived_notification, command, commands, notification,
    notifications)

MANY = 2000
# After so many lives a process has opened whatever it opens once. The transports take turns: an even number of lives
# later it is the same one.
WARM_UP = 3
LIVES = WARM_UP + 18


def answer_to(described):
    """As the host receives it: the members of the edit rate have been swapped twice."""
    there = arrived_command(described)
    return arrived_notification(notification(
        time=there["time"], line=described["name"], commandId=described["id"], stepId=described["stepId"],
        object=described["args"]))


class OurChannels(ChannelsTest):
    def connect(self, host, engine, command_endpoint, notification_endpoint):
        """Each side binds the channel that it sends on."""
        engine.subscribe(host.bind(command_endpoint))
        host.subscribe(engine.bind(notification_endpoint))

    def each_pair_of_endpoints(self):
        return (self.ipc("commands"), self.ipc("notifications")), (self.tcp(), self.tcp())

    def expect_exchanges(self, host, engine, described):
        for each in described:
            self.expect_commands(engine, [each])
            answer, _ = host.notification()
            self.assertEqual(answer, answer_to(each))

    def test_answers_thousands_of_commands_in_order(self):
        for endpoints in self.each_pair_of_endpoints():
            host, engine = self.host_process(), self.engine_process()
            engine.call("answer")
            self.connect(host, engine, *endpoints)
            batch = commands(MANY) + [command(args=[], time=[30000, 1001, -5], id=2**32 - 1, stepId="")]
            batch += COMMAND_BATCHES["arguments of five types"]
            host.push_each(batch)
            self.expect_exchanges(host, engine, batch)
            self.assertEqual((host.end(), engine.end()), (0, 0))

    def test_deliver_the_answer_to_one_command_that_the_host_waits_for(self):
        host, engine = self.host_process(), self.engine_process()
        engine.call("answer")
        self.connect(host, engine, self.ipc("commands"), self.ipc("notifications"))
        host.call(f"listen-to-response {ENGINE} 77")
        host.push(commands(100))
        answer = host.arrived("response")
        del answer["id"]
        self.assertEqual(answer, answer_to(commands(100)[77]))
        self.expect_exchanges(host, engine, commands(100))
        self.assertFalse(host.has_event("response"))

    def test_keeps_both_directions_when_each_side_comes_late(self):
        for endpoints in self.each_pair_of_endpoints():
            host, engine = self.host_process(), self.engine_process()
            command_endpoint, notification_endpoint = host.bind(endpoints[0]), engine.bind(endpoints[1])
            host.push_each(commands(MANY))
            engine.push_each(notifications(MANY))
            engine.subscribe(command_endpoint)
            host.subscribe(notification_endpoint)
            self.expect_commands(engine, commands(MANY))
            self.expect_notifications(host, notifications(MANY))
            self.assertEqual((host.end(), engine.end()), (0, 0))

    def live(self, host, number):
        """One engine's complete life, from its first command to its last answer."""
        engine = self.engine_process()
        engine.call("answer")
        self.connect(host, engine, *self.each_pair_of_endpoints()[number % 2])
        host.push_each(commands(5, first=number))
        self.expect_exchanges(host, engine, commands(5, first=number))
        return engine

    def test_leaves_nothing_behind_in_many_lives_with_one_host(self):
        host = self.host_process()
        descriptors = None
        for number in range(LIVES):
            engine = self.live(host, number)
            self.assertEqual(engine.end(), 0)
            self.assertFalse(os.path.exists(f"/proc/{engine.pid}"))
            # The host moves its command channel with the next engine.
            self.assertLessEqual(set(os.listdir(self.folder)), {"commands"})
            if number + 1 == WARM_UP:
                # Only the socket remains that listens for the next engine.
                self.wait_until_gone(host, 1)
                descriptors = host.open_descriptors()
        self.wait_until(lambda: host.open_descriptors() <= descriptors, "the host's descriptors grow in number")
        host.call("destroy")
        self.assertEqual(os.listdir(self.folder), [])

    def test_goes_on_when_engines_are_killed_one_after_the_other(self):
        host = self.host_process()
        for number in range(4):
            engine = self.live(host, number)
            self.kill_side(engine, self.ipc("notifications"))
        self.assertEqual(self.live(host, 4).end(), 0)
        self.assertEqual(host.end(), 0)


if __name__ == "__main__":
    unittest.main()
