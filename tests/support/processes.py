"""What every test of processes shares: starting them, waiting with a deadline, reaping them, and leaving nothing behind.

A test derives from ProcessTest and passes what it starts to watched(). Tests of programs and of the wire have more in
programs_support.py and wire_support.py.
"""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

from promises import PromisesTest

# How long a test waits for events that have to happen: only a broken system reaches it, however busy the machine is.
PATIENCE = 30
# The poll interval of a test that observes another process.
LOOK_INTERVAL = 0.005

PR_SET_CHILD_SUBREAPER = 36


def wait_until(holds, message, seconds=PATIENCE):
    """The first true value of `holds`; `message` is a text, or a function that returns one."""
    deadline = time.monotonic() + seconds
    while not (value := holds()):
        if time.monotonic() > deadline:
            raise AssertionError(f"{message() if callable(message) else message} (within {seconds} s)")
        time.sleep(LOOK_INTERVAL)
    return value


def process_table():
    """The name and the parent of each process that has not exited."""
    table = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            text = pathlib.Path("/proc", entry, "stat").read_text()
        except (FileNotFoundError, ProcessLookupError):  # it has exited meanwhile
            continue
        head, _, tail = text.rpartition(")")
        state, parent = tail.split()[:2]
        if state not in "ZX":
            table[int(entry)] = (head.partition("(")[2], int(parent))
    return table


def processes_below(root, name=None):
    """The names of the processes that `root` has started, and of those that they have, by number. A copy of a process has
    the name of its original for a moment, and is not counted under it."""
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
    """The state that the system reports, such as "T" for a stopped process; empty when it has exited."""
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return ""


def only(processes):
    """The id of the only process; 0 if there is none yet."""
    if len(processes) > 1:
        raise AssertionError(f"more than one: {processes}")
    return next(iter(processes), 0)


class Process:
    """A process that a test has started, the leader of a session and group of its own, as a shell's jobs are of theirs.

    Its standard output and error streams go to files that nobody else sees, unless others are passed, as to
    subprocess.Popen. Its standard input is empty, or a pipe for begin().
    """

    def __init__(self, arguments, cwd=None, environment=None, stdin=subprocess.DEVNULL, stdout=None, stderr=None):
        self._output, self._errors = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        self._log_read = 0
        self._process = subprocess.Popen(
            arguments, cwd=cwd, env=environment, start_new_session=True, stdin=stdin,
            stdout=self._output if stdout is None else stdout, stderr=self._errors if stderr is None else stderr)

    @property
    def pid(self):
        return self._process.pid

    def begin(self, line):
        """Writes a line to its standard input; answers are read later."""
        self._process.stdin.write(line.encode() + b"\n")
        self._process.stdin.flush()

    def output(self, since=0):
        """Its standard output so far, from that byte on."""
        return _content(self._output, since).decode(errors="backslashreplace")

    def output_size(self):
        """The size of its standard output so far, in bytes."""
        return os.fstat(self._output.fileno()).st_size

    def errors(self):
        """Its standard error stream so far."""
        return _content(self._errors).decode(errors="backslashreplace")

    def everything(self):
        return f"output:\n{self.output()}\nerrors:\n{self.errors()}"

    def log(self):
        """The complete lines on its standard error stream since the last call."""
        written = _content(self._errors, self._log_read)
        complete = written[:written.rfind(b"\n") + 1]
        self._log_read += len(complete)
        return complete.decode(errors="backslashreplace").splitlines()

    def wait_for_errors(self, text):
        wait_until(lambda: text in self.errors(), lambda: f"{text} is not logged: {self.everything()}")

    def has_ended(self):
        return self._process.poll() is not None

    def signal(self, number):
        self._process.send_signal(number)

    def interrupt(self):
        """Sends a signal to its group, as Ctrl-C does."""
        if not self.has_ended():
            os.killpg(self.pid, signal.SIGINT)

    def wait(self, seconds=PATIENCE):
        """Its exit code; the negative number of the signal if one has killed it."""
        try:
            return self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"process {self.pid} does not end within {seconds} s: {self.everything()}") from None

    def kill(self):
        """Kills it like a crash, and reaps it."""
        self._process.kill()
        self._process.wait(PATIENCE)
        self._close_pipes()

    def ensure_ended(self):
        if not self.has_ended():
            self.kill()
        self._close_pipes()
        self._output.close()
        self._errors.close()

    def _close_pipes(self):
        for pipe in (self._process.stdin, self._process.stdout):
            try:
                if pipe:
                    pipe.close()
            except BrokenPipeError:
                pass


def _content(file, since=0):
    # Reading does not change the position at which the process writes.
    return os.pread(file.fileno(), max(0, os.fstat(file.fileno()).st_size - since), since)


class ProcessTest(PromisesTest):
    """Each test has an empty folder; at its end none of its processes may remain, nor any of their descendants."""

    @classmethod
    def setUpClass(cls):
        # Orphans become children of this process, so that none is missed, and none remains as a zombie.
        if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
            raise OSError(ctypes.get_errno(), "cannot become the parent of orphans")

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="test-"))
        self._processes = []
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(self._end_processes)

    def watched(self, process):
        """A process that the test ends at the latest."""
        self._processes.append(process)
        return process

    def wait_until(self, condition, what):
        return wait_until(condition, what)

    def left(self):
        """The remaining processes with their names. A subclass adds its files."""
        self.reap_orphans()
        return list(processes_below(os.getpid()).items())

    def expect_nothing_left(self, seconds=PATIENCE):
        wait_until(lambda: not self.left(), lambda: f"left behind: {self.left()}", seconds)

    def kill(self, process, number):
        """Sends a signal to a process that a program of this test has started."""
        self.assertIn(process, processes_below(os.getpid()))
        os.kill(process, number)
        if number == signal.SIGSTOP:
            # It takes effect a moment later; an earlier second signal could overtake it.
            wait_until(lambda: state_of(process) in ("T", "Z", ""), "it does not stop")

    def expect_exit(self, process, code, seconds=PATIENCE):
        self.assertEqual(process.wait(seconds), code, process.everything())

    def reap_orphans(self):
        own = {process.pid for process in self._processes}
        children = pathlib.Path(f"/proc/{os.getpid()}/task/{os.getpid()}/children").read_text()
        for child in map(int, children.split()):
            if child not in own:
                os.waitpid(child, os.WNOHANG)

    def _end_processes(self):
        for process in self._processes:
            process.ensure_ended()

        # All others are orphans, and therefore children of this process.
        def all_have_exited():
            for process in processes_below(os.getpid()):
                try:
                    os.kill(process, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            return not processes_below(os.getpid())

        wait_until(all_have_exited, "processes that cannot be killed")
        self.reap_orphans()
