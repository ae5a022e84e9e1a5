"""A disk is full, or a process may open no more descriptors."""

import itertools
import os
import resource
import signal
import subprocess
import time
import unittest

from fault_support import AT_ONCE, BEFORE, IDLE, RUNNING, FaultTest, Table, main
from programs_support import PATIENCE, Program, clip

# Of a clip that has no room there.
DISK = "64k"
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
        # A file system that only this host and what it starts can see.
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
        """Lets a process open so many more descriptors than it has; what it was allowed before."""
        numbers = set(map(int, os.listdir(f"/proc/{process}/fd")))
        # The limit is one of numbers, not of how many are open: those above it stay.
        free = (number for number in itertools.count() if number not in numbers)
        limit = next(itertools.islice(free, spare, None))
        _, hard = before = resource.prlimit(process, resource.RLIMIT_NOFILE)
        resource.prlimit(process, resource.RLIMIT_NOFILE, (limit, hard))
        self.struck = time.monotonic()
        return before

    def expect_refused_without(self, descriptors, pattern):
        """A host wires while the service may open no more than so many."""
        before = self.limited(self.service_program.pid, descriptors)
        self.host.begin(f"wire {self.endpoint} {self.document(IDLE)}")
        self.expect_told("wire", 15, pattern)
        return before

    def test_of_the_service_that_starts_an_engine(self):
        self.reach(BEFORE)
        before = self.expect_refused_without(1, "cannot start engine 1 .*Too many open files")
        resource.prlimit(self.service_program.pid, resource.RLIMIT_NOFILE, before)
        self.expect_destroyed()
        self.fault = "descriptors: the service has none left for an engine"
        self.conclude("AddEngineDescription throws the refusal with the reason", "Refused: .*Too many open files")

    def test_of_the_service_that_is_connected_to(self):
        """libzmq ends a process that cannot take a connection on a socket file for want of a descriptor."""
        self.reach(BEFORE)
        self.expect_refused_without(0, self.endpoint)
        self.assertEqual(self.service_program.wait(), -signal.SIGABRT)
        self.assertRegex(self.service_program.errors(), "(?m)^Too many open files")
        self.expect_destroyed()
        self.service_program, self.endpoint = self.service()
        self.fault = "descriptors: the service has none left for a connection"
        self.conclude("AddEngineDescription throws: nobody answers. The service dies of it", "(?m)^Too many open files")

    def test_of_the_engine(self):
        call = self.reach(RUNNING)
        # What connects later would find no descriptor.
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
        for spare in range(0, 24, 2):
            with self.subTest(spare=spare):
                before = self.limited(self.host.pid, spare)
                self.host.begin(f"wire {self.endpoint} {self.document(IDLE)}")
                end = self.host.wait_for_end_of("wire", PATIENCE)
                if spare == 0:
                    self.told = self.since_fault()
                    self.assertEqual(end[1], "threw", self.host.everything())
                    self.assertIn("Too many open files", end[2])
                resource.prlimit(self.host.pid, resource.RLIMIT_NOFILE, before)
                self.host.begin("destroy")
                self.assertEqual(self.host.wait_for_end_of("destroy")[1], "returned")
                self.assertEqual(self.host.quit(), 0, self.host.everything())
                self.host = self.staged_host()
        self.expect_engines_gone(40)
        self.expect_destroyed()
        self.stage = BEFORE
        self.fault = "descriptors: the host has none left"
        self.conclude("AddEngineDescription throws: Too many open files")


if __name__ == "__main__":
    main()
