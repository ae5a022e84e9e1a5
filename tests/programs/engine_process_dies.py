"""A host whose engine process dies exits soon, and reports the cause."""

import signal
import time
import unittest

from programs_support import NOTICED_WITHIN, ProgramsTest

CAUSES = {
    signal.SIGKILL: "signal 9 (Killed)",
    signal.SIGSEGV: "signal 11 (Segmentation fault)",
    signal.SIGABRT: "signal 6 (Aborted)",
}
FAULTS = {
    "crash": CAUSES[signal.SIGSEGV],
    "abort": CAUSES[signal.SIGABRT],
    "kill": CAUSES[signal.SIGKILL],
    "exit": "exit code 3",
}


class Host(ProgramsTest):
    def expect_death_is_told(self, host, cause, process=None):
        start = time.monotonic()
        self.expect_exit(host, 3, NOTICED_WITHIN + 10)
        self.assertLess(time.monotonic() - start, NOTICED_WITHIN)
        last = host.notifications()[-1]
        self.assertEqual((last["line"], last["engineId"]), ("EngineDied", 1))
        self.assertEqual(last["workflowManagerId"], host.notifications()[0]["workflowManagerId"])
        self.assertRegex(last["values"]["reason"], r"^engine process \d+ died: ")
        self.assertIn(cause, last["values"]["reason"])
        if process:
            self.assertIn(f"engine process {process} died", last["values"]["reason"])
        self.assertEqual(host.lines().count("EngineDied"), 1)
        self.expect_nothing_left()

    def test_receives_the_signal_that_killed_its_engine(self):
        for number, cause in CAUSES.items():
            with self.subTest(cause):
                host = self.running_host("--output", self.folder / "out.mkv")
                process = self.engine_process()
                self.kill(process, number)
                self.expect_death_is_told(host, cause, process)
                self.assertFalse((self.folder / "out.mkv").exists())

    def test_is_told_of_the_death_of_an_engine_of_a_service_which_goes_on(self):
        service, endpoint = self.service()
        for number, cause in CAUSES.items():
            with self.subTest(cause):
                host = self.running_host("--service", endpoint)
                process = self.engine_process()
                self.kill(process, number)
                start = time.monotonic()
                self.expect_exit(host, 3, NOTICED_WITHIN + 10)
                self.assertLess(time.monotonic() - start, NOTICED_WITHIN)
                self.assertIn(cause, host.notifications()[-1]["values"]["reason"])
        self.assertFalse(service.has_ended())
        self.expect_exit(self.running_host("--service", endpoint), 0)

    def test_receives_the_cause_of_its_engines_death_in_the_run(self):
        for behaviour, cause in FAULTS.items():
            with self.subTest(behaviour):
                host = self.host(self.faulty_engine_workflow(behaviour=behaviour, when="run", notifications=3))
                self.expect_death_is_told(host, cause)

    def test_is_told_even_though_its_engine_has_left_a_process_that_holds_its_sockets(self):
        host = self.host(self.faulty_engine_workflow(behaviour="crash", notifications=3, leavesProcess=True))
        # The last line of the log had no end.
        self.expect_death_is_told(host, f"{CAUSES[signal.SIGSEGV]} | TestEngine: leaves a process")

    def test_leaves_an_engine_that_ends_well_although_a_process_of_its_own_goes_on(self):
        service, endpoint = self.service()
        workflow = self.faulty_engine_workflow(behaviour="throw", leavesProcess=True)
        self.expect_exit(self.host("--service", endpoint, workflow), 1)
        service.wait_for_errors(" ended after ")
        self.assertRegex(service.errors(), r" ended after \d+ s: failed: TestEngine: thrown in the run\n")

    def test_is_told_of_the_end_of_a_run_although_its_engine_has_threads_of_its_own(self):
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1, startsThread=True))
        host.wait_for_notification("Tick")
        self.kill(self.engine_process(), signal.SIGTERM)
        # The run was asked to stop first: a thread that knows nothing of it has not taken the signal.
        self.expect_death_is_told(host, "the run did not end within 3000 ms")

    def test_receives_the_cause_of_its_engines_death_on_a_command(self):
        for behaviour, cause in FAULTS.items():
            with self.subTest(behaviour):
                host = self.host(self.faulty_engine_workflow([{"name": "Fault"}], behaviour=behaviour, when="command"))
                self.expect_death_is_told(host, cause)

    def test_says_it_in_a_line_for_people(self):
        host = self.start("TAMB_HOST", "run", self.faulty_engine_workflow(behaviour="crash", when="run"))
        self.expect_exit(host, 3)
        self.assertRegex(host.output(),
                         r"EngineDied reason=\"engine process \d+ died: signal 11 \(Segmentation fault\)")

    def test_ends_when_its_engine_is_killed_while_it_stops(self):
        host = self.host(self.faulty_engine_workflow(behaviour="ignoreStop", notifications=1))
        host.wait_for_notification("Tick")
        host.interrupt()
        host.wait_for_errors("stopping")
        self.kill(self.engine_process(), signal.SIGKILL)
        self.expect_death_is_told(host, CAUSES[signal.SIGKILL])


if __name__ == "__main__":
    unittest.main()
