#!/usr/bin/env python3
"""Writes the fuzzers' long seed inputs, short messages with padding: at a size limit, and just beyond it.

Usage: fuzz/padded_inputs.py DIRECTORY     writes DIRECTORY/FUZZER/NAME, beside what fuzz/corpus/FUZZER holds
"""

import pathlib
import sys

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"
# The size limits of the plug-in's receivers: a list or request, a reply, a status.
LARGEST, LARGEST_REPLY, LARGEST_STATUS = 65_536, 8_192, 1_024


def varint(number):
    return bytes([number & 0x7F | 0x80]) + varint(number >> 7) if number > 0x7F else bytes([number])


def up_to(size, start):
    """A message of that size: its first fields, and a last one, whose tag ends the start, of as many x as are missing."""
    for length in range(size - len(start), 0, -1):
        message = start + varint(length) + b"x" * length
        if len(message) <= size:
            return message
    raise ValueError(f"{size} bytes do not hold {start!r}")


def repeated(fuzzer, name, times):
    """A list of that many times the elements of a list: concatenated messages are one message."""
    return (CORPUS / fuzzer / name).read_bytes() * times


def inputs():
    for fuzzer in ("CommandReception", "NotificationReception"):
        fitting = LARGEST // len(repeated(fuzzer, "batch", 1))
        yield fuzzer, "just_within_the_bound", repeated(fuzzer, "batch", fitting)
        yield fuzzer, "beyond_the_bound", repeated(fuzzer, "batch", fitting + 1)
    # Type and text, by their field numbers: 1, and 2 or 3.
    yield "EngineReplies", "failure_as_long_as_can_be_sent", up_to(LARGEST, b"\x08\x00\x12")
    yield "EngineReplies", "reply_just_within_its_bound", up_to(LARGEST_REPLY, b"\x08\x01\x1a")
    yield "EngineReplies", "reply_beyond_its_bound", up_to(LARGEST_REPLY + 1, b"\x08\x01\x1a")
    yield "EngineReplies", "status_just_within_its_bound", up_to(LARGEST_STATUS, b"\x08\x02\x1a")
    yield "EngineReplies", "status_beyond_its_bound", up_to(LARGEST_STATUS + 1, b"\x08\x02\x1a")
    yield "EngineRequests", "heartbeat_just_within_the_bound", up_to(LARGEST, b"\x08\x06\x1a")
    yield "EngineRequests", "run_beyond_the_bound", up_to(LARGEST + 1, b"\x08\x00\x1a")
    yield "ReadyLines", "nested_deep", b"[" * 2_000
    yield "ReadyLines", "no_json_cut_within_a_character", b"x" + "é".encode() * 150
    yield "ReadyLines", "no_json_too_long", b"x" * 300
    yield "ReadyLines", "no_utf8_too_long", b"\x80" * 300
    yield "ReadyLines", "reason_cut_within_a_character", b'{"reason":"xx' + "€".encode() * 3_000 + b'"}'
    yield "ReadyLines", "reason_too_long", b'{"reason":"' + b"x" * 9_000 + b'"}'
    yield "Workflows", "commands_too_long_to_quote", \
        b'{"engine": {"engine": "media", "input": "a"}, "commands": "' + b"x" * 9_000 + b'"}'


def main(directory):
    for fuzzer, name, content in inputs():
        # An input without a fuzzer, such as after a renaming, would never be used.
        if not (CORPUS / fuzzer).is_dir():
            sys.exit(f"padded_inputs: \"{fuzzer}\" is not a fuzzer: it has no folder in {CORPUS}")
        folder = pathlib.Path(directory, fuzzer)
        folder.mkdir(parents=True, exist_ok=True)
        (folder / name).write_bytes(content)


if __name__ == "__main__":
    if len(sys.argv) != 2 or sys.argv[1].startswith("-"):
        sys.exit(__doc__)
    main(sys.argv[1])
