"""What the wire tests share: our socket driven from outside, stock ZeroMQ sockets, and every message exchanged.

The environment names the program that opens our socket (WIRE_PEER) and, through the module path, the folder with the
classes generated from the schemas.
"""

import os
import select
import signal
import socket
import subprocess
import sys
import threading
import time

import zmq

import CommandAndNotification_pb2 as channels
import TcpEngine_pb2 as engine
from processes import LOOK_INTERVAL, PATIENCE, Process, ProcessTest
from qor.proto import ApiService_pb2 as service

# How long a test checks that nothing arrives.
BRIEFLY = 0.3
# The size bound of our receives, unless a test is about bounds.
BOUND = 65536


class PeerFailure(Exception):
    """An operation of a controlled socket has thrown; the text is the exception's."""


class DrivenProcess(Process):
    """A process that answers each line with one line. Its standard error stream is kept for `log`."""

    def __init__(self, arguments):
        super().__init__(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self._received = b""

    def has_answer_within(self, seconds):
        if b"\n" in self._received:
            return True
        return bool(select.select([self._process.stdout], [], [], seconds)[0])

    def answer(self, seconds=PATIENCE):
        deadline = time.monotonic() + seconds
        while b"\n" not in self._received:
            if not self.has_answer_within(max(0, deadline - time.monotonic())):
                raise AssertionError(f"no answer within {seconds} s")
            piece = os.read(self._process.stdout.fileno(), 1 << 20)
            if not piece:
                raise AssertionError(f"process {self.pid} has ended: {self.log()}")
            self._received += piece
        line, _, self._received = self._received.partition(b"\n")
        text = line.decode()
        if text.startswith("failed "):
            raise PeerFailure(text.removeprefix("failed "))
        return text

    def ask(self, line, seconds=PATIENCE):
        self.begin(line)
        return self.answer(seconds)

    def descriptors(self):
        """How many sockets the process has open; a connection is one of them."""
        count = 0
        for number in os.listdir(f"/proc/{self.pid}/fd"):
            try:
                count += os.readlink(f"/proc/{self.pid}/fd/{number}").startswith("socket:")
            except FileNotFoundError:  # closed meanwhile
                pass
        return count

    def resident_mebibytes(self):
        with open(f"/proc/{self.pid}/status") as status_file:
            fields = dict(line.split(":", 1) for line in status_file)
        return int(fields["VmRSS"].split()[0]) / 1024

    def thread_states(self):
        """For each thread, whether it sleeps and how often it has gone to sleep."""
        states = {}
        for thread in os.listdir(f"/proc/{self.pid}/task"):
            with open(f"/proc/{self.pid}/task/{thread}/status") as status_file:
                fields = dict(line.split(":", 1) for line in status_file)
            states[thread] = (fields["State"].split()[0] == "S", fields["voluntary_ctxt_switches"])
        return states

    def end(self):
        """Tells the process to exit, and reaps it; returns its exit code. Kills a process that does not exit, and fails."""
        if self._process.poll() is None:
            self.begin("quit")
            # Answers that were not read precede the last one.
            self._process.stdin.close()
            deadline = time.monotonic() + PATIENCE
            while True:
                if not select.select([self._process.stdout], [], [], max(0, deadline - time.monotonic()))[0]:
                    self.kill()
                    raise AssertionError(f"process {self.pid} does not end: {self.log()}")
                if not os.read(self._process.stdout.fileno(), 1 << 20):
                    break
        code = self._process.wait(PATIENCE)
        self._close_pipes()
        return code


class OurSocket(DrivenProcess):
    """One of our sockets, in its own process."""

    def __init__(self, name, close_policy):
        super().__init__([os.environ["WIRE_PEER"], name, str(close_policy)])

    def reserve(self, endpoint):
        return self.ask(f"reserve {endpoint}")

    def open(self, role, endpoint, time_out=0):
        self.ask(f"open {role} {endpoint} {time_out}")

    def is_open(self):
        return self.ask("state").startswith("open ")

    def close(self):
        self.ask("close")

    def send(self, message):
        self.send_bytes(type(message).__name__, message.SerializeToString())

    def send_bytes(self, type_name, encoding):
        self.ask(f"send {type_name} {encoding.hex()}")

    def send_once_connected(self, message):
        """Sends as soon as a lost connection is restored; how long that takes depends on the peer and the machine."""
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                return self.send(message)
            except PeerFailure as failure:
                if "not re-established within 500 ms" not in str(failure) or time.monotonic() > deadline:
                    raise

    def begin_send_numbered(self, first, count, width=0):
        self.begin(f"send-numbered {first} {count} {width}")

    def send_numbered(self, first, count, width=0):
        """Sends `count` messages, each of them numbered(...)."""
        self.begin_send_numbered(first, count, width)
        self.answer()

    def poll(self, milliseconds):
        """The result; an error has to have a text, and only an error."""
        result, _, text = self.ask(f"poll {milliseconds}").partition(" ")
        assert (result in ("0", "1")) == (text == ""), text
        return int(result)

    def begin_poll(self):
        """Polls, as the loops of the system do, until a message arrives."""
        self.begin(f"poll {1000 * PATIENCE}")

    def end_poll(self):
        assert self.answer() == "0 ", "no message came"

    def begin_receive(self, type_name, bound=BOUND):
        self.begin(f"receive {type_name} {bound}")

    def end_receive(self, seconds=PATIENCE):
        """The result, and the message as our side encodes it."""
        result, _, digits = self.answer(seconds).partition(" ")
        return int(result), bytes.fromhex(digits)

    def receive(self, type_name, bound=BOUND):
        """Waits for a message like the loops of the system: polls, then receives."""
        if self.poll(1000 * PATIENCE) != 0:
            raise AssertionError("no message came")
        self.begin_receive(type_name, bound)
        return self.end_receive()


class StockPeer(DrivenProcess):
    """A stock ZeroMQ socket in its own process, which can be killed and frozen."""

    def __init__(self, kind, endpoint):
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "stock_peer.py")
        super().__init__([sys.executable, "-B", script, kind, endpoint])
        self.endpoint = self.answer()

    def send(self, message):
        self.ask(f"send {message.SerializeToString().hex()}")

    def receive(self):
        return bytes.fromhex(self.ask("receive"))


