"""Messages that are no messages, or wrong ones: garbage, other protocols, broken framing, fragments, cut messages."""

import random
import struct

import giop
from cases import case, throw, throw_many
from cdr import Encoder
from giop import Closed, Refused
from registry_calls import get, sample_requests, samples, subtree
from server_process import expect


def right(server, **parts):
    """A right request, of 12 bytes of header and some more."""
    return giop.request(1, "get", get(server.names.number), **parts)


@case("messages")
def two_requests_of_one_number(server):
    """The second of two pipelined requests with one number comes in fragments: two threads that share one request's
    state are the end of a server that lets them."""
    for operation, second, times in (("get", get(server.names.container), 20000),
                                     ("subtree", subtree(server.names.container, 0), 2000)):
        pair = right(server) + giop.fragmented(giop.request(1, operation, second), 16)
        throw_many(server, [pair] * (times // server.slowness))


@case("messages")
def right_then_wrong(server):
    """A right request with a wrong message in the same packet, thousands of times: nothing of either is kept."""
    for second in (giop.header(giop.REQUEST, 1 << 30), bytes(12), right(server)[:30], right(server, more=True),
                   giop.message(giop.REPLY, bytes(12)), right(server, key=b"no"), right(server, key=b"no", more=True),
                   giop.request(1, "no_such", get(server.names.number), more=True), right(server)[:-4],
                   right(server, more=True, version=giop.V11)):
        before = server.resident_mib()
        throw_many(server, [right(server) + second] * (2000 // server.slowness))
        grown = server.resident_mib() - before
        expect(server.sanitizer or grown < 4, f"{grown:.0f} MiB are kept of 2000 pairs that end with {second[:12]!r}")


@case("messages")
def keys_that_begin_with_zero(server):
    """Keys that name another object adapter than the registry's, or none, never reach it."""
    keys = [b"\0", b"\0\0\0\0", b"\0Registry", b"", b"Registr", b"Registryy", b"registry", b"omniINSPOA", b"\xffR",
            b"\xff" * 200, b"Registry\0", bytes(5000)]
    for version in giop.VERSIONS:
        for key in keys:
            with server.connect() as client:
                try:
                    client.call("get", get(server.names.number), key=key, version=version)
                    expect(False, f"the key {key[:20]!r} was served")
                except Refused as refusal:
                    expect("OBJECT_NOT_EXIST" in refusal.name, f"key {key[:20]!r}: {refusal}")
            throw(server, right(server, key=key, version=version, wants_reply=False), 0.05)
            throw(server, giop.locate_request(2, key, version), 0.05)
    server.check_rests(0.1, "after requests to objects that do not exist")


@case("messages")
def objects_named_by_more_than_a_key(server):
    """A request may name its object by a profile or a reference: it is done or refused, once."""
    def profile(key, cut=None):
        return bytes(Encoder().octet(1).octet(1).octet(2).string("host").ushort(1).octets(key).ulong(0).data)[:cut]

    targets = [put(profile(*parts)) for put in (giop.put_profile, giop.put_reference)
               for parts in ((giop.KEY,), (b"no",), (b"\0",), (giop.KEY, 9), (giop.KEY, 0))]
    targets += [lambda out, number=number: out.ushort(number).octets(giop.KEY) for number in (3, 255, 65535)]
    for target in targets:
        for parts in ({}, {"more": True}, {"wants_reply": False}):
            with server.connect() as client:
                client.send(right(server, target=target, **parts))
                client.socket.settimeout(0.05)
                answer = b""
                try:
                    while len(answer) < 1000:
                        piece = client.socket.recv(65536)
                        if not piece:
                            break
                        answer += piece
                except OSError:
                    pass
                expect(len(answer) < 1000, f"one request is answered with {len(answer)} bytes and more")
        body = Encoder(True, giop.HEADER_SIZE).ulong(1)
        target(body)
        throw(server, giop.message(giop.LOCATE_REQUEST, bytes(body.data)), 0.05)
    server.check_rests(0.1, "after requests that name their object in another way")
    before = server.resident_mib()
    endless = right(server, target=lambda out: out.ushort(2).ulong(0).ulong(60_000).raw(b"x" * 60_000))
    throw_many(server, [endless] * 300)
    expect(server.sanitizer or server.resident_mib() - before < 4, "references that are broken are kept")


@case("messages")
def other_protocols(server):
    throw(server, b"GET / HTTP/1.1\r\nHost: chassis\r\n\r\n")
    throw(server, b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + bytes(512))  # a TLS hello
    throw(server, b"SSH-2.0-OpenSSH_9.2\r\n")
    throw(server, b"\0" * 100)
    throw(server, b"")
    throw(server, b"GIOP")
    throw(server, b"ZIOP" + right(server)[4:])


@case("messages")
def garbage(server):
    dice = random.Random(1)
    throw(server, dice.randbytes(1 << 20))
    throw_many(server, [dice.randbytes(dice.randrange(1, 200)) for _ in range(200)])
    throw_many(server, [right(server)[:12] + dice.randbytes(len(right(server)) - 12) for _ in range(200)])


@case("messages")
def messages_cut_at_every_byte(server):
    """Sent up to some byte, then nothing more comes."""
    for whole in sample_requests(server.names).values():
        throw_many(server, [whole[:size] for size in range(1, len(whole))], at_once=100)


@case("messages")
def short_bodies(server):
    """The header tells the truth about a body that ends before its contents do."""
    for version in giop.VERSIONS:
        for name, arguments in samples(server.names).items():
            body = giop.request_body(1, name, arguments, version=version)
            step = 1 if version == giop.V12 else 7
            throw_many(server, [giop.message(giop.REQUEST, body[:size], version) for size in
                                range(0, len(body), step)], at_once=100)


@case("messages")
def long_bodies(server):
    """Whatever follows the arguments is no reason to do harm: the request is answered or refused."""
    for version in giop.VERSIONS:
        for name, arguments in samples(server.names).items():
            for surplus in (1, 8, 4000):
                body = giop.request_body(1, name, arguments, version=version) + b"\xa5" * surplus
                throw(server, giop.message(giop.REQUEST, body, version), 1.0)


@case("messages")
def messages_twice(server):
    """The same message again, on the same connection: each is answered."""
    with server.connect() as client:
        client.send(right(server) * 50)
        for _ in range(50):
            client.result(1)
    for whole in sample_requests(server.names).values():
        throw(server, whole * 3, 1.0)


@case("messages")
def fragments_that_never_end(server):
    """A message may not grow beyond its limit by fragments."""
    start = right(server, more=True)
    piece = giop.fragment(1, bytes(65536), more=True)
    with server.connect() as client:
        try:
            client.send(start)
            for _ in range(2000 // server.slowness):
                client.send(piece)
            expect(False, "fragments without an end are taken without an end")
        except OSError:
            pass  # closed: what is wanted
    small = giop.fragment(1, bytes(8), more=True)
    throw(server, start + small * 50000, 5.0)
    throw(server, small * 1000, 5.0)  # of a request that was never begun
    throw(server, right(server, more=True, version=giop.V11) +
          giop.fragment(1, bytes(8), giop.V11, more=True) * 1000, 5.0)


@case("messages")
def empty_fragments(server):
    start = right(server, more=True)
    throw(server, start + giop.fragment(1, b"", more=True) * 10000, 5.0)
    throw(server, start + giop.message(giop.FRAGMENT, b"", more=True) * 1000, 5.0)
    throw(server, start + giop.fragment(2, bytes(8)) * 100, 5.0)  # of another request
    with server.connect() as client:  # and a right one
        client.send(giop.fragmented(giop.request(9, "subtree", subtree(server.names.container, 3, 10)), 8))
        client.result(9)


@case("messages")
def giant_sizes_of_messages(server):
    for size in (0xFFFFFFFF, 0xFFFFFFFC, 0x80000000, 0x7FFFFFFF, 1 << 24, (1 << 21) + 1):
        for kind in range(10):
            throw(server, giop.header(kind, size) + right(server)[12:], 0.02)
            throw(server, giop.header(kind, size, little=False, more=True) + right(server)[12:], 0.02)
    with server.connect() as client:
        try:
            client.send(giop.header(giop.REQUEST, 1 << 26))
            for _ in range(64):
                client.send(bytes(1 << 20))
            expect(False, "a message of 64 MiB is taken in")
        except OSError:
            pass  # closed: what is wanted


@case("messages")
def wrong_flags_and_versions(server):
    """The byte order, the kind, the version and reserved bits are not what the contents are."""
    for at, values in ((4, range(0, 5)), (5, range(0, 9)), (6, range(0, 256, 3)), (7, range(0, 256, 5))):
        throw_many(server, [right(server)[:at] + bytes([value]) + right(server)[at + 1:] for value in values], wait=0.3)
    swapped = right(server)[:6] + bytes([right(server)[6] ^ 1]) + right(server)[7:]
    throw(server, swapped)
    throw(server, swapped[:8] + struct.pack(">I", len(right(server)) - 12) + right(server)[12:])


@case("messages")
def replies_to_a_server(server):
    """Messages that only a server may send."""
    for kind in (giop.REPLY, giop.LOCATE_REPLY, giop.CLOSE_CONNECTION, giop.MESSAGE_ERROR):
        for body in (b"", bytes(12), right(server)[12:]):
            throw(server, giop.message(kind, body) + right(server), 0.1)


@case("messages")
def unknown_operations(server):
    for name in ("", "no_such", "x" * 255, "x" * 100000, "get\0", b"\xff\xfe", "_get_version", "_interface", "_component",
                 "_repository_id", "_is_a\0", "set_", "GET"):
        with server.connect() as client:
            try:
                client.call(name, get(server.names.number))
                expect(name in ("_repository_id", "get\0", "_is_a\0"), f"the operation {name[:20]!r} was done")
            except (Refused, Closed):
                pass
