"""Encodings that our senders never produce: some are equivalent to the usual one, others are invalid."""

import struct

from google.protobuf.descriptor import FieldDescriptor

# Identifiers of 64 bits, and the bits that remain.
CUT_IDS = {2**32: 0, 2**32 + 5: 5, 2**64 - 1: 2**32 - 1, 2**63: 0, 2**32 - 1: 2**32 - 1, 7: 7}

# The invalid beginning of a list of messages, and the logged reason.
STRANGE = {
    "garbage": (bytes(range(255, 0, -1)), "its 255 bytes cannot be parsed"),
    "a text": (b"GET / HTTP/1.1\r\n\r\n", "its 18 bytes cannot be parsed"),
    "a length beyond the end": (b"\x0a\x7fabc", "its 5 bytes cannot be parsed"),
    "a varint without end": (b"\x08" + b"\xff" * 20, "its 21 bytes cannot be parsed"),
    "an empty command or notification": (b"\x0a\x00", "its 2 bytes lack messages[0]."),
    "64 KiB and a byte of zeros": (bytes(65537), "65537 bytes, the limit is 65536 bytes"),
    "100 KiB": (b"\xff" * (100 << 10), "102400 bytes, the limit is 65536 bytes"),
}


def _varint(number, padding=0):
    """The number, with redundant groups of zeros at the end."""
    groups = []
    while True:
        number, group = number >> 7, number & 0x7F
        groups.append(group)
        if not number:
            break
    groups += [0] * padding
    return bytes(group | 0x80 for group in groups[:-1]) + bytes(groups[-1:])


def _value(field, value, encode):
    """The wire type and the bytes."""
    if field.type == FieldDescriptor.TYPE_MESSAGE:
        return 2, encode(value)
    if field.type == FieldDescriptor.TYPE_STRING:
        return 2, value.encode()
    if field.type == FieldDescriptor.TYPE_DOUBLE:
        return 1, struct.pack("<d", value)
    return 0, int(value) % 2**64


def _record(number, wire_type, value, padding=0):
    tag = _varint(number << 3 | wire_type, padding)
    if wire_type == 0:
        return tag + _varint(value, padding if value < 2**56 else 0)
    if wire_type == 1:
        return tag + value
    return tag + _varint(len(value), padding) + value


def _records(message, encode, padding=0):
    """Each field that is set, in the order of the numbers; a list is one entry."""
    fields = []
    for field, value in message.ListFields():
        values = value if field.label == FieldDescriptor.LABEL_REPEATED else [value]
        fields.append([_record(field.number, *_value(field, each, encode), padding) for each in values])
    return fields


def backwards(message):
    """With the fields of every message from the last to the first."""
    return b"".join(b"".join(field) for field in reversed(_records(message, backwards)))


def padded(message):
    """With numbers, tags and lengths that are longer than necessary."""
    return b"".join(b"".join(field) for field in _records(message, padded, padding=2))


def with_unknown_fields(message):
    """With unknown fields, as of a later schema, in every message."""
    new = _record(7, 0, 1) if message.DESCRIPTOR.name != "NotificationMessage" else b""
    if message.DESCRIPTOR.name.startswith("ParametersCollection"):
        new = b""
    encoding = b"".join(b"".join(field) for field in _records(message, with_unknown_fields))
    return new + encoding + _record(1999, 2, b"new") + _record(2000, 1, b"\xff" * 8) + b"\xad\x7d\1\2\3\4"


def in_pieces(message):
    """With every message that is no entry of a list twice, first without its last field and then with that alone; and
    with every value twice, of which the last one counts."""
    encoding = b""
    for field, value in message.ListFields():
        if field.label == FieldDescriptor.LABEL_REPEATED:
            records = [_record(field.number, *_value(field, each, in_pieces)) for each in value]
        elif field.type == FieldDescriptor.TYPE_MESSAGE:
            *first, last = [b"".join(records) for records in _records(value, in_pieces)] or [b""]
            records = [_record(field.number, 2, b"".join(first)), _record(field.number, 2, last)]
        else:
            wire_type, content = _value(field, value, in_pieces)
            other = {0: 99, 1: b"\1" * 8, 2: b"not this"}[wire_type]
            records = [_record(field.number, wire_type, other), _record(field.number, wire_type, content)]
        encoding += b"".join(records)
    return encoding
