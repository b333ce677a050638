"""Common data representation, as far as the registry protocol needs it: an encoder and a decoder, either byte order.

Alignment counts from the begin of the message, so a stream knows at which offset it begins."""

import struct

SIZES = {"B": 1, "H": 2, "h": 2, "I": 4, "i": 4, "Q": 8, "q": 8, "d": 8}


class Encoder:
    """Collects encoded values. `begin` is the offset of the first byte in the message."""

    def __init__(self, little=True, begin=0):
        self.order = "<" if little else ">"
        self.begin = begin
        self.data = bytearray()

    def align(self, size):
        self.data += bytes(-(self.begin + len(self.data)) % size)
        return self

    def put(self, kind, value):
        """One number; `kind` is a letter of the struct module."""
        self.align(SIZES[kind])
        self.data += struct.pack(self.order + kind, value)
        return self

    def raw(self, data):
        self.data += data
        return self

    def octet(self, value):
        return self.put("B", value)

    def ushort(self, value):
        return self.put("H", value)

    def ulong(self, value):
        return self.put("I", value)

    def longlong(self, value):
        return self.put("q", value)

    def ulonglong(self, value):
        return self.put("Q", value)

    def double(self, value):
        return self.put("d", value)

    def string(self, text):
        """A string with its terminating zero; bytes go out as they are."""
        data = text if isinstance(text, bytes) else text.encode("utf-8")
        return self.ulong(len(data) + 1).raw(data + b"\0")

    def octets(self, data):
        """A sequence of octets."""
        return self.ulong(len(data)).raw(data)

    def strings(self, texts):
        """A sequence of strings."""
        self.ulong(len(texts))
        for text in texts:
            self.string(text)
        return self


class Truncated(Exception):
    """The data ended before the value did."""


class Decoder:
    """Reads encoded values one after another."""

    def __init__(self, data, little=True, begin=0):
        self.order = "<" if little else ">"
        self.data = data
        self.begin = begin
        self.at = 0

    def align(self, size):
        self.at += -(self.begin + self.at) % size

    def raw(self, size):
        if self.at + size > len(self.data):
            raise Truncated(f"{size} bytes wanted at {self.at}, {len(self.data)} are there")
        piece = bytes(self.data[self.at:self.at + size])
        self.at += size
        return piece

    def get(self, kind):
        """One number; `kind` is a letter of the struct module."""
        self.align(SIZES[kind])
        return struct.unpack(self.order + kind, self.raw(SIZES[kind]))[0]

    def octet(self):
        return self.get("B")

    def ushort(self):
        return self.get("H")

    def ulong(self):
        return self.get("I")

    def longlong(self):
        return self.get("q")

    def ulonglong(self):
        return self.get("Q")

    def double(self):
        return self.get("d")

    def octets(self):
        return self.raw(self.ulong())

    def string(self):
        return self.octets().rstrip(b"\0").decode("utf-8", "surrogateescape")
