#!/usr/bin/env python3
"""A relay for TCP on the loopback that writes what passes through it as a capture file, so that a protocol analyser can
judge a conversation without the privileges of a real capture.

Usage: relay.py TARGET-PORT FILE.pcap
Prints its own port, serves any number of connections and ends at SIGTERM; the file is complete then. In it each
connection is between 10.0.0.1 (the client, at the port it had) and 10.0.0.2 (at the target's port), with the
handshake, the sequence numbers and the checksums that a real one has."""

import selectors
import signal
import socket
import struct
import sys
import time

CLIENT, SERVER = bytes((10, 0, 0, 1)), bytes((10, 0, 0, 2))
FIN, SYN, PSH, ACK = 0x01, 0x02, 0x08, 0x10
SEGMENT = 32768  # bytes of one packet


def checksum(data):
    total = sum(struct.unpack(f">{len(data) // 2}H", data)) if len(data) % 2 == 0 else checksum_odd(data)
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def checksum_odd(data):
    return sum(struct.unpack(f">{len(data) // 2 + 1}H", data + b"\0"))


class Capture:
    """A file of packets."""

    def __init__(self, path):
        self.file = open(path, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 0x40000, 1))

    def add(self, source, target, ports, sequence, acknowledged, flags, data=b""):
        """One packet: addresses, (from, to) ports, and what its TCP header says."""
        tcp = struct.pack(">HHIIBBHHH", *ports, sequence & 0xFFFFFFFF, acknowledged & 0xFFFFFFFF, 5 << 4, flags, 65535,
                          0, 0)
        pseudo = source + target + struct.pack(">BBH", 0, 6, len(tcp) + len(data))
        tcp = tcp[:16] + struct.pack(">H", checksum(pseudo + tcp + data)) + tcp[18:]
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp) + len(data), 0, 0, 64, 6, 0, source, target)
        ip = ip[:10] + struct.pack(">H", checksum(ip)) + ip[12:]
        frame = bytes(5) + b"\2" + bytes(5) + b"\1" + b"\x08\0" + ip + tcp + data
        now = time.time()
        self.file.write(struct.pack("<IIII", int(now), int(now % 1 * 1e6), len(frame), len(frame)) + frame)

    def close(self):
        self.file.close()


class Relayed:
    """One connection that passes through: both of its ends, and how far each direction is."""

    def __init__(self, capture, client, target_port):
        self.capture = capture
        self.ports = (client.getpeername()[1], target_port)
        self.server = socket.create_connection(("127.0.0.1", target_port))
        self.client = client
        self.sent = {client: 1001, self.server: 5001}  # the next sequence number of each end
        self.packet(client, SYN, at=1000, acknowledged=0)
        self.packet(self.server, SYN | ACK, at=5000)
        self.packet(client, ACK)

    def other(self, end):
        return self.server if end is self.client else self.client

    def packet(self, end, flags, data=b"", at=None, acknowledged=None):
        """Records a packet that `end` sent."""
        at = self.sent[end] if at is None else at
        acknowledged = self.sent[self.other(end)] if acknowledged is None else acknowledged
        if end is self.client:
            self.capture.add(CLIENT, SERVER, self.ports, at, acknowledged, flags, data)
        else:
            self.capture.add(SERVER, CLIENT, self.ports[::-1], at, acknowledged, flags, data)

    def pass_on(self, end):
        """Takes what `end` has sent to the other. @return whether more can come"""
        try:
            data = end.recv(SEGMENT)
            if data:
                self.packet(end, PSH | ACK, data)
                self.sent[end] += len(data)
                self.other(end).sendall(data)
                return True
        except OSError:
            pass  # a reset is recorded as a farewell
        for one in (end, self.other(end)):
            self.packet(one, FIN | ACK)
            self.sent[one] += 1
        self.packet(end, ACK)
        self.client.close()
        self.server.close()
        return False


def serve(listener, target_port, capture):
    """Until a signal comes."""
    selector = selectors.DefaultSelector()
    selector.register(listener, selectors.EVENT_READ, None)
    while True:
        for key, _ in selector.select():
            if key.data is None:
                relayed = Relayed(capture, listener.accept()[0], target_port)
                selector.register(relayed.client, selectors.EVENT_READ, relayed)
                selector.register(relayed.server, selectors.EVENT_READ, relayed)
            elif key.fileobj.fileno() >= 0:
                relayed = key.data
                ends = (relayed.client, relayed.server)
                if not relayed.pass_on(key.fileobj):
                    for end in ends:
                        selector.unregister(end)


def main():
    def stop(_number, _frame):
        raise KeyboardInterrupt
    signal.signal(signal.SIGTERM, stop)
    capture = Capture(sys.argv[2])
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)
    try:
        serve(listener, int(sys.argv[1]), capture)
    except KeyboardInterrupt:
        pass
    capture.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
