"""One host has many engines, at once and repeatedly."""

import os
import subprocess
import unittest

from programs_support import ProgramsTest, processes_below, wait_until

HOST = os.environ["MANY_ENGINES_HOST"]
PLUGIN = os.environ["TAMB_MULTIPROCESS"]
# Allocators, thread pools and pages of code reach their size after a few lives.
WARM_UP = 3
# The memory that an allocator may keep from the lives of eight engines at once.
MEMORY_GROWTH_KIBIBYTES = 4096


class OneHost(ProgramsTest):
    def lives(self, endpoint, at_once, lives):
        """The resources of the host after each life: descriptors, threads and resident KiB."""
        host = subprocess.run([HOST, PLUGIN, endpoint, str(at_once), str(lives)], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=240, check=False)
        self.assertEqual(host.returncode, 0, host.stderr)
        held = [[int(number) for number in line.split()] for line in host.stdout.splitlines()]
        self.assertEqual(len(held), lives)
        return held

    def test_drives_fifty_engines_at_once(self):
        service, endpoint = self.service("--maximum-engines", 50)
        self.lives(endpoint, 50, 1)
        wait_until(lambda: not processes_below(service.pid), "engines are left")

    def test_holds_no_more_after_two_hundred_engines(self):
        service, endpoint = self.service()

        def service_holds():
            with open(f"/proc/{service.pid}/statm", encoding="ascii") as statm:
                resident = int(statm.read().split()[1]) * os.sysconf("SC_PAGESIZE") // 1024
            return (len(os.listdir(f"/proc/{service.pid}/fd")), len(os.listdir(f"/proc/{service.pid}/task")), resident)

        self.lives(endpoint, 8, WARM_UP)
        wait_until(lambda: not processes_below(service.pid), "engines are left")
        before = service_holds()
        held = self.lives(endpoint, 8, 25)
        wait_until(lambda: not processes_below(service.pid), "engines are left")
        after = service_holds()

        for index, allowed, name in ((0, 0, "descriptors"), (1, 0, "threads"), (2, MEMORY_GROWTH_KIBIBYTES, "memory")):
            self.assertLessEqual(held[-1][index], max(life[index] for life in held[WARM_UP:WARM_UP + 5]) + allowed,
                                 f"the host's {name}: {held}")
        wait_until(lambda: service_holds()[0] <= before[0], "the service's descriptors grow")
        self.assertLessEqual(after[1], before[1], "the service's threads")
        self.assertLessEqual(after[2], before[2] + MEMORY_GROWTH_KIBIBYTES, "the service's memory")


if __name__ == "__main__":
    unittest.main()
