"""Our back end notices that a host on stock sockets has fallen silent, and only then."""

import time

import zmq

from engine_support import HEARTBEAT, REQUEST_START, TERMINATION, EngineTest, request
from promises import Bound, main

# How long a host may be silent, and how late that may be noticed on a busy machine.
SILENCE = 10
LATEST = Bound(15, promised=SILENCE + 0.2)
WARNING = "Engine backend left because of timeout on frontend heartbeat"


class OurBackEnd(EngineTest):
    def setUp(self):
        super().setUp()
        self.engine = self.engine_process()
        self.host = self.stock_connected(zmq.REQ, self.engine.request_endpoint)

    def test_leaves_after_ten_seconds_of_silence_with_a_warning(self):
        self.engine.tell("wait")
        self.expect_success(self.host, request(HEARTBEAT, 0))
        start = time.monotonic()
        self.assertGreater(self.engine.milliseconds_of("wait"), 1000 * SILENCE - 500)
        self.assertGreater(time.monotonic() - start, SILENCE - 0.5)
        self.expect_within(LATEST, "a silent host is given up", time.monotonic() - start)
        self.engine.wait_for_log("Warning", WARNING)
        # The process decides when to exit. Until then it answers.
        self.expect_success(self.host, request(HEARTBEAT, 0))

    def test_stays_as_long_as_any_request_comes(self):
        self.engine.tell("wait")
        start = time.monotonic()
        while time.monotonic() - start < 1.3 * SILENCE:
            self.assertFalse(self.engine.has_event("wait", 3), "left although there were requests")
            # Even a message that gets no reply, or that cannot be parsed, proves that a host exists.
            self.stock_connected(zmq.REQ, self.engine.request_endpoint).send(request(REQUEST_START, 0))
            self.assertFalse(self.engine.has_event("wait", 3), "left although there were requests")
            self.stock_connected(zmq.REQ, self.engine.request_endpoint).send(b"\xff")
        self.assertNotIn(WARNING, self.engine.whole_log())
        self.expect_success(self.host, request(TERMINATION, 0))
        self.engine.event("wait returned", 5)


if __name__ == "__main__":
    main()
