"""Engines that are programs: one in Python, taken from the page that is the contract, and the counter in C++, each driven by
the host's program through a service."""

import json
import os
import pathlib
import re
import signal
import stat
import subprocess
import sys
import time
import unittest

from processes import only, process_table
from programs_support import PATIENCE, ProgramsTest, processes_below, wait_until
from promises import Bound

PAGE = pathlib.Path(__file__).parents[2] / "docs" / "engine-programs.md"
EXPLAINED_WITHIN = Bound(5, promised=1)
# A stopped engine is killed after 10 s.
ENDED_WITHIN = Bound(20, promised=11)
# Several times the capacity of a pipe.
LINES = 20_000


def example():
    """The program on the page."""
    return re.search(r"^```python\n(.*?)^```", PAGE.read_text(), re.DOTALL | re.MULTILINE)[1]


class EnginePrograms(ProgramsTest):
    """The common part of these tests."""

    def program(self, text):
        """An executable, in a folder outside of the repository."""
        path = self.folder / "engine.py"
        # The tests know the paths of the modules of its messages and of ZeroMQ.
        path.write_text(f"#!{sys.executable} -B\n{text}")
        path.chmod(path.stat().st_mode | stat.S_IXUSR)
        return path

    def service_for(self, program):
        """A service that registers that program as the engine "counter"."""
        folder = self.folder / "engines.d"
        folder.mkdir(exist_ok=True)
        self.file("engines.d/counter.json", {"name": "counter", "program": os.path.relpath(program, folder)})
        return self.service("--engines", folder, test_engine=False)

    def service_of(self, text):
        """A service whose engines are all that program."""
        return self.service_for(self.program(text))

    def run_on(self, endpoint, **document):
        workflow = self.file("workflow.json", {"engine": {"engine": "counter", **document}})
        return self.start("TAMB_HOST", "run", "--json", "--service", endpoint, workflow, test_engine=False)

    def running_on(self, endpoint, **document):
        host = self.run_on(endpoint, **document)
        host.wait_for_notification("Count")
        return host

    def supervisor_below(self, service):
        return only([process for process, (_, parent) in process_table().items() if parent == service.pid])

    def child_of(self, parent):
        return only([process for process, (_, its_parent) in process_table().items() if its_parent == parent])

    def engine_of(self, service):
        return self.child_of(self.supervisor_below(service))

    def expect_death(self, host, pattern, start=None, bound=EXPLAINED_WITHIN, what="a crash is explained at the host"):
        host.wait_for_notification("EngineDied")
        if start is not None:
            self.expect_within(bound, what, time.monotonic() - start)
        self.assertRegex(host.notifications()[-1]["values"]["reason"], pattern)
        self.expect_exit(host, 3)


