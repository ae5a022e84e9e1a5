"""Life after life of engines, with faults at random, until the time is over.

One worker is one service and one host process at a time, which has one engine after the other. What came of it is
written as a JSON object to the file that SOAK_SUMMARY names; SOAK_SECONDS and SOAK_SEED say how long and with which
chances. The seed decides what is done, not how long it takes: the same seed is the same sequence of lives. With
SOAK_STEADY=1 neither host nor service is ever killed, so that both have as many engines as the time allows.
"""

import json
import os
import random
import re
import signal
import time
import unittest

from fault_support import FaultTest
from programs_support import PATIENCE, clip, wait_until

# The relative frequency of each fault. Those with "media" use media engines, the others test engines.
FAULTS = {
    None: 40,
    "engine SIGKILL": 8,
    "engine SIGSEGV": 8,
    "engine SIGABRT": 8,
    "engine SIGSTOP and SIGCONT": 8,
    "host SIGKILL": 6,
    "host SIGSTOP and SIGCONT": 6,
    "service SIGKILL": 6,
    "supervisor SIGKILL": 6,
    "stop ignored": 4,
    "host SIGKILL during wiring": 6,
    "media": 6,
    "media, engine SIGKILL": 4,
    "media, stopped": 4,
    "media, flood of standard output": 6,
}
# Faults that end a host or a service early.
UNSTEADY = {"host SIGKILL", "host SIGKILL during wiring", "service SIGKILL"}
# Additional work of the media engine. The flood is half a MiB; a pipe without a reader holds 64 KiB.
MEDIA = {
    "media": {},
    "media, engine SIGKILL": {"realTime": True},
    "media, stopped": {"realTime": True},
    "media, flood of standard output": {"videoFilter": "signalstats,metadata=mode=print:file=-"},
}
DEATHS = {"engine SIGKILL": signal.SIGKILL, "engine SIGSEGV": signal.SIGSEGV, "engine SIGABRT": signal.SIGABRT}
# An engine that does not end on request is killed by SIGKILL.
LAST_SIGNALS = {**DEATHS, "stop ignored": signal.SIGKILL, "media, engine SIGKILL": signal.SIGKILL}
# Faults during which a run may be silent.
EXCUSES = {*DEATHS, "engine SIGSTOP and SIGCONT", "host SIGSTOP and SIGCONT"}
# The time until everything has arrived, or has ended, however busy the machine is.
ARRIVED = 60
GONE = 40
# After this many lives with the same host and service, they have allocated everything that they keep.
WARM_UP = 10
# The permitted growth in KiB: once for the allocator, and for each life.
GROWTH, GROWTH_OF_A_LIFE = 6144, 4


class Violation(AssertionError):
    pass


