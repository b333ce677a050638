"""Right messages with wrong arguments: lengths that lie, values nobody knows, paths without an end."""

import struct

import giop
from cases import case, throw
from giop import Closed, Refused
from registry_calls import DOUBLE, STRING, assign_many, get, nodes, put_filter, put_value, subtree
from server_process import expect

SIZES = (0xFFFFFFFF, 0xFFFFFFFC, 0x80000000, 0x7FFFFFFF, 0x10000000, 2_000_000, 65537, 4097, 1025, 513)


def refused(server, operation, arguments, **parts):
    """The call must be answered with an exception, or by closing the connection. @return the exception"""
    with server.connect() as client:
        try:
            client.call(operation, arguments, **parts)
        except Refused as refusal:
            return refusal
        except (Closed, ConnectionError):
            return None
    expect(False, f"{operation} with wrong arguments was done")


@case("arguments")
def lengths_of_strings_that_lie(server):
    for operation in ("hello", "get", "describe", "poll", "renew", "unsubscribe", "read_view", "subtree", "set"):
        for size in SIZES:
            refused(server, operation, lambda out, size=size: out.ulong(size).raw(b"values\0"))


@case("arguments")
def lengths_of_sequences_that_lie(server):
    """A sequence's length is no reason to make room for it. Each message carries enough bytes that the length can be
    believed at first sight."""
    for operation in ("get_many", "open_view", "set_many", "subscribe", "subscribe_to"):
        for size in SIZES:
            for padding in (4, 100_000):
                refused(server, operation, lambda out, size=size, padding=padding: out.ulong(size).raw(bytes(padding)))


@case("arguments")
def amplifiers(server):
    """Requests that are small and could make the server take much, from many connections at once."""
    body = giop.request(1, "get_many", lambda out: out.ulong(1_900_000).raw(bytes(9_700)))
    clients = [server.connect() for _ in range(50)]
    for client in clients:
        client.send(body)
    for client in clients:
        client.at_end(0.02)
        client.close()
    expect(server.sanitizer or server.resident_mib() < 60, f"{server.resident_mib():.0f} MiB are resident")


@case("arguments")
def values_of_unknown_types(server):
    """They are taken off the wire whole, and refused by the type; the connection goes on."""
    with server.connect() as client:
        for kind in (1, 3, 4, 5, 7, 9, 99, 65535):
            for data in (b"", b"\0" * 8, bytes(65536)):
                try:
                    client.call("set", lambda out, kind=kind, data=data: put_value(out.string(server.names.number), kind, data))
                    expect(False, f"a value of type {kind} was taken")
                except Refused as refusal:
                    expect(refusal.code == 5, f"type {kind}: {refusal}")
        client.call("get", get(server.names.number))
    for size in (65537, 1_000_000, 0xFFFFFFFF):
        refused(server, "set", lambda out, size=size: out.string(server.names.number).ushort(99).ulong(size).raw(bytes(70000)))


@case("arguments")
def nested_garbage(server):
    """What stands for a type description nested ten thousand times, where the bytes of an unknown value are."""
    nested = b"".join(struct.pack("<IIB3x", 19, 0x7FFFFFF0, 1) for _ in range(5000))
    refused(server, "set", lambda out: put_value(out.string(server.names.number), 99, nested))
    refused(server, "set", lambda out: out.string(server.names.number).ushort(11).raw(nested))
    refused(server, "set_many", lambda out: out.ulong(1).string("values").ushort(8).ulong(0))
    throw(server, giop.request(1, "subscribe_to", lambda out: put_filter(out).raw(nested)), 1.0)


def put_reference(out, *profiles):
    """A filter and a reference to an object, with these (tag, data) as profiles."""
    put_filter(out).string("IDL:zelkor/reg/Listener:1.0").ulong(len(profiles))
    for tag, data in profiles:
        out.ulong(tag).octets(data)


