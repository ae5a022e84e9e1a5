"""The example of an engine of one's own, as a host on the wire sees it. A host's edit rates reach the engine as they are."""

import unittest

import zmq

import CommandAndNotification_pb2 as channels
import TcpEngine_pb2 as control
from programs_support import PATIENCE, ProgramsTest

CHANNELS = ("request", "status", "command", "notification")
Request = control.EngineFrontEndRequest


def value(key, kind, content):
    """The arguments of a command, as they travel."""
    arguments = channels.ParametersCollectionInstance()
    for data in (arguments.prototype.data, arguments.data):
        getattr(data, kind).add(key=key, value=content)
    return arguments


class Counter(ProgramsTest):
    def setUp(self):
        super().setUp()
        endpoints = {channel: f"ipc://{self.folder / channel}" for channel in CHANNELS}
        # The host binds where its commands come from.
        self.commands = self.stock(zmq.PUB)
        self.commands.bind(endpoints["command"])
        self.notifications = self.stock(zmq.SUB)
        self.notifications.subscribe(b"")
        self.notifications.connect(endpoints["notification"])
        self.control = self.stock(zmq.REQ)
        self.control.connect(endpoints["request"])
        self.counter = self.start("COUNTER_ENGINE", *endpoints.values(), test_engine=False)

    def stock(self, kind):
        its_socket = zmq.Context.instance().socket(kind)
        self.addCleanup(its_socket.close, linger=0)
        its_socket.set(zmq.RCVTIMEO, 1000 * PATIENCE)
        return its_socket

    def ask(self, kind):
        self.control.send(Request(type=kind).SerializeToString())
        reply = control.EngineBackEndReply.FromString(self.control.recv())
        self.assertEqual(reply.type, control.EngineBackEndReply.Success, reply)

    def push(self, name, number, arguments=None, step="counter", **ids):
        """A command of a host whose edit rate is 25/1."""
        time = channels.MediaTime(editRate=channels.EditRate(numerator=25, denominator=1), timeNumber=number)
        message = channels.CommandMessage(
            mediaTime=time, commandName=name, workflowManagerId="example", engineId=1, stepId=step,
            commandArgs=arguments, **ids)
        self.commands.send(channels.CommandMessageList(messages=[message]).SerializeToString())

    def next(self, line):
        """The next notification of that line, in seconds and values."""
        while True:
            for each in channels.NotificationMessageList.FromString(self.notifications.recv()).messages:
                if each.notificationLine != line:
                    continue
                # At 1000/1, as the receiver exchanges it.
                self.assertEqual((each.time.editRate.numerator, each.time.editRate.denominator), (1, 1000))
                data = each.notificationObject.data
                values = {entry.key: entry.value for entry in [*data.int64Params, *data.utf8StringParams]}
                return each.commandId, each.time.timeNumber / 1000, values

    def run_until_commands_arrive(self):
        """A publisher of stock keeps nothing for a subscriber that is not there yet."""
        self.ask(Request.Run)
        self.commands.set(zmq.SNDTIMEO, 1000 * PATIENCE)
        while True:
            self.push("Hello", 0, commandId=99)
            if self.commands_arrive():
                return

    def commands_arrive(self):
        """Whether an answer comes before the second count from now."""
        counts = 0
        while counts < 2:
            for each in channels.NotificationMessageList.FromString(self.notifications.recv()).messages:
                counts += each.notificationLine == "Count"
                if each.notificationLine == "CommandFailed":
                    return True
        return False

    def expect_end(self):
        self.ask(Request.FrontEndTermination)
        self.expect_exit(self.counter, 0)
        self.expect_nothing_left()

    def test_executes_a_command_at_its_time(self):
        self.run_until_commands_arrive()
        second = int(self.next("Count")[1]) + 2
        self.push("Set", 25 * second, value("value", "int64Params", 1000), commandId=7)
        self.assertEqual(self.next("CommandDone"), (7, second, {"command": "Set", "reason": ""}))
        self.assertEqual(self.next("Count"), (0, second, {"value": 1000}))
        self.assertEqual(self.next("Count")[2], {"value": 1001})
        self.expect_end()

    def test_answers_what_it_cannot_execute_and_goes_on(self):
        self.run_until_commands_arrive()
        for number, (name, arguments, step, reason) in enumerate((
                ("Set", None, "counter", 'no argument "value"; expected an Int64'),
                ("Set", value("count", "int64Params", 1), "counter", 'no argument "value"; expected an Int64'),
                ("Set", value("value", "utf8StringParams", "one"), "counter", "value"),
                ("Reset", None, "counter", 'no command "Reset"; expected "Set"'),
                ("Set", value("value", "int64Params", 1), "meter", 'no step "meter"; expected one of "counter"')), 1):
            with self.subTest(reason=reason):
                self.push(name, 0, arguments, step, commandId=number)
                answer = self.next("CommandFailed")
                while answer[0] == 99:
                    answer = self.next("CommandFailed")
                self.assertEqual(answer[0], number)
                self.assertIn(reason, answer[2]["reason"])
        self.next("Count")
        self.expect_end()

    def test_stops_when_it_is_asked_to(self):
        self.run_until_commands_arrive()
        self.ask(Request.RequestStop)
        self.push("Set", 0, commandId=8)
        answer = self.next("CommandFailed")
        while answer[0] == 99:
            answer = self.next("CommandFailed")
        self.assertEqual(answer[0], 8)
        self.expect_end()

    def test_says_what_is_wrong_with_its_endpoints(self):
        # The one of setUp leaves with its host.
        self.run_until_commands_arrive()
        self.expect_end()
        wrong = self.start("COUNTER_ENGINE", *["carrier-pigeon://roof"] * 4, test_engine=False)
        self.expect_exit(wrong, 1)
        self.assertRegex(wrong.errors(), "^counter-engine: .*carrier-pigeon://roof")


if __name__ == "__main__":
    unittest.main()