class Soak(FaultTest):
    def setUp(self):
        super().setUp()
        self.seconds = float(os.environ["SOAK_SECONDS"])
        # Counted for this pair of host and service.
        self.lives_together = 0
        self.chance = random.Random(int(os.environ["SOAK_SEED"]))
        steady = os.environ.get("SOAK_STEADY") == "1"
        self.faults = {fault: often for fault, often in FAULTS.items() if not (steady and fault in UNSTEADY)}
        # The complete outputs of media engines, by the kind of life.
        self.whole_outputs = {}
        # The number of commands of this host: their ids continue from engine to engine.
        self.pushed = 0
        self.summary = {"lives": 0, "faults": {}, "hosts": 1, "services": 1, "runs not heard of": 0,
                        **{f"{what}, {whose}": 0 for whose in ("both live", "one dies")
                           for what in ("commands sent", "commands answered", "ticks asked for", "ticks received")}}

    def test_lives_until_the_time_is_over(self):
        self.service_program, self.endpoint = self.service()
        self.host = self.staged_host()
        end = time.monotonic() + self.seconds
        while time.monotonic() < end:
            fault = self.chance.choices(list(self.faults), self.faults.values())[0]
            try:
                self.live(fault)
            except Exception as failure:
                raise Violation(f"life {self.summary['lives'] + 1}, {fault}: {failure}") from failure
            self.summary["lives"] += 1
            self.summary["faults"][str(fault)] = self.summary["faults"].get(str(fault), 0) + 1
            self.lives_together += 1
            # By the third life, everything has been used once.
            if self.lives_together == 3:
                self.note("start")
            elif self.lives_together > 3:
                self.note("end")
                self.expect_no_growth()
            if self.lives_together == WARM_UP:
                self.note("warm")
        self.note("end")
        self.assertEqual(self.host.quit(), 0)
        self.expect_nothing_left_but(self.service_program, within=GONE)
        with open(os.environ["SOAK_SUMMARY"], "w") as file:
            json.dump(self.summary, file)

    def live(self, fault):
        """One engine, from its submission to its end."""
        if fault in MEDIA:
            self.live_with_media(fault)
        elif fault == "host SIGKILL during wiring":
            self.kill_host_during_wiring()
        else:
            self.live_with_messages(fault)

    def kill_host_during_wiring(self):
        self.host.begin(f'wire {self.endpoint} {{"engine": "test"}}')
        # The time of the fault: wiring takes about as long.
        time.sleep(self.chance.uniform(0, 0.1))
        self.replace_killed_host()

    def replace_killed_host(self):
        """Starts another host, once the engine has exited with this one."""
        self.host.signal(signal.SIGKILL)
        self.host.wait()
        self.expect_nothing_left_but(self.service_program, within=GONE)
        self.host = self.staged_host()
        self.summary["hosts"] += 1
        self.pushed = 0
        self.begin_anew()

    def live_with_media(self, fault):
        begin = self.host.output_size()
        output = self.folder / "out.mkv"
        document = {"engine": "media", "input": str(clip()), "output": str(output), **MEDIA[fault]}
        self.call(f"wire {self.endpoint} {json.dumps(document)}", begin)
        self.host.begin("run")
        self.await_line("^notification Started ", begin)
        if fault in ("media, engine SIGKILL", "media, stopped"):
            # The time of the fault: the media last 6 s.
            time.sleep(self.chance.uniform(0, 2))
        if fault == "media, engine SIGKILL":
            self.kill(self.engine_process(), signal.SIGKILL)
            self.await_line(r"^notification EngineDied 0 engine process \d+ died: signal 9 ", begin)
        else:
            if fault == "media, stopped":
                self.call("stop", begin)
            self.await_line("^notification Finished ", begin, ARRIVED)
        self.await_end_of_run(fault, begin)
        self.call("destroy", begin)
        self.expect_nothing_left_but(self.service_program, self.host, within=GONE)
        self.expect_output(fault, output)

    def expect_output(self, fault, output):
        """A killed engine leaves only an unfinished output; an undisturbed one always writes the same."""
        if fault == "media, engine SIGKILL":
            self.assertFalse(output.exists())
        else:
            written = output.read_bytes()
            self.assertTrue(written)
            if fault != "media, stopped":
                self.assertEqual(written, self.whole_outputs.setdefault(fault, written))
        left = sorted(self.folder.glob("out.mkv*"))
        self.assertLessEqual(len(left), 1, left)
        for path in left:
            path.unlink()

    def live_with_messages(self, fault):
        ticks, commands = self.chance.randrange(1, 300), self.chance.randrange(1, 300)
        before = self.chance.randrange(commands + 1)
        begin = self.host.output_size()
        document = {"engine": "test", "notifications": ticks}
        if fault == "stop ignored":
            document["behaviour"] = "ignoreStop"
        self.call(f"wire {self.endpoint} {json.dumps(document)}", begin)
        # Pushed before the run, during it, or both.
        if before:
            self.call(f"push {before} Hello", begin)
        self.host.begin("run")
        if commands > before:
            self.await_line("^notification Tick ", begin)
            pushed = self.host.output_size()
            self.call(f"push {commands - before} Hello", pushed)
        self.meet(fault, begin)
        died = fault in LAST_SIGNALS
        if fault == "host SIGKILL":
            self.expect_order(begin, ticks, commands)
            self.replace_killed_host()
            return
        if not died:
            self.expect_all(begin, ticks, commands)
            self.call("watch", begin)
            self.call("stop", begin)
        self.await_end_of_run(fault, begin)
        if died:
            how = "was killed by signal 9: " if fault == "stop ignored" else f"died: signal {int(LAST_SIGNALS[fault])} "
            self.await_line(rf"^notification EngineDied 0 engine process \d+ {how}", begin)
        self.call("destroy", begin)
        self.expect_order(begin, ticks, commands, whole=not died)
        self.assertEqual(sum(line.startswith("notification EngineDied ") for line in self.said_since(begin)), int(died),
                         self.tail(begin))
        self.expect_nothing_left_but(self.service_program, self.host, within=GONE)
        if fault == "service SIGKILL":
            self.service_program, self.endpoint = self.service()
            self.summary["services"] += 1
            self.begin_anew()

    def begin_anew(self):
        """With another host or service, resources are compared from its own third life on."""
        self.lives_together = -1
        self.summary.pop("start", None)
        self.summary.pop("warm", None)

    def meet(self, fault, begin):
        if fault in DEATHS:
            self.kill(self.engine_process(), DEATHS[fault])
        elif fault == "engine SIGSTOP and SIGCONT":
            self.pause(self.engine_process())
        elif fault == "host SIGSTOP and SIGCONT":
            self.pause(self.host.pid)
        elif fault == "host SIGKILL":
            self.host.signal(signal.SIGKILL)
            self.host.wait()
        elif fault == "service SIGKILL":
            self.service_program.signal(signal.SIGKILL)
            self.service_program.wait()
        elif fault == "supervisor SIGKILL":
            self.kill(self.supervisor_process(), signal.SIGKILL)
        elif fault == "stop ignored":
            self.call("stop", begin)

    def pause(self, process):
        self.kill(process, signal.SIGSTOP)
        # The duration of the fault: less than the 10 s after which a silent side is considered dead.
        time.sleep(self.chance.uniform(0.1, 5))
        self.kill(process, signal.SIGCONT)

    def said_since(self, begin):
        """The complete lines that the host has printed in this life."""
        return self.host.output(begin).rpartition("\n")[0].splitlines()

    def await_line(self, pattern, begin, seconds=PATIENCE):
        def found():
            return next(filter(None, (re.search(pattern, line) for line in self.said_since(begin))), None)

        return wait_until(found, lambda: f"{pattern} is not said: {self.tail(begin)}", seconds)

    def await_end(self, call, begin, seconds=PATIENCE):
        end = self.await_line(rf"^{call} (returned|threw) after \d+(.*)$", begin, seconds)
        self.assertEqual(end[1], "returned", f"{end[0]}: {self.tail(begin)}")

    def await_end_of_run(self, fault, begin):
        """The fault may come before the host has received the status Running: then its run fails with a reason."""
        end = self.await_line(r"^run (returned|threw) after \d+(?:: )?(.*)$", begin)
        if end[1] == "threw" and fault in EXCUSES:
            self.assertIn("not switching to Running state", end[2], self.tail(begin))
            self.summary["runs not heard of"] += 1
        else:
            self.assertEqual(end[1], "returned", f"{fault}: {end[0]}: {self.tail(begin)}")

    def call(self, line, begin, seconds=PATIENCE):
        self.host.begin(line)
        self.await_end(line.split()[0], begin, seconds)

    def tail(self, begin):
        return f"{self.said_since(begin)[-20:]}\n{self.host.errors()[-2000:]}\nservice: {self.service_program.errors()[-2000:]}"

    def ids(self, line, begin, group):
        found = (re.match(rf"notification {line} (\d+) (\d*)$", each) for each in self.said_since(begin))
        return [int(match[group]) for match in found if match]

    def expect_all(self, begin, ticks, commands):
        """While both sides live, everything arrives."""
        wait_until(lambda: len(self.ids("CommandDone", begin, 1)) >= commands
                   and len(self.ids("Tick", begin, 2)) >= ticks,
                   lambda: f"{len(self.ids('CommandDone', begin, 1))} of {commands} answers, "
                           f"{len(self.ids('Tick', begin, 2))} of {ticks} ticks: {self.tail(begin)}", ARRIVED)

    def expect_order(self, begin, ticks, commands, whole=False):
        """In order, once each, and nothing that was not sent: all of them, or the first ones if a side died."""
        arrived, answered = self.ids("Tick", begin, 2), self.ids("CommandDone", begin, 1)
        self.assertEqual(arrived, list(range(len(arrived))))
        self.assertEqual(answered, list(range(self.pushed + 1, self.pushed + 1 + len(answered))))
        expect = self.assertEqual if whole else self.assertLessEqual
        expect(len(arrived), ticks)
        expect(len(answered), commands)
        self.pushed += commands
        whose = "both live" if whole else "one dies"
        for what, number in (("commands sent", commands), ("commands answered", len(answered)),
                             ("ticks asked for", ticks), ("ticks received", len(arrived))):
            self.summary[f"{what}, {whose}"] += number

    def note(self, moment):
        """The resources of the processes that have lived since the start, or since their predecessor was killed."""
        begin = self.host.output_size()
        self.host.begin("held")
        held = self.await_line(r"^held (\d+) (\d+) (\d+)$", begin)
        pid = self.service_program.pid
        resident = next(line for line in open(f"/proc/{pid}/status") if line.startswith("VmRSS:")).split()[1]
        self.summary[moment] = {
            "host": dict(zip(("descriptors", "threads", "KiB"), map(int, held.groups()))),
            "service": {"descriptors": len(os.listdir(f"/proc/{pid}/fd")), "threads": len(os.listdir(f"/proc/{pid}/task")),
                        "KiB": int(resident)}}

    def expect_no_growth(self):
        """Between two lives, the processes have the same resources as before."""
        for process in ("host", "service"):
            for what in ("descriptors", "threads"):
                start, end = (self.summary[moment][process][what] for moment in ("start", "end"))
                self.assertLessEqual(end, start + 2, f"{process}: {what}: {self.summary}")
            if "warm" in self.summary:
                warm, end = (self.summary[moment][process]["KiB"] for moment in ("warm", "end"))
                allowed = GROWTH + GROWTH_OF_A_LIFE * (self.lives_together - WARM_UP)
                self.assertLessEqual(end, warm + allowed, f"{process}: KiB: {self.summary}")


if __name__ == "__main__":
    unittest.main()
