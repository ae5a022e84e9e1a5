"""Ctrl-C ends a host at any time, together with its engine, even one that ignores a stop request."""

import signal
import time
import unittest

from programs_support import ENGINE, GONE_WITHIN, SERVICE, SUPERVISOR, ProgramsTest, clip, processes_below

INTERRUPTED = 130


class Interruption(ProgramsTest):
    def host_at_work(self):
        return self.host("--input", clip(), "--output", self.folder / "out.mkv", "--real-time")

    def expect_exit_in_time(self, host, codes):
        start = time.monotonic()
        self.assertIn(host.wait(), codes, host.everything())
        self.assertLess(time.monotonic() - start, 10)

    def expect_interrupted(self, host, codes=(INTERRUPTED,)):
        self.expect_exit_in_time(host, codes)
        self.expect_nothing_left()

    def test_of_a_run_completes_what_was_done(self):
        for interrupt in ("Ctrl-C", "SIGTERM"):
            with self.subTest(interrupt):
                host = self.host_at_work()
                host.wait_for_notification("Progress")
                host.interrupt() if interrupt == "Ctrl-C" else host.signal(signal.SIGTERM)
                self.expect_interrupted(host)
                last = host.notifications()[-1]
                self.assertEqual((last["line"], last["values"]["stopped"]), ("Finished", True))
                self.assertLess(last["values"]["videoFrames"], 150)
                # The existing part can be read.
                again = self.host("--input", self.folder / "out.mkv")
                self.expect_exit(again, 0)
                self.assertGreater(again.notifications()[-1]["values"]["videoFrames"], 0)
                self.assertEqual(list(self.folder.glob("out.mkv.*")), [])

    def test_of_a_run_in_the_same_process_completes_what_was_done(self):
        host = self.host("--input", clip(), "--real-time", "--local")
        host.wait_for_notification("Progress")
        host.interrupt()
        self.expect_interrupted(host)
        self.assertTrue(host.notifications()[-1]["values"]["stopped"])

    def test_of_a_run_that_has_just_begun_ends_it(self):
        host = self.host_at_work()
        host.wait_for_notification("Started")
        host.interrupt()
        self.expect_interrupted(host)

    def test_during_the_wiring_ends_the_host_once_that_is_done(self):
        # The moments are in order; the engine process appears last.
        for moment in (SERVICE, SUPERVISOR, ENGINE):
            with self.subTest(moment):
                host = self.host_at_work()
                host.wait_for_process(moment)
                host.interrupt()
                self.expect_interrupted(host)

    def test_right_after_the_start_ends_the_host(self):
        # Before the host handles signals, they kill it: to shells that is the same.
        for _ in range(3):
            host = self.host_at_work()
            host.interrupt()
            self.expect_interrupted(host, (INTERRUPTED, -signal.SIGINT))

    def test_at_the_end_finds_the_run_finished(self):
        host = self.host("--input", clip())
        host.wait_for_notification("Finished")
        host.interrupt()
        self.expect_interrupted(host, (0,))

    def test_while_there_is_no_service_ends_the_host(self):
        host = self.host("--input", clip(), "--service", f"ipc://{self.folder / 'nobody'}")
        host.interrupt()
        # The wait for the service has its own time-out, after which the host reports that no service answered.
        self.expect_interrupted(host, (INTERRUPTED, -signal.SIGINT, 4))

    def test_twice_in_the_wiring_leaves_at_once_and_nothing_behind(self):
        for moment in (SERVICE, SUPERVISOR, ENGINE):
            with self.subTest(moment):
                host = self.host_at_work()
                host.wait_for_process(moment)
                host.interrupt()
                host.interrupt()
                self.expect_exit_in_time(host, (INTERRUPTED, -signal.SIGINT))
        self.expect_nothing_left()

    def test_of_an_engine_without_media_ends_the_host(self):
        host = self.host(self.faulty_engine_workflow(notifications=1))
        host.wait_for_notification("Tick")
        host.interrupt()
        self.expect_interrupted(host)


class EngineThatIgnoresTheStop(ProgramsTest):
    def test_is_killed_within_its_time_and_its_host_is_notified(self):
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1))
        host.wait_for_notification("Tick")
        start = time.monotonic()
        host.interrupt()
        self.expect_exit(host, 3, GONE_WITHIN)
        self.assertGreater(time.monotonic() - start, 4)
        self.assertIn("did not stop within 5 s", host.notifications()[-1]["values"]["reason"])
        self.expect_nothing_left()

    def test_is_left_by_the_second_interruption_and_killed_within_its_time(self):
        service, endpoint = self.service()
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1), "--service", endpoint)
        host.wait_for_notification("Tick")
        engine = self.engine_process()
        host.interrupt()
        host.wait_for_errors("tamb-host: stopping")
        self.assertFalse(host.has_ended())
        host.interrupt()
        self.expect_exit(host, INTERRUPTED, 5)
        self.assertIn("tamb-host: exiting at once", host.errors())
        self.assertIn(engine, processes_below(service.pid, ENGINE))
        start = time.monotonic()
        service.wait_for_errors("exit code 3")
        self.assertLess(time.monotonic() - start, GONE_WITHIN)
        self.assertRegex(service.errors(), f"engine process {engine} .*did not stop within 5 s")
        self.assertEqual(processes_below(service.pid), {})

    def test_does_not_keep_a_host_that_runs_it_itself_when_the_terminal_closes(self):
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1), "--local")
        host.wait_for_notification("Tick")
        host.signal(signal.SIGHUP)
        self.expect_exit(host, -signal.SIGHUP, GONE_WITHIN)
        self.assertIn("the run did not end within 5000 ms", host.errors())

    def test_leaves_nothing_of_a_host_with_a_private_service_either(self):
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1))
        host.wait_for_notification("Tick")
        host.interrupt()
        host.wait_for_errors("tamb-host: stopping")
        host.interrupt()
        self.expect_exit(host, INTERRUPTED, 5)
        self.expect_nothing_left()


if __name__ == "__main__":
    unittest.main()
