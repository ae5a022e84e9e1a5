"""What the tests of the command and the notification channel share: both sides of ours as programs, and the messages
that cross, as they are described to the programs and as Python encodes them.

A message is described by a dictionary, as tests/process/JsonMessages.h tells, but with doubles as they are. The
environment names the programs (CHANNELS_HOST_PEER, CHANNELS_ENGINE_PEER).
"""

import json
import os
import signal
import struct

import CommandAndNotification_pb2 as channels
from engine_support import EventfulProcess
from wire_support import BRIEFLY, PATIENCE, WireTest

WORKFLOW_MANAGER = "wfm\0é"
ENGINE = 2**32 - 1
IDS = {"workflowManagerId": WORKFLOW_MANAGER, "engineId": ENGINE}
# The supported types, in the order in which they are read, and their lists.
LISTS = {
    "Bool": "boolParams",
    "Int64": "int64Params",
    "Uint64": "uint64Params",
    "Double": "doubleParams",
    "UTF8String": "utf8StringParams",
}
# Several types, not in the order of their lists: type, key, default and value.
FIVE_TYPES = [
    ["UTF8String", "title", "ohne\0Titel", "Größe\0 \U0001f3ac"],
    ["Double", "gain", 0.5, -6.02059991327962],
    ["Uint64", "bytes", 1, 2**64 - 1],
    ["Int64", "offset", 2**63 - 1, -2**63],
    ["Bool", "loop", True, False],
]
EXTREME_PARAMETERS = [
    ["Bool", "", False, True],
    ["Double", "k\0", float("inf"), float("-inf")],
    ["Double", "smallest", -0.0, 5e-324],
    ["Double", "no number", float("nan"), float("nan")],
    ["Int64", "Schlüssel", -1, 0],
    ["UTF8String", "empty", "", ""],
    ["UTF8String", "zeros", "\0", "\0\0\0"],
    ["UTF8String", "long", "x" * 300, "…" * 5000],
] + [["Uint64", f"u{number}", number, 2**number] for number in range(64)]
EXTREME_TIMES = [
    [30000, 1001, -1], [0, 0, 0], [2**32 - 1, 1, 2**63 - 1], [1, 2**32 - 1, -2**63], [50, 50, 128]]


def command(**changes):
    return {"args": None, "time": [25, 1, 250], "name": "Seek", "id": 1, "stepId": "player", **IDS, **changes}


def notification(**changes):
    return {"object": None, "time": [25, 1, 250], "stepId": "player", "line": "Sought", "id": "progress",
            "commandId": 1, "isAnError": False, **IDS, **changes}


def commands(count, first=0):
    """That many different commands, some with arguments."""
    def arguments(number):
        return [["Uint64", "number", 0, number], ["Bool", "odd", False, number % 2 == 1]]

    return [command(name=f"Command {number}", id=number, time=[25, 1, number],
                    args=None if number % 3 else arguments(number))
            for number in range(first, first + count)]


def notifications(count, first=0):
    return [notification(line=f"Line {number}", commandId=number, id=str(number), time=[25, 1, number],
                         object=None if number % 3 else [["Double", "progress", 0.0, number / 1000]])
            for number in range(first, first + count)]


# Every kind of batch, by what it demonstrates.
COMMAND_BATCHES = {
    "no command": [],
    "three commands without arguments": [command(id=number, name=f"Command {number}") for number in (3, 1, 2)],
    "arguments of five types": [command(args=FIVE_TYPES)],
    "arguments without keys beside none": [command(args=[]), command(), command(args=FIVE_TYPES[:1])],
    "extreme arguments": [command(args=EXTREME_PARAMETERS)],
    "extreme times": [command(time=time) for time in EXTREME_TIMES],
    "extreme ids": [command(id=number) for number in (0, 127, 128, 2**31, 2**32 - 1)],
    "texts": [command(name=text, stepId=text) for text in ("", "\0", "a\0ß…", "\U0001f3ac", "x\n\r\t" * 1000)],
}
NOTIFICATION_BATCHES = {
    "no notification": [],
    "three notifications without objects": [notification(commandId=number, line=f"Line {number}")
                                            for number in (3, 1, 2)],
    "an object of five types": [notification(object=FIVE_TYPES)],
    "an object without keys beside none": [
        notification(object=[]), notification(), notification(object=FIVE_TYPES[:1])],
    "an extreme object": [notification(object=EXTREME_PARAMETERS)],
    "extreme times": [notification(time=time) for time in EXTREME_TIMES],
    "extreme ids": [notification(commandId=number) for number in (0, 127, 128, 2**31, 2**32 - 1)],
    "texts": [notification(line=text, stepId=text, id=text)
              for text in ("", "\0", "a\0ß…", "\U0001f3ac", "x\n\r\t" * 1000)],
}


def collection(parameters):
    """The collection as an object of Python's Protocol Buffers."""
    instance = channels.ParametersCollectionInstance()
    # Both are required, with or without keys.
    instance.prototype.data.SetInParent()
    instance.data.SetInParent()
    for kind, key, default, value in parameters:
        getattr(instance.prototype.data, LISTS[kind]).add(key=key, value=default)
        getattr(instance.data, LISTS[kind]).add(key=key, value=value)
    return instance


def _fill_time(message, time):
    message.editRate.numerator, message.editRate.denominator, message.timeNumber = time


def command_list(described):
    messages = channels.CommandMessageList()
    for each in described:
        message = messages.messages.add(
            commandName=each["name"], commandId=each["id"], workflowManagerId=each["workflowManagerId"],
            engineId=each["engineId"], stepId=each["stepId"])
        _fill_time(message.mediaTime, each["time"])
        if each["args"] is not None:
            message.commandArgs.CopyFrom(collection(each["args"]))
    return messages


