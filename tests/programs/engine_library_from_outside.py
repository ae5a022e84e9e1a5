"""An engine library that is written and built according to docs/engine-libraries.md, outside of this tree."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

from programs_support import ProgramsTest

PAGE = pathlib.Path(os.environ["SOURCE"], "docs/engine-libraries.md")
BUILD_TIME = 300


def listing(name):
    """The listing with that name on the page."""
    found = re.search(rf"^`{re.escape(name)}`:\n\n```\w+\n(.*?)^```$", PAGE.read_text(), re.MULTILINE | re.DOTALL)
    return found[1]


def run(*command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=BUILD_TIME)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))} failed:\n{done.stdout}")
    return done.stdout


class PulseEngine(ProgramsTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.outside = pathlib.Path(tempfile.mkdtemp(prefix="outside-"))
        cls.addClassCleanup(shutil.rmtree, cls.outside)
        for name in ("PulseEngine.cpp", "CMakeLists.txt"):
            (cls.outside / name).write_text(listing(name))
        build = cls.outside / "build"
        run(os.environ["CMAKE"], "-G", "Ninja", "-S", cls.outside, "-B", build, "-D", f"CMAKE_CXX_COMPILER={os.environ['CXX']}",
            "-D", f"TambEngineSdk_DIR={os.environ['SDK']}")
        run(os.environ["CMAKE"], "--build", build)
        cls.engines = build / "engines.d"

    def host(self, document, *arguments, commands=()):
        workflow = {"engine": {"engine": "pulse", **document}, "commands": list(commands)}
        return super().host(self.file("pulse.json", workflow), *arguments)

    def expect_run(self, host):
        self.expect_exit(host, 0)
        self.assertEqual(host.lines(), ["Pulse"] * 3 + ["Finished"])
        self.assertEqual([each["values"].get("number") for each in host.notifications()[:3]], [1, 2, 3])

    def test_exports_its_factory_alone(self):
        library = self.outside / "build" / "libtamb_engine_pulse.so"
        self.assertRegex(run(os.environ["NM"], "--dynamic", "--defined-only", library), r"^\S+ T TambEngineFactory\n$")

    def test_runs_in_a_process_of_its_own(self):
        self.expect_run(self.host({"pulses": 3}, "--engines", self.engines))

    def test_runs_in_the_hosts_process(self):
        self.expect_run(self.host({"pulses": 3}, "--local", "--engines", self.engines))

    def test_runs_through_a_service(self):
        _, endpoint = self.service("--engines", self.engines)
        self.expect_run(self.host({"pulses": 3}, "--service", endpoint))

    def test_is_found_where_users_register_theirs(self):
        user = self.folder / "data/tamb/engines.d"
        user.mkdir(parents=True)
        registration = json.loads((self.engines / "pulse.json").read_text())
        registration["library"] = str((self.engines / registration["library"]).resolve())
        (user / "pulse.json").write_text(json.dumps(registration))
        self.expect_run(self.host({"pulses": 3}))

    def test_executes_commands_and_stops(self):
        host = self.host({"pulses": 100_000}, "--engines", self.engines, commands=[
            {"at": 0.1, "name": "Skip", "arguments": {"count": 7}}, {"at": 0.2, "name": "Jump"}])
        host.wait_for_notification("CommandFailed")
        host.interrupt()
        self.expect_exit(host, 130)
        self.assertIn("CommandDone", host.lines())
        self.assertEqual(host.notifications()[-1]["values"], {"stopped": True})

    def test_refuses_what_its_manual_does_not_have(self):
        for place in ([], ["--local"]):
            host = self.host({"pulse": 3}, "--engines", self.engines, *place)
            self.expect_exit(host, 4)
            self.assertIn("pulse", host.errors())
            self.assertIn("expected one of", host.errors())

    def test_has_its_manual_printed(self):
        engine = self.start("TAMB_HOST", "engine", "pulse", "--json", "--engines", self.engines)
        self.expect_exit(engine, 0)
        manual = json.loads(engine.output())["manual"]
        self.assertEqual(manual["keys"], [{"name": "pulses", "type": "count", "required": False, "default": 10,
                                           "summary": "How many"}])
        self.assertEqual([each["line"] for each in manual["notifications"]],
                         ["Pulse", "CommandDone", "CommandFailed", "Finished", "Failed"])


if __name__ == "__main__":
    unittest.main()
