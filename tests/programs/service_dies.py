"""Hosts that have an engine no longer need the service."""

import signal
import unittest

from programs_support import NOTICED_WITHIN, SERVICE, ProgramsTest, clip


class RunUnderWay(ProgramsTest):
    def expected_output(self):
        output = self.folder / "expected.mkv"
        self.expect_exit(self.host("--input", clip(), "--output", output, "--local"), 0)
        return output.read_bytes()

    def expect_finished(self, host, output):
        self.expect_exit(host, 0)
        self.assertEqual(host.lines()[-1], "Finished")
        self.assertTrue(output.read_bytes() == self.expected_output(), "the files differ")

    def killed_service(self, service):
        service.signal(signal.SIGKILL)
        self.assertEqual(service.wait(), -signal.SIGKILL)

    def test_goes_on_to_its_end_when_the_service_is_killed(self):
        service, endpoint = self.service()
        output = self.folder / "out.mkv"
        host = self.running_host("--output", output, "--service", endpoint)
        self.killed_service(service)
        self.assertFalse(host.has_ended())
        self.expect_finished(host, output)

    def test_goes_on_to_its_end_when_the_service_is_asked_to_end(self):
        service, endpoint = self.service()
        output = self.folder / "out.mkv"
        host = self.running_host("--output", output, "--service", endpoint)
        service.signal(signal.SIGTERM)
        self.expect_exit(service, 0)
        self.assertFalse(host.has_ended())
        self.expect_finished(host, output)

    def test_goes_on_to_its_end_when_the_private_service_is_killed(self):
        output = self.folder / "out.mkv"
        host = self.running_host("--output", output)
        self.kill(host.wait_for_process(SERVICE), signal.SIGKILL)
        self.expect_finished(host, output)

    def test_notices_the_death_of_its_engine_when_the_service_was_killed_before(self):
        service, endpoint = self.service()
        host = self.running_host("--service", endpoint)
        self.killed_service(service)
        self.kill(self.engine_process(), signal.SIGSEGV)
        self.expect_exit(host, 3, NOTICED_WITHIN)
        self.assertIn("signal 11 (Segmentation fault)", host.output())

    def test_can_be_stopped_when_the_service_was_killed(self):
        service, endpoint = self.service()
        host = self.running_host("--service", endpoint)
        self.killed_service(service)
        host.interrupt()
        self.expect_exit(host, 130)


class NextRun(ProgramsTest):
    def test_has_a_new_service_on_the_endpoint_of_one_that_was_killed(self):
        service, endpoint = self.service()
        service.signal(signal.SIGKILL)
        self.assertEqual(service.wait(), -signal.SIGKILL)
        _, endpoint = self.service()
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)


if __name__ == "__main__":
    unittest.main()
