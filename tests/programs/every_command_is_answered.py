"""Each command is answered, whatever happens to it; and so is a run that ends with an exception."""

import unittest

from programs_support import ProgramsTest, clip, wait_until


class Command(ProgramsTest):
    def answers(self, host):
        return {each["commandId"]: (each["line"], each["values"]["reason"]) for each in host.notifications()
                if each["line"].startswith("Command")}

    def test_for_an_unknown_step_is_answered_with_the_valid_steps(self):
        commands = [{"name": "Pause", "step": "vidoe"}, {"at": 100, "name": "Pause", "step": "vidoe"}]
        workflow = self.file("workflow.json", {"engine": {"engine": "media", "input": str(clip())},
                                               "commands": commands})
        refused = ("CommandFailed", 'unknown step "vidoe"; expected one of "media"')
        for place in ([], ["--local"]):
            with self.subTest(place):
                host = self.host(workflow, *place)
                host.wait()
                self.assertEqual(host.lines()[-1], "Finished", host.everything())
                answers = self.answers(host)
                self.assertEqual([answers.get(1), answers.get(2)], [refused, refused])

    def test_of_many_that_fail_takes_few_lines_of_log(self):
        count = 20_000
        workflow = self.faulty_engine_workflow([{"name": "Hello", "step": "nobody"}] * count)
        host = self.host(workflow)
        host.wait_for_errors("commands for a step without a control: 10000 so far")
        # A user who interrupts a run does not wait for further answers.
        wait_until(lambda: host.output().count("CommandFailed") >= count, lambda: host.output()[-1000:])
        host.interrupt()
        host.wait()
        self.assertEqual(sum(line == "CommandFailed" for line in host.lines()), count)
        self.assertLess(len(host.errors().splitlines()), 100)


class RunThatThrows(ProgramsTest):
    def test_has_failed_and_says_so_once(self):
        workflow = self.faulty_engine_workflow([{"name": "Fault"}], behaviour="throw", when="command")
        for place in ([], ["--local"]):
            with self.subTest(place):
                host = self.host(workflow, *place)
                self.expect_exit(host, 1)
                failures = [each["values"]["reason"] for each in host.notifications() if each["line"] == "Failed"]
                self.assertEqual(failures, ["TestEngine: thrown on a command"])
                self.expect_nothing_left()


if __name__ == "__main__":
    unittest.main()