class AProgramInPython(EnginePrograms):
    def test_written_from_the_page_alone_runs_to_its_end(self):
        service, endpoint = self.service_of(example())
        host = self.run_on(endpoint, last=5)
        self.expect_exit(host, 0)
        self.assertEqual([each["values"]["value"] for each in host.notifications() if each["line"] == "Count"],
                         [1, 2, 3, 4, 5])
        self.assertEqual(host.notifications()[-1]["values"], {"stopped": False})
        self.assertEqual(host.notifications()[-1]["seconds"], 0.5)
        service.wait_for_errors("ended after ")
        self.assertRegex(service.errors(), r"ended after \d+ s: finished\n")

    def test_is_found_by_a_host_that_is_given_its_registry(self):
        self.service_of(example())
        registry = ("--engines", self.folder / "engines.d")
        workflow = self.file("workflow.json", {"engine": {"engine": "counter", "last": 3}})
        host = self.start("TAMB_HOST", "run", "--json", *registry, workflow, test_engine=False)
        self.expect_exit(host, 0)
        self.assertEqual([each["line"] for each in host.notifications()], ["Count"] * 3 + ["Finished"])
        local = self.start("TAMB_HOST", "run", "--local", *registry, workflow, test_engine=False)
        self.expect_exit(local, 4)
        self.assertIn('the engine "counter" is a program', local.errors())
        listed = self.start("TAMB_HOST", "engine", "counter", "--json", *registry)
        self.expect_exit(listed, 0)
        engine = json.loads(listed.output())
        self.assertEqual((engine["program"], engine["manual"]), (str(self.folder / "engine.py"), None))

    def test_has_the_locations_of_its_manual_made_absolute(self):
        # It refuses with what it is given.
        program = self.program(example().replace(
            'report("ready")', 'report("failed", reason=json.dumps(json.loads(text[options.id_length:])))'))
        (self.folder / "engines.d").mkdir()
        self.file("engines.d/counter.json", {"name": "counter", "program": str(program), "manual": "../counter-manual.json"})
        keys = [{"name": "log", "type": "location"}, {"name": "title", "type": "string"},
                {"name": "more", "type": "object", "keys": [{"name": "script", "type": "location"}]}]
        manual = {"name": "counter", "step": "main", "summary": "Counts", "keys": keys}
        self.file("counter-manual.json", manual)
        document = {"engine": "counter", "log": "a.log", "title": "a.log", "more": {"script": "../b.lua"}}
        workflow = self.file("workflow.json", {"engine": document})
        # Where the host's program runs.
        absolute = {**document, "log": f"{self.folder}/a.log", "more": {"script": f"{self.folder}/../b.lua"}}
        _, endpoint = self.service("--engines", self.folder / "engines.d", test_engine=False)
        for registry, expected in ((["--engines", self.folder / "engines.d"], absolute), ([], document)):
            with self.subTest(registry=registry):
                host = self.start("TAMB_HOST", "run", "--json", "--service", endpoint, *registry, workflow, test_engine=False)
                self.expect_exit(host, 4)
                self.assertEqual(json.loads(host.errors().partition("the engine: ")[2]), expected)
        printed = self.start("TAMB_HOST", "engine", "counter", "--json", "--engines", self.folder / "engines.d")
        self.expect_exit(printed, 0)
        self.assertEqual([key["name"] for key in json.loads(printed.output())["manual"]["keys"]], ["log", "title", "more"])
        text = self.start("TAMB_HOST", "engine", "counter", "--engines", self.folder / "engines.d")
        self.expect_exit(text, 0)
        self.assertIn("  Step                  main\n", text.output())

    def test_stops_when_its_host_is_interrupted(self):
        service, endpoint = self.service_of(example())
        host = self.running_on(endpoint, last=10_000)
        host.interrupt()
        self.expect_exit(host, 130)
        self.assertEqual(host.notifications()[-1]["values"], {"stopped": True})
        service.wait_for_errors(": stopped\n")

    def test_has_its_crash_explained_within_a_second(self):
        service, endpoint = self.service_of(example())
        host = self.running_on(endpoint, last=10_000)
        start = time.monotonic()
        self.kill(self.engine_of(service), signal.SIGSEGV)
        self.expect_death(host, r"^engine process \d+ died: signal 11 \(Segmentation fault\)", start)

    def test_has_an_exception_explained_by_its_last_lines(self):
        _, endpoint = self.service_of(example().replace("        count += 1\n", "        count += 1 if count < 3 else 'x'\n"))
        host = self.running_on(endpoint, last=10_000)
        self.expect_death(host, r"died: exit code 1 .*\| TypeError: unsupported operand")

    def test_is_killed_when_it_does_not_stop(self):
        _, endpoint = self.service_of(example().replace("if stop or leaving or", "if"))
        host = self.running_on(endpoint, last=10_000)
        host.interrupt()
        self.expect_death(host, r"was killed by signal 9: it did not stop within 5 s")

    def test_is_killed_when_it_does_not_exit(self):
        service, endpoint = self.service_of(example() + "time.sleep(1000)\n")
        self.expect_exit(self.run_on(endpoint, last=1), 0)
        service.wait_for_errors("was killed by signal 9: it did not stop within 5 s")

    def test_may_print_what_it_likes(self):
        _, endpoint = self.service_of("print('a line\\n' * 20_000, flush=True)\n" + example())
        self.expect_exit(self.run_on(endpoint, last=3), 0)

    def test_refuses_with_its_own_reason(self):
        _, endpoint = self.service_of(example().replace('report("ready")', 'report("failed", reason="no licence")'))
        host = self.run_on(endpoint)
        self.expect_exit(host, 4)
        self.assertIn("no licence", host.errors())

    def test_is_killed_when_it_has_refused_and_does_not_exit(self):
        for instead, reason in (('report("failed", reason="no licence")', "no licence"),
                                ("os.close(options.ready_fd)", "closed its report descriptor before it was ready")):
            with self.subTest(reason):
                service, endpoint = self.service_of(example().replace('report("ready")', instead + "\ntime.sleep(1000)"))
                start = time.monotonic()
                host = self.run_on(endpoint)
                self.expect_exit(host, 4)
                self.assertIn(reason, host.errors())
                # Not as late as one that has reported nothing.
                self.assertLess(time.monotonic() - start, 15)
                self._services.remove(service)
                service.signal(signal.SIGTERM)
                self.assertEqual(service.wait(), 0)

    def test_that_cannot_be_run_is_reported(self):
        for mode, reason in ((0o600, "Permission denied"), (0o700, "No such file")):
            with self.subTest(reason):
                _, endpoint = self.service_of(example())
                program = self.folder / "engine.py"
                program.write_text("#!/nonexistent/interpreter\n")
                program.chmod(mode)
                host = self.run_on(endpoint)
                self.expect_exit(host, 4)
                self.assertRegex(host.errors(), f'cannot run "{program}": {reason}')
                self._services[-1].signal(signal.SIGTERM)
                self._services.pop().wait()

    def test_ends_with_its_supervisor(self):
        service, endpoint = self.service_of(example())
        host = self.running_on(endpoint, last=10_000)
        engine = self.engine_of(service)
        self.kill(self.supervisor_below(service), signal.SIGKILL)
        self.expect_death(host, r"^engine process \d+ died: signal 9 \(Killed\); its supervisor had died")
        self.assertNotIn(engine, process_table())


