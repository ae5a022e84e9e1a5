"""The host, the service or the supervisor of an engine dies, or the host is stopped for a while."""

import signal
import time

from fault_support import (
    AT_ONCE, BEFORE, DESTRUCTION, IDLE, PINGING, RUNNING, STAGES, STOPPING, WIRING, FaultTest, main)
from promises import Bound

# An engine process allows its host 10 s of silence and its engine 5 s to stop; a frozen one is killed after 10 s, and
# its supervisor then waits 10 s for a host.
ENGINE_GONE = 20
FROZEN_ENGINE_GONE = 28
# The same for a killed host: its engine answers a ping first, ignores its stop, or is frozen.
GONE_WITH_ITS_HOST = {stage: Bound(ENGINE_GONE, promised=11) for stage in STAGES} | {
    PINGING: Bound(25, promised=19), STOPPING: Bound(25, promised=18), DESTRUCTION: Bound(FROZEN_ENGINE_GONE, promised=23)}
# The time until a host notices a death through the service, which polls every 100 ms.
SOON = Bound(10, promised=2)
WITHOUT_SUPERVISOR = r"engine process \d+ died: signal 9 \(Killed\); its supervisor had died: signal 9 \(Killed\)"
# How long a host considers the last received status valid.
SILENCE = 15


class HostKilled(FaultTest):
    fault = "host: SIGKILL"

    def expect_gone_with_its_host(self, stage):
        self.reach(stage)
        self.strike(self.host.pid, signal.SIGKILL)
        self.assertEqual(self.host.wait(), -signal.SIGKILL)
        self.expect_engines_gone(GONE_WITH_ITS_HOST[stage])
        self.conclude(logs=None if stage == BEFORE else r"timeout on frontend heartbeat|died: signal 9 \(Killed\)|Refused")


class HostStopped(FaultTest):
    """Longer than its engine waits for it."""

    fault = "host: SIGSTOP, SIGCONT once the engine has ended"

    def stop_until_engine_has_gone(self, stage):
        call = self.reach(stage)
        self.strike(self.host.pid, signal.SIGSTOP)
        if stage != BEFORE:
            self.expect_engines_gone(FROZEN_ENGINE_GONE if stage == DESTRUCTION else ENGINE_GONE)
        self.host.signal(signal.SIGCONT)
        return call

    def expect_end_after_the_engine(self, stage):
        call = self.stop_until_engine_has_gone(stage)
        if stage == BEFORE:
            self.host.call(f"wire {self.endpoint} {self.document(IDLE)}")
            self.host.call("push 1 Hello")
        elif stage == WIRING:
            # The service gave up a moment before its host did.
            self.expect_told(call, ENGINE_GONE + AT_ONCE, "suspended for|not ready|Unexpected reply")
        elif call:
            # At once, or, if the last status is still in transit when the host is continued, after 15 s of silence.
            self.expect_told(call, FROZEN_ENGINE_GONE + SILENCE + AT_ONCE)
        if stage in (RUNNING, PINGING, STOPPING) and call != "run":
            self.assertEqual(self.host.wait_for_end_of("run", 20)[1], "returned")
        self.expect_destroyed()
        self.conclude("what it waits for ends at once, or after 15 s")


class EngineServesOn(FaultTest):
    """Rows of faults that a connected engine survives."""

    def expect_run_unharmed(self, stage, call):
        """A run that continues, or starts, is driven to its end."""
        if stage == IDLE:
            self.host.begin("run")
        if stage == PINGING:
            self.expect_told(call, 15)
        else:
            self.host.call("push 1 Hello")
            self.host.wait_for("^notification CommandDone 1 ")
        self.host.call("stop", 20)
        self.assertEqual(self.host.wait_for_end_of("run")[1], "returned")


class ServiceKilled(EngineServesOn):
    fault = "service: SIGKILL"
    service_survives = False

    def expect_engine_serves_on(self, stage):
        call = self.reach(stage)
        self.strike(self.service_program.pid, signal.SIGKILL)
        self.assertEqual(self.service_program.wait(), -signal.SIGKILL)
        # It remains until another service replaces it.
        self.assertEqual(self.files_left(), ["service"])
        said = "nothing: its engine serves on"
        if stage == BEFORE:
            self.host.begin(f"wire {self.endpoint} {self.document(IDLE)}")
            self.expect_told("wire", Bound(10, promised=5.5), self.endpoint)
            said = "AddEngineDescription throws: nobody answers"
        elif stage == WIRING:
            self.expect_told(call, Bound(10, promised=1), self.endpoint)
            self.kill(self.engine_process(), signal.SIGCONT)
            said = "AddEngineDescription throws: the service has ended"
        elif stage == DESTRUCTION:
            self.kill(self.engine_process(), signal.SIGCONT)
            self.expect_told(call, AT_ONCE)
        elif stage == STOPPING:
            self.expect_told(call, 10)
            said = "nothing: an engine that ignores its stop is killed as ever"
        else:
            self.expect_run_unharmed(stage, call)
        self.expect_destroyed()
        self.expect_engines_gone(60)
        # Another service can bind the endpoint.
        self.service_program, self.endpoint = self.service()
        self.expect_service_serves()
        self.conclude(said)