def notification_list(described):
    messages = channels.NotificationMessageList()
    for each in described:
        message = messages.messages.add(
            workflowStep=each["stepId"], notificationLine=each["line"], id=each["id"], commandId=each["commandId"],
            workflowManagerId=each["workflowManagerId"], engineId=each["engineId"])
        _fill_time(message.time, each["time"])
        if each["object"] is not None:
            message.notificationObject.CopyFrom(collection(each["object"]))
    return messages


def encoded(described):
    """The message that contains a batch, as Python encodes it."""
    has_commands = described and "name" in described[0]
    messages = command_list(described) if has_commands else notification_list(described)
    return messages.SerializeToString(deterministic=True)


def _portable(value):
    """The same with every double as the number formed by its bits."""
    if isinstance(value, float):
        return struct.unpack("<Q", struct.pack("<d", value))[0]
    if isinstance(value, list):
        return [_portable(each) for each in value]
    if isinstance(value, dict):
        return {key: _portable(each) for key, each in value.items()}
    return value


def _arrived(described, parameters_key):
    """As the other side receives it: the members of its edit rate swapped, its keys grouped by list."""
    first, second, number = described["time"]
    parameters = described[parameters_key]
    if parameters is not None:
        parameters = sorted(parameters, key=lambda parameter: list(LISTS).index(parameter[0]))
    return _portable({**described, "time": [second, first, number], parameters_key: parameters})


def arrived_command(described):
    return _arrived(described, "args")


def arrived_notification(described):
    """Without its id, which the receiver chooses."""
    arrived = _arrived(described, "object")
    del arrived["id"]
    return {**arrived, "isAnError": False}


class ChannelsProcess(EventfulProcess):
    def bind(self, endpoint):
        """Binds the channel that this side sends on; returns its endpoint."""
        self.call(f"bind {endpoint}")
        return self.event("bound ").partition(" ")[2]

    def subscribe(self, endpoint):
        self.call(f"subscribe {endpoint}")

    def push(self, described):
        self.call("push " + json.dumps(_portable(described)))

    def push_each(self, described):
        self.begin_push_each(described)
        self.end_push_each()

    def begin_push_each(self, described):
        self.tell("push-each " + json.dumps(_portable(described)))

    def end_push_each(self):
        self.milliseconds_of("push-each")

    def refuse(self, described):
        """Makes a push that throws; returns the exception's text."""
        self.tell("push " + json.dumps(_portable(described)))
        outcome = self.event("push ")
        assert outcome.startswith("push threw after "), outcome
        return outcome.partition(": ")[2]

    def arrived(self, kind, seconds=PATIENCE):
        """The next arrival."""
        return json.loads(self.event(kind + " ", seconds).partition(" ")[2])

    def log_line(self, *texts):
        """Waits for the next line of the log, which has to be an error, and removes it."""
        self.wait_for_log("")
        line, _, self._whole_log = self.whole_log().partition("\n")
        assert line.startswith("Error ") and all(text in line for text in texts), line
        return line


class ChannelsHost(ChannelsProcess):
    """Our front ends."""

    def __init__(self, ids):
        super().__init__([os.environ["CHANNELS_HOST_PEER"]])
        self.call("identify " + json.dumps(ids))

    def notification(self):
        """The next notification without its id, and the id."""
        arrived = self.arrived("notification")
        identifier = arrived.pop("id")
        return arrived, identifier


class ChannelsEngine(ChannelsProcess):
    """Our back ends."""

    def __init__(self, ids):
        super().__init__([os.environ["CHANNELS_ENGINE_PEER"]])
        self._ids = ids

    def bind(self, endpoint):
        return super().bind(f"{endpoint} {json.dumps(self._ids)}")

    def command(self):
        return self.arrived("command")


class ChannelsTest(WireTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self._sides = []

    def tearDown(self):
        for side in self._sides:
            self.assertEqual(side.whole_log(), "", "a log record that the test has not accounted for")
        # Before the stock sockets, so that its close does not wait for messages to them.
        for side in reversed(self._sides):
            self.assertIn(side.end(), (0, -signal.SIGKILL))
        super().tearDown()
        for side in self._sides:
            self.assertEqual(side.whole_log(), "", "a log record on closing")

    def _side(self, process):
        self._sides.append(process)
        return self.watched(process)

    def host_process(self, **ids):
        return self._side(ChannelsHost({**IDS, **ids}))

    def engine_process(self, **ids):
        return self._side(ChannelsEngine({**IDS, **ids}))

    def each_endpoint(self, name="socket"):
        return self.ipc(name), self.tcp()

    def tcp(self):
        """An address that remains reserved for this test while the process bound to it is not running."""
        return f"tcp://127.0.0.1:{self.held_port()}"

    def kill_side(self, process, *endpoints):
        """Like a crash: the files of the endpoints that it has bound remain."""
        for endpoint in endpoints:
            self._expect_file(endpoint)
        process.kill()

    def expect_only(self, stock, *batches):
        """The batches arrive, each whole in a message of one part; nothing else does."""
        for batch in batches:
            self.assertEqual(stock.recv_multipart(), [encoded(batch)])
        self.assert_silent(stock)

    def expect_commands(self, engine, described):
        for each in described:
            self.assertEqual(engine.command(), arrived_command(each))

    def expect_notifications(self, host, described):
        """Their ids."""
        identifiers = []
        for each in described:
            arrived, identifier = host.notification()
            self.assertEqual(arrived, arrived_notification(each))
            identifiers.append(identifier)
        return identifiers

    def expect_silence(self, process, kind):
        self.assertFalse(process.has_event(kind, BRIEFLY), f"a {kind} came")
