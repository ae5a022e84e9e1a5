"""What the tests of the programs share: programs that are started and watched, and that nothing of them is left.

The environment names the programs: TAMB_HOST, TAMB_ENGINE, QOR_ENGINE_SERVICE and MAKE_CLIP.
"""

import ctypes
import functools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from promises import PromisesTest

# How long a test waits for what has to come: reached by a broken system only, however busy the machine is.
PATIENCE = 30
# Within what time everything is gone after the death of a host: 10 s of silence, and 5 s for the engine to stop.
GONE_WITHIN = 20
# Within what time a host has noticed that its engine died.
NOTICED_WITHIN = 10
# How often a test looks at another process.
LOOK_INTERVAL = 0.005

# The names of processes as the system keeps them: cut after 15 characters.
SERVICE = "qor-engine-serv"
# Those that the programs may use.
CORES = os.sched_getaffinity(0)
SUPERVISOR = "tamb-engine"
ENGINE = "tamb-engine-run"

PR_SET_CHILD_SUBREAPER = 36


def wait_until(holds, message, seconds=PATIENCE):
    """The first true value of `holds`; `message` is a text, or makes one."""
    deadline = time.monotonic() + seconds
    while not (value := holds()):
        if time.monotonic() > deadline:
            raise AssertionError(f"{message() if callable(message) else message} (within {seconds} s)")
        time.sleep(LOOK_INTERVAL)
    return value


def process_table():
    """Of each process that has not ended, its name and its parent."""
    table = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            text = pathlib.Path("/proc", entry, "stat").read_text()
        except (FileNotFoundError, ProcessLookupError):  # it has gone meanwhile
            continue
        head, _, tail = text.rpartition(")")
        state, parent = tail.split()[:2]
        if state not in "ZX":
            table[int(entry)] = (head.partition("(")[2], int(parent))
    return table


def processes_below(root, name=None):
    """The processes that `root` has started, and those that they have, by their numbers. A copy of a process has the name
    of its original for a moment, and is not counted for it."""
    table = process_table()
    found, parents = {}, [root]
    while parents:
        above = parents.pop()
        for process, (its_name, parent) in table.items():
            if parent == above:
                parents.append(process)
                found[process] = its_name
    if name is None:
        return found
    return {process: its_name for process, its_name in found.items()
            if its_name == name and table.get(table[process][1], ("", 0))[0] != name}


def state_of(process):
    """As the system has it, such as "T" for one that is stopped; empty when it is no more."""
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return ""


def cores_of_threads(process, name=""):
    """The cores that each thread of that process may run on, of those whose names begin so."""
    cores = []
    for thread in pathlib.Path(f"/proc/{process}/task").iterdir():
        try:
            if (thread / "comm").read_text().startswith(name):
                cores.append(os.sched_getaffinity(int(thread.name)))
        except (FileNotFoundError, ProcessLookupError):  # it has gone meanwhile
            continue
    return cores


def only(processes):
    """The number of the one process there; 0 as long as there is none."""
    if len(processes) > 1:
        raise AssertionError(f"more than one: {processes}")
    return next(iter(processes), 0)


class Program:
    """A program that runs; what it and its children say goes to files."""

    def __init__(self, arguments, folder, environment, stdin=subprocess.DEVNULL, stderr=None):
        self._output = tempfile.NamedTemporaryFile(dir=folder, prefix="output-")
        self._errors = tempfile.NamedTemporaryFile(dir=folder, prefix="errors-")
        # A group of its own, as a shell gives it.
        self._process = subprocess.Popen(
            arguments, stdin=stdin, stdout=self._output, stderr=self._errors if stderr is None else stderr,
            cwd=folder, env=environment, start_new_session=True)

    @property
    def pid(self):
        return self._process.pid

    def output(self, since=0):
        """What it has said, from that byte on."""
        with open(self._output.name, errors="backslashreplace") as output:
            output.seek(since)
            return output.read()

    def output_size(self):
        """In bytes, so far."""
        return os.stat(self._output.name).st_size

    def errors(self):
        return pathlib.Path(self._errors.name).read_text(errors="backslashreplace")

    def everything(self):
        return f"output:\n{self.output()}\nerrors:\n{self.errors()}"

    def captured_lines(self, start):
        """What engines, or libraries in them, have printed, of the lines that start so."""
        found = (re.match(r"Output  \S+ \[.*?\] \d+ (.*)", line) for line in self.errors().splitlines())
        return [match[1] for match in found if match and match[1].startswith(start)]

    def notifications(self):
        """Those that have been shown so far, of a program that shows them as JSON."""
        return [json.loads(line) for line in self.output().splitlines(keepends=True) if line.endswith("\n")]

    def lines(self):
        return [notification["line"] for notification in self.notifications()]

    def wait_for_notification(self, line):
        wait_until(lambda: line in self.lines() or self.has_ended(),
                   lambda: f"no notification {line}: {self.everything()}")
        if line not in self.lines():
            raise AssertionError(f"ended without the notification {line}: {self.everything()}")

    def wait_for_errors(self, text):
        wait_until(lambda: text in self.errors(), lambda: f"{text} is not said: {self.everything()}")

    def wait_for_ready(self):
        """What the program says of itself once it serves."""
        line = wait_until(lambda: "\n" in self.output() and self.output().splitlines()[0],
                          lambda: f"is not ready: {self.everything()}")
        ready = json.loads(line)
        if ready["event"] != "ready":
            raise AssertionError(f"is not ready: {line}")
        return ready

    def wait_for_process(self, name):
        """The number of the one process of that name that is below this one."""
        return wait_until(lambda: only(processes_below(self.pid, name)), f"there is no process {name}")

    def has_ended(self):
        return self._process.poll() is not None

    def interrupt(self):
        """As Ctrl-C does it: everybody in the group is told."""
        if not self.has_ended():
            os.killpg(self.pid, signal.SIGINT)

    def signal(self, number):
        self._process.send_signal(number)

    def wait(self, seconds=PATIENCE):
        """Its exit code; of a program that a signal has ended, the signal's number with a minus."""
        try:
            return self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"does not end within {seconds} s: {self.everything()}") from None

    def ensure_ended(self):
        if self._process.poll() is None:
            self._process.kill()
            self._process.wait(PATIENCE)
        self._output.close()
        self._errors.close()


