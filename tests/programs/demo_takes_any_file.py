"""The demo transcodes any file: also without a picture, without sound, or shorter than 4 s."""

import os
import unittest

from programs_support import ProgramsTest, clip


class Demo(ProgramsTest):
    def expect_demo(self, source, lines, counts):
        """The demo of that file succeeds and executes its commands; its result has that many pictures and that much sound."""
        output = self.folder / "result.mkv"
        demo = self.start("DEMO", os.environ["TAMB_HOST"], source, output,
                          test_engine=False)
        self.expect_exit(demo, 0)
        self.assertEqual(demo.output().count("CommandDone #"), lines + 1, demo.everything())  # and the one to begin
        result = self.host("--input", output)
        self.expect_exit(result, 0)
        last = result.notifications()[-1]["values"]
        self.assertEqual(tuple(last[key] > 0 for key in ("videoFrames", "audioFrames")), counts)

    def part(self, name, *arguments):
        """A file created from the clip."""
        part = self.folder / name
        self.expect_exit(self.host("--input", clip(), "--output", part, *arguments), 0)
        return part

    def test_of_the_clip_changes_both(self):
        self.expect_demo(clip(), 2, (True, True))

    def test_of_a_file_without_a_picture_changes_its_sound(self):
        self.expect_demo(self.part("sound.wav"), 1, (False, True))

    def test_of_a_file_without_sound_changes_its_picture(self):
        self.expect_demo(self.part("picture.y4m"), 1, (True, False))

    def test_of_a_short_file_changes_both(self):
        self.expect_demo(self.part("short.mkv", "--at", "1", "Stop"), 2, (True, True))

    def test_of_no_media_says_why_it_failed(self):
        demo = self.start("DEMO", os.environ["TAMB_HOST"], self.file("talk.mkv", b"no media" * 100), "result.mkv",
                          test_engine=False)
        self.expect_exit(demo, 1)
        self.assertRegex(demo.errors(), '(?m)^demo: Cannot open ".*talk.mkv": ')


if __name__ == "__main__":
    unittest.main()
