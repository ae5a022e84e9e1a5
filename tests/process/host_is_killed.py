"""An engine process notices within ten seconds that its host was killed."""

import time
import unittest

from engine_support import EngineTest

# How long a host may be silent, and how late that may be noticed on a busy machine.
SILENCE = 10
LATEST = 15


class OurBackEnd(EngineTest):
    def test_leaves_with_a_warning_when_its_host_was_killed(self):
        idle, running, pinged = [
            (self.engine_process(self.ipc(f"request-{state}"), self.ipc(f"status-{state}")), self.host_process())
            for state in ("idle", "running", "pinged")]
        over_tcp = self.engine_over("tcp"), self.host_process()
        lives = [idle, running, pinged, over_tcp]
        for engine, host in lives:
            host.configure(engine)
            engine.tell("wait")
        for engine, host in (running, over_tcp):
            host.tell("run")
            engine.event("engine runs")
        engine, host = pinged
        engine.from_now_on("ping-takes 600000")
        host.tell("ping 5")
        engine.event("pinged 5")
        for engine, host in lives:
            self.assertFalse(engine.has_event("wait"))
            host.kill()
        start = time.monotonic()
        # Even the engine that is still busy with a ping counts from the host's last request on.
        for engine, _ in lives:
            engine.event("wait returned", LATEST)
            # The last heartbeat came up to about a second ahead of the end.
            self.assertGreater(time.monotonic() - start, SILENCE - 2)
            self.assertLess(time.monotonic() - start, LATEST)
            engine.wait_for_log("Warning", "Engine backend left because of timeout on frontend heartbeat")
        for engine, _ in lives:
            self.assertEqual(engine.end(), 0)


if __name__ == "__main__":
    unittest.main()
