"""The list of attack cases. A case is a function that takes a running server and does something to it; what it returns
is nothing, what it finds wrong it raises. Whether the server is still in order is checked by the runner."""

import socket

GROUPS = {}


def case(group):
    """Adds the function to the cases of a group."""
    def add(function):
        GROUPS.setdefault(group, []).append(function)
        return function
    return add


def throw(server, data, wait=0.2):
    """Sends bytes on a connection of their own, says that nothing more comes and waits a moment for the end. What the
    server makes of it is its own affair."""
    try:
        with server.connect() as client:
            client.send(data)
            client.socket.shutdown(socket.SHUT_WR)
            client.at_end(wait)
    except OSError:
        pass  # it was closed while we sent


def throw_many(server, messages, at_once=50, wait=5.0):
    """The same for many, so many connections at once. Each is followed to its end, so that all of it was looked at."""
    for begin in range(0, len(messages), at_once):
        clients = []
        for data in messages[begin:begin + at_once]:
            client = server.connect()
            clients.append(client)
            try:
                client.send(data)
                client.socket.shutdown(socket.SHUT_WR)
            except OSError:
                pass  # closed early
        for client in clients:
            client.at_end(wait)
            client.close()