class Stranger:
    """A TCP server without ZeroMQ: accepts connections, sends the same few bytes to each, and keeps them open."""

    def __init__(self, greeting, port):
        self._greeting = greeting
        self._listener = socket.create_server(("127.0.0.1", port))
        self.endpoint = f"tcp://127.0.0.1:{port}"
        self._connections = []
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            try:
                connection.sendall(self._greeting)
            except OSError:
                pass

    def accepted(self):
        return len(self._connections)

    def close(self):
        if not self._thread.is_alive():
            return
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        for connection in self._connections + [self._listener]:
            connection.close()


class WireTest(ProcessTest):
    """Provides a folder, sockets and processes for a test, and checks that nothing of them remains."""

    def setUp(self):
        super().setUp()
        self.context = zmq.Context()
        self._ours = []
        self._strangers = []
        self._stock_sockets = []
        self._stock_files = set()
        self.addCleanup(self._close_sockets)

    def tearDown(self):
        self.context.destroy(linger=0)
        for ours in self._ours:
            self.assertEqual(ours.log(), [], "a diagnostic that the test has not accounted for")
        for process in reversed(self._processes):
            self.assertIn(process.end(), (0, -signal.SIGKILL))
        for ours in self._ours:
            self.assertEqual(ours.log(), [], "a diagnostic on closing")
        self.expect_nothing_left(seconds=0)

    def left(self):
        # A stock socket does not remove its file.
        return super().left() + sorted(set(os.listdir(self.folder)) - self._stock_files)

    def _close_sockets(self):
        self.context.destroy(linger=0)
        for stranger in self._strangers:
            stranger.close()

    def ipc(self, name="socket"):
        return f"ipc://{self.folder}/{name}"

    def ours(self, name="Ours", close_policy=2):
        """One of our sockets, not open yet."""
        ours = self.watched(OurSocket(name, close_policy))
        self._ours.append(ours)
        return ours

    def bound(self, role, endpoint=None, name="Ours", close_policy=2):
        """One of our sockets, bound, and its endpoint."""
        ours = self.ours(name, close_policy)
        endpoint = ours.reserve(endpoint or self.ipc())
        ours.open(role, endpoint)
        return ours, endpoint

    def connected(self, role, endpoint, name="Ours", time_out=0):
        ours = self.ours(name)
        ours.open(role, endpoint, time_out)
        return ours

    def _expect_file(self, endpoint):
        self._stock_files.add(endpoint.rpartition("/")[2])

    def stock_process(self, kind, endpoint):
        self._expect_file(endpoint)
        return self.watched(StockPeer(kind, endpoint))

    def held_port(self):
        """A port of 127.0.0.1 reserved for this test: requests for any free port do not return it."""
        holder = socket.socket()
        self.addCleanup(holder.close)
        # Bound without listening, so that sockets which name the port can still bind it.
        holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        holder.bind(("127.0.0.1", 0))
        return holder.getsockname()[1]

    def stranger(self, greeting=b""):
        stranger = Stranger(greeting, self.held_port())
        self._strangers.append(stranger)
        return stranger

    def _stock(self, kind, options):
        stock = self.context.socket(kind)
        self._stock_sockets.append(stock)
        stock.rcvtimeo = stock.sndtimeo = 1000 * PATIENCE
        stock.linger = 0
        stock.ipv6 = True
        for option, value in options.items():
            stock.setsockopt(option, value)
        return stock

    def stock_connected(self, kind, endpoint, options=None):
        stock = self._stock(kind, options or {})
        stock.connect(endpoint)
        return stock

    def stock_bound(self, kind, endpoint=None, options=None):
        """A bound stock socket, and its endpoint."""
        stock = self._stock(kind, options or {})
        endpoint = endpoint or self.ipc()
        self._expect_file(endpoint)
        stock.bind(endpoint)
        return stock, stock.last_endpoint.rstrip(b"\0").decode()

    def subscriber(self, endpoint, topic=b""):
        return self.stock_connected(zmq.SUB, endpoint, {zmq.SUBSCRIBE: topic})

    def publisher_for(self, subscriber_role_opener, endpoint=None):
        """A stock publisher that our subscriber, which the call opens, has subscribed to. It waits where it would drop
        messages."""
        publisher, endpoint = self.stock_bound(zmq.XPUB, endpoint, {zmq.XPUB_NODROP: 1})
        subscriber_role_opener(endpoint)
        self.assertEqual(publisher.recv(), b"\x01")
        return publisher

    def wait_until_gone(self, ours, descriptors):
        """Waits until our side has closed its end of a connection, and has handled the consequences."""
        self.wait_until(lambda: ours.descriptors() == descriptors, "the connection stays")

        # Threads that all sleep, and have all slept since the last check, have nothing left to do.
        def is_at_rest():
            before = ours.thread_states()
            time.sleep(LOOK_INTERVAL)
            return before == ours.thread_states() and all(sleeps for sleeps, _ in before.values())

        self.wait_until(is_at_rest, "the process does not come to rest")

    def assert_silent(self, stock):
        """No message has arrived at a stock socket, and none arrives for a moment."""
        self.assertEqual(stock.poll(1000 * BRIEFLY), 0, "something came")

    def assert_only_line(self, ours, *texts):
        """Our side has logged one line since the last check: an error that contains the texts."""
        lines = ours.log()
        self.assertEqual(len(lines), 1, lines)
        self.assertTrue(lines[0].startswith("Error "), lines)
        for text in texts:
            self.assertIn(text, lines[0])


