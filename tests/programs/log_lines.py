"""Log lines of all programs contain their time and origin; the service logs how each job ended."""

import re
import unittest

from programs_support import SUPERVISOR, ProgramsTest, clip, only, processes_below, wait_until

TIME = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z"
# Level, time, program, its process (or supervisor and engine), the engine's name, thread, text.
LINE = re.compile(rf"(Info   |Warning|Error  |Debug  |Output ) {TIME} "
                  r"\[(tamb-host|qor-engine-service|tamb-engine) (\d+)(?:/(\d+))?(?:, (engine \d+ of \".*?\"))?(?:; [^]]+)?\] (\d+) (.*)")
# A program's messages for the user who started it.
WORDS = "tamb-host: "


class LogLine:
    def __init__(self, text):
        match = LINE.fullmatch(text)
        if not match:
            raise AssertionError(f"no log line: {text!r}")
        self.level, self.program, self.process, self.engine_process, self.engine, self.thread, self.text = match.groups()
        self.level = self.level.strip()


def log_of(program):
    # Not splitlines, which treats other characters as line ends, too.
    return [LogLine(line) for line in program.errors().split("\n") if line and not line.startswith(WORDS)]


class EachLine(ProgramsTest):
    def test_says_when_and_of_whom_it_is(self):
        workflow = self.file("workflow.json", {
            "workflowManagerId": "studio", "engineId": 7,
            "engine": {"engine": "test", "prints": 3, "notifications": 1, "when": "run"}})
        service, endpoint = self.service()
        host = self.host(workflow, "--service", endpoint)
        host.wait_for_notification("Tick")
        engine, supervisor = self.engine_process(), only(processes_below(service.pid, SUPERVISOR))
        service.wait_for_errors("TestEngine: line 3")
        host.interrupt()
        self.expect_exit(host, 130)
        service.wait_for_errors(" ended after ")
        lines = log_of(service)
        captured = [line for line in lines if line.level == "Output"]
        self.assertEqual([line.text for line in captured], [f"TestEngine: line {number}" for number in (1, 2, 3)])
        for line in captured:
            self.assertEqual((line.program, line.process, line.engine_process, line.engine),
                             ("tamb-engine", str(supervisor), str(engine), 'engine 7 of "studio"'))
        own = [line.text for line in lines if line.program == "qor-engine-service"]
        both = rf'engine 7 of "studio" \(supervisor {supervisor}, engine process {engine}\)'
        self.assertRegex(own[0], rf"^{both} is ready$")
        self.assertRegex(own[1], rf"^{both} ended after \d+ s: stopped$")

    def test_of_an_engines_own_log_is_written_once_wherever_it_runs(self):
        half = self.file("half.mkv", clip().read_bytes()[:clip().stat().st_size // 2])
        for place, program in (([], "tamb-engine"), (["--local"], "tamb-host")):
            host = self.host("--input", half, *place)
            self.expect_exit(host, 0)
            (line,) = [line for line in log_of(host) if "ends at" in line.text]
            self.assertEqual((line.level, line.program), ("Warning", program))
            self.assertRegex(line.engine, r'^engine 1 of "tamb-host-\d+-[0-9a-f]+"$')
            self.assertNotIn("Warning", line.text)
            if program == "tamb-host":
                self.assertEqual((line.process, line.engine_process), (str(host.pid), None))
            else:
                self.assertNotIn(line.engine_process, (None, line.process))

    def test_keeps_what_others_have_named_from_the_terminal(self):
        name = "a\x1b[2Jb\nc\u009bd"
        workflow = self.file("workflow.json", {"workflowManagerId": name, "engine": {"engine": "test", "notifications": 1}})
        service, endpoint = self.service("--maximum-engines", 1)
        host = self.host(workflow, "--service", endpoint)
        host.wait_for_notification("Tick")
        host.interrupt()
        self.expect_exit(host, 130)
        service.wait_for_errors(" ended after ")
        refused = self.host(self.file("other.json", {"workflowManagerId": name, "engine": {"engine": "warp"}}),
                            "--service", endpoint)
        self.expect_exit(refused, 4)
        shown = r'engine 1 of "a\x1b[2Jb\nc\u009bd"'
        self.assertGreaterEqual(service.errors().count(shown), 3)
        for program in (service, host, refused):
            self.assertNotRegex(program.errors(), "[\x00-\x09\x0b-\x1f\x7f-\x9f]")
            log_of(program)
        # The engine is named only once.
        self.assertTrue(refused.errors().startswith("tamb-host: cannot start the engine: Engine description: "), refused.errors())


class TheService(ProgramsTest):
    """Its log lines about jobs; the level identifies failed ones."""

    def expect_logged(self, service, level, text):
        wait_until(lambda: re.search(" ended after ", service.errors()), service.errors)
        (line,) = [line for line in log_of(service) if " ended after " in line.text]
        self.assertEqual(line.level, level)
        self.assertRegex(line.text, rf"ended after \d+ s: {text}$")

    def test_logs_a_job_that_finished(self):
        service, endpoint = self.service()
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)
        self.expect_logged(service, "Info", "finished")

    def test_logs_a_job_that_failed_with_its_reason(self):
        service, endpoint = self.service()
        self.expect_exit(self.host("--input", self.folder / "none.mkv", "--service", endpoint), 1)
        self.expect_logged(service, "Warning", 'failed: Cannot open ".*none.mkv": No such file or directory')

    def test_logs_a_job_whose_engine_throws_with_what_it_threw(self):
        service, endpoint = self.service()
        self.expect_exit(self.host(self.faulty_engine_workflow(behaviour="throw", when="run"), "--service", endpoint), 1)
        self.expect_logged(service, "Warning", "failed: TestEngine: thrown.*")

    def test_logs_a_job_whose_engine_died_with_the_cause(self):
        service, endpoint = self.service()
        self.expect_exit(self.host(self.faulty_engine_workflow(behaviour="crash", when="run"), "--service", endpoint), 3)
        self.expect_logged(service, "Warning",
                           r"died: engine process \d+ died: signal 11 \(Segmentation fault\).* \(exit code 3\)")

    def test_of_one_host_leaves_failures_to_it(self):
        host = self.host("--input", self.folder / "none.mkv")
        self.expect_exit(host, 1)
        self.assertNotIn("qor-engine-service", host.errors())


if __name__ == "__main__":
    unittest.main()