class TheCounter(EnginePrograms):
    """A program with its own supervisor, started by a service; and by another supervisor, under which it only serves."""

    def supervised_by_itself(self):
        return self.service("--engine-program", os.environ["COUNTER_ENGINE"], test_engine=False)

    def supervised_by_another(self):
        return self.service_for(os.environ["COUNTER_ENGINE"])

    def test_has_its_crash_explained_within_a_second(self):
        for start_service in (self.supervised_by_itself, self.supervised_by_another):
            with self.subTest(start_service.__name__):
                service, endpoint = start_service()
                host = self.running_on(endpoint)
                # One supervisor with the engine as its only child.
                self.assertEqual(len(processes_below(service.pid)), 2)
                start = time.monotonic()
                self.kill(self.engine_of(service), signal.SIGSEGV)
                self.expect_death(host, r"^engine process \d+ died: signal 11 \(Segmentation fault\)", start)
                self._services.pop()
                service.signal(signal.SIGTERM)
                self.assertEqual(service.wait(), 0)

    def test_has_its_hang_ended(self):
        for start_service in (self.supervised_by_itself, self.supervised_by_another):
            with self.subTest(start_service.__name__):
                service, endpoint = start_service()
                host = self.running_on(endpoint)
                start = time.monotonic()
                self.kill(self.engine_of(service), signal.SIGSTOP)
                self.expect_death(host, r"^engine process \d+ was killed by signal 9: it was suspended for 10 s", start,
                                  ENDED_WITHIN, "a hang is ended, and explained at the host")
                self._services.pop()
                service.signal(signal.SIGTERM)
                self.assertEqual(service.wait(), 0)

    def test_may_print_what_it_likes_before_it_is_ready(self):
        program = self.file("engine.sh", f"""#!/bin/sh
            yes 'before it is ready' | head -n {LINES}
            exec {os.environ['COUNTER_ENGINE']} "$@"
            """.encode())
        program.chmod(0o700)
        service, endpoint = self.service_for(program)
        host = self.running_on(endpoint)
        host.interrupt()
        self.expect_exit(host, 130)
        service.wait_for_errors(": stopped\n")
        self.assertEqual(len(service.captured_lines("before it is ready")), LINES)

    def test_may_print_what_it_likes_while_it_runs(self):
        for start_service in (self.supervised_by_itself, self.supervised_by_another):
            with self.subTest(start_service.__name__):
                service, endpoint = start_service()
                host = self.running_on(endpoint)
                # The engine's own standard output, as a library in it would use it.
                with open(f"/proc/{self.engine_of(service)}/fd/1", "wb") as output:
                    subprocess.run(["head", "-n", str(LINES)], input=b"while it runs\n" * LINES, stdout=output, check=True,
                                   timeout=PATIENCE)
                counts = host.lines().count("Count")
                wait_until(lambda: host.lines().count("Count") > counts + 1, "the engine does not count on")
                host.interrupt()
                self.expect_exit(host, 130)
                service.wait_for_errors(": stopped\n")
                self.assertEqual(len(service.captured_lines("while it runs")), LINES)
                self._services.pop()
                service.signal(signal.SIGTERM)
                self.assertEqual(service.wait(), 0)

    def test_stops_when_its_host_is_interrupted(self):
        service, endpoint = self.supervised_by_itself()
        host = self.running_on(endpoint)
        start = time.monotonic()
        host.interrupt()
        self.expect_exit(host, 130)
        self.assertEqual(host.notifications()[-1]["line"], "Finished")
        self.assertEqual(host.notifications()[-1]["values"], {"stopped": True})
        service.wait_for_errors(": stopped\n")
        self.assertLess(time.monotonic() - start, PATIENCE)

    def test_leaves_when_its_host_is_killed(self):
        service, endpoint = self.supervised_by_another()
        host = self.running_on(endpoint)
        host.signal(signal.SIGKILL)
        host.wait()
        service.wait_for_errors("the host has disconnected, or was silent for 10 s")
        wait_until(lambda: not processes_below(service.pid), "engines are left")

    def test_writes_log_lines_with_the_ids_of_both_processes(self):
        service, endpoint = self.supervised_by_another()
        host = self.running_on(endpoint)
        supervisor, engine = self.supervisor_below(service), self.engine_of(service)
        self.kill(engine, signal.SIGSTOP)
        service.wait_for_errors("was suspended")
        self.assertIn(f"[tamb-engine {supervisor}/{engine}, engine 1 of ", service.errors())
        self.kill(engine, signal.SIGCONT)
        host.interrupt()
        self.expect_exit(host, 130)


if __name__ == "__main__":
    unittest.main()
