"""The host, the service or the supervisor of an engine dies, or the host stops for a while."""

import signal
import time

from fault_support import (
    AT_ONCE, BEFORE, DESTRUCTION, IDLE, PINGING, RUNNING, STAGES, STOPPING, WIRING, FaultTest, main)
from promises import Bound

# An engine's process gives its controller 10 s, its engine 5 s to stop; one that is frozen is killed after 10 s, and
# its supervisor then waits 10 s for somebody to tell.
ENGINE_GONE = 20
FROZEN_ENGINE_GONE = 28
# The same of a host that was killed: with an engine that answers its ping first, ignores its stop, or is frozen.
GONE_WITH_ITS_HOST = {stage: Bound(ENGINE_GONE, promised=11) for stage in STAGES} | {
    PINGING: Bound(25, promised=19), STOPPING: Bound(25, promised=18), DESTRUCTION: Bound(FROZEN_ENGINE_GONE, promised=23)}
# Within what time a host learns of a death from the service, which looks every 100 ms.
SOON = Bound(10, promised=2)
WITHOUT_SUPERVISOR = r"engine process \d+ died: signal 9 \(Killed\); its supervisor had died: signal 9 \(Killed\)"
# For how long a host takes the last status that it has received for the engine's.
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
            self.expect_told(call, ENGINE_GONE + AT_ONCE, "kept stopped|not ready|Unexpected reply")
        elif call:
            # At once, or, when the last status is still on its way to the host as it is continued, after its silence.
            self.expect_told(call, FROZEN_ENGINE_GONE + SILENCE + AT_ONCE)
        if stage in (RUNNING, PINGING, STOPPING) and call != "run":
            self.assertEqual(self.host.wait_for_end_of("run", 20)[1], "returned")
        self.expect_destroyed()
        self.conclude("what it waits for ends at once, or after 15 s")


class EngineServesOn(FaultTest):
    """Rows of faults that an engine which can be connected to survives."""

    def expect_run_unharmed(self, stage, call):
        """A run that goes on, or begins, is driven to its end."""
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
        # It stays until another one takes its place.
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
        # Where the service listened, another one can.
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
            # Nobody is there any more to end an engine that ignores its stop, but the engine's process itself.
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
    """The service, whose child the engine's process becomes, answers for it."""

    fault = "supervisor and engine: SIGKILL"
    logs = rf"ended after \d+ s: died: {WITHOUT_SUPERVISOR}"

    def strike_both(self):
        engine, supervisor = self.engine_process(), self.supervisor_process()
        # In this order: the supervisor is not to see the other one's death.
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
            # Later calls do not wait either, and say why in the log.
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
        # This host stays connected, and the service goes on answering it.
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
