"""The example of an engine of one's own, in a program of one's own: it is supervised as any engine is, on the wire and
without a service. A host's edit rates reach the engine as they are."""

import signal
import time
import unittest

import zmq

import CommandAndNotification_pb2 as channels
import TcpEngine_pb2 as control
from programs_support import PATIENCE, ProgramsTest, processes_below, state_of, wait_until

CHANNELS = ("request", "status", "command", "notification")
Request = control.EngineFrontEndRequest
# As the system cuts it, of counter-engine-run.
ENGINE = "counter-engine-"
# A host is silent for that long before its engine leaves, and the machine may be busy.
SILENCE, LATEST = 10, 20


def value(key, kind, content):
    """The arguments of a command, as they travel."""
    arguments = channels.ParametersCollectionInstance()
    for data in (arguments.prototype.data, arguments.data):
        getattr(data, kind).add(key=key, value=content)
    return arguments


class Counter(ProgramsTest):
    def setUp(self):
        super().setUp()
        self.endpoints = {channel: f"ipc://{self.folder / channel}" for channel in CHANNELS}
        # The host binds where its commands come from.
        self.commands = self.stock(zmq.PUB)
        self.commands.bind(self.endpoints["command"])
        self.notifications = self.stock(zmq.SUB)
        self.notifications.subscribe(b"")
        self.notifications.connect(self.endpoints["notification"])
        self.status = self.stock(zmq.SUB)
        self.status.subscribe(b"")
        self.status.connect(self.endpoints["status"])
        self.control = self.stock(zmq.REQ)
        self.control.connect(self.endpoints["request"])
        self.counter = self.counter_program(self.endpoints)

    def counter_program(self, endpoints):
        words = ["--workflow-manager-id=example", "--engine-id=1", "--description",
                 self.file("description.json", {"engine": "counter"})]
        return self.start("COUNTER_ENGINE", *words, *(f"--{channel}={endpoints[channel]}" for channel in CHANNELS),
                          test_engine=False)

    def stock(self, kind):
        its_socket = zmq.Context.instance().socket(kind)
        self.addCleanup(its_socket.close, linger=0)
        its_socket.set(zmq.RCVTIMEO, 1000 * PATIENCE)
        return its_socket

    def exchange(self, kind):
        self.control.send(Request(type=kind).SerializeToString())
        return control.EngineBackEndReply.FromString(self.control.recv())

    def ask(self, kind):
        reply = self.exchange(kind)
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
                return each.commandId, each.time.timeNumber / 1000, self.values(each)

    def next_end(self):
        """The line and the values of the notification that ends the run."""
        while True:
            for each in channels.NotificationMessageList.FromString(self.notifications.recv()).messages:
                if each.notificationLine in ("Finished", "Failed", "EngineDied"):
                    return each.notificationLine, self.values(each)

    def values(self, notification):
        data = notification.notificationObject.data
        return {entry.key: entry.value for entry in [*data.int64Params, *data.utf8StringParams, *data.boolParams]}

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

    def await_status(self, number):
        """Until the engine is said to be in that status."""
        while control.EngineStatus.FromString(self.status.recv()).status != number:
            pass

    def engine(self):
        """The process of the engine, which is a child of the program's."""
        return self.counter.wait_for_process(ENGINE)

    def expect_end(self, code=0):
        self.ask(Request.FrontEndTermination)
        self.expect_exit(self.counter, code)
        self.expect_nothing_left()

    def test_executes_a_command_at_its_time(self):
        self.run_until_commands_arrive()
        second = int(self.next("Count")[1]) + 2
        self.push("Set", 25 * second, value("value", "int64Params", 1000), commandId=7)
        self.assertEqual(self.next("CommandDone"), (7, second, {"command": "Set", "reason": ""}))
        self.assertEqual(self.next("Count"), (0, second, {"value": 1000}))
        self.assertEqual(self.next("Count")[2], {"value": 1001})
        self.expect_end()

    def test_answers_commands_that_it_cannot_execute_and_continues(self):
        self.run_until_commands_arrive()
        for number, (name, arguments, step, reason) in enumerate((
                ("Set", None, "counter", 'missing argument "value"; expected an Int64'),
                ("Set", value("count", "int64Params", 1), "counter", 'missing argument "value"; expected an Int64'),
                ("Set", value("value", "utf8StringParams", "one"), "counter", "value"),
                ("Reset", None, "counter", 'unknown command "Reset"; expected "Set"'),
                ("Set", value("value", "int64Params", 1), "meter", 'unknown step "meter"; expected one of "counter"')), 1):
            with self.subTest(reason=reason):
                self.push(name, 0, arguments, step, commandId=number)
                answer = self.next("CommandFailed")
                while answer[0] == 99:
                    answer = self.next("CommandFailed")
                self.assertEqual(answer[0], number)
                self.assertIn(reason, answer[2]["reason"])
        self.next("Count")
        self.expect_end()

    def test_stops_when_it_is_asked_to_and_publishes_that(self):
        self.run_until_commands_arrive()
        self.ask(Request.RequestStop)
        self.assertEqual(self.next_end(), ("Finished", {"stopped": True}))
        self.push("Set", 0, commandId=8)
        answer = self.next("CommandFailed")
        while answer[0] == 99:
            answer = self.next("CommandFailed")
        self.assertEqual(answer[0], 8)
        self.expect_end()
        self.assertEqual(self.counter.notifications()[-1], {"event": "ended", "outcome": "stopped"})

    def test_explains_its_death_within_a_second(self):
        self.run_until_commands_arrive()
        start = time.monotonic()
        self.kill(self.engine(), signal.SIGSEGV)
        line, values = self.next_end()
        within = time.monotonic() - start
        self.assertEqual(line, "EngineDied")
        self.assertRegex(values["reason"], r"^engine process \d+ died: signal 11 \(Segmentation fault\)")
        self.await_status(control.EngineStatus.EndOfLife)
        self.assertIn("signal 11", self.exchange(Request.Ping).errorString)
        self.assertLess(within, 5, "a second, and what a busy machine takes")
        self.expect_end(3)

    def test_is_killed_when_it_hangs(self):
        self.run_until_commands_arrive()
        self.kill(self.engine(), signal.SIGSTOP)
        line, values = self.next_end()
        self.assertEqual(line, "EngineDied")
        self.assertRegex(values["reason"], r"was killed by signal 9: it was suspended for 10 s")
        self.expect_end(3)

    def test_leaves_when_its_host_is_silent(self):
        self.run_until_commands_arrive()
        start = time.monotonic()
        line, values = self.next_end()
        self.assertEqual(line, "Failed")
        self.assertIn("the host has disconnected, or was silent for 10 s", values["reason"])
        self.expect_exit(self.counter, 0)
        self.assertGreater(time.monotonic() - start, SILENCE - 5)
        self.assertLess(time.monotonic() - start, LATEST)
        self.expect_nothing_left()

    def test_ends_with_its_program(self):
        self.run_until_commands_arrive()
        self.counter.signal(signal.SIGTERM)
        self.assertEqual(self.next_end()[0], "EngineDied")
        self.expect_exit(self.counter, 3)
        self.expect_nothing_left()

    def test_continues_without_its_supervisor(self):
        self.run_until_commands_arrive()
        engine = self.engine()
        self.counter.signal(signal.SIGKILL)
        self.counter.wait()
        self.next("Count")
        self.ask(Request.FrontEndTermination)
        wait_until(lambda: state_of(engine) in ("", "Z"), "the engine goes on")
        self.expect_nothing_left()

    def test_reports_what_is_wrong_with_its_endpoints(self):
        # The host of setUp has left.
        self.run_until_commands_arrive()
        self.expect_end()
        wrong = self.counter_program(dict.fromkeys(CHANNELS, "carrier-pigeon://roof"))
        self.expect_exit(wrong, 1)
        self.assertRegex(wrong.errors(), "^counter-engine: .*carrier-pigeon://roof")
        self.assertEqual(list(processes_below(wrong.pid)), [])


if __name__ == "__main__":
    unittest.main()
