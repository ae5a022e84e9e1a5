"""What an engine, or a library in it, prints to its standard output is log, and stops nobody; nor does a reader that never
reads a log."""

import concurrent.futures
import fcntl
import os
import re
import subprocess
import time
import unittest

import zmq

from programs_support import NOTICED_WITHIN, PATIENCE, TEST_ENGINES, Program, ProgramsTest, clip

# TcpEngine.proto's messages, whose only required field is the first one.
PING, RUN, GOODBYE, SUCCESS, END_OF_LIFE = b"\x08\x01", b"\x08\x00", b"\x08\x05", b"\x08\x01", b"\x08\x03"
CHANNELS = ("request", "status", "command", "notification")
# Several times the capacity of a pipe.
LINES = 20_000
LAST_LINE = f"TestEngine: line {LINES}"


class Prints(ProgramsTest):
    def printing_engine(self, **document):
        return self.faulty_engine_workflow(prints=LINES, notifications=1, **document)

    def stop_and_expect_its_lines(self, host):
        host.wait_for_notification("Tick")
        host.wait_for_errors(LAST_LINE)
        host.interrupt()
        self.expect_exit(host, 130)
        self.assertEqual(len(host.captured_lines("TestEngine: line ")), LINES)
        # Notifications only.
        self.assertEqual(set(host.lines()), {"Tick", "Finished"})

    def test_in_a_run_that_goes_on(self):
        self.stop_and_expect_its_lines(self.host(self.printing_engine(when="run")))

    def test_before_it_is_ready(self):
        self.stop_and_expect_its_lines(self.host(self.printing_engine(when="construct")))

    def test_through_a_filter_of_a_whole_clip(self):
        output = self.folder / "out.mkv"
        host = self.host("--input", clip(), "--output", output,
                         "--video-filter", "signalstats,metadata=mode=print:file=-")
        self.expect_exit(host, 0)
        self.assertEqual(host.lines()[-1], "Finished")
        self.assertTrue(output.stat().st_size)
        # Several times the capacity of a pipe.
        lines = host.captured_lines("lavfi.signalstats.YMIN=")
        self.assertEqual(len(lines), host.notifications()[-1]["values"]["videoFrames"])

    def test_do_not_drive_the_terminal(self):
        # Resets and erases the terminal, and rings its bell, as the metadata of a file could.
        host = self.host("--input", clip(), "--at", "0.5", "Stop", "--video-filter",
                         "metadata=mode=add:key=title:value=\x1bc\u009bJ\a,metadata=mode=print:file=-")
        self.expect_exit(host, 0)
        self.assertIn("title=\\x1bc\\u009bJ\\x07\n", host.errors())
        for control in "\x1b\u009b\a":
            self.assertNotIn(control, host.everything())

    def test_stand_in_the_cause_of_its_death(self):
        host = self.host(self.printing_engine(behaviour="crash", when="run"))
        self.expect_exit(host, 3, NOTICED_WITHIN + PATIENCE)
        self.assertRegex(host.notifications()[-1]["values"]["reason"],
                         r"died: signal 11 \(Segmentation fault\) .*\| " + LAST_LINE)

    def test_of_its_program_before_it_is_ready_are_no_refusal(self):
        program = self.file("engine-program", f"""#!/bin/sh
            echo 'This program comes with a banner.'
            yes '{{"event":"failed","reason":"a banner"}}' | head -n {LINES}
            exec {os.environ['TAMB_ENGINE']} "$@"
            """.encode())
        program.chmod(0o700)
        service, endpoint = self.service("--engine-program", program)
        host = self.host("--input", clip(), "--service", endpoint)
        self.expect_exit(host, 0)
        service.wait_for_errors("This program comes with a banner.")