@case("arguments")
def references_that_are_broken(server):
    """References to callback objects whose insides are garbage: nothing of them is kept."""
    broken = b"\1\1\2\0\xff\xff\xff\x7f" + bytes(12000)
    for profiles in ([(0, broken)], [(0, b"")], [(0, b"\1")], [(77, b"")], [(0, bytes(100_000))], [(77, broken)] * 16,
                     [(1, broken), (0, broken)], [(0, b"\1\1\2\0")] * 17, []):
        before = server.resident_mib()
        with server.connect() as client:
            for _ in range(300 // server.slowness):
                try:
                    client.call("subscribe_to", lambda out, profiles=profiles: put_reference(out, *profiles))
                    expect(False, "a listener is called that has no address")
                except Refused as refusal:
                    expect(refusal.code in (None, 8, 11), str(refusal))
        grown = server.resident_mib() - before
        expect(server.sanitizer or grown < 3, f"{grown:.0f} MiB are kept of 300 broken references")


@case("arguments")
def strings_without_an_end(server):
    refused(server, "get", lambda out: out.ulong(4).raw(b"none"))
    for operation in ("_is_a", "hello", "describe"):
        before = server.resident_mib()
        for _ in range(100 // server.slowness):
            refused(server, operation, lambda out: out.ulong(60_000).raw(b"x" * 60_000))
        expect(server.sanitizer or server.resident_mib() - before < 3, f"{operation} keeps broken texts")
    refused(server, "get", lambda out: out.ulong(0))
    refused(server, "get", lambda out: out.ulong(1).raw(b"x"))
    throw(server, giop.request(1, "get", get(b"values\0number")), 1.0)  # a zero inside: either answer will do


@case("arguments")
def paths_of_all_kinds(server):
    paths = ["x" * 511, "/".join(["a"] * 256), "/" * 511, "..", "../../../etc/passwd", "values/../values", "%s%n%s",
             "values\n\x1b[2J", b"\xff\xfe\xfd", b"\x80" * 511, "values/*", "**", " values"]
    with server.connect() as client:
        for path in paths:
            try:
                client.call("get", get(path))
                expect(False, f"the path {path[:30]!r} was read")
            except Refused as refusal:
                expect(refusal.code in (1, 3), f"path {path[:30]!r}: {refusal}")
    refusal = refused(server, "get", get("x" * 512))
    expect(refusal is None or "MARSHAL" in refusal.name, f"a path of 512 bytes: {refusal}")


@case("arguments")
def the_most_that_is_allowed(server):
    """Everything at its bound is served."""
    with server.connect() as client:
        expect(client.call("get_many", nodes([server.names.number] * 4096)).ulong() == 4096, "4096 nodes were asked for")
        expect(client.call("get_many", nodes(["x" * 400] * 4096)).ulong() == 4096, "4096 nodes were asked for")
        many = [("no/such", DOUBLE, 1.0)] * 1024
        expect(client.call("set_many", assign_many(many)).ulong() == 1024, "1024 were assigned")
        expect(client.call("get_many", nodes([])).ulong() == 0, "nothing was asked for")
        client.call("hello", lambda out: out.string("x" * 65535))
        for depth, limit in ((0xFFFFFFFF, 0xFFFFFFFF), (0, 0), (0, 1), (0xFFFFFFFF, 1)):
            client.call("subtree", subtree("", depth, limit))
        try:
            client.call("set", lambda out: put_value(out.string("no/such"), STRING, "x" * 65535))
            expect(False, "a node that is not there was set")
        except Refused as refusal:
            expect(refusal.code == 1, str(refusal))
    refused(server, "get_many", nodes([server.names.number] * 4097))
    refused(server, "set_many", assign_many([("no/such", DOUBLE, 1.0)] * 1025))


@case("arguments")
def subscriptions_beyond_their_limits(server):
    """Patterns, queue and lease beyond the limits are cut or refused; too many subscriptions are refused with LIMIT."""
    filters = [dict(patterns=["**/" * 100 + "*"]), dict(patterns=["*a" * 200]), dict(queue_limit=0xFFFFFFFF, lease_s=60),
               dict(lease_s=0xFFFFFFFF), dict(types=0xFFFFFFFF, lease_s=60), dict(patterns=["x"] * 4096)]
    with server.connect() as client:
        held = []
        for wanted in filters:
            try:
                held.append(client.call("subscribe", lambda out, wanted=wanted: put_filter(out, **wanted)).string())
            except Refused as refusal:
                expect(refusal.code == 7, f"{str(wanted)[:60]}: {refusal}")
        limit_seen = False
        for _ in range(5000):
            try:
                held.append(client.call("subscribe", put_filter).string())
            except Refused as refusal:
                expect(refusal.code == 7 and refusal.text, str(refusal))
                limit_seen = True
                break
        expect(limit_seen, "5000 subscriptions are granted to one client")
        for subscription in held:
            client.call("unsubscribe", lambda out, subscription=subscription: out.string(subscription))
