"""What the tests of the engine control channel share: our two ends of it as programs, and stock sockets in their place.

The environment names the programs (ENGINE_BACK_END_PEER, ENGINE_FRONT_END_PEER).
"""

import os
import re
import signal
import time

import zmq

import TcpEngine_pb2 as engine
from wire_support import LOOK_INTERVAL, PATIENCE, DrivenProcess, WireTest

RUN, PING, REQUEST_START, REQUEST_STOP, WAIT_FOR_STOP, TERMINATION, HEARTBEAT = range(7)
SUCCESS = engine.EngineBackEndReply(type=engine.EngineBackEndReply.Success, errorString="", replyString="")
# A status is published once a second; the rest is a margin for a busy machine.
STATUS_BOUND = 3


def request(kind, time_out=None):
    return engine.EngineFrontEndRequest(type=kind, timeOutMilliseconds=time_out).SerializeToString()


def _thread_is_frozen(process, thread):
    with open(f"/proc/{process.pid}/task/{thread}/stat") as stat_file:
        return stat_file.read().rpartition(")")[2].split()[0] == "T"


def freeze(process):
    """Freezes a process, and waits until each of its threads has stopped, which takes a while on a busy machine."""
    process.signal(signal.SIGSTOP)
    deadline = time.monotonic() + PATIENCE
    while not all(_thread_is_frozen(process, thread) for thread in os.listdir(f"/proc/{process.pid}/task")):
        if time.monotonic() > deadline:
            raise AssertionError(f"process {process.pid} does not stop")
        time.sleep(LOOK_INTERVAL)


class EventfulProcess(DrivenProcess):
    """A process that obeys lines, and says events when they come. An event is waited for by how it begins; others stay
    for whoever waits for them."""

    def __init__(self, arguments):
        super().__init__(arguments)
        self._events = []
        self._whole_log = ""

    def tell(self, line):
        self.begin(line)

    def _take_in(self, seconds):
        """Reads the process's output, and waits for some if need be; returns whether there was any."""
        if not self.has_answer_within(seconds):
            return False
        self._events.append(self.answer())
        return True

    def has_event(self, beginning, seconds=0):
        """Whether the event has occurred, or occurs in time."""
        deadline = time.monotonic() + seconds
        while not any(event.startswith(beginning) for event in self._events):
            if not self._take_in(max(0, deadline - time.monotonic())):
                return False
        return True

    def event(self, beginning, seconds=PATIENCE):
        """Waits for the event, and removes it."""
        if not self.has_event(beginning, seconds):
            raise AssertionError(f"no '{beginning}' within {seconds} s: {self._events}, {self.whole_log()}")
        index = next(i for i, event in enumerate(self._events) if event.startswith(beginning))
        return self._events.pop(index)

    def milliseconds_of(self, call, seconds=PATIENCE, outcome="returned"):
        """Waits for a call to return or to throw; returns its duration."""
        event = self.event(call + " ", seconds)
        match = re.match(rf"{call} {outcome} after (\d+)", event)
        if not match:
            raise AssertionError(event)
        return int(match[1])

    def call(self, line, seconds=PATIENCE):
        """Makes a call that returns, and waits for it; returns its duration in milliseconds."""
        self.tell(line)
        return self.milliseconds_of(line.split()[0], seconds)

    def whole_log(self):
        self._whole_log += "".join(line + "\n" for line in self.log())
        return self._whole_log

    def forget_log(self):
        self.log()
        self._whole_log = ""

    def wait_for_log(self, *texts, seconds=PATIENCE):
        """Waits until a line of the log contains all of the texts."""
        deadline = time.monotonic() + seconds
        while not any(all(text in line for text in texts) for line in self.whole_log().splitlines()):
            if time.monotonic() > deadline:
                raise AssertionError(f"the log has no line with {texts}: {self.whole_log()}")
            time.sleep(LOOK_INTERVAL)

    def end(self):
        # A failed test may have left the process frozen.
        self.signal(signal.SIGCONT)
        return super().end()

    def open_descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))


class EngineProcess(EventfulProcess):
    """Our back end, with an engine that the test controls."""

    def __init__(self, request_endpoint, status_endpoint):
        super().__init__([os.environ["ENGINE_BACK_END_PEER"], request_endpoint, status_endpoint])
        _, self.request_endpoint, self.status_endpoint = self.event("listening ").split()

    def from_now_on(self, line):
        """Sets the engine's behaviour, and waits until it is set: requests take another way and could overtake it."""
        self.tell(line)
        self.event("from now on " + line.split()[0])