class NeverRead(ProgramsTest):
    """A program's log, or all of its output, goes to one pipe that is full from the start."""

    def full_pipe(self):
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        self.addCleanup(os.close, writing)
        flags = fcntl.fcntl(writing, fcntl.F_GETFL)
        fcntl.fcntl(writing, fcntl.F_SETFL, flags | os.O_NONBLOCK)
        try:
            while True:
                os.write(writing, b"x" * 4096)
        except BlockingIOError:
            pass
        fcntl.fcntl(writing, fcntl.F_SETFL, flags)
        return writing

    def engine(self, document):
        """An engine's program that can only report that it is ready."""
        endpoints = {channel: f"ipc://{self.folder / channel}" for channel in CHANNELS}
        arguments = [f"--{channel}={endpoint}" for channel, endpoint in endpoints.items()]
        ready, report = os.pipe()
        pipe = self.full_pipe()
        process = subprocess.Popen(
            [os.environ["TAMB_ENGINE"], f"--engines={TEST_ENGINES}", "--workflow-manager-id=studio", "--engine-id=3",
             f"--description={self.file('description.json', document)}", f"--ready-fd={report}", *arguments],
            stdin=subprocess.DEVNULL, stdout=pipe, stderr=pipe, pass_fds=[report], env=self._environment)
        os.close(report)
        self.addCleanup(process.wait, PATIENCE)
        self.addCleanup(process.kill)
        with os.fdopen(ready) as line:
            self.assertRegex(line.readline(), '"event":"ready"')
        return process, endpoints

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

    def test_logs_do_not_prevent_the_report_of_a_death(self):
        process, endpoints = self.engine({"engine": "test", "behaviour": "crash", "prints": LINES})
        status = self.stock(zmq.SUB, endpoints["status"])
        requester = self.stock(zmq.REQ, endpoints["request"])
        self.assertTrue(self.ask(requester, RUN).startswith(SUCCESS))
        start = time.monotonic()
        while not status.recv().startswith(END_OF_LIFE):
            self.assertLess(time.monotonic() - start, NOTICED_WITHIN)
        requester = self.stock(zmq.REQ, endpoints["request"])
        answer = self.ask(requester, PING)
        self.assertIn(b"died: signal 11 (Segmentation fault)", answer)
        self.assertIn(LAST_LINE.encode(), answer)
        self.assertTrue(self.ask(requester, GOODBYE).startswith(SUCCESS))
        self.assertEqual(process.wait(PATIENCE), 3)

    def test_logs_do_not_stop_a_host_with_all_that_it_has_started(self):
        """Host, service and supervisor share the pipe."""
        pipe = self.full_pipe()
        workflow = self.faulty_engine_workflow(prints=LINES, behaviour="crash", when="run")
        host = subprocess.run([os.environ["TAMB_HOST"], "run", f"--engines={TEST_ENGINES}", "--json", "--verbose", workflow], stderr=pipe,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, env=self._environment,
                              timeout=NOTICED_WITHIN + PATIENCE, text=True, check=False)
        self.assertEqual(host.returncode, 3)
        self.assertIn("EngineDied", host.stdout)

    def test_lines_are_counted_once_the_reader_reads_again(self):
        reading, writing = os.pipe()
        workflow = self.faulty_engine_workflow([{"name": "Hello"}], prints=LINES)
        host = self.watched(Program([os.environ["TAMB_HOST"], "run", f"--engines={TEST_ENGINES}", "--json", workflow],
                                    self.folder, self._environment, stderr=writing))
        os.close(writing)
        # It is executed after the lines were printed.
        host.wait_for_notification("CommandDone")
        with os.fdopen(reading, "rb") as errors, concurrent.futures.ThreadPoolExecutor() as readers:
            read = readers.submit(errors.read)
            host.interrupt()
            self.expect_exit(host, 130)
            said = read.result(PATIENCE).decode()
        lines = said.count("TestEngine: line ")
        counts = re.findall(r"^Warning .*\] \d+ \((\d+) lines could not be written here\)$", said, re.MULTILINE)
        self.assertLess(lines, LINES)
        # Other lines may have been dropped.
        self.assertGreaterEqual(lines + sum(map(int, counts)), LINES, said[-500:])


if __name__ == "__main__":
    unittest.main()
