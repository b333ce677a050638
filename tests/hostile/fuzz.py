#!/usr/bin/env python3
"""Sends mutated messages to a registry server and looks whether it stays in order.

Usage: fuzz.py --daemon PROGRAM | --helper PROGRAM [--sanitizer NAME] [--seconds N] [--seed N] [--keep FILE]
The messages are those of corpus/*.bin, changed by a generator that the seed determines. The server must live, answer,
and end with status 0; what a sanitizer (or valgrind: --sanitizer valgrind) reports fails the run. The last packets
before a failure are written to the file of --keep (default: fuzz-failure.bin in the system's folder for such files)."""

import argparse
import collections
import pathlib
import random
import struct
import sys
import tempfile
import time

import giop
from server_process import Baseline, Failure, add_server_options, start_server

LENGTHS = (0, 1, 7, 8, 12, 0x7F, 0xFF, 0x100, 511, 512, 1025, 4097, 0x7FFF, 0xFFFF, 0x10000, 0x1FFFFF, 0x200001,
           0x7FFFFFFF, 0x80000000, 0xFFFFFFFC, 0xFFFFFFFF)
CHECK_EVERY = 300  # packets


class Mutator:
    """Makes packets of right messages: one to three of them, each changed a little or not at all."""

    def __init__(self, corpus, seed):
        self.corpus = corpus
        self.dice = random.Random(seed)
        self.changes = (self.flip, self.put_length, self.cut, self.insert, self.repeat, self.splice, self.put_header)

    def packet(self):
        parts = [bytearray(self.dice.choice(self.corpus)) for _ in range(self.dice.choice((1, 1, 1, 2, 3)))]
        for part in parts:
            for _ in range(self.dice.choice((0, 1, 1, 2, 4, 8))):
                if part:
                    self.dice.choice(self.changes)(part)
            if len(part) >= giop.HEADER_SIZE and self.dice.random() < 0.7:
                # A header that tells the truth gets the rest of the message looked at.
                order = "<I" if part[6] & 1 else ">I"
                part[8:12] = struct.pack(order, len(part) - giop.HEADER_SIZE)
            if self.dice.random() < 0.1:
                part[:] = giop.fragmented(bytes(part), 8 * self.dice.randrange(1, 6)) if len(part) >= 16 else part
        return b"".join(parts)

    def place(self, part):
        return self.dice.randrange(len(part))

    def flip(self, part):
        part[self.place(part)] ^= 1 << self.dice.randrange(8)

    def put_length(self, part):
        at = self.place(part) & ~3
        part[at:at + 4] = struct.pack(self.dice.choice("<>") + "I", self.dice.choice(LENGTHS))

    def cut(self, part):
        at = self.place(part)
        del part[at:at + self.dice.choice((1, 2, 4, 8, 64, 1 << 20))]

    def insert(self, part):
        part[self.place(part):0] = self.dice.randbytes(self.dice.choice((1, 2, 4, 8, 64)))

    def repeat(self, part):
        at = self.place(part)
        piece = part[at:at + self.dice.choice((4, 8, 32, 256))]
        part[at:at] = piece * self.dice.choice((1, 2, 16))

    def splice(self, part):
        other = self.dice.choice(self.corpus)
        at = self.place(part)
        part[at:] = other[min(at, len(other)):]

    def put_header(self, part):
        at = self.dice.randrange(4, 8)
        if at < len(part):
            part[at] = self.dice.choice((0, 1, 2, 3, 4, 5, 6, 7, 8, 0x80, 0xFF))


def throw(server, dice, packet, open_connections):
    """Sends a packet, mostly on a connection that has seen others."""
    if not open_connections or dice.random() < 0.2:
        if len(open_connections) >= 20:
            open_connections.pop(0).close()
        open_connections.append(server.connect(5))
    client = dice.choice(open_connections)
    try:
        client.send(packet)
        client.socket.settimeout(0.001 if dice.random() < 0.97 else 0.05)
        try:
            if not client.socket.recv(1 << 16):
                raise ConnectionError
        except TimeoutError:
            pass
        client.socket.settimeout(5)
    except OSError:  # the server has closed it
        client.close()
        open_connections.remove(client)


def run(server, mutator, seconds, last):
    """@return how many packets were sent"""
    baseline = Baseline(server)
    count = 0
    open_connections = []
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        packet = mutator.packet()
        last.append(packet)
        try:
            throw(server, mutator.dice, packet, open_connections)
        except OSError:
            server.check_alive()
            raise
        count += 1
        if count % CHECK_EVERY == 0:
            server.check_alive()
            server.check_report()
            server.check_answers()
    for client in open_connections:
        client.close()
    baseline.check_sane()
    baseline.check_given_back()
    return count


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    add_server_options(parser)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--keep", default=f"{tempfile.gettempdir()}/fuzz-failure.bin")
    options = parser.parse_args()
    corpus = [path.read_bytes() for path in sorted((pathlib.Path(__file__).parent / "corpus").glob("*.bin"))]
    if not corpus:
        print("the corpus is empty", file=sys.stderr)
        return 1
    last = collections.deque(maxlen=400)
    try:
        with start_server(options) as server:
            count = run(server, Mutator(corpus, options.seed), options.seconds, last)
    except (Failure, OSError) as failure:
        pathlib.Path(options.keep).write_bytes(b"".join(struct.pack("<I", len(packet)) + packet for packet in last))
        print(f"seed {options.seed}: {failure}\nthe last {len(last)} packets, each after its length: {options.keep}",
              file=sys.stderr)
        return 1
    print(f"seed {options.seed}: {count} packets in {options.seconds:.0f} s")
    return 0 if count > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
