"""Our command back end with a stock publisher: what it delivers, and how it handles strange messages."""

import unittest

from channels_support import (
    COMMAND_BATCHES, FIVE_TYPES, ChannelsTest, arrived_command, collection, command, command_list, commands, encoded)
from strange_encodings import CUT_IDS, STRANGE, backwards, in_pieces, padded, with_unknown_fields
from wire_support import BOUND

SOURCE = "src/TcpCommandProcessorBackEnd"
GOOD = command(name="Good", id=4711)


class OurBackEnd(ChannelsTest):
    def setUp(self):
        super().setUp()
        self.engine = self.engine_process()
        self.publisher = self.publisher_for(self.engine.subscribe)

    def expect_good(self):
        """Reception has reached this command, and has delivered nothing else before."""
        self.publisher.send(encoded([GOOD]))
        self.assertEqual(self.engine.command(), arrived_command(GOOD))

    def publish_with_arguments(self, arguments):
        """A command whose arguments are already encoded, and then a valid one."""
        messages = command_list([command()])
        messages.messages[0].commandArgs.CopyFrom(arguments)
        self.publisher.send(messages.SerializeToString())

    def test_delivers_each_batch_command_by_command(self):
        for batch in COMMAND_BATCHES.values():
            self.publisher.send(encoded(batch))
        for what, batch in COMMAND_BATCHES.items():
            with self.subTest(what):
                self.expect_commands(self.engine, batch)
        self.expect_good()

    def test_delivers_over_tcp(self):
        engine = self.engine_process()
        publisher = self.publisher_for(engine.subscribe, "tcp://127.0.0.1:*")
        for batch in COMMAND_BATCHES.values():
            publisher.send(encoded(batch))
        for batch in COMMAND_BATCHES.values():
            self.expect_commands(engine, batch)

    def test_delivers_thousands_in_order(self):
        for each in commands(3000):
            self.publisher.send(encoded([each]))
        self.expect_commands(self.engine, commands(3000))
        self.expect_good()

    def test_cuts_ids_to_their_low_32_bits(self):
        for wire_id, received in CUT_IDS.items():
            messages = command_list([command()])
            messages.messages[0].commandId = wire_id
            messages.messages[0].engineId = wire_id
            self.publisher.send(messages.SerializeToString())
            self.assertEqual(self.engine.command(), arrived_command(command(id=received, engineId=received)))

    def test_does_not_ask_for_whom_a_command_is(self):
        other = command(workflowManagerId="somebody else", engineId=5)
        self.publisher.send(encoded([other]))
        self.expect_commands(self.engine, [other])

    def test_ignores_wide_texts(self):
        arguments = collection(FIVE_TYPES)
        for common in (arguments.prototype.data, arguments.data):
            common.utf16StringParams.add(key="wide", value="w\0i\0d\0e\0")
            # Even a duplicate key is ignored.
            common.utf16StringParams.add(key="title", value="")
        self.publish_with_arguments(arguments)
        self.expect_commands(self.engine, [command(args=FIVE_TYPES)])

    def test_takes_the_values_in_any_order_and_the_keys_in_that_of_the_prototype(self):
        arguments = collection([["Int64", key, 0, 0] for key in "abc"])
        del arguments.data.int64Params[:]
        for key, value in (("c", 3), ("a", 1), ("b", 2), ("c", 33)):
            arguments.data.int64Params.add(key=key, value=value)
        self.publish_with_arguments(arguments)
        self.expect_commands(
            self.engine, [command(args=[["Int64", "a", 0, 1], ["Int64", "b", 0, 2], ["Int64", "c", 0, 33]])])

    def test_leaves_keys_without_value_at_their_defaults(self):
        arguments = collection(FIVE_TYPES)
        arguments.data.Clear()
        self.publish_with_arguments(arguments)
        self.expect_commands(
            self.engine, [command(args=[[kind, key, default, default] for kind, key, default, _ in FIVE_TYPES])])

    def test_delivers_a_command_without_its_arguments_when_they_contradict_themselves(self):
        declared_twice, unknown_key, other_type = (collection(FIVE_TYPES) for _ in range(3))
        declared_twice.prototype.data.doubleParams.add(key="loop", value=0)
        unknown_key.data.boolParams.add(key="unknown", value=True)
        other_type.data.uint64Params.add(key="offset", value=1)
        for arguments, key in ((declared_twice, "loop"), (unknown_key, "unknown"), (other_type, "offset")):
            self.publish_with_arguments(arguments)
            self.expect_commands(self.engine, [command(args=None)])
            self.engine.log_line(
                "Command: failed serializing parameters collection: ", key, SOURCE + ":249",
                "TcpCommandProcessorBackEnd on ipc://")
            self.expect_good()

    def test_skips_messages_that_it_cannot_parse_and_continues(self):
        encoding = encoded(commands(2))
        strange = {
            **STRANGE,
            "cut off": (encoding[:-1], f"its {len(encoding) - 1} bytes cannot be parsed"),
            "without required fields": (
                encoded([GOOD]) + b"\x0a\x05\x12\x03Cut", "lack messages[1].mediaTime, messages[1].commandId"),
            "notifications": (
                b"\x0a\x08\x0a\x06\x0a\x04\x08\x19\x10\x01", "lack messages[0].commandName, messages[0].commandId"),
        }
        for what, (bytes_sent, reason) in strange.items():
            with self.subTest(what):
                self.publisher.send(bytes_sent)
                self.expect_good()
                self.engine.log_line("CommandMessageList", reason, "TcpCommandProcessorBackEndCommand")

    def test_skips_messages_of_several_parts(self):
        for parts in ([encoded([GOOD])] * 2, [b"", encoded([GOOD])], [encoded([GOOD]), b""]):
            self.publisher.send_multipart(parts)
            self.expect_good()
            self.engine.log_line("CommandMessageList", "it has 2 parts instead of one")
        self.expect_silence(self.engine, "command")

    def test_takes_a_message_of_just_the_bound_and_skips_a_larger_one(self):
        overhead = len(encoded([command(name="x" * BOUND)])) - BOUND
        largest, larger = (command(name="x" * (size - overhead)) for size in (BOUND, BOUND + 1))
        self.assertEqual(len(encoded([largest])), BOUND)
        self.publisher.send(encoded([larger]))
        self.publisher.send(encoded([largest]))
        self.expect_commands(self.engine, [largest])
        self.engine.log_line("CommandMessageList", f"{BOUND + 1} bytes, the limit is {BOUND} bytes")
        self.expect_good()

    def test_takes_every_encoding_of_the_same_batch(self):
        batch = commands(3) + COMMAND_BATCHES["arguments of five types"]
        message = command_list(batch)
        for encoding in (backwards(message), in_pieces(message), padded(message), with_unknown_fields(message)):
            self.assertNotEqual(encoding, encoded(batch))
            self.publisher.send(encoding)
            self.expect_commands(self.engine, batch)
            self.expect_good()

    def test_delivers_texts_that_are_no_utf_8(self):
        encoding = encoded([command(name="name?", stepId="step")]).replace(b"name?", b"name\xff")
        self.publisher.send(encoding)
        self.expect_commands(self.engine, [command(name="name\ufffd", stepId="step")])

    def test_takes_nothing_from_an_empty_message(self):
        for _ in range(3):
            self.publisher.send(b"")
        self.expect_good()


if __name__ == "__main__":
    unittest.main()
