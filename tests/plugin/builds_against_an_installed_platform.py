"""The plug-in is built from src/ alone against a platform that is installed elsewhere, and can be loaded there."""

import ctypes
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["SOURCE"])
# Required by the rest of the project, but not by the plug-in.
UNWANTED_PACKAGES = ("fmt", "nlohmann_json", "CLI11", "GTest", "benchmark", "PkgConfig")
UNWANTED_HEADERS = re.compile(r"/(zmq\.h|fmt/|nlohmann/|CLI/|gtest/|gmock/|benchmark/|uuid/|libav\w+/|libsw\w+/)")


def run(*command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))} failed:\n{done.stdout}")
    return done.stdout


class ThePlugin(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="installed-platform-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.install_platform(self.folder / "prefix")
        self.tree = self.folder / "tree"
        for part in ("cmake", "src"):
            shutil.copytree(SOURCE / part, self.tree / part)
        shutil.copy(SOURCE / "CMakeLists.txt", self.tree)

    @staticmethod
    def install_platform(prefix):
        for headers in (SOURCE / "platform", pathlib.Path(os.environ["GENERATED"])):
            for header in headers.rglob("*.h"):
                target = prefix / "include" / header.relative_to(headers)
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(header, target)
        (prefix / "lib").mkdir()
        for library in os.environ["LIBRARIES"].split(":"):
            shutil.copy(library, prefix / "lib")

    def configure(self, *options):
        run(os.environ["CMAKE"], "-G", "Ninja", "-S", self.tree, "-B", self.folder / "build",
            "-D", "CMAKE_CXX_COMPILER=" + os.environ["CXX"], "-D", "QOR_PLATFORM=installed",
            *[f"-DCMAKE_DISABLE_FIND_PACKAGE_{package}=ON" for package in UNWANTED_PACKAGES], *options)

    def test_is_built_without_what_only_the_rest_needs_and_can_be_loaded(self):
        self.configure("-D", f"CMAKE_PREFIX_PATH={self.folder / 'prefix'}")
        run(os.environ["CMAKE"], "--build", self.folder / "build", "--parallel", "2")
        plugin = self.folder / "build/lib/libtamb_multiprocess.so"
        used = run("ninja", "-C", self.folder / "build", "-t", "deps")
        self.assertIn(str(self.folder / "prefix/include/tamb/IEngineFrontEnd.h"), used)
        self.assertEqual([line for line in used.splitlines() if UNWANTED_HEADERS.search(line)], [])
        self.assertEqual([line for line in used.splitlines() if line.strip().startswith(f"{SOURCE}/")], [])
        # RTLD_NOW: every symbol is resolved at once.
        entry_point = ctypes.CDLL(str(plugin), mode=os.RTLD_NOW).RegisterAll
        entry_point.restype = None
        entry_point(b"installed")

    def test_is_not_configured_without_a_platform(self):
        with self.assertRaisesRegex(AssertionError, "IEngineFrontEnd"):
            self.configure()


if __name__ == "__main__":
    unittest.main()
