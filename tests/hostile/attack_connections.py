"""Many connections, clients that die, requests in a row and requests taken back."""

import multiprocessing
import os
import signal
import socket
import time

import giop
from cases import case, throw
from giop import Closed, Connection, Refused
from registry_calls import get, poll, read_lease, read_value, subscribe, subtree
from server_process import SETTLE_SECONDS, expect, wait_until


def is_open(client):
    """Whether the server has not closed the connection."""
    client.socket.setblocking(False)
    try:
        return bool(client.socket.recv(1, socket.MSG_PEEK))
    except BlockingIOError:
        return True
    except OSError:
        return False


def open_connections(server, count, most):
    """So many connections, more than the server allows. Those that it closes are closed here too, until `most` are left or
    fewer and no more are closed for a second: it may take its time to come to each. @return those that stay"""
    clients = [server.connect() for _ in range(count)]
    last_change = time.monotonic()
    end = last_change + 100 * min(server.slowness, 4)
    while time.monotonic() < end and (len(clients) > most or time.monotonic() - last_change < server.slowness):
        kept = [client for client in clients if is_open(client)]
        if len(kept) < len(clients):
            last_change = time.monotonic()
            close_all(set(clients) - set(kept))
            clients = kept
        time.sleep(0.05)
    for client in clients:
        client.socket.settimeout(60.0 * server.slowness)
    return clients


def close_all(clients):
    for client in clients:
        client.close()


def check_each(clients, path, what):
    """Every one of the connections is served."""
    for index, client in enumerate(clients):
        try:
            read_value(client.call("get", get(path)))
        except (Closed, OSError) as error:
            expect(False, f"connection {index} of {len(clients)} is not served {what}: {error}")


@case("connections")
def a_thousand_connections(server):
    """As many as are allowed: each is served, and the surplus is closed at once without harm to the others."""
    clients = open_connections(server, 1200, 1000)
    expect(950 <= len(clients) <= 1000, f"{len(clients)} of 1200 connections are held, 1000 are allowed")
    server.check_rests(0.15, "with connections that want nothing")
    check_each(clients, server.names.number, "when all are taken")
    for _ in range(300):  # knocking at the door of a full house
        server.connect().close()
    check_each(clients[::50], server.names.number, "after more were refused")
    close_all(clients)
    expect(wait_until(lambda: answers(server), SETTLE_SECONDS * server.slowness), "no new connection is taken after all have gone")


def answers(server):
    try:
        server.check_answers()
        return True
    except (Closed, OSError):
        return False


@case("descriptors")
def descriptors_exhausted(server):
    """The server may open few files: it refuses connections in time, keeps serving those it has, and does not spin."""
    clients = open_connections(server, 150, 119)
    expect(8 <= len(clients) < 120, f"{len(clients)} connections are held where 100 files may be open")
    server.check_rests(0.15, "with connections that it cannot take")
    check_each(clients, server.names.number, "when descriptors are short")
    close_all(clients)
    expect(wait_until(lambda: answers(server), SETTLE_SECONDS * server.slowness), "no new connection is taken after all have gone")


@case("connections")
def connections_opened_and_reset(server):
    for _ in range(2000 // server.slowness):
        client = server.connect()
        client.send(giop.request(1, "get", get(server.names.number)))
        client.reset()


@case("connections")
def requests_in_a_row(server):
    """Three hundred requests sent before the first reply is read: all are answered, whatever their order."""
    with server.connect() as client:
        client.send(b"".join(giop.request(number, "get", get(server.names.number)) for number in range(1, 301)))
        missing = set(range(1, 301))
        while missing:
            number, status, _ = client.receive().reply()
            expect(status == giop.NO_EXCEPTION, f"request {number} of a row came to status {status}")
            expect(number in missing, f"request {number} is answered twice or was never sent")
            missing.discard(number)


@case("connections")
def requests_taken_back(server):
    """Requests are cancelled before, while and after they are done, and some that never were."""
    with server.connect() as client:
        for number in range(1, 200):
            client.send(giop.request(number, "get", get(server.names.number)) + giop.cancel_request(number))
        client.send(giop.cancel_request(4711))
        client.send(giop.request(1000, "get", get(server.names.number)))
        read_value(client.result(1000))
        client.send(giop.request(1001, "subtree", subtree(), more=False) + giop.cancel_request(1001))
        client.send(giop.request(1002, "get", get(server.names.number)))
        read_value(client.result(1002))
    for version in (giop.V10, giop.V11):  # here the connection may end
        throw(server, giop.request(1, "get", get(server.names.number), version=version) +
              giop.cancel_request(1, version), 1.0)


@case("connections")
def every_version_and_byte_order(server):
    """The same request in each version and byte order gives the same, and the object is found by asking for it."""
    seen = set()
    for version in giop.VERSIONS:
        for little in (True, False):
            with server.connect() as client:
                seen.add(read_value(client.call("get", get(server.names.number), version=version, little=little))[0])
                client.send(giop.locate_request(77, version=version, little=little))
                answer = client.receive()
                expect(answer.kind == giop.LOCATE_REPLY, f"a locate request is answered by kind {answer.kind}")
    expect(len(seen) == 1, f"the types of {server.names.number} differ by version: {seen}")


def subscriber_that_waits(port, path, told):
    """A client in a process of its own: subscribes, and waits in a poll until it is killed."""
    client = Connection(port, 60)
    subscription, _, _ = read_lease(client.call("subscribe", subscribe([path], lease_s=60)))
    client.send(giop.request(5, "poll", poll(subscription, wait_ms=20000)))
    told.send(subscription)
    signal.pause()


@case("connections")
def a_client_killed_while_it_waits(server):
    """A subscriber is killed while its poll waits: its poll ends, and another client can take its
    subscription over."""
    context = multiprocessing.get_context("fork")
    killed = []
    for _ in range(10):
        here, there = context.Pipe()
        process = context.Process(target=subscriber_that_waits, args=(server.port, server.names.number, there))
        process.start()
        killed.append(here.recv())
        os.kill(process.pid, signal.SIGKILL)
        process.join()
    with server.connect() as client:
        client.call("poll", poll(killed[0], wait_ms=0))  # ends the poll that waits, if it still does
        client.call("unsubscribe", lambda out: out.string(killed[0]))
        try:
            client.call("poll", poll(killed[0]))
            expect(False, "a subscription that was ended is polled")
        except Refused as refusal:
            expect(refusal.code == 9, str(refusal))
        for subscription in killed[1:]:
            client.call("unsubscribe", lambda out, subscription=subscription: out.string(subscription))
