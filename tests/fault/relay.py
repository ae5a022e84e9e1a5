"""A way between two socket files that a test can cut, restore and slow down, and a service whose engines are reached on such
ways only."""

import pathlib
import socket
import threading
import time

import zmq

from qor.proto import ApiService_pb2 as api

PIECE = 1 << 16
# For a peer to notice that its connection is lost.
PATIENCE = 20


class Relay:
    """Listens on one path and forwards data to another, in both directions. `close` ends its threads."""

    def __init__(self, here, there):
        self._here, self._there = str(here), str(there)
        self._lock = threading.Lock()
        self._connections = []
        self._threads = []
        self._listener = None
        self._is_refusing = False
        # In bytes per second, for each direction; None for no limit.
        self.rate = None
        self.restore()

    def restore(self):
        """Accepts connections again."""
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(self._here)
        self._listener.listen()
        self._is_refusing = False
        self._start(self._accept, self._listener)

    def cut(self):
        """Breaks all connections, and takes no more. Returns when the peers have noticed: what they send until then is lost."""
        self._refuse()
        for connection in self._connections:
            # The peers read the end, and close; data that they write meanwhile is discarded.
            self._try_shutdown(connection, socket.SHUT_WR)
        deadline = time.monotonic() + PATIENCE
        for thread in self._threads:
            thread.join(deadline - time.monotonic())
            if thread.is_alive():
                raise AssertionError(f"a peer on {self._here} has not closed its end within {PATIENCE} s")
        self.close()

    def close(self):
        self._refuse()
        for connection in self._connections:
            self._end(connection)
        for thread in self._threads:
            thread.join()
        self._connections, self._threads = [], []

    def _refuse(self):
        """Adds no more connections."""
        with self._lock:
            self._is_refusing = True
            self._end(self._listener)
        pathlib.Path(self._here).unlink(missing_ok=True)

    @staticmethod
    def _try_shutdown(connection, how):
        try:
            connection.shutdown(how)
        except OSError:
            pass  # It has gone already.

    @classmethod
    def _end(cls, connection):
        # shutdown() wakes a thread that waits in accept(); close() does not.
        cls._try_shutdown(connection, socket.SHUT_RDWR)
        connection.close()

    def _start(self, run, *arguments):
        thread = threading.Thread(target=run, args=arguments)
        self._threads.append(thread)
        thread.start()

    def _accept(self, listener):
        while True:
            try:
                near, _ = listener.accept()
            except OSError:
                return
            far = socket.socket(socket.AF_UNIX)
            try:
                far.connect(self._there)
            except OSError:
                # As without a relay: nothing listens there.
                near.close()
                far.close()
                continue
            with self._lock:
                if self._is_refusing:
                    near.close()
                    far.close()
                    return
                self._connections += [near, far]
                self._start(self._copy, near, far)
                self._start(self._copy, far, near)

    def _copy(self, source, sink):
        try:
            while piece := source.recv(PIECE if self.rate is None else max(1, self.rate // 20)):
                try:
                    sink.sendall(piece)
                except OSError:
                    continue  # Nobody takes it any more, which its sender learns from the end of the other direction.
                if self.rate:
                    time.sleep(len(piece) / self.rate)
        except OSError:
            pass
        # The reader closes its socket, and so ends the other direction, too.
        self._try_shutdown(sink, socket.SHUT_WR)


class RelayedService:
    """Answers submissions with engines behind relays. `start_engine` starts their program, and returns it."""

    def __init__(self, folder, start_engine):
        self._folder = pathlib.Path(folder)
        self._start_engine = start_engine
        self.endpoint = f"ipc://{self._folder / 'relayed-service'}"
        self.relays = []
        self._is_ending = threading.Event()
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def path(self, side, channel):
        return self._folder / side / channel

    def cut(self):
        for relay in self.relays:
            relay.cut()

    def restore(self):
        for relay in self.relays:
            relay.restore()

    def slow_down(self, bytes_in_a_second):
        for relay in self.relays:
            relay.rate = bytes_in_a_second

    def close(self):
        self._is_ending.set()
        self._thread.join()
        for relay in self.relays:
            relay.close()

    def _serve(self):
        with zmq.Context() as context, context.socket(zmq.REP) as replier:
            replier.linger = 1000
            replier.bind(self.endpoint)
            while not self._is_ending.is_set():
                if replier.poll(50):
                    replier.send(self._answer(replier.recv()).SerializeToString())

    def _answer(self, message):
        request = api.ApiToServiceRequest.FromString(message)
        submission = request.Extensions[api.ApiToServiceRequestEngineSubmission]
        if not self.relays:
            self._start(submission)
        reply = api.ServiceToApiReply(kind=api.ServiceToApiReply.ENGINE_SUBMITTED)
        engine = reply.Extensions[api.ServiceToApiReplyEngineSubmission]
        for channel in ("request", "status", "command", "notification"):
            setattr(engine, f"{channel}Endpoint", f"ipc://{self.path('host', channel)}")
        return reply

    def _start(self, submission):
        for side in ("host", "engine"):
            (self._folder / side).mkdir()
        description = self._folder / "description.json"
        description.write_text(submission.description)
        # The host binds one of the four endpoints, the engine process the others.
        self.relays.append(Relay(self.path("engine", "command"), self.path("host", "command")))
        arguments = ["--workflow-manager-id", submission.workflowManagerId, "--engine-id", submission.engineId,
                     "--description", description]
        for channel in ("request", "status", "command", "notification"):
            arguments += [f"--{channel}", f"ipc://{self.path('engine', channel)}"]
        self._start_engine(*arguments).wait_for_ready()
        for channel in ("request", "status", "notification"):
            self.relays.append(Relay(self.path("host", channel), self.path("engine", channel)))
