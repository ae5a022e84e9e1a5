"""An oversized message is cut off, and affects only its sender."""

import unittest

import zmq

from wire_support import PATIENCE, PeerFailure, WireTest, reply, status

# One byte more than our side accepts.
OVERSIZED = bytes((128 << 10) + 1)
OVERSIZED_REPLY = bytes((1 << 20) + 1)


class AnOversizedMessage(WireTest):
    def test_to_our_subscriber_cuts_the_connection_and_the_subscriber_comes_back(self):
        ours = self.ours()
        stock = self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))
        stock.send(status("Running").SerializeToString())
        stock.send(OVERSIZED)
        self.assertEqual(ours.receive("EngineStatus"), (0, status("Running").SerializeToString()))
        ours.begin_poll()
        self.assertEqual(stock.recv(), b"\x00")
        self.assertEqual(stock.recv(), b"\x01")
        stock.send(status("Idle").SerializeToString())
        ours.end_poll()
        self.assertEqual(ours.receive("EngineStatus"), (0, status("Idle").SerializeToString()))
        lines = ours.log()
        self.assertEqual(len(lines), 1, lines)
        self.assertRegex(lines[0], r"^Warning Ours \(Subscriber \S+\): lost its publisher, which probably sent a part larger "
                                   f"than {128 << 10} bytes or broke the protocol; connecting again$")

    def test_to_our_subscriber_again_and_again_does_not_fill_the_log(self):
        ours = self.ours()
        stock = self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))
        ours.begin_poll()
        for _ in range(4):
            stock.send(OVERSIZED)
            self.assertEqual(stock.recv(), b"\x00")
            self.assertEqual(stock.recv(), b"\x01")
        stock.send(status("Idle").SerializeToString())
        ours.end_poll()
        self.assertEqual(ours.receive("EngineStatus"), (0, status("Idle").SerializeToString()))
        # One line for each ten seconds that the test took.
        self.assertIn(len(ours.log()), range(1, 4))

    def test_to_our_replier_cuts_one_connection_and_everyone_is_served(self):
        ours, endpoint = self.bound("Replier")
        offender = self.stock_connected(zmq.REQ, endpoint, {zmq.REQ_RELAXED: 1, zmq.REQ_CORRELATE: 1})
        other = self.stock_connected(zmq.REQ, endpoint)
        monitor = offender.get_monitor_socket(zmq.EVENT_DISCONNECTED)
        offender.send(OVERSIZED)
        self.assertEqual(monitor.poll(1000 * PATIENCE), zmq.POLLIN)
        for stock in (other, offender):
            stock.send(status().SerializeToString())
            self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))
            ours.send(reply("served"))
            self.assertEqual(stock.recv(), reply("served").SerializeToString())
        offender.disable_monitor()
        monitor.close()

    def test_that_is_just_small_enough_is_received_and_refused(self):
        ours, endpoint = self.bound("Replier")
        stock = self.stock_connected(zmq.REQ, endpoint)
        stock.send(bytes(128 << 10))
        self.assertEqual(ours.receive("EngineStatus"), (1, b""))
        self.assert_only_line(ours, f"{128 << 10} bytes, the limit is 65536 bytes")
        ours.send(reply("too large"))
        self.assertEqual(stock.recv(), reply("too large").SerializeToString())

    def test_to_our_requester_fails_the_exchange_and_the_next_one_works(self):
        stock, endpoint = self.stock_bound(zmq.REP)
        ours = self.connected("Requester", endpoint)
        ours.send(status())
        stock.recv()
        stock.send(OVERSIZED_REPLY)
        ours.begin_receive("EngineBackEndReply")
        with self.assertRaisesRegex(PeerFailure, "the connection was lost before the reply came"):
            ours.end_receive()
        ours.send_once_connected(status())
        stock.recv()
        stock.send(reply("small").SerializeToString())
        self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("small").SerializeToString()))


if __name__ == "__main__":
    unittest.main()
