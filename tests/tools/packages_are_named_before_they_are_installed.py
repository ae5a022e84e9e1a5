"""How the scripts in the top folder handle missing packages, with system programs that only record their calls."""

import os
import pathlib
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
INSTALLED = ["cmake", "g++"]


class MissingPackages(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="packages-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "bin").mkdir()
        (self.folder / "tools").mkdir()
        (self.folder / "tools/common.sh").write_text((SOURCE / "tools/common.sh").read_text())
        (self.folder / "needed.txt").write_text("cmake\nninja-build\ng++\nlibzmq3-dev\n")
        self.fake("dpkg-query", "".join(f"echo installed {name}\n" for name in INSTALLED))
        self.fake("apt-get", 'echo "apt-get $* stdin: $(cat)" >>calls')
        self.fake("id", "echo 0")

    def fake(self, name, script):
        path = self.folder / "bin" / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def install(self):
        """The result; standard input is a pipe on which no answer ever comes."""
        unanswered, answer = os.pipe()
        try:
            return subprocess.run(
                ["bash", "-euc", "source tools/common.sh; install_packages needed.txt", "run-something"],
                cwd=self.folder, stdin=unanswered, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60,
                env=dict(os.environ, PATH=f"{self.folder / 'bin'}:{os.environ['PATH']}"), check=False)
        finally:
            os.close(unanswered)
            os.close(answer)

    def calls(self):
        path = self.folder / "calls"
        return path.read_text().splitlines() if path.exists() else []

    def test_are_named_before_anything_else(self):
        done = self.install()
        self.assertEqual(0, done.returncode, done.stderr)
        self.assertRegex(done.stdout.splitlines()[0], "libzmq3-dev ninja-build$")
        self.assertNotIn("cmake", done.stdout)

    def test_are_installed_without_a_question(self):
        self.install()
        update, install = self.calls()
        self.assertRegex(update, "^apt-get update stdin: $")
        self.assertRegex(install, "^apt-get install -y .*--no-install-recommends libzmq3-dev ninja-build stdin: $")

    def test_are_not_mentioned_when_there_are_none(self):
        (self.folder / "needed.txt").write_text("cmake\n")
        done = self.install()
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))
        self.assertEqual([], self.calls())

    def test_are_installed_by_a_sudo_that_needs_no_password(self):
        self.fake("id", "echo 1000")
        self.fake("sudo", '[ "$1" = -n ] || { echo "sudo asks" >>calls; exit 1; }\nshift\nexec "$@"')
        done = self.install()
        self.assertEqual(0, done.returncode, done.stderr)
        self.assertEqual(2, len(self.calls()))
        self.assertNotIn("sudo asks", self.calls())

    def test_are_left_to_the_user_when_sudo_needs_a_password(self):
        self.fake("id", "echo 1000")
        self.fake("sudo", '[ "$1" = -n ] || echo "sudo asks" >>calls\necho "sudo: a password is required" >&2\nexit 1')
        done = self.install()
        self.assertNotEqual(0, done.returncode)
        self.assertEqual([], self.calls())
        self.assertIn("apt-get install --no-install-recommends libzmq3-dev ninja-build", done.stderr)


if __name__ == "__main__":
    unittest.main()
