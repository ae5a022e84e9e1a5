"""How our receiving sockets report messages that they cannot parse: a result, an empty message and one log line."""

import unittest

import zmq

from wire_support import BOUND, WireTest, channels, reply, service, status

GOOD = status("Idle")
TOO_LARGE, UNREADABLE, INCOMPLETE = 1, 2, 3

# The expected type, the bytes that arrive instead, the result, and the logged reason.
CASES = {
    "garbage": ("EngineStatus", bytes(range(255, 0, -1)), UNREADABLE, "its 255 bytes cannot be parsed"),
    "text of another protocol": ("CommandMessageList", b"GET / HTTP/1.1\r\n\r\n", UNREADABLE, "18 bytes"),
    "a truncated message": (
        "ApiToServiceRequest", service.ApiToServiceRequest(kind=2**31 - 1).SerializeToString()[:-1],
        UNREADABLE, "its 5 bytes cannot be parsed"),
    "a length beyond the end": ("EngineBackEndReply", b"\x08\x01\x12\x7fabc", UNREADABLE, "its 7 bytes"),
    "a varint without end": ("EngineStatus", b"\x08" + b"\xff" * 20, UNREADABLE, "its 21 bytes"),
    "nothing": ("EngineStatus", b"", INCOMPLETE, "its 0 bytes lack status"),
    "a missing required field": (
        "CommandMessageList", channels.CommandMessageList(
            messages=[channels.CommandMessage(commandName="Cut")]).SerializePartialToString(),
        INCOMPLETE, "its 7 bytes lack messages[0].mediaTime, messages[0].commandId"),
    "an unknown request type": ("EngineFrontEndRequest", b"\x08\x07", INCOMPLETE, "its 2 bytes lack type"),
    "an unknown reply type": ("EngineBackEndReply", b"\x08\x02", INCOMPLETE, "its 2 bytes lack type"),
    "an unknown status": ("EngineStatus", b"\x08\x04", INCOMPLETE, "its 2 bytes lack status"),
    "a submission without its version": (
        "ApiToServiceRequest", b"\x08\x04\xa2\x06\x08\x0a\x01w\x12\x01d\x18\x01",
        INCOMPLETE, "(qor.proto.api_service.ApiToServiceRequestEngineSubmission).version"),
    "a message above the bound": (
        "EngineBackEndReply", reply("x" * BOUND).SerializeToString(),
        TOO_LARGE, f"{BOUND + 6} bytes, the limit is {BOUND} bytes"),
    "a message of 128 KiB": ("EngineBackEndReply", reply("x" * ((1 << 17) - 6)).SerializeToString(),
                             TOO_LARGE, f"{1 << 17} bytes, the limit is {BOUND} bytes"),
}


