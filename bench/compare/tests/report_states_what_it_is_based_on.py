#!/usr/bin/env python3
"""The tables name the rounds of their own figures, the aims that were missed, and where another carrier is faster."""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

REPORT = pathlib.Path(__file__).resolve().parent.parent / "report.py"
MACHINE = {"processor": "A processor", "cores": 2, "system": "Linux", "compiler": "GCC", "libzmq": "4", "protobuf": "3",
           "gRPC": "1", "build": "0"}


def run(measure, library, figures, transport="ipc", cores="one core", **case):
    """Rounds of one work, each with that many messages a second, or microseconds for a round trip."""
    case = {"measure": measure, "library": library, "transport": transport, "cores": cores, "withParameters": False,
            "perList": 1, "engines": 1, "messages": 100, "turns": 1} | case
    results = [{"perSecond": figure, "p50": figure, "p99": 2 * figure, "hostMicroseconds": figure, "engineMicroseconds": 1,
                "wrong": 0} for figure in figures]
    return {"name": f"{measure}, {library}", "case": case, "results": results}


def remote(engines, percent):
    return {"engines": engines, "results": [{"wiredMilliseconds": 60, "residentKibibytes": 512, "idleCorePercent": figure,
                                             "idleSwitchesPerSecond": 30} for figure in percent]}


def document(runs, remote_engines=()):
    """What the report makes of these results, between the marks."""
    with tempfile.TemporaryDirectory(prefix="report-") as name:
        folder = pathlib.Path(name)
        results, text = folder / "results.json", folder / "text.md"
        results.write_text(json.dumps({"machine": MACHINE, "rounds": 9, "runs": runs, "remote engines": list(remote_engines)}))
        text.write_text("before\n<!-- measured: begin -->\nold\n<!-- measured: end -->\nafter\n")
        done = subprocess.run([sys.executable, "-B", REPORT, results, text], capture_output=True, text=True)
        if done.returncode != 0:
            raise AssertionError(done.stderr)
        return text.read_text()


def section(text, title):
    return text.split(f"## {title}\n")[1].split("\n## ")[0]


def works(measure, ours, **others):
    """Ours and other carriers of one work, on one core over ipc."""
    names = {"bare": "bare libzmq", "guarded": "bare libzmq, guarded", "plain": "bare libzmq, plain values", "grpc": "gRPC"}
    return [run(measure, "ours", ours)] + [run(measure, names[name], figures) for name, figures in others.items()]


class Report(unittest.TestCase):
    def test_each_table_states_its_own_rounds(self):
        text = document(works("control round trip", [20] * 5, bare=[20] * 5, grpc=[20] * 4), [remote(100, [2, 2, 2])])
        self.assertIn("Rounds: 5.", section(text, "Ours beside bare libzmq and protobuf"))
        self.assertIn("Rounds: 4.", section(text, "Ours beside gRPC"))
        self.assertIn("Rounds: 3.", section(text, "A host with many remote engines"))
        self.assertIn("Rounds: 4 to 5.", section(text, "All figures on one core, over ipc"))
        self.assertEqual(len(re.findall(r"^\|---", text, re.MULTILINE)), text.count("\nRounds: "))
        self.assertNotRegex(text, r"\b9 rounds")

    def test_missed_aims_are_named_with_their_figures(self):
        text = document(works("control round trip", [21, 22, 22], bare=[20, 20, 20], grpc=[20, 20, 20]), [remote(100, [3.5])])
        aims = section(text, "Aims")
        self.assertRegex(aims, r"1\.05 times as long as on bare libzmq \| 0 of 1 \| 1\.10 \| control round trip; ipc, one core: 1\.10")
        self.assertRegex(aims, r"gRPC's unary calls \| 0 of 1 \| 1\.10 ")
        self.assertRegex(aims, r"at most 3 % of a core \| 0 of 1 \| 3\.50 %")
        self.assertRegex(aims, r"1\.5 MiB of resident memory \| 1 of 1 \| 0\.50 MiB \| –")

    def test_aims_that_are_just_met_are_not_missed(self):
        text = document(works("control round trip", [21] * 3, bare=[20] * 3, grpc=[22] * 3))
        self.assertRegex(section(text, "Aims"), r"1\.05 times as long as on bare libzmq \| 1 of 1 \| 1\.05 \| –")

    def test_says_which_stream_is_faster_on_free_cores(self):
        name = "command to notification round trip"

        def sentence(ours, grpc):
            runs = [run(name, library, [figure] * 3, cores="free") for library, figure in (("ours", ours), ("gRPC", grpc))]
            return section(document(runs + works(name, [1], bare=[1], grpc=[1])), "Ours beside gRPC")

        behind = sentence(90, 60)
        self.assertIn("A gRPC stream is faster than ours", behind)
        self.assertIn("no parameters, ipc: 1.50", behind)
        self.assertIn("- command to notification round trip, no parameters: ipc, free (1.50)", behind)
        self.assertIn("Ours is faster than a gRPC stream", sentence(60, 90))

    def test_lists_are_behind_when_fewer_pass(self):
        text = document(works("commands", [8, 8, 8], bare=[10, 10, 10], grpc=[2, 2, 2]))
        self.assertIn("- commands, lists of 1, no parameters: ipc, one core (0.80)",
                      section(text, "Ours beside bare libzmq and protobuf"))
        self.assertIn("Nowhere do both quartiles show ours behind gRPC.", section(text, "Ours beside gRPC"))
        self.assertRegex(section(text, "Aims"), r"0\.9 times as many messages as on bare libzmq \| 0 of 1 \| 0\.80")

    def test_guarantees_and_framework_objects_have_rows_of_their_own(self):
        text = document(works("control round trip", [24] * 3, bare=[20] * 3, guarded=[22] * 3, grpc=[30] * 3) +
                        works("commands", [5] * 3, bare=[5] * 3, plain=[10] * 3, grpc=[1] * 3))
        self.assertIn("| bare libzmq, guarded beside bare libzmq | **1.10**", section(text, "What guarantees cost"))
        self.assertIn("| ours beside bare libzmq, guarded | **1.09**", section(text, "What guarantees cost"))
        self.assertIn("| commands, lists of 1, no parameters | **0.50**", section(text, "What framework objects cost"))

    def test_growth_says_that_all_engines_share_a_process(self):
        text = document([run("commands", library, [cost] * 3, perList=10, engines=engines)
                         for library in ("ours", "bare libzmq") for engines, cost in ((2, 1), (200, 2))])
        growth = section(text, "Growth")
        self.assertIn("All engines of a run are in one engine process", growth)
        self.assertIn("Rounds: 3.", growth)
        self.assertIn("200 engines: 2.00", section(text, "Aims"))


if __name__ == "__main__":
    unittest.main()
