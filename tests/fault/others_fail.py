"""The host, the service or the supervisor of an engine dies, or the host stops for a while."""

import signal

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
# For how long a host takes the last status that it has received for the engine's.
SILENCE = 15


class HostKilled(FaultTest):
    fault = "host: SIGKILL"

    def expect_gone_with_its_host(self, stage):
        self.reach(stage)
        self.strike(self.host.pid, signal.SIGKILL)
        self.assertEqual(self.host.wait(), -signal.SIGKILL)
        self.expect_engines_gone(GONE_WITH_ITS_HOST[stage])
        self.conclude()


class HostStopped(FaultTest):
    """Longer than its engine waits for it."""

    fault = "host: SIGSTOP, SIGCONT once the engine has gone"

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
        said = "nothing: its engine serves on"
        if stage == BEFORE:
            self.host.begin(f"wire {self.endpoint} {self.document(IDLE)}")
            self.expect_told("wire", Bound(10, promised=5.5), self.endpoint)
            said = "AddEngineDescription throws: nobody answers"
        elif stage == WIRING:
            self.expect_told(call, Bound(10, promised=1), self.endpoint)
            self.kill(self.engine_process(), signal.SIGCONT)
            said = "AddEngineDescription throws: the service has gone"
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
            self.expect_told(call, Bound(25, promised=16))
            said = "an engine that dies now is missed after 15 s"
        else:
            self.expect_run_unharmed(stage, call)
        self.expect_destroyed()
        self.expect_engines_gone(60)
        self.conclude(said)


def add_cells(row, check, stages):
    """A test for each of the stages."""
    for stage in stages:
        name = f"test_{stage.replace(' ', '_')}"
        setattr(row, name, lambda self, stage=stage: check(self, stage))


add_cells(HostKilled, HostKilled.expect_gone_with_its_host, STAGES)
add_cells(HostStopped, HostStopped.expect_end_after_the_engine, STAGES)
add_cells(ServiceKilled, ServiceKilled.expect_engine_serves_on, STAGES)
add_cells(SupervisorKilled, SupervisorKilled.expect_engine_serves_on, [stage for stage in STAGES if stage != BEFORE])


if __name__ == "__main__":
    main()
