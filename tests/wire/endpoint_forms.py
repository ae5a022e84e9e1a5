"""The forms of endpoints, as stock peers see them."""

import os
import socket
import stat
import unittest

import zmq

from wire_support import PeerFailure, WireTest, reply, status


def has_ipv6_loopback():
    try:
        with socket.socket(socket.AF_INET6) as probe:
            probe.bind(("::1", 0))
            return True
    except OSError:
        return False


def has_name_of_loopback():
    try:
        return bool(socket.getaddrinfo("localhost", None))
    except socket.gaierror:
        return False


needs_ipv6 = unittest.skipUnless(has_ipv6_loopback(), "this machine has no address ::1")
# A root folder without /etc/hosts, like a bare chroot.
needs_name_of_loopback = unittest.skipUnless(has_name_of_loopback(), "this machine does not know the name localhost")


class AnEndpoint(WireTest):
    def exchange_on_our_replier(self, ours, address):
        stock = self.stock_connected(zmq.REQ, address)
        stock.send(status().SerializeToString())
        self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))
        ours.send(reply("here"))
        self.assertEqual(stock.recv(), reply("here").SerializeToString())

    def exchange_with_our_requester(self, stock, address):
        ours = self.connected("Requester", address)
        ours.send(status())
        self.assertEqual(stock.recv(), status().SerializeToString())
        stock.send(reply("there").SerializeToString())
        self.assertEqual(ours.receive("EngineBackEndReply"), (0, reply("there").SerializeToString()))

    def exchange_both_ways(self, ours_bound_to, stock_bound_to):
        ours, endpoint = self.bound("Replier", ours_bound_to)
        self.exchange_on_our_replier(ours, endpoint)
        stock, endpoint = self.stock_bound(zmq.REP, stock_bound_to)
        self.exchange_with_our_requester(stock, endpoint)

    def test_is_an_ipv4_address_and_a_port(self):
        self.exchange_both_ways("tcp://127.0.0.1:0", "tcp://127.0.0.1:*")

    @needs_ipv6
    def test_is_an_ipv6_address_in_brackets_and_a_port(self):
        self.exchange_both_ways("tcp://[::1]:0", "tcp://[::1]:*")

    @needs_name_of_loopback
    def test_is_a_host_name_and_a_port(self):
        ours, endpoint = self.bound("Replier", "tcp://localhost:0")
        self.exchange_on_our_replier(ours, endpoint)
        self.assertEqual(self.connected("Requester", endpoint).poll(0), -1)

    def test_is_a_socket_file_that_goes_with_its_socket(self):
        path = os.path.join(self.folder, "socket")
        ours, endpoint = self.bound("Replier", f"ipc://{path}")
        self.assertTrue(stat.S_ISSOCK(os.stat(path).st_mode))
        self.exchange_on_our_replier(ours, endpoint)
        ours.close()
        self.assertFalse(os.path.exists(path))

    def test_is_a_socket_file_of_a_stock_peer(self):
        stock, endpoint = self.stock_bound(zmq.REP, self.ipc())
        self.exchange_with_our_requester(stock, endpoint)

    def test_is_a_socket_file_that_a_killed_process_left_behind(self):
        killed, endpoint = self.bound("Replier")
        killed.kill()
        self.assertEqual(os.listdir(self.folder), ["socket"])
        ours, _ = self.bound("Replier", endpoint)
        self.exchange_on_our_replier(ours, endpoint)

    def test_is_a_socket_file_that_is_not_taken_from_a_stock_peer_that_listens(self):
        stock, endpoint = self.stock_bound(zmq.REP, self.ipc())
        with self.assertRaisesRegex(PeerFailure, "Ours.*cannot listen on .*: it is in use"):
            self.ours().open("Replier", endpoint)
        self.exchange_with_our_requester(stock, endpoint)

    def test_is_a_name_without_a_file(self):
        endpoint = f"ipc://@wire-{os.getpid()}"
        ours, _ = self.bound("Replier", endpoint)
        self.exchange_on_our_replier(ours, endpoint)
        ours.close()
        stock, _ = self.stock_bound(zmq.REP, endpoint)
        self.exchange_with_our_requester(stock, endpoint)

    def test_is_a_reserved_port_that_a_peer_may_connect_to_before_the_socket_is_opened(self):
        for address in ["tcp://127.0.0.1:0"] + (["tcp://[::1]:0"] if has_ipv6_loopback() else []):
            ours = self.ours()
            endpoint = ours.reserve(address)
            self.assertNotEqual(endpoint, address)
            stock = self.stock_connected(zmq.REQ, endpoint)
            stock.send(status().SerializeToString())
            with self.assertRaises(PeerFailure):
                self.ours().open("Replier", endpoint)
            ours.open("Replier", endpoint)
            self.assertEqual(ours.receive("EngineStatus"), (0, status().SerializeToString()))
            ours.send(reply("waited for"))
            self.assertEqual(stock.recv(), reply("waited for").SerializeToString())

    def test_is_free_again_as_soon_as_its_socket_is_closed(self):
        for address in ("tcp://127.0.0.1:0", self.ipc()):
            ours, endpoint = self.bound("Replier", address)
            self.exchange_on_our_replier(ours, endpoint)
            ours.close()
            self.exchange_with_our_requester(self.stock_bound(zmq.REP, endpoint)[0], endpoint)


if __name__ == "__main__":
    unittest.main()
