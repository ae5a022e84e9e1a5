"""Our back end publishes its status at least once a second."""

import time
import unittest

from engine_support import STATUS_BOUND, EngineTest
from promises import Bound

# A second, plus the time of the measurement itself.
PERIOD = Bound(STATUS_BOUND, promised=1.01)


class OurBackEnd(EngineTest):
    def test_publishes_its_status_once_a_second(self):
        engine = self.engine_process()
        subscriber = self.subscriber(engine.status_endpoint)
        self.next_status(subscriber)
        times = [time.monotonic()]
        for _ in range(6):
            self.next_status(subscriber)
            times.append(time.monotonic())
        self.expect_within(PERIOD, "from one status to the next", max(
            then - before for before, then in zip(times, times[1:])))


if __name__ == "__main__":
    unittest.main()
