"""GIOP 1.0, 1.1 and 1.2 by hand: builds messages, right ones and wrong ones, and reads replies. No library.

A message is built from its parts by functions that do not judge them, so that every part can be made wrong."""

import socket
import struct

from cdr import Decoder, Encoder

REQUEST, REPLY, CANCEL_REQUEST, LOCATE_REQUEST, LOCATE_REPLY, CLOSE_CONNECTION, MESSAGE_ERROR, FRAGMENT = range(8)
NO_EXCEPTION, USER_EXCEPTION, SYSTEM_EXCEPTION = range(3)
HEADER_SIZE = 12
KEY = b"Registry"
V10, V11, V12 = (1, 0), (1, 1), (1, 2)
VERSIONS = (V10, V11, V12)


def header(kind, size, version=V12, little=True, more=False, magic=b"GIOP"):
    """The twelve bytes before every message. `more`: fragments follow."""
    flags = (1 if little else 0) | (2 if more else 0)
    return magic + bytes(version) + bytes((flags, kind)) + struct.pack(("<" if little else ">") + "I", size)


def message(kind, body=b"", version=V12, little=True, more=False):
    return header(kind, len(body), version, little, more) + body


def put_key(key):
    """The target of a request of GIOP 1.2: an object's key."""
    return lambda out: out.ushort(0).octets(key)


def put_profile(profile):
    """The target of a request of GIOP 1.2: a profile of a reference over TCP."""
    return lambda out: out.ushort(1).ulong(0).octets(profile)


def put_reference(profile):
    """The target of a request of GIOP 1.2: a whole reference, with the index of one of its profiles."""
    return lambda out: out.ushort(2).ulong(0).string("IDL:zelkor/reg/Registry:1.0").ulong(1).ulong(0).octets(profile)


def request_body(request_id, operation, arguments=None, *, version=V12, little=True, key=KEY, target=None,
                 wants_reply=True, contexts=()):
    """Header and arguments of a request. `arguments` is a function that writes into an encoder, and so is `target`,
    which stands for the key where GIOP 1.2 allows others."""
    out = Encoder(little, HEADER_SIZE)
    if version >= V12:
        out.ulong(request_id).octet(3 if wants_reply else 0).raw(b"\0\0\0")
        (target or put_key(key))(out)
        out.string(operation)
        put_contexts(out, contexts)
    else:
        put_contexts(out, contexts)
        out.ulong(request_id).octet(1 if wants_reply else 0)
        if version == V11:
            out.raw(b"\0\0\0")
        out.octets(key).string(operation).octets(b"")
    if arguments is not None:
        if version >= V12:
            out.align(8)
        arguments(out)
    return bytes(out.data)


def put_contexts(out, contexts):
    out.ulong(len(contexts))
    for number, data in contexts:
        out.ulong(number).octets(data)


def request(request_id, operation, arguments=None, *, more=False, **parts):
    """A whole request; for `parts` see request_body."""
    body = request_body(request_id, operation, arguments, **parts)
    return message(REQUEST, body, parts.get("version", V12), parts.get("little", True), more)


def locate_request(request_id, key=KEY, version=V12, little=True):
    out = Encoder(little, HEADER_SIZE).ulong(request_id)
    if version >= V12:
        out.ushort(0)
    return message(LOCATE_REQUEST, bytes(out.octets(key).data), version, little)


def cancel_request(request_id, version=V12, little=True):
    return message(CANCEL_REQUEST, bytes(Encoder(little).ulong(request_id).data), version, little)


def fragment(request_id, data, version=V12, little=True, more=False):
    """A fragment; before 1.2 it does not say of which request."""
    begin = bytes(Encoder(little).ulong(request_id).data) if version >= V12 else b""
    return message(FRAGMENT, begin + data, version, little, more)