def reply(text):
    return engine.EngineBackEndReply(type=engine.EngineBackEndReply.Success, replyString=text)


def numbered(number):
    """One of many messages that have to keep their order."""
    return reply(str(number))


def number_of(encoding):
    return int(engine.EngineBackEndReply.FromString(encoding).replyString)


def status(value="Running"):
    return engine.EngineStatus(status=engine.EngineStatus.Status.Value(value))


def _parameters():
    """A collection that uses every list of the schema."""
    instance = channels.ParametersCollectionInstance()
    for common, factor in ((instance.prototype.data, 0), (instance.data, 1)):
        for key in ("on", "", "k\0"):
            common.boolParams.add(key=key, value=bool(factor))
        for value in (0, -1, -2**63, 2**63 - 1, 300):
            common.int64Params.add(key=f"i{value}", value=factor * value)
        for value in (0, 127, 128, 2**64 - 1):
            common.uint64Params.add(key=f"u{value}", value=factor * value)
        for value in (0.1, -6.5, float("inf"), 5e-324):
            common.doubleParams.add(key=f"d{value}", value=value if factor else 0.0)
        common.utf8StringParams.add(key="title", value="Größe\0…" * factor)
        common.utf16StringParams.add(key="wide", value="A\0B\0" * factor)
    return instance