class AnUnreadableMessage(WireTest):
    NAME = "ReceivingSocket"

    def expect_refused(self, ours, case):
        type_name, _, result, reason = CASES[case]
        self.assertEqual(ours.receive(type_name), (result, b""))
        self.assert_only_line(ours, self.NAME, type_name, reason)

    def expect_good(self, ours):
        self.assertEqual(ours.receive("EngineStatus"), (0, GOOD.SerializeToString()))
        self.assertEqual(ours.log(), [])

    def opened_subscriber(self):
        ours = self.ours(self.NAME)
        return ours, self.publisher_for(lambda endpoint: ours.open("Subscriber", endpoint))

    def test_is_reported_by_a_subscriber_which_then_receives_the_next(self):
        ours, stock = self.opened_subscriber()
        for case, (_, encoding, _, _) in CASES.items():
            with self.subTest(case):
                stock.send(encoding)
                stock.send(GOOD.SerializeToString())
                self.expect_refused(ours, case)
                self.expect_good(ours)

    def test_is_reported_by_a_replier_which_can_still_answer_it_and_then_receives_the_next(self):
        ours, endpoint = self.bound("Replier", name=self.NAME)
        stock = self.stock_connected(zmq.REQ, endpoint)
        for case, (_, encoding, _, _) in CASES.items():
            with self.subTest(case):
                stock.send(encoding)
                self.expect_refused(ours, case)
                ours.send(reply("unreadable"))
                self.assertEqual(stock.recv(), reply("unreadable").SerializeToString())
                stock.send(GOOD.SerializeToString())
                self.expect_good(ours)
                ours.send(reply("good"))
                self.assertEqual(stock.recv(), reply("good").SerializeToString())

    def test_is_reported_by_a_requester_whose_next_exchange_works(self):
        stock, endpoint = self.stock_bound(zmq.REP)
        ours = self.connected("Requester", endpoint, name=self.NAME)
        for case, (_, encoding, _, _) in CASES.items():
            with self.subTest(case):
                ours.send(status())
                stock.recv()
                stock.send(encoding)
                self.expect_refused(ours, case)
                ours.send(status())
                stock.recv()
                stock.send(GOOD.SerializeToString())
                self.expect_good(ours)

    def test_is_one_of_several_parts_for_a_subscriber(self):
        ours, stock = self.opened_subscriber()
        for parts in ([GOOD.SerializeToString()] * 2, [b"", GOOD.SerializeToString()], [b"x"] * 100):
            stock.send_multipart(parts)
            stock.send(GOOD.SerializeToString())
            self.assertEqual(ours.receive("EngineStatus"), (UNREADABLE, b""))
            self.assert_only_line(ours, self.NAME, f"it has {len(parts)} parts instead of one")
            self.expect_good(ours)

    def test_is_one_of_several_parts_for_a_replier(self):
        ours, endpoint = self.bound("Replier", name=self.NAME)
        stock = self.stock_connected(zmq.REQ, endpoint)
        for parts in ([GOOD.SerializeToString()] * 2, [b"", GOOD.SerializeToString()], [b"x"] * 100):
            stock.send_multipart(parts)
            self.assertEqual(ours.receive("EngineStatus"), (UNREADABLE, b""))
            self.assert_only_line(ours, self.NAME, f"it has {len(parts)} parts instead of one")
            ours.send(reply("several"))
            self.assertEqual(stock.recv(), reply("several").SerializeToString())
            stock.send(GOOD.SerializeToString())
            self.expect_good(ours)
            ours.send(reply("one"))
            self.assertEqual(stock.recv(), reply("one").SerializeToString())

    def test_is_one_of_several_parts_for_a_requester(self):
        stock, endpoint = self.stock_bound(zmq.REP)
        ours = self.connected("Requester", endpoint, name=self.NAME)
        ours.send(status())
        stock.recv()
        stock.send_multipart([GOOD.SerializeToString()] * 3)
        self.assertEqual(ours.receive("EngineStatus"), (UNREADABLE, b""))
        self.assert_only_line(ours, self.NAME, "it has 3 parts instead of one")

    def test_is_not_one_that_holds_bytes_which_are_no_text(self):
        ours, stock = self.opened_subscriber()
        encoding = b"\x08\x01\x1a\x05a\x00\xff\xfe\x80"
        stock.send(encoding)
        self.assertEqual(ours.receive("EngineBackEndReply"), (0, encoding))

    def test_is_not_one_with_fields_that_a_later_schema_may_add(self):
        ours, stock = self.opened_subscriber()
        stock.send(b"\x08\x02\xfa\x3e\x03new")
        self.assertEqual(ours.receive("EngineStatus"), (0, b"\x08\x02\xfa\x3e\x03new"))

    def test_is_one_byte_above_the_bound_while_one_of_just_the_bound_is_read(self):
        ours, stock = self.opened_subscriber()
        just, above = reply("x" * 1018), reply("x" * 1019)
        self.assertEqual(just.ByteSize(), 1023)
        for message, bound, accepted in ((just, 1023, True), (above, 1023, False), (above, 1024, True)):
            stock.send(message.SerializeToString())
            result, encoding = ours.receive("EngineBackEndReply", bound)
            if accepted:
                self.assertEqual((result, encoding), (0, message.SerializeToString()))
            else:
                self.assertEqual((result, encoding), (TOO_LARGE, b""))
                self.assert_only_line(ours, self.NAME, "1024 bytes, the limit is 1023 bytes")

    def test_is_never_sent(self):
        ours, endpoint = self.bound("Publisher", name=self.NAME)
        stock = self.subscriber(endpoint)
        with self.assertRaisesRegex(Exception, f"{self.NAME}.*incomplete EngineStatus: missing status"):
            ours.send_bytes("EngineStatus", b"")
        with self.assertRaisesRegex(Exception, f"{self.NAME}.*EngineBackEndReply of 65537 bytes: the limit is 65536"):
            ours.send(reply("x" * (65537 - 6)))
        largest = reply("x" * (65536 - 6))
        ours.send(largest)
        self.assertEqual(stock.recv(), largest.SerializeToString())


if __name__ == "__main__":
    unittest.main()