class SupervisorKilled(EngineServesOn):
    fault = "supervisor: SIGKILL"

    def expect_engine_serves_on(self, stage):
        call = self.reach(stage)
        engine = self.engine_process()
        self.strike(self.supervisor_process(), signal.SIGKILL)
        said = "nothing: its engine serves on"
        if stage == WIRING:
            self.expect_told(call, AT_ONCE, "signal 9")
            said = "AddEngineDescription throws the refusal; the engine dies with it"
        elif stage == DESTRUCTION:
            self.kill(engine, signal.SIGCONT)
            self.expect_told(call, AT_ONCE)
        elif stage == STOPPING:
            # Only the engine process itself can end an engine that ignores its stop.
            self.kill(engine, signal.SIGKILL)
            self.expect_told(call, SOON)
            self.host.wait_for(f"^notification EngineDied 0 {WITHOUT_SUPERVISOR}")
            said = "an engine that dies now has its host told by the service"
        else:
            self.expect_run_unharmed(stage, call)
        self.expect_destroyed()
        self.expect_engines_gone(60)
        self.conclude(said, "Refused: .*signal 9" if stage == WIRING else r"has lost its supervisor: signal 9 \(Killed\)")


class BothKilled(FaultTest):
    """The service adopts the engine process, and takes over its endpoints."""

    fault = "supervisor and engine: SIGKILL"
    logs = rf"ended after \d+ s: died: {WITHOUT_SUPERVISOR}"

    def strike_both(self):
        engine, supervisor = self.engine_process(), self.supervisor_process()
        # In this order: the supervisor must not notice the engine's death.
        self.strike(supervisor, signal.SIGKILL)
        self.kill(engine, signal.SIGKILL)

    def expect_cause(self):
        self.host.wait_for(f"^notification EngineDied 0 {WITHOUT_SUPERVISOR}")
        self.expect_within(SOON, self.name_of("EngineDied"), self.since_fault())

    def expect_told_by_the_service(self, stage):
        call = self.reach(stage)
        self.strike_both()
        if stage == DESTRUCTION:
            self.expect_told(call, SOON)
        else:
            if call:
                self.expect_told(call, SOON)
            self.expect_cause()
            self.told = self.told or self.since_fault()
        if stage == IDLE:
            # Later calls do not wait either, and log the cause.
            self.host.call("run", SOON)
            self.assertRegex(self.host.errors(), WITHOUT_SUPERVISOR)
        elif stage in (PINGING, STOPPING):
            self.assertEqual(self.host.wait_for_end_of("run", SOON)[1], "returned")
        self.expect_engines_gone(SOON)
        self.expect_destroyed()
        self.conclude("`EngineDied`; what it waits for returns")

    def test_does_not_hold_the_service_up(self):
        self.reach(RUNNING)
        self.strike_both()
        self.expect_cause()
        # This host stays connected, and the service keeps answering it.
        self.expect_service_serves()
        self.host.call("ping 1000")
        self.host.wait_for_errors("Failed sending ping to remote engine on:")
        start = time.monotonic()
        self.service_program.signal(signal.SIGTERM)
        self.assertEqual(self.service_program.wait(), 0, self.service_program.everything())
        self.expect_within(Bound(15, promised=5), "the service ends while it answers for an engine", time.monotonic() - start)
        self.expect_destroyed()
        self.expect_nothing_left_but()


def add_cells(row, check, stages):
    """A test for each of the stages."""
    for stage in stages:
        name = f"test_{stage.replace(' ', '_')}"
        setattr(row, name, lambda self, stage=stage: check(self, stage))


add_cells(HostKilled, HostKilled.expect_gone_with_its_host, STAGES)
add_cells(HostStopped, HostStopped.expect_end_after_the_engine, STAGES)
add_cells(ServiceKilled, ServiceKilled.expect_engine_serves_on, STAGES)
add_cells(BothKilled, BothKilled.expect_told_by_the_service, [IDLE, RUNNING, PINGING, STOPPING, DESTRUCTION])
add_cells(SupervisorKilled, SupervisorKilled.expect_engine_serves_on, [stage for stage in STAGES if stage != BEFORE])


if __name__ == "__main__":
    main()
