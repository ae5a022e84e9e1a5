"""The program of one engine, without a service: its reports, and how it ends."""

import json
import os
import signal
import socket
import time
import unittest

import zmq

from programs_support import (CORES, ENGINE, PATIENCE, TEST_ENGINES, Program, ProgramsTest, clip, cores_of_threads,
                              processes_below, wait_until)

# TcpEngine.proto's messages, whose only required field is the first one.
PING, RUN, GOODBYE, SUCCESS, IDLE = b"\x08\x01", b"\x08\x00", b"\x08\x05", b"\x08\x01", b"\x08\x02"
CHANNELS = ("request", "status", "command", "notification")
# How long a host may be silent, and how late that may be noticed on a busy machine.
SILENCE = 10
LATEST = 15


class EngineProgram(ProgramsTest):
    def engine(self, endpoints, document=None, directory=None, more=(), number=3):
        description = self.file("description.json", document or {"engine": "test"})
        arguments = ["--workflow-manager-id", "studio", f"--engine-id={number}", "--description", description]
        for channel in CHANNELS:
            arguments += [f"--{channel}", endpoints[channel]]
        return self.start("TAMB_ENGINE", *arguments, *(["--directory", directory] if directory else []), *more)

    def ipc_engine(self, document=None, more=()):
        directory = self.temporary / "qor-one"
        directory.mkdir()
        endpoints = {channel: f"ipc://{directory / channel}" for channel in CHANNELS}
        return self.engine(endpoints, document, directory, more), endpoints

    def tcp_engine(self):
        endpoints = dict.fromkeys(CHANNELS, "tcp://127.0.0.1:0")
        # The engine must not choose the host's own endpoint.
        with socket.socket() as reserved:
            reserved.bind(("127.0.0.1", 0))
            endpoints["command"] = f"tcp://127.0.0.1:{reserved.getsockname()[1]}"
        return self.engine(endpoints), endpoints

    def stock(self, kind, endpoint):
        its_socket = zmq.Context.instance().socket(kind)
        self.addCleanup(its_socket.close, linger=0)
        its_socket.set(zmq.RCVTIMEO, 1000 * PATIENCE)
        if kind == zmq.SUB:
            its_socket.subscribe(b"")
        its_socket.connect(endpoint)
        return its_socket

    def ask(self, requester, request):
        requester.send(request)
        return requester.recv()

    def expect_served(self, ready):
        """Control and status answer at these endpoints."""
        self.assertTrue(self.ask(self.stock(zmq.REQ, ready["request"]), PING).startswith(SUCCESS))
        self.assertTrue(self.stock(zmq.SUB, ready["status"]).recv().startswith(IDLE))

    def test_reports_its_endpoints_and_its_process(self):
        engine, endpoints = self.ipc_engine()
        ready = engine.wait_for_ready()
        self.assertEqual(set(ready), {"event", "pid", "enginePid", *CHANNELS})
        self.assertEqual(ready["pid"], engine.pid)
        self.assertEqual({ready["enginePid"]: ENGINE}, processes_below(engine.pid))
        self.assertEqual({channel: ready[channel] for channel in CHANNELS}, endpoints)
        self.expect_served(ready)
        engine.signal(signal.SIGTERM)
        engine.wait()

    def test_serves_without_standard_streams(self):
        directory = self.temporary / "qor-one"
        directory.mkdir()
        endpoints = {channel: f"ipc://{directory / channel}" for channel in CHANNELS}
        description = self.file("description.json", {"engine": "test"})
        reports = self.folder / "reports"
        engine = self.watched(Program(
            ["/bin/sh", "-c", 'exec "$@" 5>"$0" 0<&- 1>&- 2>&-', reports, os.environ["TAMB_ENGINE"], f"--engines={TEST_ENGINES}",
             "--workflow-manager-id=studio", "--engine-id=3", "--ready-fd=5", f"--description={description}",
             f"--directory={directory}", *(f"--{channel}={endpoints[channel]}" for channel in CHANNELS)],
            self.folder, self._environment))
        line = wait_until(lambda: reports.exists() and reports.read_text(), "nothing is reported")
        self.assertEqual(json.loads(line)["event"], "ready")
        self.expect_served(endpoints)
        self.ask(self.stock(zmq.REQ, endpoints["request"]), GOODBYE)
        self.expect_exit(engine, 0)
        self.expect_nothing_left()

    def test_leaves_the_files_of_another_on_its_endpoints_alone(self):
        first, endpoints = self.ipc_engine()
        ready = first.wait_for_ready()
        directory = self.temporary / "qor-one"
        files = {file: file.stat().st_ino for file in directory.iterdir()}
        self.assertEqual(len(files), 3)
        # By the same paths, and by others to the same files.
        respelled = {channel: endpoint.replace("/qor-one/", "/./qor-one/") for channel, endpoint in endpoints.items()}
        for used, given in ((endpoints, directory), (respelled, None)):
            second = self.engine(used, directory=given)
            self.expect_exit(second, 1)
            self.assertIn("in use", second.everything())
            self.assertEqual({file: file.stat().st_ino for file in directory.iterdir()}, files)
            self.expect_served(ready)
        first.signal(signal.SIGTERM)
        first.wait()

    def test_refuses_a_port_that_another_engine_has(self):
        first, _ = self.tcp_engine()
        ready = first.wait_for_ready()
        taken = {channel: ready[channel] for channel in CHANNELS}
        # All of them, and one at a time.
        for channels in (CHANNELS, *((channel,) for channel in CHANNELS if channel != "command")):
            with self.subTest(channels):
                free = dict.fromkeys(CHANNELS, "tcp://127.0.0.1:0") | {"command": taken["command"]}
                second = self.engine(free | {channel: taken[channel] for channel in channels}, number=4)
                self.expect_exit(second, 1)
                port = taken[channels[0]].rpartition(":")[2]
                self.assertEqual(second.notifications(), [
                    {"event": "failed", "reason": f"cannot listen on port {port} of 127.0.0.1: Address already in use"}])
        self.expect_served(ready)
        first.signal(signal.SIGTERM)
        first.wait()

    def test_reports_the_ports_that_it_has_chosen(self):
        engine, endpoints = self.tcp_engine()
        ready = engine.wait_for_ready()
        self.assertEqual(ready["command"], endpoints["command"])
        bound = [ready[channel] for channel in CHANNELS if channel != "command"]
        for endpoint in bound:
            self.assertRegex(endpoint, r"^tcp://127\.0\.0\.1:[1-9]\d*$")
            with socket.create_connection(("127.0.0.1", int(endpoint.rpartition(":")[2])), PATIENCE) as connection:
                # The first byte of a ZeroMQ greeting.
                connection.settimeout(PATIENCE)
                self.assertEqual(connection.recv(1), b"\xff")
        self.assertEqual(len(set(bound)), 3)
        self.expect_served(ready)
        engine.signal(signal.SIGTERM)
        engine.wait()

    def test_ends_with_both_processes_when_it_is_asked_to(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(number):
                engine, _ = self.ipc_engine()
                engine.wait_for_ready()
                start = time.monotonic()
                engine.signal(number)
                self.assertEqual(engine.wait(), 3)
                self.assertLess(time.monotonic() - start, 8)
                self.expect_nothing_left()

    def test_ends_when_it_is_asked_to_even_though_its_engine_is_stopped(self):
        engine, _ = self.ipc_engine()
        ready = engine.wait_for_ready()
        self.kill(ready["enginePid"], signal.SIGSTOP)
        engine.signal(signal.SIGTERM)
        self.assertEqual(engine.wait(), 3)
        self.assertRegex(engine.output(), "was killed by signal 9: it did not exit within 5 s")
        self.expect_nothing_left()

    def test_goes_on_with_an_engine_that_is_continued_after_five_seconds(self):
        engine, endpoints = self.ipc_engine()
        ready = engine.wait_for_ready()
        self.kill(ready["enginePid"], signal.SIGSTOP)
        # The duration of the fault.
        time.sleep(5)
        self.kill(ready["enginePid"], signal.SIGCONT)
        self.expect_served(ready)
        self.assertTrue(self.ask(self.stock(zmq.REQ, endpoints["request"]), GOODBYE).startswith(SUCCESS))
        self.expect_exit(engine, 0)
        self.expect_nothing_left()

    def test_ends_an_engine_that_is_kept_stopped_and_says_so(self):
        engine, endpoints = self.ipc_engine()
        ready = engine.wait_for_ready()
        start = time.monotonic()
        self.kill(ready["enginePid"], signal.SIGSTOP)
        status = self.stock(zmq.SUB, endpoints["status"])
        while not status.recv().startswith(b"\x08\x03"):
            self.assertLess(time.monotonic() - start, LATEST)
        answer = self.ask(self.stock(zmq.REQ, endpoints["request"]), PING)
        self.assertIn(b"was killed by signal 9: it was suspended for 10 s", answer)
        self.assertGreater(time.monotonic() - start, SILENCE - 2)
        self.assertTrue(self.ask(self.stock(zmq.REQ, endpoints["request"]), GOODBYE).startswith(SUCCESS))
        self.expect_exit(engine, 3)
        self.expect_nothing_left()

    def test_exits_when_its_host_disconnects(self):
        engine, endpoints = self.ipc_engine()
        engine.wait_for_ready()
        requester = self.stock(zmq.REQ, endpoints["request"])
        self.assertTrue(self.ask(requester, PING).startswith(SUCCESS))
        start = time.monotonic()
        self.assertTrue(self.ask(requester, GOODBYE).startswith(SUCCESS))
        self.expect_exit(engine, 0)
        self.assertLess(time.monotonic() - start, 8)
        self.expect_nothing_left()

    def test_discards_the_output_of_a_run_that_its_controller_leaves(self):
        output = self.file("out.mkv", b"an earlier result")
        engine, endpoints = self.ipc_engine({"engine": "media", "input": str(clip()), "output": str(output),
                                             "startPaused": True})
        engine.wait_for_ready()
        requester = self.stock(zmq.REQ, endpoints["request"])
        self.assertTrue(self.ask(requester, RUN).startswith(SUCCESS))
        wait_until(lambda: list(self.folder.glob("out.mkv.*.part")), "the run does not begin")
        self.assertTrue(self.ask(requester, GOODBYE).startswith(SUCCESS))
        self.expect_exit(engine, 0)
        self.expect_nothing_left()
        self.assertEqual(list(self.folder.glob("out.mkv*")), [output])
        self.assertEqual(output.read_bytes(), b"an earlier result")

    def test_exits_by_itself_without_a_host(self):
        engine, _ = self.ipc_engine()
        engine.wait_for_ready()
        start = time.monotonic()
        self.expect_exit(engine, 0)
        self.assertGreater(time.monotonic() - start, SILENCE - 2)
        self.assertLess(time.monotonic() - start, LATEST)
        self.expect_nothing_left()

    def test_does_not_leave_as_long_as_it_is_controlled(self):
        engine, endpoints = self.ipc_engine()
        engine.wait_for_ready()
        requester = self.stock(zmq.REQ, endpoints["request"])
        status = self.stock(zmq.SUB, endpoints["status"])
        start = time.monotonic()
        # A status is published once a second: one ping with each.
        while time.monotonic() - start < SILENCE + 4:
            self.assertTrue(status.recv().startswith(IDLE))
            self.assertTrue(self.ask(requester, PING).startswith(SUCCESS))
        self.assertFalse(engine.has_ended())
        self.ask(requester, GOODBYE)
        self.expect_exit(engine, 0)

    def test_answers_for_its_dead_engine_and_leaves_with_its_controller(self):
        engine, endpoints = self.ipc_engine()
        ready = engine.wait_for_ready()
        self.kill(ready["enginePid"], signal.SIGABRT)
        status = self.stock(zmq.SUB, endpoints["status"])
        while not (last := status.recv()).startswith(b"\x08\x03"):
            self.assertTrue(last.startswith(IDLE))
        requester = self.stock(zmq.REQ, endpoints["request"])
        answer = self.ask(requester, PING)
        self.assertTrue(answer.startswith(b"\x08\x00"))
        self.assertIn(b"died: signal 6 (Aborted)", answer)
        self.assertTrue(self.ask(requester, GOODBYE).startswith(SUCCESS))
        self.expect_exit(engine, 3)
        self.expect_nothing_left()

    def test_reports_in_one_line_why_no_engine_could_be_started(self):
        engine, _ = self.ipc_engine({"engine": "warp"})
        self.expect_exit(engine, 1)
        self.assertRegex(engine.output(), r'^\{"event":"failed","reason":"[^\n]*warp[^\n]*"\}\n$')
        self.assertRegex(engine.errors(), rf'^Error   \S+Z \[tamb-engine {engine.pid}, engine 3 of "studio"\] \d+ .*warp.*\n$')
        self.expect_nothing_left()

    def test_says_in_one_line_that_its_engine_died_while_it_was_made(self):
        engine, _ = self.ipc_engine({"engine": "test", "behaviour": "crash", "when": "construct"})
        self.expect_exit(engine, 1)
        self.assertRegex(engine.output(), r'"event":"failed".*died: signal 11 \(Segmentation fault\)')

    @unittest.skipIf(len(CORES) < 2, "there is one core only")
    @unittest.skipIf(len(CORES) == 1, "there is one core only")
    def test_keeps_its_messaging_to_the_core_that_it_is_given_but_not_its_engine(self):
        core = max(CORES)
        engine, _ = self.ipc_engine(more=["--core", core])
        ready = engine.wait_for_ready()
        sockets = cores_of_threads(ready["enginePid"], "ZMQbg")
        self.assertEqual(sockets, [{core}] * len(sockets))
        self.assertTrue(sockets)
        self.assertNotIn(CORES, cores_of_threads(ready["enginePid"], ENGINE))
        self.assertTrue(self.ask(self.stock(zmq.REQ, ready["request"]), RUN).startswith(SUCCESS))
        wait_until(lambda: CORES in cores_of_threads(ready["enginePid"], ENGINE), "the engine's run is kept to the core too")
        self.assertEqual(cores_of_threads(ready["enginePid"], "ZMQbg"), sockets)
        engine.signal(signal.SIGTERM)
        engine.wait()

    def test_refuses_a_number_that_no_engine_has(self):
        endpoints = {channel: f"ipc://{self.folder / channel}" for channel in CHANNELS}
        for number in (-1, 2**32, "one"):
            engine = self.engine(endpoints, number=number)
            self.expect_exit(engine, 2)
            self.assertRegex(engine.errors(), f"--engine-id.*{number}|{number}.*--engine-id")

    def test_refuses_a_core_that_it_cannot_use(self):
        endpoints = {channel: f"ipc://{self.folder / channel}" for channel in CHANNELS}
        engine = self.engine(endpoints, more=["--core", 1_000_000])
        self.expect_exit(engine, 1)
        self.assertIn("--core: core 1000000 cannot be used: expected one of ", engine.errors())

    def test_needs_an_endpoint_for_commands_that_can_be_connected_to(self):
        engine = self.engine(dict.fromkeys(CHANNELS, "tcp://127.0.0.1:0"))
        self.assertIn(engine.wait(), (1, 2))
        self.assertIn("port 0", engine.errors())

    def test_refuses_invalid_endpoints(self):
        engine = self.engine(dict.fromkeys(CHANNELS, "carrier-pigeon://roof"))
        self.expect_exit(engine, 1)
        self.assertIn("carrier-pigeon://roof", engine.errors())


if __name__ == "__main__":
    unittest.main()
