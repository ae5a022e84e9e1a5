"""Our command front end with a stock subscriber: each batch is one message, byte by byte as Python encodes it."""

import time
import unittest

from channels_support import (
    COMMAND_BATCHES, ENGINE, IDS, WORKFLOW_MANAGER, ChannelsTest, command, command_list, commands, encoded)
from wire_support import BOUND, PATIENCE

SOURCE = "src/TcpCommandProcessorFrontEnd"


def of_size(size):
    """A command whose batch has exactly that encoded size."""
    text = "x" * (size - len(encoded([command(name="x" * size)])) + size)
    return command(name=text)


class OurFrontEnd(ChannelsTest):
    def setUp(self):
        super().setUp()
        self.host = self.host_process()

    def bound(self):
        return self.subscriber(self.host.bind(self.ipc()))

    def test_sends_each_batch_as_one_message_as_python_encodes_it(self):
        for endpoint in self.each_endpoint():
            stock = self.subscriber(self.host.bind(endpoint))
            for what, batch in COMMAND_BATCHES.items():
                with self.subTest(what):
                    self.host.push(batch)
                    self.assertEqual(stock.recv_multipart(), [command_list(batch).SerializeToString()])
            self.assert_silent(stock)

    def test_leaves_arguments_out_that_are_not_there_and_sends_an_empty_collection(self):
        stock = self.bound()
        self.host.push([command(), command(args=[])])
        without, empty = command_list([]).FromString(stock.recv()).messages
        self.assertFalse(without.HasField("commandArgs"))
        self.assertTrue(empty.HasField("commandArgs"))
        # Tag 8 with the two required messages, each of them empty but for its own required one.
        self.assertTrue(empty.SerializeToString().endswith(b"\x42\x06\x0a\x00\x12\x02\x0a\x00"))

    def test_sends_a_single_command_as_a_batch_of_one(self):
        stock = self.bound()
        self.host.push_each(commands(20))
        self.expect_only(stock, *[[each] for each in commands(20)])

    def test_keeps_thousands_of_batches_in_order_for_a_subscriber_that_joins_late(self):
        for endpoint in self.each_endpoint():
            endpoint = self.host.bind(endpoint)
            self.host.push_each(commands(3000))
            stock = self.subscriber(endpoint)
            for each in commands(3000):
                self.assertEqual(stock.recv(), encoded([each]))
            self.assert_silent(stock)

    def test_serves_any_engine_id(self):
        for engine_id in (0, 1, 2**31, 2**32 - 1):
            host = self.host_process(engineId=engine_id, workflowManagerId="")
            batch = [command(engineId=engine_id, workflowManagerId="")]
            stock = self.subscriber(host.bind(self.ipc(f"engine-{engine_id}")))
            host.push(batch)
            self.expect_only(stock, batch)

    def test_sends_nothing_of_a_batch_that_it_refuses_and_continues(self):
        stock = self.bound()
        good = commands(3)
        refused = {
            "Bad engine id in command message": ([command(engineId=ENGINE - 1)], ":64"),
            "Bad workflow manager id in command message": ([command(workflowManagerId=WORKFLOW_MANAGER + "x")], ":58"),
            "NULL command passed to the command processor": ([None], ":52"),
        }
        for text, (bad, line) in refused.items():
            for batch in (good + bad, bad + good):
                self.assertIn(text, self.host.refuse(batch))
                self.host.log_line("TcpCommandProcessorFrontEnd", text, SOURCE + line)
        text = "Serializers::ParametersCollectionInstanceToProtoBuf: Type not implemented: Int32"
        prototype_text = text.replace("Instance", "Prototype")
        self.assertIn(prototype_text, self.host.refuse(good + [command(args=[["Int32", "number", 0, 1]])]))
        self.host.log_line(prototype_text, "src/Serializers:139")
        self.host.push(good)
        self.expect_only(stock, good)

    def test_sends_a_batch_of_just_the_largest_size_and_refuses_a_larger_one(self):
        stock = self.bound()
        largest, larger = of_size(BOUND), of_size(BOUND + 1)
        self.assertEqual((len(encoded([largest])), len(encoded([larger]))), (BOUND, BOUND + 1))
        self.assertIn(f"{BOUND + 1} bytes", self.host.refuse([larger]))
        self.host.push([largest])
        self.expect_only(stock, [largest])

    def test_refuses_to_push_before_it_is_bound(self):
        self.assertIn("Invalid socket: ", self.host.refuse([]))
        self.host.log_line("Invalid socket: ", "TcpCommandProcessorFrontEndCommand", SOURCE + ":40")
        stock = self.bound()
        self.host.push(commands(1))
        self.expect_only(stock, commands(1))

    def test_moves_to_another_endpoint(self):
        first = self.bound()
        self.host.push(commands(1))
        self.expect_only(first, commands(1))
        second = self.subscriber(self.host.bind(self.ipc("second")))
        self.host.push(commands(1, first=1))
        self.expect_only(second, commands(1, first=1))
        self.assert_silent(first)

    def test_sends_the_same_to_every_subscriber(self):
        endpoint = self.host.bind(self.ipc())
        listeners = [self.subscriber(endpoint) for _ in range(3)]
        number = 0
        silent = set(listeners)
        deadline = time.monotonic() + PATIENCE
        # Only what arrives tells which subscriber is connected.
        while silent:
            self.assertLess(time.monotonic(), deadline, "nothing reaches some of them")
            self.host.push([command(id=number)])
            silent = {stock for stock in silent if not stock.poll(50)}
            number += 1
        for stock in listeners:
            while stock.recv() != encoded([command(id=number - 1)]):
                pass
        self.host.push(COMMAND_BATCHES["arguments of five types"])
        for stock in listeners:
            self.expect_only(stock, COMMAND_BATCHES["arguments of five types"])

    def test_bears_the_ids_that_it_was_given(self):
        stock = self.bound()
        self.host.push([command()])
        message, = command_list([]).FromString(stock.recv()).messages
        self.assertEqual(message.engineId, IDS["engineId"])
        self.assertEqual(message.workflowManagerId, IDS["workflowManagerId"])


if __name__ == "__main__":
    unittest.main()