class HostProcess(EventfulProcess):
    """Our front end."""

    def __init__(self):
        super().__init__([os.environ["ENGINE_FRONT_END_PEER"]])

    def configure(self, peer):
        """`peer` has an engine's two endpoints."""
        self.call(f"configure {peer.request_endpoint} {peer.status_endpoint}")


class EngineTest(WireTest):
    def engine_process(self, request_endpoint=None, status_endpoint=None):
        return self.watched(EngineProcess(request_endpoint or self.ipc("request"), status_endpoint or self.ipc("status")))

    def host_process(self):
        return self.watched(HostProcess())

    def engine_over(self, transport):
        """Our back end, at its own addresses."""
        if transport == "tcp":
            return self.engine_process("tcp://127.0.0.1:0", "tcp://127.0.0.1:0")
        return self.engine_process()

    def each_transport(self):
        return "ipc", "tcp"

    def kill_engine(self, engine_process):
        """Like a crash: its socket files remain."""
        for endpoint in (engine_process.request_endpoint, engine_process.status_endpoint):
            self._expect_file(endpoint)
        engine_process.kill()

    def begin_wait_for_stop(self, host):
        """Makes the host wait for the end of the run, once it has received the status Running."""
        def is_waiting():
            host.tell("wait_for_stop 60000")
            host.call("ping 0")
            if not host.has_event("wait_for_stop", 0.1):
                return True
            host.milliseconds_of("wait_for_stop")
            return False

        self.wait_until(is_waiting, "the host does not learn that its engine runs")

    def exchange(self, requester, encoding):
        requester.send(encoding)
        return engine.EngineBackEndReply.FromString(requester.recv())

    def expect_success(self, requester, encoding):
        """The reply has exactly these bytes: both texts are present and empty."""
        requester.send(encoding)
        self.assertEqual(requester.recv(), SUCCESS.SerializeToString())

    def expect_failure(self, requester, encoding, text):
        answer = self.exchange(requester, encoding)
        self.assertEqual(answer.type, engine.EngineBackEndReply.Failure)
        self.assertIn(text, answer.errorString)
        self.assertTrue(answer.HasField("replyString"))
        self.assertEqual(answer.replyString, "")
        return answer

    def next_status(self, subscriber, seconds=STATUS_BOUND):
        self.assertNotEqual(subscriber.poll(1000 * seconds), 0, "no status comes")
        parts = subscriber.recv_multipart()
        self.assertEqual(len(parts), 1)
        return engine.EngineStatus.Status.Name(engine.EngineStatus.FromString(parts[0]).status)

    def expect_status(self, subscriber, name, after=()):
        """Waits for the status; until then only statuses in `after` arrive."""
        deadline = time.monotonic() + PATIENCE
        while (received := self.next_status(subscriber)) != name:
            self.assertIn(received, after)
            self.assertLess(time.monotonic(), deadline)


class StockEngine:
    """A stock router and a stock publisher in the place of our back end. It serves as long as a test waits for
    something."""

    def __init__(self, test, kind=zmq.ROUTER, name="stock", transport="ipc"):
        def endpoint(which):
            return test.ipc(f"{name}-{which}") if transport == "ipc" else "tcp://127.0.0.1:*"

        self._test = test
        self.replier, self.request_endpoint = test.stock_bound(kind, endpoint("request"))
        self.publisher, self.status_endpoint = test.stock_bound(zmq.XPUB, endpoint("status"))
        # The answers by kind of request; None for no answer. All other requests are answered with success.
        self.answers = {}
        # Every request, with the time of its arrival.
        self.requests = []
        self.unanswered = []

    def publish(self, name):
        encoding = engine.EngineStatus(status=engine.EngineStatus.Status.Value(name)).SerializeToString()
        self.publisher.send(encoding)

    def answer(self, envelope, encoding):
        self.replier.send_multipart(envelope + [encoding])

    def kinds(self):
        return [received.type for _, received in self.requests]

    def serve_until(self, condition, seconds=PATIENCE):
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError(f"not so within {seconds} s; requests {self.kinds()}")
            if not self.replier.poll(10):
                continue
            *envelope, encoding = self.replier.recv_multipart()
            received = engine.EngineFrontEndRequest.FromString(encoding)
            self.requests.append((time.monotonic(), received))
            answer = self.answers.get(received.type, SUCCESS.SerializeToString())
            if answer is None:
                self.unanswered.append((received.type, envelope))
            else:
                self.answer(envelope, answer)

    def serve_call(self, host, line, seconds=PATIENCE):
        """Makes the host call an operation, and serves until it has returned; returns its duration in milliseconds."""
        host.tell(line)
        name = line.split()[0]
        self.serve_until(lambda: host.has_event(name + " "), seconds)
        return host.milliseconds_of(name)
