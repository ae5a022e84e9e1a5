"""Our requester waits for a slow peer without limit, but not for one that is dead, frozen or foreign."""

import signal
import time

import zmq

from promises import Bound, main
from wire_support import PeerFailure, WireTest, numbered, reply, status

# When a crash is noticed, and a frozen peer.
CRASH_BOUND = Bound(2, promised=0.1)
FREEZE_BOUND = Bound(6, promised=3)


class OurRequester(WireTest):
    def expect_exchange(self, ours, peer, number):
        """One complete exchange that works at the first attempt."""
        ours.send(numbered(number))
        self.assertEqual(peer.receive(), numbered(number).SerializeToString())
        peer.send(reply(str(number)))
        self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply(str(number)).SerializeToString()))

    def expect_loss(self, ours, within):
        """The pending receive fails because of the lost connection."""
        start = time.monotonic()
        with self.assertRaisesRegex(PeerFailure, "Asking.*the connection was lost before the reply came"):
            ours.end_receive()
        self.expect_within(within, "the connection is lost", time.monotonic() - start)

    def begin_exchange(self, endpoint):
        """A stock replier in its own process that has received a request, and our pending receive."""
        peer = self.stock_process("REP", endpoint)
        ours = self.connected("Requester", peer.endpoint, name="Asking")
        ours.send(numbered(1))
        self.assertEqual(peer.receive(), numbered(1).SerializeToString())
        ours.begin_receive("EngineBackEndReply")
        return peer, ours

    def each_transport(self):
        return self.ipc(), "tcp://127.0.0.1:*"

    def test_waits_four_seconds_for_a_slow_peer(self):
        for kind in (zmq.REP, zmq.ROUTER):
            stock, endpoint = self.stock_bound(kind, self.ipc(str(kind)))
            ours = self.connected("Requester", endpoint)
            ours.send(status())
            *envelope, _ = stock.recv_multipart()
            ours.begin_receive("EngineBackEndReply")
            self.assertFalse(ours.has_answer_within(4), "the receive gave up")
            stock.send_multipart(envelope + [reply("at last").SerializeToString()])
            self.assertEqual(ours.end_receive(), (0, reply("at last").SerializeToString()))

    def test_learns_at_once_that_its_peer_was_killed_and_works_with_the_next_on_the_same_endpoint(self):
        for endpoint in self.each_transport():
            peer, ours = self.begin_exchange(endpoint)
            peer.kill()
            self.expect_loss(ours, CRASH_BOUND)
            successor = self.stock_process("REP", peer.endpoint)
            ours.send_once_connected(numbered(2))
            self.assertEqual(successor.receive(), numbered(2).SerializeToString())
            successor.send(reply("2"))
            self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("2").SerializeToString()))
            self.expect_exchange(ours, successor, 3)

    def test_notices_that_its_peer_is_frozen_and_works_with_it_once_it_is_continued(self):
        for endpoint in self.each_transport():
            peer, ours = self.begin_exchange(endpoint)
            peer.signal(signal.SIGSTOP)
            self.expect_loss(ours, FREEZE_BOUND)
            peer.signal(signal.SIGCONT)
            # The reply to the lost request is discarded, and not mistaken for the reply to the next one.
            peer.send(reply("late"))
            ours.send_once_connected(numbered(2))
            self.assertEqual(peer.receive(), numbered(2).SerializeToString())
            peer.send(reply("2"))
            self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("2").SerializeToString()))
            self.expect_exchange(ours, peer, 3)

    def test_learns_that_its_peer_is_frozen_and_works_with_the_next_on_the_same_endpoint(self):
        for endpoint in self.each_transport():
            peer, ours = self.begin_exchange(endpoint)
            peer.signal(signal.SIGSTOP)
            self.expect_loss(ours, FREEZE_BOUND)
            peer.kill()
            successor = self.stock_process("REP", peer.endpoint)
            ours.send_once_connected(numbered(2))
            self.assertEqual(successor.receive(), numbered(2).SerializeToString())
            successor.send(reply("2"))
            self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("2").SerializeToString()))

    def test_gives_a_send_up_after_half_a_second_without_connection(self):
        peer, ours = self.begin_exchange(self.ipc())
        peer.kill()
        self.expect_loss(ours, CRASH_BOUND)
        start = time.monotonic()
        with self.assertRaisesRegex(PeerFailure, "Asking.*not re-established within 500 ms"):
            ours.send(numbered(2))
        self.assertGreater(time.monotonic() - start, 0.45)
        self.expect_within(0.5 + CRASH_BOUND, "a send without connection fails", time.monotonic() - start)
        # A request that could not be sent never arrives, because its sender got an exception.
        successor = self.stock_process("REP", peer.endpoint)
        ours.send_once_connected(numbered(3))
        self.assertEqual(successor.receive(), numbered(3).SerializeToString())

    def test_works_on_when_its_peer_was_restarted_between_two_exchanges(self):
        for endpoint in self.each_transport():
            peer = self.stock_process("REP", endpoint)
            ours = self.connected("Requester", peer.endpoint)
            self.expect_exchange(ours, peer, 1)
            peer.end()
            successor = self.stock_process("REP", peer.endpoint)
            ours.send_once_connected(numbered(2))
            self.assertEqual(successor.receive(), numbered(2).SerializeToString())
            successor.send(reply("2"))
            self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("2").SerializeToString()))

    def test_never_takes_a_late_reply_for_the_reply_to_its_next_request(self):
        stock, endpoint = self.stock_bound(zmq.ROUTER)
        ours = self.connected("Requester", endpoint)
        ours.send(numbered(1))
        *first, _ = stock.recv_multipart()
        ours.send(numbered(2))
        *second, _ = stock.recv_multipart()
        stock.send_multipart(first + [reply("1").SerializeToString()])
        stock.send_multipart(second + [reply("2").SerializeToString()])
        self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("2").SerializeToString()))

    def expect_connect_time_out(self, ours, endpoint, milliseconds):
        start = time.monotonic()
        with self.assertRaisesRegex(PeerFailure, f"Asking.*no peer answered within {milliseconds} ms"):
            ours.open("Requester", endpoint, milliseconds)
        self.assertGreater(time.monotonic() - start, 0.95 * milliseconds / 1000)
        self.expect_within(milliseconds / 1000 + CRASH_BOUND, f"nobody answered within {milliseconds} ms",
                           time.monotonic() - start)
        self.assertFalse(ours.is_open())

    def expect_opens(self, ours):
        """After a failure the same socket opens at an endpoint with a listener."""
        stock, endpoint = self.stock_bound(zmq.REP, self.ipc("good"))
        ours.open("Requester", endpoint, 30000)
        ours.send(status())
        self.assertEqual(stock.recv(), status().SerializeToString())

    def test_does_not_open_without_a_listener(self):
        ours = self.ours("Asking")
        self.expect_connect_time_out(ours, self.ipc("nobody"), 300)
        holder = self.ours("Holder")
        self.expect_connect_time_out(ours, holder.reserve("tcp://127.0.0.1:0"), 300)
        self.expect_opens(ours)

    def test_does_not_open_when_a_foreign_server_says_nothing(self):
        ours = self.ours("Asking")
        stranger = self.stranger()
        self.expect_connect_time_out(ours, stranger.endpoint, 3000)
        self.assertGreaterEqual(stranger.accepted(), 1)
        self.expect_opens(ours)

    def test_does_not_open_when_a_foreign_server_answers(self):
        ours = self.ours("Asking")
        for greeting in (b"HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n", b"220 mail ESMTP\r\n",
                         b"\0" * 100, bytes(range(256)) * 16, b"\xff" * 1000,
                         b"\xff\0\0\0\0\0\0\0\x01\x7f\x03\0" + b"\xa5" * 500):
            with self.subTest(greeting[:16]):
                stranger = self.stranger(greeting)
                self.expect_connect_time_out(ours, stranger.endpoint, 1000)
                self.assertGreaterEqual(stranger.accepted(), 1)
        self.expect_opens(ours)

    def test_does_not_open_when_its_peer_is_of_another_role(self):
        ours = self.ours("Asking")
        _, endpoint = self.stock_bound(zmq.PUB)
        self.expect_connect_time_out(ours, endpoint, 300)
        self.expect_opens(ours)

    def test_opens_however_often_it_could_not(self):
        ours = self.ours("Asking")
        _, other_role = self.stock_bound(zmq.PUB)
        silent, nobody = self.stranger().endpoint, self.ipc("nobody")
        # Time-outs of all lengths, so that some end during a handshake.
        for milliseconds in range(1, 91):
            with self.assertRaises(PeerFailure):
                ours.open("Requester", (other_role, silent, nobody)[milliseconds % 3], milliseconds)
        self.expect_opens(ours)

    def test_opens_when_its_peer_takes_the_place_of_a_stranger_in_time(self):
        stranger = self.stranger(b"HTTP/1.1 400 Bad Request\r\n\r\n")
        ours = self.ours("Asking")
        ours.begin(f"open Requester {stranger.endpoint} 30000")
        self.wait_until(lambda: stranger.accepted() > 2, "the requester does not try again")
        stranger.close()
        stock, _ = self.stock_bound(zmq.REP, stranger.endpoint)
        self.assertEqual(ours.answer(), "ok")
        ours.send(status())
        self.assertEqual(stock.recv(), status().SerializeToString())

    def test_opens_when_its_peer_appears_in_time(self):
        ours = self.ours("Asking")
        ours.begin(f"open Requester {self.ipc()} 30000")
        self.assertFalse(ours.has_answer_within(0.3))
        stock, _ = self.stock_bound(zmq.REP, self.ipc())
        self.assertEqual(ours.answer(), "ok")
        ours.send(status())
        self.assertEqual(stock.recv(), status().SerializeToString())


if __name__ == "__main__":
    main()
