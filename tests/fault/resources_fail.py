"""A disk is full, or a process may open no more descriptors."""

import itertools
import os
import re
import resource
import subprocess
import time
import unittest

from fault_support import AT_ONCE, BEFORE, IDLE, RUNNING, FaultTest, Table, main
from programs_support import PATIENCE, Program, clip, wait_until

# The duration of a clip that does not fit there.
DISK = "64k"
# More free descriptors than a host needs to wire an engine.
ENOUGH_TO_WIRE = 40
# Mounts that only the command sees. Root needs no user namespace for them, and may not make one in a chroot.
WITH_MOUNTS = ["unshare", "--mount"] + (["--map-root-user"] if os.geteuid() else [])


def may_mount():
    return subprocess.run([*WITH_MOUNTS, "mount", "-t", "tmpfs", "none", "/mnt"], stderr=subprocess.DEVNULL).returncode == 0


@unittest.skipUnless(may_mount(), "this machine lets nobody mount a file system of his own")
class FullDisk(FaultTest):
    fault = "disk: full, where the output goes"

    def expect_failure(self, *arguments):
        disk = self.folder / "disk"
        disk.mkdir(exist_ok=True)
        left = self.folder / "left"
        # A file system in the mount namespace of this host and its children.
        script = f'mount -t tmpfs -o size={DISK} none "{disk}" || exit 99; "$@"; code=$?; ls -A "{disk}" > "{left}"; exit $code'
        start = time.monotonic()
        host = self.watched(Program(
            [*WITH_MOUNTS, "sh", "-c", script, "sh", os.environ["TAMB_HOST"], "run", "--json",
             "--input", str(clip()), "--output", str(disk / "out.mkv"), *arguments], self.folder, self._environment))
        self.expect_exit(host, 1)
        self.told = time.monotonic() - start
        last = host.notifications()[-1]
        self.assertEqual(last["line"], "Failed")
        self.assertIn("No space left on device", last["values"]["reason"])
        self.assertEqual(left.read_text(), "")

    def test_running(self):
        self.expect_failure()
        Table.add(self.fault, RUNNING, self.told, None, "`Failed`: No space left on device; no output is left",
                  "nothing: the host prints it")

    def test_running_in_the_same_process(self):
        self.expect_failure("--local")


class DescriptorLimit(FaultTest):
    fault = "descriptors: none left"

    def limited(self, process, spare):
        """Limits a process to that many descriptors more than it has open; returns the previous limit."""
        numbers = set(map(int, os.listdir(f"/proc/{process}/fd")))
        # The limit applies to numbers, not to the count of open ones: higher ones stay open.
        free = (number for number in itertools.count() if number not in numbers)
        limit = next(itertools.islice(free, spare, None))
        _, hard = before = resource.prlimit(process, resource.RLIMIT_NOFILE)
        resource.prlimit(process, resource.RLIMIT_NOFILE, (limit, hard))
        self.struck = time.monotonic()
        return before

    def expect_refused_without(self, descriptors, pattern):
        """A host wires while the service may open only that many more descriptors."""
        before = self.limited(self.service_program.pid, descriptors)
        self.host.begin(f"wire {self.endpoint} {self.document(IDLE)}")
        self.expect_told("wire", 15, pattern)
        return before

    def expect_wires_again(self):
        """The host wires and destroys another engine as if nothing had happened."""
        for call, arguments in (("wire", f" {self.endpoint} {self.document(IDLE)}"), ("destroy", "")):
            begin = len(self.host.output().encode())
            self.host.begin(call + arguments)
            wait_until(lambda: re.search(rf"^{call} returned ", self.host.output(begin), re.MULTILINE),
                       lambda: f"does not {call} again: {self.host.everything()}")

    def test_of_the_service_that_starts_an_engine(self):
        self.reach(BEFORE)
        before = self.expect_refused_without(1, "cannot start engine 1 .*Too many open files")
        resource.prlimit(self.service_program.pid, resource.RLIMIT_NOFILE, before)
        self.expect_destroyed()
        self.fault = "descriptors: the service has none left for an engine"
        self.conclude("AddEngineDescription throws the refusal with the reason", "Refused: .*Too many open files")

    def test_of_the_service_that_is_connected_to(self):
        """libzmq alone would abort a process that cannot accept a connection on a socket file."""
        self.reach(BEFORE)
        before = self.expect_refused_without(0, f"{self.endpoint}.*no peer answered within")
        self.assertFalse(self.service_program.has_ended())
        resource.prlimit(self.service_program.pid, resource.RLIMIT_NOFILE, before)
        self.expect_destroyed()
        self.fault = "descriptors: the service has none left for a connection"
        # Connections stay in the queue if the number of its reserved descriptor is above the lowered limit.
        self.conclude("AddEngineDescription throws: nobody answers",
                      r"(refused (a|\d+) connections?|cannot accept a connection): Too many open files \(this process may")

    def test_of_the_engine(self):
        call = self.reach(RUNNING)
        # Later connections find no descriptor.
        self.host.call("push 1 Hello")
        self.host.wait_for("^notification CommandDone 1 ")
        self.limited(self.engine_process(), 0)
        self.host.call("push 100 Hello")
        self.host.wait_for("^notification CommandDone 101 ")
        self.told = self.since_fault()
        self.host.call("ping 5000")
        self.host.call("stop")
        self.assertEqual(self.host.wait_for_end_of(call)[1], "returned")
        self.expect_destroyed()
        self.expect_engines_gone(20)
        self.fault = "descriptors: the engine has none left"
        self.conclude("nothing: what it needs it has open")

    def test_of_the_host(self):
        self.reach(BEFORE)
        ends = []
        # Each number fails another step of the wiring.
        for spare in range(ENOUGH_TO_WIRE + 1):
            with self.subTest(spare=spare):
                before = self.limited(self.host.pid, spare)
                self.host.begin(f"wire {self.endpoint} {self.document(IDLE)}")
                end = self.host.wait_for_end_of("wire", 2 * PATIENCE)
                ends.append(end[1])
                if end[1] == "threw":
                    self.assertIn("Too many open files", end[2])
                if spare == 0:
                    self.told = self.since_fault()
                resource.prlimit(self.host.pid, resource.RLIMIT_NOFILE, before)
                self.host.call("destroy")
                self.expect_wires_again()
                self.assertEqual(self.host.quit(), 0, self.host.everything())
                self.host = self.staged_host()
        self.assertEqual((ends[0], ends[-1]), ("threw", "returned"))
        self.expect_engines_gone(40)
        self.expect_destroyed()
        self.stage = BEFORE
        self.fault = "descriptors: the host has none left"
        self.conclude("AddEngineDescription throws: Too many open files")


if __name__ == "__main__":
    main()
