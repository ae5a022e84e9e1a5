"""What the tests of the programs share: programs that are started and watched, and that nothing of them is left.

The environment names the programs: TAMB_HOST, TAMB_ENGINE, QOR_ENGINE_SERVICE and MAKE_CLIP.
"""

import functools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

from processes import PATIENCE, Process, ProcessTest, only, processes_below, state_of, wait_until

# The time until everything has ended after the death of a host: 10 s of silence, and 5 s for the engine to stop.
GONE_WITHIN = 20
# The time until a host has noticed that its engine died.
NOTICED_WITHIN = 10

# The kernel's names of processes: cut after 15 characters.
SERVICE = "qor-engine-serv"
# The cores that the programs may use.
CORES = os.sched_getaffinity(0)
# The registry of the test engine.
TEST_ENGINES = pathlib.Path(os.environ["TAMB_ENGINE"]).parent.parent / "share/tamb/test-engines.d"
SUPERVISOR = "tamb-engine"
ENGINE = "tamb-engine-run"


def cores_of_threads(process, name=""):
    """The cores allowed for each thread of that process whose name begins with `name`."""
    cores = []
    for thread in pathlib.Path(f"/proc/{process}/task").iterdir():
        try:
            if (thread / "comm").read_text().startswith(name):
                cores.append(os.sched_getaffinity(int(thread.name)))
        except (FileNotFoundError, ProcessLookupError):  # it has gone meanwhile
            continue
    return cores


class Program(Process):
    """One of our programs."""

    def captured_lines(self, start):
        """The lines that engines, or libraries in them, have printed and that begin with a text."""
        found = (re.match(r"Output  \S+ \[.*?\] \d+ (.*)", line) for line in self.errors().splitlines())
        return [match[1] for match in found if match and match[1].startswith(start)]

    def notifications(self):
        """The notifications so far, of a program that prints them as JSON."""
        return [json.loads(line) for line in self.output().splitlines(keepends=True) if line.endswith("\n")]

    def lines(self):
        return [notification["line"] for notification in self.notifications()]

    def wait_for_notification(self, line):
        wait_until(lambda: line in self.lines() or self.has_ended(),
                   lambda: f"no notification {line}: {self.everything()}")
        if line not in self.lines():
            raise AssertionError(f"ended without the notification {line}: {self.everything()}")

    def wait_for_ready(self):
        """The program's report that it serves."""
        line = wait_until(lambda: "\n" in self.output() and self.output().splitlines()[0],
                          lambda: f"is not ready: {self.everything()}")
        ready = json.loads(line)
        if ready["event"] != "ready":
            raise AssertionError(f"is not ready: {line}")
        return ready

    def wait_for_process(self, name):
        """The id of the only process of that name below this one."""
        return wait_until(lambda: only(processes_below(self.pid, name)), f"there is no process {name}")


@functools.cache
def clip():
    """Six seconds of picture and sound, created once and removed at the end of the program."""
    folder = tempfile.mkdtemp(prefix="clip-")
    unittest.addModuleCleanup(clip.cache_clear)
    unittest.addModuleCleanup(shutil.rmtree, folder)
    path = pathlib.Path(folder, "clip.mkv")
    subprocess.run([os.environ["MAKE_CLIP"], path], check=True, timeout=120)
    return path


class ProgramsTest(ProcessTest):
    """Each test has its own folder for temporary files, and ends without leftovers of its programs."""

    def setUp(self):
        super().setUp()
        self.temporary = self.folder / "tmp"
        self.temporary.mkdir()
        # The tests must not find engines of the user who runs them.
        self._environment = dict(os.environ, TMPDIR=str(self.temporary), XDG_DATA_HOME=str(self.folder / "data"))
        # A sanitizer must not turn a signal into an exit code.
        plain_signals = "handle_segv=0:handle_abort=0:handle_sigbus=0"
        self._environment["ASAN_OPTIONS"] = f"{os.environ.get('ASAN_OPTIONS', '')}:{plain_signals}".strip(":")
        self._services = []

    def tearDown(self):
        for service in self._services:
            if not service.has_ended():
                service.signal(signal.SIGTERM)
                self.assertEqual(service.wait(), 0)
        self.expect_nothing_left()

    def left(self):
        return super().left() + sorted(self.temporary.iterdir())

    def expect_nothing_left(self, seconds=GONE_WITHIN):
        """Within that time, all processes have exited and all temporary files have been removed."""
        super().expect_nothing_left(seconds)

    def start(self, program, *arguments, test_engine=True):
        """A program that offers the test engine, unless told otherwise."""
        words = [os.environ[program], *map(str, arguments)]
        if test_engine and (program != "TAMB_HOST" or words[1:2] == ["run"]):
            words.insert(2 if program == "TAMB_HOST" else 1, f"--engines={TEST_ENGINES}")
        return self.watched(Program(words, self.folder, self._environment))

    def host(self, *arguments):
        """A host that runs a workflow, and prints its notifications as JSON."""
        return self.start("TAMB_HOST", "run", "--json", *arguments)

    def service(self, *arguments, name="service", test_engine=True):
        """A running submission service, and its endpoint. Its socket file is not one of the temporary files."""
        endpoint = f"ipc://{self.folder / name}"
        service = self.start("QOR_ENGINE_SERVICE", "--endpoint", endpoint, *arguments, test_engine=test_engine)
        self._services.append(service)
        self.assertEqual(service.wait_for_ready(), {"event": "ready", "pid": service.pid, "endpoint": endpoint})
        return service, endpoint

    def file(self, name, content):
        """A file in the test's folder, with the given bytes, or with a value as JSON."""
        path = self.folder / name
        path.write_bytes(content if isinstance(content, bytes) else json.dumps(content).encode())
        return path

    def faulty_engine_workflow(self, commands=(), **document):
        """A workflow for the test engine."""
        return self.file("workflow.json", {"engine": {"engine": "test", **document}, "commands": list(commands)})

    def running_host(self, *arguments):
        """A host whose run takes as long as the clip does, and has just started."""
        host = self.host("--input", clip(), "--real-time", *arguments)
        host.wait_for_notification("Started")
        return host

    def engine_process(self):
        """The id of the only engine process."""
        return wait_until(lambda: only(processes_below(os.getpid(), ENGINE)), "there is no engine")
