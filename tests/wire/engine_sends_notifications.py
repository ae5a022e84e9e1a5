"""Our notification back end as a stock subscriber sees it: each batch is one message, byte by byte as Python encodes
it."""

import unittest

from channels_support import (
    ENGINE, NOTIFICATION_BATCHES, WORKFLOW_MANAGER, ChannelsTest, encoded, notification, notification_list,
    notifications)
from wire_support import BOUND

SOURCE = "src/TcpNotificationHubBackEnd"


class OurBackEnd(ChannelsTest):
    def setUp(self):
        super().setUp()
        self.engine = self.engine_process()

    def bound(self):
        return self.subscriber(self.engine.bind(self.ipc()))

    def test_sends_each_batch_as_one_message_as_python_encodes_it(self):
        for endpoint in self.each_endpoint():
            stock = self.subscriber(self.engine_process().bind(endpoint))
            engine = self._sides[-1]
            for what, batch in NOTIFICATION_BATCHES.items():
                with self.subTest(what):
                    engine.push(batch)
                    self.assertEqual(stock.recv_multipart(), [notification_list(batch).SerializeToString()])
            self.assert_silent(stock)

    def test_leaves_an_object_out_that_is_not_there_and_sends_an_empty_collection(self):
        stock = self.bound()
        self.engine.push([notification(), notification(object=[])])
        without, empty = notification_list([]).FromString(stock.recv()).messages
        self.assertFalse(without.HasField("notificationObject"))
        self.assertTrue(empty.HasField("notificationObject"))
        # Tag 8 with the two required messages, each of them empty but for its own required one.
        self.assertTrue(empty.SerializeToString().endswith(b"\x42\x06\x0a\x00\x12\x02\x0a\x00"))

    def test_does_not_send_whether_a_notification_is_an_error(self):
        stock = self.bound()
        self.engine.push([notification(isAnError=True)])
        self.engine.push([notification(isAnError=False)])
        self.assertEqual(stock.recv(), stock.recv())

    def test_sends_a_single_notification_as_a_batch_of_one(self):
        stock = self.bound()
        self.engine.push_each(notifications(20))
        self.expect_only(stock, *[[each] for each in notifications(20)])

    def test_keeps_thousands_of_batches_in_order_for_a_subscriber_that_joins_late(self):
        for endpoint in self.each_endpoint():
            engine = self.engine_process()
            endpoint = engine.bind(endpoint)
            engine.push_each(notifications(3000))
            stock = self.subscriber(endpoint)
            for each in notifications(3000):
                self.assertEqual(stock.recv(), encoded([each]))
            self.assert_silent(stock)

    def test_keeps_every_kind_of_batch_for_a_subscriber_that_joins_late(self):
        endpoint = self.engine.bind(self.ipc())
        for batch in NOTIFICATION_BATCHES.values():
            self.engine.push(batch)
        self.expect_only(self.subscriber(endpoint), *NOTIFICATION_BATCHES.values())

    def test_sends_its_backlog_while_it_is_destroyed(self):
        endpoint = self.engine.bind(self.ipc())
        self.engine.push_each(notifications(100))
        self.engine.tell("destroy")
        self.expect_only(self.subscriber(endpoint), *[[each] for each in notifications(100)])
        self.engine.milliseconds_of("destroy")

    def test_serves_any_engine_id_of_32_bits(self):
        for engine_id in (0, 1, 2**31, 2**32 - 1):
            engine = self.engine_process(engineId=engine_id, workflowManagerId="")
            batch = [notification(engineId=engine_id, workflowManagerId="")]
            stock = self.subscriber(engine.bind(self.ipc(f"engine-{engine_id}")))
            engine.push(batch)
            self.expect_only(stock, batch)

    def test_refuses_everything_when_its_engine_id_is_too_large(self):
        engine = self.engine_process(engineId=2**32)
        stock = self.subscriber(engine.bind(self.ipc("large")))
        for engine_id in (0, 2**32 - 1):
            self.assertIn("Bad engine id in notification", engine.refuse([notification(engineId=engine_id)]))
            engine.log_line("Bad engine id in notification", SOURCE + ":69")
        self.assert_silent(stock)

    def test_sends_nothing_of_a_batch_that_it_refuses_and_continues(self):
        stock = self.bound()
        good = notifications(3)
        refused = {
            "Bad engine id in notification": ([notification(engineId=ENGINE - 1)], ":69"),
            "Bad workflow manager id in notification": (
                [notification(workflowManagerId=WORKFLOW_MANAGER + "x")], ":62"),
            "NULL notification passed to the notification hub": ([None], ":55"),
        }
        for text, (bad, line) in refused.items():
            for batch in (good + bad, bad + good):
                self.assertIn(text, self.engine.refuse(batch))
                self.engine.log_line("TcpNotificationHubBackEnd on ipc://", text, SOURCE + line)
        text = "Serializers::ParametersCollectionPrototypeToProtoBuf: Type not implemented: Int32"
        self.assertIn(text, self.engine.refuse(good + [notification(object=[["Int32", "number", 0, 1]])]))
        self.engine.log_line(text, "src/Serializers:139")
        self.engine.push(good)
        self.expect_only(stock, good)

    def test_sends_a_batch_of_just_the_largest_size_and_refuses_a_larger_one(self):
        stock = self.bound()
        overhead = len(encoded([notification(line="x" * BOUND)])) - BOUND
        largest, larger = (notification(line="x" * (size - overhead)) for size in (BOUND, BOUND + 1))
        self.assertEqual((len(encoded([largest])), len(encoded([larger]))), (BOUND, BOUND + 1))
        self.assertIn(f"{BOUND + 1} bytes", self.engine.refuse([larger]))
        self.engine.push([largest])
        self.expect_only(stock, [largest])

    def test_says_on_the_first_push_that_its_endpoint_could_not_be_bound(self):
        stock = self.bound()
        other = self.engine_process()
        other.bind(stock.last_endpoint.decode())
        other.log_line("Failed creating socket: ", SOURCE + ":22")
        self.assertIn("Socket not initialized", other.refuse([]))
        other.log_line("Socket not initialized", SOURCE + ":42")
        self.engine.push(notifications(1))
        self.expect_only(stock, notifications(1))


if __name__ == "__main__":
    unittest.main()
