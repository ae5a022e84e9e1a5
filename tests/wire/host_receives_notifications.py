"""Our notification front end is fed by a stock publisher: what its subscribers get, and what it makes of strange
messages."""

import unittest

from channels_support import (
    ENGINE, FIVE_TYPES, NOTIFICATION_BATCHES, ChannelsTest, arrived_notification, collection, encoded, notification,
    notification_list, notifications)
from strange_encodings import CUT_IDS, STRANGE, backwards, in_pieces, padded, with_unknown_fields
from wire_support import BOUND

SOURCE = "src/TcpNotificationHubFrontEnd"
GOOD = notification(line="Good", commandId=4711)


class OurFrontEnd(ChannelsTest):
    def setUp(self):
        super().setUp()
        self.host = self.host_process()
        self.publisher = self.publisher_for(self.host.subscribe)

    def expect_good(self):
        """Reception has reached this notification, and has delivered nothing else before."""
        self.publisher.send(encoded([GOOD]))
        self.expect_notifications(self.host, [GOOD])

    def publish_with_object(self, parameters):
        messages = notification_list([notification()])
        messages.messages[0].notificationObject.CopyFrom(parameters)
        self.publisher.send(messages.SerializeToString())

    def test_delivers_each_batch_notification_by_notification(self):
        for batch in NOTIFICATION_BATCHES.values():
            self.publisher.send(encoded(batch))
        for what, batch in NOTIFICATION_BATCHES.items():
            with self.subTest(what):
                self.expect_notifications(self.host, batch)
        self.expect_good()

    def test_delivers_over_tcp(self):
        host = self.host_process()
        publisher = self.publisher_for(host.subscribe, "tcp://127.0.0.1:*")
        for batch in NOTIFICATION_BATCHES.values():
            publisher.send(encoded(batch))
        for batch in NOTIFICATION_BATCHES.values():
            self.expect_notifications(host, batch)

    def test_delivers_thousands_in_order(self):
        for each in notifications(3000):
            self.publisher.send(encoded([each]))
        self.expect_notifications(self.host, notifications(3000))
        self.expect_good()

    def test_gives_every_notification_an_id_of_its_own(self):
        batch = [notification(id="theirs")] * 50
        for _ in range(2):
            self.publisher.send(encoded(batch))
        identifiers = self.expect_notifications(self.host, batch + batch)
        self.assertEqual(len(set(identifiers)), 100)
        for identifier in identifiers:
            self.assertRegex(identifier, "^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")

    def test_calls_subscribers_to_a_step_or_to_an_answer(self):
        self.host.call(f"listen-to-step {ENGINE} player")
        self.host.call(f"listen-to-response {ENGINE} 7")
        batch = [notification(commandId=7, stepId="mixer"), notification(commandId=8, stepId="player"),
                 notification(commandId=7, stepId="player", engineId=1), notification(commandId=9, stepId="player")]
        self.publisher.send(encoded(batch))
        self.expect_notifications(self.host, batch)
        self.expect_good()
        for kind, expected in (("response", [batch[0]]), ("step", [batch[1], batch[3], GOOD])):
            for each in expected:
                arrived = self.host.arrived(kind)
                del arrived["id"]
                self.assertEqual(arrived, arrived_notification(each))
            self.assertFalse(self.host.has_event(kind))

    def test_cuts_ids_to_their_low_32_bits(self):
        for wire_id, received in CUT_IDS.items():
            messages = notification_list([notification()])
            messages.messages[0].commandId = wire_id
            messages.messages[0].engineId = wire_id
            self.publisher.send(messages.SerializeToString())
            self.expect_notifications(self.host, [notification(commandId=received, engineId=received)])

    def test_ignores_wide_texts(self):
        parameters = collection(FIVE_TYPES)
        for common in (parameters.prototype.data, parameters.data):
            common.utf16StringParams.add(key="wide", value="w\0i\0d\0e\0")
            # Even a duplicate key is ignored.
            common.utf16StringParams.add(key="title", value="")
        self.publish_with_object(parameters)
        self.expect_notifications(self.host, [notification(object=FIVE_TYPES)])

    def test_takes_the_values_in_any_order_and_the_keys_in_that_of_the_prototype(self):
        parameters = collection([["Int64", key, 0, 0] for key in "abc"])
        del parameters.data.int64Params[:]
        for key, value in (("c", 3), ("a", 1), ("b", 2), ("c", 33)):
            parameters.data.int64Params.add(key=key, value=value)
        self.publish_with_object(parameters)
        self.expect_notifications(
            self.host, [notification(object=[["Int64", "a", 0, 1], ["Int64", "b", 0, 2], ["Int64", "c", 0, 33]])])

    def test_delivers_a_notification_without_its_object_when_that_contradicts_itself(self):
        declared_twice, unknown_key, other_type = (collection(FIVE_TYPES) for _ in range(3))
        declared_twice.prototype.data.doubleParams.add(key="loop", value=0)
        unknown_key.data.boolParams.add(key="unknown", value=True)
        other_type.data.uint64Params.add(key="offset", value=1)
        for parameters, key in ((declared_twice, "loop"), (unknown_key, "unknown"), (other_type, "offset")):
            self.publish_with_object(parameters)
            self.expect_notifications(self.host, [notification(object=None)])
            self.host.log_line("Notification: failed serializing parameters collection: ", key, SOURCE + ":288")
            self.expect_good()

    def test_skips_messages_that_it_cannot_parse_and_continues(self):
        encoding = encoded(notifications(2))
        strange = {
            **STRANGE,
            "cut off": (encoding[:-1], f"its {len(encoding) - 1} bytes cannot be parsed"),
            "without required fields": (
                encoded([GOOD]) + b"\x0a\x05\x12\x03Cut", "lack messages[1].time, messages[1].notificationLine"),
        }
        for what, (bytes_sent, reason) in strange.items():
            with self.subTest(what):
                self.publisher.send(bytes_sent)
                self.expect_good()
                self.host.log_line("NotificationMessageList", reason, "TcpNotificationHubFrontEndNotification")

    def test_skips_messages_of_several_parts(self):
        for parts in ([encoded([GOOD])] * 2, [b"", encoded([GOOD])], [encoded([GOOD]), b""]):
            self.publisher.send_multipart(parts)
            self.expect_good()
            self.host.log_line("NotificationMessageList", "it has 2 parts instead of one")
        self.expect_silence(self.host, "notification")

    def test_takes_a_message_of_just_the_bound_and_skips_a_larger_one(self):
        overhead = len(encoded([notification(line="x" * BOUND)])) - BOUND
        largest, larger = (notification(line="x" * (size - overhead)) for size in (BOUND, BOUND + 1))
        self.assertEqual(len(encoded([largest])), BOUND)
        self.publisher.send(encoded([larger]))
        self.publisher.send(encoded([largest]))
        self.expect_notifications(self.host, [largest])
        self.host.log_line("NotificationMessageList", f"{BOUND + 1} bytes, the limit is {BOUND} bytes")
        self.expect_good()

    def test_takes_every_encoding_of_the_same_batch(self):
        batch = notifications(3) + NOTIFICATION_BATCHES["an object of five types"]
        message = notification_list(batch)
        for encoding in (backwards(message), in_pieces(message), padded(message), with_unknown_fields(message)):
            self.assertNotEqual(encoding, encoded(batch))
            self.publisher.send(encoding)
            self.expect_notifications(self.host, batch)
            self.expect_good()

    def test_takes_nothing_from_an_empty_message(self):
        for _ in range(3):
            self.publisher.send(b"")
        self.expect_good()

    def test_leaves_one_publisher_for_another(self):
        for number in range(1, 4):
            self.expect_good()
            next_one = self.publisher_for(self.host.subscribe, self.ipc(f"publisher-{number}"))
            self.assertEqual(self.publisher.recv(), b"\x00")
            self.publisher.send(encoded([notification(line="from the one that was left")]))
            self.publisher = next_one
        self.expect_good()
        self.expect_silence(self.host, "notification")


if __name__ == "__main__":
    unittest.main()