def _fill_command(command, number):
    command.mediaTime.editRate.numerator = 30000
    command.mediaTime.editRate.denominator = 1001
    command.mediaTime.timeNumber = number - 50
    command.commandName = f"Command {number}"
    command.commandId = 2**32 - 1 - number
    command.workflowManagerId = "wfm\0é"
    command.engineId = 2**32 + number
    command.stepId = "" if number % 2 else "step"


def _fill_notification(notification, number):
    notification.time.editRate.numerator = 25
    notification.time.editRate.denominator = 1
    notification.time.timeNumber = -number
    notification.workflowStep = "step"
    notification.notificationLine = f"line {number}"
    notification.id = "" if number % 2 else "progress"
    notification.commandId = number
    notification.workflowManagerId = "wfm"
    notification.engineId = 2**64 - 1 - number


def _commands(count, with_arguments=False):
    messages = channels.CommandMessageList()
    for number in range(count):
        command = messages.messages.add()
        _fill_command(command, number)
        if with_arguments:
            command.commandArgs.CopyFrom(_parameters())
    return messages


def _notifications(count, with_object=False):
    messages = channels.NotificationMessageList()
    for number in range(count):
        notification = messages.messages.add()
        _fill_notification(notification, number)
        if with_object:
            notification.notificationObject.CopyFrom(_parameters())
    return messages


def _submission():
    request = service.ApiToServiceRequest(kind=service.ApiToServiceRequest.ENGINE_SUBMISSION)
    submission = request.Extensions[service.ApiToServiceRequestEngineSubmission]
    submission.workflowManagerId = "wfm"
    submission.description = '{"engine": "mixer", "input": "größe.mov"}'
    submission.engineId = -1
    submission.version = 1
    return request


def _submitted():
    answer = service.ServiceToApiReply(kind=service.ServiceToApiReply.ENGINE_SUBMITTED)
    endpoints = answer.Extensions[service.ServiceToApiReplyEngineSubmission]
    endpoints.requestEndpoint = "ipc:///run/e/request"
    endpoints.statusEndpoint = "tcp://[::1]:40000"
    endpoints.commandEndpoint = "tcp://127.0.0.1:40001"
    endpoints.notificationEndpoint = "ipc://@e-notification"
    return answer


def _every_message():
    messages = {
        "no command": _commands(0),
        "one command": _commands(1),
        "a hundred commands": _commands(100),
        "commands with arguments": _commands(20, with_arguments=True),
        "no notification": _notifications(0),
        "one notification": _notifications(1),
        "a hundred notifications": _notifications(100),
        "notifications with objects": _notifications(20, with_object=True),
        "engine submission": _submission(),
        "request of an unknown kind": service.ApiToServiceRequest(kind=-7),
        "submitted engine": _submitted(),
        "refused engine": service.ServiceToApiReply(kind=service.ServiceToApiReply.REFUSED, refusal="no more room"),
    }
    for name, value in engine.EngineFrontEndRequest.RequestType.items():
        messages[f"request {name}"] = engine.EngineFrontEndRequest(type=value)
        messages[f"request {name} with time-out"] = engine.EngineFrontEndRequest(
            type=value, timeOutMilliseconds=2**32 - 1)
    for name, value in engine.EngineBackEndReply.ReplyType.items():
        messages[f"reply {name}"] = engine.EngineBackEndReply(type=value)
        messages[f"reply {name} with texts"] = engine.EngineBackEndReply(
            type=value, errorString="", replyString="a\0ß" * 1000)
    for name, value in engine.EngineStatus.Status.items():
        messages[f"status {name}"] = engine.EngineStatus(status=value)
    return messages


# Every kind of message, by what it demonstrates.
EVERY_MESSAGE = _every_message()
