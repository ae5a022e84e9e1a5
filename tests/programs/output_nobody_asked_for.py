"""The output of an interrupted run replaces an earlier file only if the host asked for that."""

import os
import signal
import time
import unittest

from programs_support import SUPERVISOR, ProgramsTest, clip

EARLIER = b"an earlier result"
# Longer than an engine waits for its host.
STOPPED_SECONDS = 12


class Output(ProgramsTest):
    def host_at_work(self, *arguments):
        """A paused host whose run has written half a second of an output that would replace an earlier one."""
        self.output = self.folder / "out.mkv"
        self.output.write_bytes(EARLIER)
        host = self.host("--input", clip(), "--output", self.output, "--at", 0.5, "Pause", *arguments)
        host.wait_for_notification("CommandDone")
        self.assertEqual(len(self.parts()), 1)
        return host

    def parts(self):
        return list(self.folder.glob("out.mkv.*"))

    def expect_earlier_file_alone(self):
        self.expect_nothing_left()
        self.assertEqual(self.parts(), [])
        self.assertEqual(self.output.read_bytes(), EARLIER)

    def test_of_a_host_that_is_killed_is_removed(self):
        host = self.host_at_work()
        host.signal(signal.SIGKILL)
        host.wait()
        self.expect_earlier_file_alone()

    def test_of_a_host_whose_terminal_closes_is_removed(self):
        host = self.host_at_work()
        os.killpg(host.pid, signal.SIGHUP)
        host.wait()
        self.expect_earlier_file_alone()

    def test_of_a_host_that_runs_its_engine_itself_and_whose_terminal_closes_is_removed(self):
        host = self.host_at_work("--local")
        host.signal(signal.SIGHUP)
        self.expect_exit(host, -signal.SIGHUP)
        self.expect_earlier_file_alone()

    def test_of_a_host_that_ignores_that_its_terminal_closes_goes_on(self):
        before = signal.signal(signal.SIGHUP, signal.SIG_IGN)  # which programs inherit
        try:
            host = self.host_at_work("--local")
        finally:
            signal.signal(signal.SIGHUP, before)
        host.signal(signal.SIGHUP)
        host.interrupt()
        self.expect_exit(host, 130)
        self.assertEqual(self.parts(), [])
        self.assertNotEqual(self.output.read_bytes(), EARLIER)

    def test_of_a_host_that_was_stopped_for_long_is_removed_and_the_host_is_notified(self):
        host = self.host_at_work()
        self.kill(host.pid, signal.SIGSTOP)
        # The duration of the fault.
        time.sleep(STOPPED_SECONDS)
        self.kill(host.pid, signal.SIGCONT)
        self.assertEqual(host.wait(), 1, host.everything())
        last = host.notifications()[-1]
        self.assertEqual(last["line"], "Failed")
        self.assertRegex(last["values"]["reason"], "silent for 10 s.* output discarded")
        self.expect_earlier_file_alone()

    def test_of_a_supervisor_that_is_asked_to_end_is_removed(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number):
                host = self.host_at_work()
                self.kill(host.wait_for_process(SUPERVISOR), number)
                self.expect_exit(host, 3)
                self.assertRegex(host.notifications()[-1]["values"]["reason"], r"died: signal 15 \(Terminated\)")
                self.expect_earlier_file_alone()

    def test_of_an_engine_that_is_asked_to_end_is_removed(self):
        host = self.host_at_work()
        self.kill(self.engine_process(), signal.SIGTERM)
        self.expect_exit(host, 3)
        self.assertRegex(host.notifications()[-1]["values"]["reason"], r"died: signal 15 \(Terminated\)")
        self.expect_earlier_file_alone()

    def test_of_a_host_that_asks_the_run_to_stop_is_completed(self):
        host = self.host_at_work()
        host.interrupt()
        self.expect_exit(host, 130)
        self.expect_nothing_left()
        self.assertEqual(self.parts(), [])
        again = self.host("--input", self.output)
        self.expect_exit(again, 0)
        self.assertGreater(again.notifications()[-1]["values"]["videoFrames"], 0)


if __name__ == "__main__":
    unittest.main()
