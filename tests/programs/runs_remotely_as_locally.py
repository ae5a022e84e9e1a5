"""A workflow has the same results on an engine in another process as on one in the host's process."""

import os
import pathlib
import shutil
import signal
import time
import unittest
import wave

from programs_support import Program, ProgramsTest, clip
from promises import Bound

COMMANDS = [
    {"at": 2, "name": "FilterCommand", "arguments": {"target": "volume", "command": "volume", "argument": "0.2"}},
    {"at": 3.5, "name": "FilterCommand", "step": "media",
     "arguments": {"target": "hue", "command": "s", "argument": "0"}},
]


class OneWorkflow(ProgramsTest):
    def engine(self, output):
        return {"engine": "media", "input": str(clip()), "output": str(output), "audioFilter": "volume=1",
                "videoFilter": "hue=s=1", "loudness": True}

    def flags(self, output):
        flags = ["--input", clip(), "--output", output, "--audio-filter", "volume=1", "--video-filter", "hue=s=1",
                 "--loudness"]
        for command in COMMANDS:
            arguments = [f"{key}={value}" for key, value in command["arguments"].items()]
            flags += ["--at", command["at"], command["name"], *arguments]
        return flags

    def workflow(self, output, name="studio", number=7):
        return [self.file("workflow.json", {"workflowManagerId": name, "engineId": number, "engine": self.engine(output),
                                            "commands": COMMANDS})]

    def result(self, arguments, output):
        """The output and the notifications of a run, without the values that differ between runs."""
        host = self.host(*arguments)
        self.expect_exit(host, 0)
        notifications = host.notifications()
        ids = {notification.pop("id") for notification in notifications}
        self.assertEqual(len(ids), len(notifications))
        for notification in notifications:
            notification["values"].pop("speed", None)
        written = output.read_bytes()
        output.unlink()
        return written, notifications

    def name_run(self, notifications, name):
        """Each run without a name gets a unique id."""
        ids = {notification["workflowManagerId"] for notification in notifications}
        self.assertEqual(len(ids), 1)
        self.assertRegex(ids.pop(), r"^tamb-host-\d+-[0-9a-f]{8}$")
        for notification in notifications:
            notification["workflowManagerId"] = name

    def expect_the_same(self, arguments, output, origin):
        local = self.result([*arguments, "--local"], output)
        remote = self.result(arguments, output)
        if origin is None:
            origin = ("", 1)
            self.assertNotEqual(remote[1][0]["workflowManagerId"], local[1][0]["workflowManagerId"])
            self.name_run(local[1], "")
            self.name_run(remote[1], "")
        self.assertEqual(remote[1], local[1])
        self.assertTrue(remote[0] == local[0], "the files differ")
        self.expect_a_run_with_both_commands(remote[1], origin)
        return remote

    def expect_a_run_with_both_commands(self, notifications, origin):
        self.assertEqual({(n["workflowManagerId"], n["engineId"]) for n in notifications}, {origin})
        done = [(n["commandId"], n["seconds"], n["values"]["command"])
                for n in notifications if n["line"] == "CommandDone"]
        self.assertEqual(done, [(3, 0, "Resume"), (1, 2, "FilterCommand"), (2, 3.5, "FilterCommand")])
        self.assertEqual(notifications[0]["line"], "Started")
        self.assertEqual(notifications[-1]["line"], "Finished")
        self.assertEqual(notifications[-1]["values"]["videoFrames"], 150)
        loudness = {n["seconds"]: n["values"]["momentary"] for n in notifications if n["line"] == "Loudness"}
        self.assertLess(loudness[4], loudness[2] - 10)

    def test_given_by_flags_has_the_same_outcome_in_both_places(self):
        output = self.folder / "out.mkv"
        self.expect_the_same(self.flags(output), output, None)

    def test_given_by_a_file_has_the_same_outcome_in_both_places(self):
        output = self.folder / "out.mkv"
        self.expect_the_same(self.workflow(output), output, ("studio", 7))

    def test_is_known_by_any_name_and_any_number(self):
        output = self.folder / "out.mkv"
        for name, number in (("stu\0dio", 2**32 - 1), ("\0", 2**31), ("", 0), ("--engine-id=3\n\x1b[31m", 1)):
            with self.subTest(name=name, number=number):
                self.expect_the_same(self.workflow(output, name, number), output, (name, number))

    def test_does_the_same_by_flags_and_by_a_file(self):
        output = self.folder / "out.mkv"
        by_flags = self.result(self.flags(output), output)
        workflow = self.workflow(output)
        by_file = self.result(workflow, output)
        self.assertTrue(by_file[0] == by_flags[0], "the files differ")
        self.name_run(by_flags[1], "studio")
        for notification in by_flags[1]:
            notification["engineId"] = 7
        self.assertEqual(by_file[1], by_flags[1])

    def test_does_something_else_without_its_commands(self):
        output = self.folder / "out.mkv"
        with_commands = self.result(self.flags(output), output)
        without = self.result(self.flags(output)[:9], output)
        self.assertFalse(with_commands[0] == without[0], "the commands had no effect")

    def test_leaves_flags_the_last_word_over_a_file(self):
        output, other = self.folder / "out.mkv", self.folder / "other.mkv"
        written, _ = self.result([*self.workflow(output), "--output", other], other)
        self.assertFalse(output.exists())
        self.assertTrue(written)

    def test_names_its_files_from_the_folder_of_the_host(self):
        # The service runs in another folder.
        elsewhere = self.folder / "elsewhere"
        elsewhere.mkdir()
        endpoint = f"ipc://{self.folder / 'service'}"
        program = Program([os.environ["QOR_ENGINE_SERVICE"], "--endpoint", endpoint], elsewhere, self._environment)
        service = self.watched(program)
        service.wait_for_ready()
        before = set(elsewhere.iterdir())
        shutil.copy(clip(), self.folder / "in:put.mkv")
        engine = {"engine": "media", "input": "file:in:put.mkv", "output": "out:put.mkv"}
        for arguments in (["--input", "./in:put.mkv", "--output", "file:out:put.mkv"],
                          [self.file("workflow.json", {"engine": {**engine, "output": "./out:put.mkv"}})]):
            for place in (["--service", endpoint], [], ["--local"]):
                self.result([*arguments, *place], self.folder / "out:put.mkv")
        self.assertEqual(set(elsewhere.iterdir()), before)
        service.signal(signal.SIGTERM)
        self.expect_exit(service, 0)

    def test_names_files_that_are_not_utf_8(self):
        # Latin-1, as in old archives.
        source, target = (os.fsencode(self.folder) + b"/" + name for name in (b"caf\xe9.mkv", b"caf\xe9 100%.mkv"))
        shutil.copy(os.fsencode(clip()), source)
        encoded = {"engine": "media", "input": {"percentEncoded": "caf%E9.mkv"},
                   "output": {"percentEncoded": "caf%E9 100%25.mkv"}}
        for place in ([], ["--local"]):
            for arguments in (["--input", os.fsdecode(source), "--output", os.fsdecode(target)],
                              [self.file("workflow.json", {"engine": encoded})]):
                self.result([*arguments, *place], pathlib.Path(os.fsdecode(target)))
            missing = self.host("--input", os.fsdecode(b"n\xe9ant.mkv"), *place)
            self.expect_exit(missing, 1)
            failure = next(each for each in missing.notifications() if each["line"] == "Failed")
            self.assertRegex(failure["values"]["reason"],
                             r'Cannot open ".*/n\\xe9ant\.mkv": No such file or directory')
            self.assertNotIn(b"\xe9", missing.errors().encode(errors="backslashreplace"))
            self.assertNotIn("\\udce9", missing.everything())

    def test_says_the_same_in_lines_for_people(self):
        host = self.start("TAMB_HOST", "run", "--input", clip(), "--loudness")
        self.expect_exit(host, 0)
        self.assertRegex(host.output(), r"^ +0\.000 s  Started duration=6\.00 .*streams=2\n")
        self.assertRegex(host.output(), r"\n +6\.000 s  Finished audioFrames=282 .*videoFrames=150\n$")


class AShortJob(ProgramsTest):
    def fastest(self, *arguments):
        """The duration of the fastest of five runs, in seconds."""
        times = []
        for _ in range(5):
            start = time.monotonic()
            self.expect_exit(self.host(*arguments), 0)
            times.append(time.monotonic() - start)
        return min(times)

    def test_does_not_wait_for_its_end_to_be_seen(self):
        sound = self.folder / "sound.wav"
        with wave.open(str(sound), "wb") as file:
            file.setparams((2, 2, 48_000, 0, "NONE", ""))
            file.writeframes(bytes(4 * 480_000))
        job = ["--input", sound, "--loudness"]
        local = self.fastest(*job, "--local")
        print(f"measured: 10 s of sound locally: {local:.3f} s", flush=True)
        # It includes the start of service, supervisor and engine process.
        self.expect_within(Bound(5, promised=0.5), "more for 10 s of sound remotely", self.fastest(*job) - local)


if __name__ == "__main__":
    unittest.main()
