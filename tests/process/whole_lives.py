"""Host and engine live their lives in two processes, from the first exchange to the last, and leave nothing behind."""

import os
import unittest

from engine_support import EngineTest

LIVES = 50
# After so many lives a host has opened whatever it opens once.
WARM_UP = 3


class OurChannel(EngineTest):
    def live(self, engine, host):
        """One whole life, in which every call returns."""
        host.configure(engine)
        engine.tell("wait")
        host.tell("run")
        engine.event("engine runs")
        host.call("ping 17")
        engine.event("pinged 17")
        self.begin_wait_for_stop(host)
        self.assertFalse(host.has_event("run"))
        host.call("request_stop")
        engine.event("stop requested")
        engine.event("engine ran")
        host.milliseconds_of("run")
        host.milliseconds_of("wait_for_stop")
        self.assertLess(host.call("wait_for_stop 0"), 1000)
        self.assertFalse(engine.has_event("wait"))
        host.call("destroy")
        self.assertLess(engine.milliseconds_of("wait"), 60000)
        engine.call("destroy")
        self.assertEqual(engine.end(), 0)
        self.assertNotIn("Warning", engine.whole_log())
        self.assertNotIn("Error", engine.whole_log())

    def test_lives_a_whole_life(self):
        for transport in self.each_transport():
            host = self.host_process()
            self.live(self.engine_over(transport), host)
            self.assertEqual(host.end(), 0)
            self.assertEqual(host.whole_log(), "")

    def test_lives_when_the_engine_ends_by_itself(self):
        for transport in self.each_transport():
            engine, host = self.engine_over(transport), self.host_process()
            host.configure(engine)
            host.tell("run")
            engine.event("engine runs")
            self.begin_wait_for_stop(host)
            engine.tell("finish")
            host.milliseconds_of("run")
            host.milliseconds_of("wait_for_stop")
            host.call("destroy")
            self.assertEqual((host.end(), engine.end()), (0, 0))

    def test_leaves_nothing_behind_in_fifty_lives(self):
        host = self.host_process()
        descriptors = None
        for number in range(LIVES):
            engine = self.engine_over("tcp" if number % 2 else "ipc")
            self.live(engine, host)
            self.assertFalse(os.path.exists(f"/proc/{engine.pid}"))
            self.assertEqual(os.listdir(self.folder), [])
            if number + 1 == WARM_UP:
                self.wait_until(lambda: host.descriptors() == 0, "the host's connections stay")
                descriptors = host.open_descriptors()
        self.wait_until(lambda: host.open_descriptors() <= descriptors, "the host's descriptors grow in number")
        self.assertEqual(host.whole_log(), "")


if __name__ == "__main__":
    unittest.main()
