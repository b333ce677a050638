"""Clients that try the server's patience: they read nothing, say nothing, or say one byte at a time. All of them at
once, since each takes the server's time-outs."""

import select
import time

import giop
from cases import case
from registry_calls import get, subtree
from server_process import expect

# The server closes a connection that is stuck in a message after its call time-out (10 s), and an idle one after its
# idle time, which the tests set to a few seconds. Both are looked for every few seconds only.
PATIENCE_SECONDS = 75


def open_stuck(server):
    """Connections stuck in the middle of a message, at different places."""
    whole = giop.request(1, "get", get(server.names.number))
    clients = {}
    for size in (1, 4, 11, 12, 13, 30, len(whole) - 1):
        clients[f"stuck after {size} bytes"] = (server.connect(), whole[:size])
    clients["stuck before a fragment"] = (server.connect(), giop.fragmented(giop.request(
        1, "get", get(server.names.container)), 16)[:12 + 20])
    clients["stuck in a second message"] = (server.connect(), whole + whole[:20])
    for client, data in clients.values():
        client.send(data)
    return {what: client for what, (client, _) in clients.items()}


@case("patience")
def clients_without_end(server):
    """Stuck ones and those that never read are closed in time, tricklers cost nothing, and others are served
    meanwhile."""
    waiting = open_stuck(server)
    waiting["silent"] = server.connect()
    for number in range(5):  # never read: the replies fill the socket, then the server's sending must time out
        deaf = server.connect()
        deaf.socket.setblocking(False)
        try:
            for _ in range(20000):
                deaf.send(giop.request(1, "subtree", subtree()))
        except OSError:
            pass  # full
        waiting[f"never reads {number}"] = deaf
    trickler = server.connect()
    whole = giop.request(1, "get", get(server.names.number)) * 5
    sent = 0
    worst = 0.0
    closed = set()
    patience = PATIENCE_SECONDS * min(server.slowness, 4)  # below the time-out of the whole test
    end = time.monotonic() + patience
    while time.monotonic() < end and len(closed) < len(waiting):
        start = time.monotonic()
        server.check_answers()
        worst = max(worst, time.monotonic() - start)
        if sent < len(whole):
            try:
                trickler.send(whole[sent:sent + 1])
                sent += 1
            except OSError:
                sent = len(whole)
        closed |= {what for what, client in waiting.items() if what not in closed and ended(client, what)}
        time.sleep(0.2)
    left = sorted(set(waiting) - closed)
    expect(not left, f"not closed after {patience} s: {', '.join(left)}")
    expect(server.sanitizer or server.resident_mib() < 60, f"{server.resident_mib():.0f} MiB are resident")
    trickler.close()
    print(f"the slowest answer meanwhile took {worst * 1000:.0f} ms")


def ended(client, what):
    """Whether the server has closed the connection. One that never reads notices by its socket's error state."""
    poller = select.poll()
    poller.register(client.socket, select.POLLRDHUP)
    if any(events & (select.POLLRDHUP | select.POLLHUP | select.POLLERR) for _, events in poller.poll(0)):
        client.close()
        return True
    if not what.startswith("never reads"):
        client.socket.setblocking(False)
        try:
            return not client.socket.recv(4096)
        except BlockingIOError:
            return False
        except OSError:
            return True
    return False