def fragmented(whole, size, version=V12):
    """A request cut into pieces: the request itself, then fragments with `size` bytes each (a multiple of 8). The
    first piece is 4 longer: every message but the last ends at a multiple of 8, its header included."""
    little = bool(whole[6] & 1)
    body = whole[HEADER_SIZE:]
    request_id = struct.unpack_from("<I" if little else ">I", body)[0]
    first, rest = body[:size + 4], body[size + 4:]
    pieces = [rest[at:at + size] for at in range(0, len(rest), size)]
    out = message(whole[7], first, version, little, bool(pieces))
    for number, piece in enumerate(pieces, 1):
        out += fragment(request_id, piece, version, little, number < len(pieces))
    return out


class Closed(Exception):
    """The other end closed the connection."""


class Refused(Exception):
    """An exception of the other end: a system exception, or one that the interface declares."""

    def __init__(self, name, code=None, path=None, text=None):
        super().__init__(f"{name} code={code} path={path!r} text={text!r}")
        self.name, self.code, self.path, self.text = name, code, path, text


class Message:
    """A received message, joined from its fragments."""

    def __init__(self, kind, version, little, body):
        self.kind, self.version, self.little, self.body = kind, version, little, body

    def reply(self):
        """(request id, status, decoder at the result) of a reply."""
        data = Decoder(self.body, self.little, HEADER_SIZE)
        if self.version >= V12:
            number, status = data.ulong(), data.ulong()
            skip_contexts(data)
            data.align(8)
        else:
            skip_contexts(data)
            number, status = data.ulong(), data.ulong()
        return number, status, data


def skip_contexts(data):
    for _ in range(data.ulong()):
        data.ulong()
        data.octets()


class Connection:
    """A connection to a server, over TLS with a `context` of it. Waits at most `timeout` seconds for anything."""

    def __init__(self, port, timeout=10.0, host="127.0.0.1", context=None):
        self.socket = socket.create_connection((host, port), timeout)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if context is not None:
            self.socket = context.wrap_socket(self.socket, server_hostname=host)
        self.number = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.socket.close()

    def reset(self):
        """Closes with a reset instead of a farewell."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data)

    def receive_exactly(self, size):
        data = bytearray()
        while len(data) < size:
            piece = self.socket.recv(min(size - len(data), 1 << 16))
            if not piece:
                raise Closed(f"closed after {len(data)} of {size} bytes")
            data += piece
        return bytes(data)

    def receive_piece(self):
        """One message as it is on the wire: (kind, version, little, more, body)."""
        head = self.receive_exactly(HEADER_SIZE)
        if head[:4] != b"GIOP":
            raise Closed(f"no GIOP: {head!r}")
        little = bool(head[6] & 1)
        size = struct.unpack("<I" if little else ">I", head[8:])[0]
        return head[7], (head[4], head[5]), little, bool(head[6] & 2), self.receive_exactly(size)

    def receive(self):
        """The next message, its fragments joined. The server does not mix the fragments of different replies."""
        kind, version, little, more, body = self.receive_piece()
        while more:
            _, _, _, more, piece = self.receive_piece()
            body += piece[4:] if version >= V12 else piece
        return Message(kind, version, little, body)

    def call(self, operation, arguments=None, **parts):
        """Sends a request, waits for its reply and gives the decoder of the result. @raises Refused, Closed."""
        self.number += 1
        self.send(request(self.number, operation, arguments, **parts))
        return self.result(self.number)

    def result(self, wanted):
        """The result of the request with this number; replies to others are passed over."""
        while True:
            answer = self.receive()
            if answer.kind in (CLOSE_CONNECTION, MESSAGE_ERROR):
                raise Closed(f"message of type {answer.kind}")
            if answer.kind != REPLY:
                continue
            number, status, data = answer.reply()
            if number != wanted:
                continue
            if status == NO_EXCEPTION:
                return data
            name = data.string()
            if name == "IDL:zelkor/reg/Error:1.0":
                raise Refused(name, data.ulong(), data.string(), data.string())
            raise Refused(name)

    def at_end(self, seconds):
        """Whether the other end closes the connection within so many seconds; what it says before is passed over."""
        self.socket.settimeout(seconds)
        try:
            while self.socket.recv(1 << 16):
                pass
        except TimeoutError:
            return False
        except OSError:
            return True
        return True
