"""The registry's operations as raw requests: a right set of arguments for each, and the few calls that tests make.

Every entry of SAMPLES writes arguments of one operation into an encoder."""

from cdr import Encoder
from giop import request

EMPTY, INTEGER, DOUBLE, STRING = 0, 2, 6, 8
WHOLE_TREE = 0xFFFFFFFF


def put_value(out, kind, value):
    """A NewValue. Of an unknown kind the value is bytes."""
    out.ushort(kind)
    if kind == EMPTY:
        out.octet(0)
    elif kind == INTEGER:
        out.longlong(value)
    elif kind == DOUBLE:
        out.double(value)
    elif kind == STRING:
        out.string(value)
    else:
        out.octets(value)
    return out


def put_filter(out, patterns=(), types=0, queue_limit=0, lease_s=0, present=False):
    out.strings(patterns).ulong(types).ulong(queue_limit).ulong(lease_s).octet(1 if present else 0)
    return out


def put_listener(out, host="127.0.0.1", port=9):
    """A reference to a callback object: a type, and one profile with the address and the key of the object."""
    profile = Encoder(True)
    profile.octet(1).octet(1).octet(2).string(host).ushort(port).octets(b"listener").ulong(0)
    out.string("IDL:zelkor/reg/Listener:1.0").ulong(1).ulong(0).octets(bytes(profile.data))
    return out


def get(path):
    return lambda out: out.string(path)


def subtree(path="", depth=WHOLE_TREE, limit=0, after=""):
    return lambda out: out.string(path).ulong(depth).ulong(limit).string(after)


def poll(subscription, received=0, most=1000, wait_ms=0):
    return lambda out: out.string(subscription).ulonglong(received).ulong(most).ulong(wait_ms)


def assign(path, kind, value):
    return lambda out: put_value(out.string(path), kind, value)


def assign_many(assignments):
    def put(out):
        out.ulong(len(assignments))
        for path, kind, value in assignments:
            put_value(out.string(path), kind, value)
    return put


def nodes(paths):
    return lambda out: out.strings(paths)


def subscribe(patterns=(), **parts):
    return lambda out: put_filter(out, patterns, **parts)


class Names:
    """Paths of a server's tree that tests use: a number that can be read and written, and a container above numbers."""

    def __init__(self, number, container):
        self.number, self.container = number, container


HELPER_NAMES = Names("knobs/speed", "many")  # of tests/integration/registry/registry_server
DAEMON_NAMES = Names("fans", "boards")


def samples(names):
    """A right set of arguments of every operation, as functions that write into an encoder. They change nothing."""
    return {
        "hello": lambda out: out.string("stranger"),
        "describe": get(names.container),
        "children": lambda out: out.string(names.container).ulong(0),
        "get": get(names.number),
        "get_many": nodes([names.number, names.container, "no/such"]),
        "subtree": subtree(names.container, 3, 100),
        "set": assign("no/such", DOUBLE, 4000.0),
        "set_many": assign_many([("no/such", DOUBLE, 1.5), (names.container, STRING, "x"), ("none", INTEGER, 7)]),
        "subscribe": subscribe([names.number], lease_s=1),
        "subscribe_to": lambda out: put_listener(put_filter(out, [names.number], lease_s=1)),
        "poll": poll("nobody"),
        "renew": lambda out: out.string("nobody"),
        "unsubscribe": lambda out: out.string("nobody"),
        "open_view": nodes([names.number]),
        "read_view": lambda out: out.string("nobody"),
        "close_view": lambda out: out.string("nobody"),
        "_is_a": lambda out: out.string("IDL:zelkor/reg/Registry_1_1:1.0"),
        "_non_existent": lambda out: out,
    }


def sample_requests(names, **parts):
    """A request of every operation by its name; for `parts` see giop.request."""
    return {name: request(number, name, put, **parts) for number, (name, put) in enumerate(samples(names).items(), 1)}


def read_value(data):
    """A Value of a known kind: (kind, value)."""
    kind = data.ushort()
    readers = {EMPTY: data.octet, INTEGER: data.longlong, DOUBLE: data.double, STRING: data.string}
    if kind not in readers:
        raise ValueError(f"value of unknown kind {kind}")
    return kind, readers[kind]()


def read_lease(data):
    """(id, seconds, queue limit)."""
    return data.string(), data.ulong(), data.ulong()
