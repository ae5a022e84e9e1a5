"""A host reports why a run failed, why no engine could be started, and wrong usage."""

import os
import time
import unittest

from programs_support import Program, ProgramsTest, clip, processes_below, wait_until


class FailedRun(ProgramsTest):
    def expect_failure(self, reason, *arguments):
        for place in ([], ["--local"]):
            host = self.host(*arguments, *place)
            self.expect_exit(host, 1)
            # A command that comes after it is answered after it.
            reasons = [each["values"]["reason"] for each in host.notifications() if each["line"] == "Failed"]
            self.assertEqual(len(reasons), 1)
            self.assertRegex(reasons[0], reason)
            people = self.start("TAMB_HOST", "run", *arguments, *place)
            self.expect_exit(people, 1)
            self.assertRegex(people.output(), reason.replace('"', r'\\?"'))

    def test_of_a_file_that_is_no_media_says_so(self):
        text = self.file("talk.mkv", b"This is no media file.\n" * 100)
        self.expect_failure('Cannot open "[^"]*talk.mkv": .*Invalid data', "--input", text)

    def test_of_a_file_cut_off_in_its_header_says_so(self):
        stump = self.file("stump.mkv", clip().read_bytes()[:300])
        self.expect_failure('Cannot open "[^"]*stump.mkv": ', "--input", stump)

    def test_of_a_missing_file_says_so(self):
        self.expect_failure('Cannot open "[^"]*none.mkv": No such file or directory',
                            "--input", self.folder / "none.mkv")

    def test_of_an_unknown_filter_names_it(self):
        self.expect_failure('Cannot use the audio filter "nosuch": .*No such filter: \'nosuch\'',
                            "--input", clip(), "--audio-filter", "nosuch")

    def test_of_whatever_the_engine_has_thrown_says_so(self):
        self.expect_failure("std::exception", self.faulty_engine_workflow(behaviour="throwNumber"))

    def test_leaves_no_output(self):
        output = self.folder / "out.mkv"
        host = self.host("--input", clip(), "--output", output, "--video-filter", "nosuch")
        self.expect_exit(host, 1)
        self.assertEqual(list(self.folder.glob("out.mkv*")), [])

    def test_in_the_middle_leaves_nothing_of_its_output(self):
        # The picture's size depends on the time: it changes when the output is already open.
        filter = "scale=w='if(gt(n,100),32,64)':h=48:eval=frame"
        for place in ([], ["--local"]):
            host = self.host("--input", clip(), "--output", self.folder / "out.mkv", "--video-filter", filter, *place)
            self.expect_exit(host, 1)
            self.assertIn("Progress", host.lines())
            self.assertEqual(host.lines()[-1], "Failed")
            self.assertEqual(list(self.folder.glob("out.mkv*")), [])

    def test_is_none_where_the_media_ends_too_early(self):
        output = self.folder / "out.mkv"
        half = self.file("half.mkv", clip().read_bytes()[:clip().stat().st_size // 2])
        host = self.host("--input", half, "--output", output)
        self.expect_exit(host, 0)
        self.assertEqual(host.lines()[-1], "Finished")
        frames = host.notifications()[-1]["values"]["videoFrames"]
        self.assertGreater(frames, 30)
        self.assertLess(frames, 120)
        self.assertRegex(host.errors(), r"Warning .*half\.mkv\" ends at \d.* although its duration is given as 6\.000 s")
        self.assertTrue(output.stat().st_size)


class MissingEngine(ProgramsTest):
    START = "tamb-host: cannot start the engine: "

    def expect_no_engine(self, host, *parts):
        """The host's own message is one line that contains all of these texts."""
        self.expect_exit(host, 4)
        self.assertEqual(host.output(), "")
        errors = host.errors().splitlines()
        own = [number for number, line in enumerate(errors) if line.startswith(self.START)]
        self.assertEqual(len(own), 1, host.errors())
        for part in parts:
            self.assertIn(part, errors[own[0]])
        # Neither the printed reply nor the consequences of the failure.
        for noise in ("Unexpected reply", "refusal:", "Condition is not true", "\\\"", "termination request"):
            self.assertNotIn(noise, host.errors())
        # Further text is a separate message, not the rest of a sentence.
        for line in errors[own[0] + 1:]:
            self.assertRegex(line, r"^(tamb-|qor-|Warning|Error|Info)", host.errors())

    def engine(self, document):
        return self.file("workflow.json", {"engine": document})

    def test_of_an_unknown_kind_is_named_in_one_line(self):
        for place in ([], ["--local"]):
            self.expect_no_engine(self.host(self.engine({"engine": "warp"}), *place), "warp", "media", "test")

    def test_that_only_tests_need_is_not_offered_unless_asked_for(self):
        run = ("TAMB_HOST", "run", self.engine({"engine": "test", "notifications": 1}))
        _, plain = self.service(test_engine=False)
        _, with_test_engine = self.service(name="other")
        for host in (self.start(*run, test_engine=False), self.start(*run, "--local", test_engine=False),
                     self.start(*run, "--service", plain, test_engine=False), self.start(*run, "--service", plain)):
            self.expect_no_engine(host, "expected one of")
            # Quoted again, or not.
            self.assertRegex(host.errors(), r'is \\?"test\\?"; expected one of \\?"media\\?"(?!,)')
        for host in (self.start(*run), self.start(*run, "--local"),
                     self.start(*run, "--service", with_test_engine, test_engine=False)):
            wait_until(lambda: "Tick" in host.output(), host.everything)
            host.interrupt()
            self.expect_exit(host, 130)

    def test_with_a_bad_document_is_reported_in_one_line_that_names_the_key(self):
        for place in ([], ["--local"]):
            document = {"engine": "media", "inptu": str(clip())}
            self.expect_no_engine(self.host(self.engine(document), *place), "inptu", "expected one of", "input")

    def test_that_throws_whatever_it_likes_while_it_is_made_is_told_in_one_line(self):
        workflow = self.faulty_engine_workflow(behaviour="throwNumber", when="construct")
        for place in ([], ["--local"]):
            self.expect_no_engine(self.host(workflow, *place), "std::exception")

    def test_that_dies_during_its_construction_is_reported_with_the_cause_in_one_line(self):
        workflow = self.faulty_engine_workflow(behaviour="crash", when="construct")
        self.expect_no_engine(self.host(workflow), "died", "signal 11 (Segmentation fault)")

    def test_because_no_service_answers_is_reported_in_time(self):
        start = time.monotonic()
        endpoint = f"ipc://{self.folder / 'nobody'}"
        host = self.host("--input", clip(), "--service", endpoint)
        self.expect_no_engine(host, endpoint, "no peer answered")
        self.assertLess(time.monotonic() - start, 10)

    def test_because_the_service_has_no_program_for_it_names_the_program(self):
        _, endpoint = self.service("--engine-program", self.folder / "nothing")
        self.expect_no_engine(self.host("--input", clip(), "--service", endpoint), str(self.folder / "nothing"),
                              "No such file or directory")

    def test_because_there_is_no_directory_for_temporary_files_names_it(self):
        self._environment["TMPDIR"] = str(self.folder / "gone")
        host = self.host(self.faulty_engine_workflow())
        self.expect_exit(host, 4)
        self.assertRegex(host.errors(), r'^tamb-host: cannot create a directory for sockets in ".*gone" \(TMPDIR\): .+\n$')

    def test_because_no_engines_are_allowed_is_reported_in_one_line(self):
        service, endpoint = self.service("--maximum-engines", 0)
        self.expect_no_engine(self.host("--input", clip(), "--service", endpoint), "too many engines", "limit is 0")
        self.assertEqual(processes_below(service.pid), {})

    def test_because_there_are_too_many_is_reported_and_one_starts_once_another_has_exited(self):
        service, endpoint = self.service("--maximum-engines", 1)
        first = self.running_host("--service", endpoint)
        second = self.host("--input", clip(), "--service", endpoint)
        self.expect_no_engine(second, "too many engines", "limit is 1")
        self.assertFalse(first.has_ended())
        self.expect_exit(first, 0)
        # The service notices the end of the first engine within 100 ms.
        service.wait_for_errors("ended after")
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)


class MissingService(ProgramsTest):
    def test_on_an_endpoint_in_use_says_so_and_leaves_the_other_alone(self):
        _, endpoint = self.service()
        file = self.folder / "service"
        inode = file.stat().st_ino
        # By the same path, and by another one to the same file.
        for spelling in (endpoint, f"ipc://{self.folder}/./service"):
            second = self.start("QOR_ENGINE_SERVICE", "--endpoint", spelling)
            self.expect_exit(second, 1)
            self.assertIn("in use", second.errors())
            self.assertEqual(file.stat().st_ino, inode)
        self.expect_exit(self.host("--input", clip(), "--service", endpoint), 0)


class FailedCommand(ProgramsTest):
    REMARK = r'tamb-host: the run finished, but 1 of 2 commands failed; command 2 \("Foo"\): unknown command "Foo"'

    def test_of_a_run_that_finishes_is_an_exit_code_and_a_line(self):
        commands = ["--at", "0", "FilterCommand", "target=volume", "command=volume", "argument=1", "--at", "1", "Foo"]
        for place in ([], ["--local"]):
            for show in ([], ["--json"]):
                host = self.start("TAMB_HOST", "run", "--input", clip(), "--audio-filter", "volume=1", *commands,
                                  *place, *show)
                self.expect_exit(host, 7)
                self.assertRegex(host.errors(), self.REMARK)

    def test_is_one_for_an_unknown_step(self):
        for place in ([], ["--local"]):
            workflow = {"engine": {"engine": "media", "input": str(clip())},
                        "commands": [{"name": "Pause", "step": "mixer"}]}
            host = self.host(self.file("workflow.json", workflow), *place)
            self.expect_exit(host, 7)
            self.assertRegex(host.errors(), 'tamb-host: the run finished, but 1 of 1 command failed; .*"mixer"')

    def test_is_none_because_a_command_stopped_the_run(self):
        for place in ([], ["--local"]):
            host = self.host("--input", clip(), "--at", "2", "Stop", *place)
            self.expect_exit(host, 0)
            self.assertTrue(host.notifications()[-1]["values"]["stopped"])


class WrongUsage(ProgramsTest):
    def expect_usage(self, said, *arguments):
        host = self.start("TAMB_HOST", *arguments)
        self.expect_exit(host, 2)
        self.assertRegex(host.errors(), said)
        self.assertEqual(host.output(), "")

    def expect_bad_workflow(self, said, content):
        self.expect_usage(said, "run", self.file("workflow.json", content))

    def test_without_anything_to_run_is_reported(self):
        self.expect_usage("^tamb-host: nothing to run: give a workflow, or --input FILE", "run")
        self.expect_usage(r"^tamb-host: a subcommand is required; see --help\n$")

    def test_in_a_folder_that_was_removed_is_told_in_one_line(self):
        removed = self.folder / "removed"
        for program, words in (("TAMB_HOST", ["engines"]), ("QOR_ENGINE_SERVICE", [f"--endpoint=ipc://{self.folder / 'one'}"])):
            removed.mkdir()
            started = self.watched(Program(["/bin/sh", "-c", 'rmdir "$PWD" && exec "$@"', "sh", os.environ[program], *words,
                                            "--engines=."], removed, self._environment))
            self.assertIn(started.wait(), (1, 2))
            self.assertRegex(started.errors(), r"^(tamb-host|qor-engine-service): .*No such file or directory.*\n$")

    def test_of_flags_is_reported(self):
        self.expect_usage(r"^tamb-host: .*not expected: --nosuch; see --help\n$", "run", "--nosuch")
        self.expect_usage("--input", "run", "--input")

    def test_is_reported_on_one_line_that_does_not_control_the_terminal(self):
        hostile = "\x1b[2J\n\u009bJ"
        for arguments in (["run", f"--{hostile}"], ["run", hostile],
                          ["run", "--input", clip(), "--at", hostile, "Stop"],
                          ["run", self.file("workflow.json", {hostile: 1})]):
            host = self.start("TAMB_HOST", *arguments)
            self.expect_exit(host, 2)
            self.assertRegex(host.errors(), r"^tamb-host: .*\\x1b\[2J\\n\\(u00|x)9bJ.*\n$")
            self.assertNotRegex(host.errors(), "[\x1b\u009b]")

    def test_of_commands_is_reported_with_the_expected_form(self):
        run = ["run", "--input", clip()]
        self.expect_usage("--at soon: expected TIME NAME KEY=VALUE", *run, "--at", "soon", "Pause")
        self.expect_usage("--at 1x: expected TIME NAME KEY=VALUE", *run, "--at", "1x", "Pause")
        self.expect_usage("--at", *run, "--at", "1")
        self.expect_usage('--at: "volume" is not KEY=VALUE', *run, "--at", "1", "FilterCommand", "volume")

    def test_of_a_workflow_is_reported_with_the_place(self):
        self.expect_usage('^tamb-host: cannot read the workflow ".*none.json": No such file or directory\n$', "run", self.folder / "none.json")
        self.expect_usage(f'cannot read the workflow "{self.folder}": it is a folder', "run", self.folder)
        self.expect_bad_workflow("workflow.json\" is not JSON: parse error at line 1", b'{"engine": {')
        self.expect_bad_workflow('workflow.json": is not an object; expected one such as', [])
        self.expect_bad_workflow('unknown key "engines"; expected one of .*engine', {"engines": 1, "engine": {}})
        self.expect_bad_workflow('"engine" is missing', {"engineId": 1})
        self.expect_bad_workflow('"engineId" is "one"; expected a number from 0 to', {"engineId": "one", "engine": {}})
        engine = {"engine": "media", "input": str(clip())}
        for said, command in (('command 1: unknown key "time"; expected one of at', {"time": 1, "name": "Pause"}),
                              ('command 1: "name" is missing', {"at": 1}),
                              ('command 1: "at" is "soon"; expected a media time', {"at": "soon", "name": "Pause"}),
                              ('command 1: "arguments" is 5; expected an object', {"name": "A", "arguments": 5}),
                              ("command 1: 5 is not an object", 5)):
            self.expect_bad_workflow(said, {"engine": engine, "commands": [command]})

    def test_of_an_argument_of_an_unsupported_type_is_reported_as_such(self):
        workflow = {"engine": {"engine": "media", "input": str(clip())},
                    "commands": [{"name": "Pause", "arguments": {"target": ["a"]}}]}
        host = self.host(self.file("workflow.json", workflow))
        self.expect_exit(host, 2)
        self.assertRegex(host.errors(), 'argument "target": .*"a".* cannot be sent; expected a string')


if __name__ == "__main__":
    unittest.main()