@functools.cache
def clip():
    """Six seconds of picture and tone, made once and removed at the end of the program."""
    folder = tempfile.mkdtemp(prefix="clip-")
    unittest.addModuleCleanup(clip.cache_clear)
    unittest.addModuleCleanup(shutil.rmtree, folder)
    path = pathlib.Path(folder, "clip.mkv")
    subprocess.run([os.environ["MAKE_CLIP"], path], check=True, timeout=120)
    return path


class ProgramsTest(PromisesTest):
    """Each test has a folder for temporary files of its own, and ends with nothing left of its programs."""

    @classmethod
    def setUpClass(cls):
        # Whose parent has died becomes a child of this process: nobody is lost from sight, and nobody stays a zombie.
        if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
            raise OSError(ctypes.get_errno(), "cannot become the parent of orphans")

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="programs-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(self._end_processes)
        self.temporary = self.folder / "tmp"
        self.temporary.mkdir()
        self._environment = dict(os.environ, TMPDIR=str(self.temporary))
        # A sanitizer is not to make an exit code of a signal.
        plain_signals = "handle_segv=0:handle_abort=0:handle_sigbus=0"
        self._environment["ASAN_OPTIONS"] = f"{os.environ.get('ASAN_OPTIONS', '')}:{plain_signals}".strip(":")
        self._programs = []
        self._services = []

    def tearDown(self):
        for service in self._services:
            if not service.has_ended():
                service.signal(signal.SIGTERM)
                self.assertEqual(service.wait(), 0)
        self.expect_nothing_left()

    def expect_nothing_left(self, seconds=GONE_WITHIN):
        """Within that time, all processes have ended and all socket files have gone."""
        wait_until(lambda: not self._left(), lambda: f"left behind: {self._left()}", seconds)

    def _left(self):
        self._reap_orphans()
        return list(processes_below(os.getpid()).items()) + sorted(self.temporary.iterdir())

    def _reap_orphans(self):
        own = {program.pid for program in self._programs}
        children = pathlib.Path(f"/proc/{os.getpid()}/task/{os.getpid()}/children").read_text()
        for child in map(int, children.split()):
            if child not in own:
                os.waitpid(child, os.WNOHANG)

    def _end_processes(self):
        for program in self._programs:
            program.ensure_ended()

        # Whoever is left is an orphan, and so a child of this process.
        def all_have_gone():
            for process in processes_below(os.getpid()):
                try:
                    os.kill(process, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            self._reap_orphans()
            return not processes_below(os.getpid())

        wait_until(all_have_gone, "processes that cannot be killed")

    def start(self, program, *arguments, test_engine=True):
        """A program that offers the engine with faults, unless told otherwise."""
        words = [os.environ[program], *map(str, arguments)]
        if test_engine and (program != "TAMB_HOST" or words[1:2] == ["run"]):
            words.insert(2 if program == "TAMB_HOST" else 1, "--with-test-engine")
        return self.watched(Program(words, self.folder, self._environment))

    def watched(self, program):
        """A program that ends with its test, at the latest."""
        self._programs.append(program)
        return program

    def host(self, *arguments):
        """A host that runs a workflow, and shows its notifications as JSON."""
        return self.start("TAMB_HOST", "run", "--json", *arguments)

    def service(self, *arguments, name="service", test_engine=True):
        """A submission service that serves, and its endpoint. Its socket file is none of the temporary ones."""
        endpoint = f"ipc://{self.folder / name}"
        service = self.start("QOR_ENGINE_SERVICE", "--endpoint", endpoint, *arguments, test_engine=test_engine)
        self._services.append(service)
        self.assertEqual(service.wait_for_ready(), {"event": "ready", "pid": service.pid, "endpoint": endpoint})
        return service, endpoint

    def file(self, name, content):
        """A file in the test's folder, of bytes, or of what is to be written as JSON."""
        path = self.folder / name
        path.write_bytes(content if isinstance(content, bytes) else json.dumps(content).encode())
        return path

    def faulty_engine_workflow(self, commands=(), **document):
        """A workflow for the engine that has faults."""
        return self.file("workflow.json", {"engine": {"engine": "test", **document}, "commands": list(commands)})

    def running_host(self, *arguments):
        """A host whose run takes as long as the clip does, and has just begun."""
        host = self.host("--input", clip(), "--real-time", *arguments)
        host.wait_for_notification("Started")
        return host

    def engine_process(self):
        """The number of the one process in which an engine is."""
        return wait_until(lambda: only(processes_below(os.getpid(), ENGINE)), "there is no engine")

    def kill(self, process, number):
        """Sends a signal to a process that a program of this test has started."""
        self.assertIn(process, processes_below(os.getpid()))
        os.kill(process, number)
        if number == signal.SIGSTOP:
            # It takes effect a moment later; another signal that comes until then may overtake it.
            wait_until(lambda: state_of(process) in ("T", "Z", ""), "it does not stop")

    def expect_exit(self, program, code, seconds=PATIENCE):
        self.assertEqual(program.wait(seconds), code, program.everything())
