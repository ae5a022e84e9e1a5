"""When a host is killed, all processes that it has started exit by themselves, and remove their socket files."""

import os
import signal
import unittest

from programs_support import ENGINE, SERVICE, SUPERVISOR, ProgramsTest, clip, processes_below, wait_until


class Killed(ProgramsTest):
    def kill_host(self, host):
        host.signal(signal.SIGKILL)
        self.assertEqual(host.wait(), -signal.SIGKILL)

    def test_in_a_run_leaves_nothing(self):
        host = self.running_host("--output", self.folder / "out.mkv")
        names = set(processes_below(host.pid).values())
        self.assertEqual(names, {SERVICE, SUPERVISOR, ENGINE})
        self.assertEqual(len(list(self.temporary.glob("qor-*"))), 2)
        self.kill_host(host)
        self.expect_nothing_left()

    def test_in_a_run_without_end_leaves_nothing(self):
        host = self.host(self.faulty_engine_workflow(notifications=1))
        host.wait_for_notification("Tick")
        self.kill_host(host)
        self.expect_nothing_left()

    def test_with_an_engine_that_ignores_the_stop_leaves_nothing(self):
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1))
        host.wait_for_notification("Tick")
        self.kill_host(host)
        self.expect_nothing_left()

    def test_together_with_its_engine_leaves_nothing(self):
        host = self.running_host()
        self.kill(self.engine_process(), signal.SIGKILL)
        self.kill_host(host)
        self.expect_nothing_left()

    def test_together_with_its_service_leaves_no_process(self):
        host = self.running_host()
        self.kill(host.wait_for_process(SERVICE), signal.SIGKILL)
        self.kill_host(host)
        wait_until(lambda: not processes_below(os.getpid()), "processes are left", 20)
        # No process remains that could remove the service's.
        remains = [path.name for folder in self.temporary.iterdir() for path in folder.iterdir()]
        self.assertEqual(remains, ["service"])
        for folder in self.temporary.iterdir():
            (folder / "service").unlink()
            folder.rmdir()

    def test_with_a_service_of_its_own_choice_leaves_only_the_service(self):
        service, endpoint = self.service()
        host = self.running_host("--service", endpoint)
        self.kill_host(host)
        wait_until(lambda: not processes_below(service.pid), "the engine is left", 20)
        self.assertFalse(service.has_ended())
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)

    def test_in_the_wiring_leaves_nothing(self):
        for moment in (SERVICE, SUPERVISOR, ENGINE):
            host = self.host("--input", clip(), "--real-time")
            host.wait_for_process(moment)
            self.kill_host(host)
        self.expect_nothing_left()


if __name__ == "__main__":
    unittest.main()
