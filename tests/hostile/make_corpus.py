#!/usr/bin/env python3
"""Writes the fuzzer's corpus, corpus/*.bin: right messages of every operation and kind, as a client sends them.

Usage: make_corpus.py [--check]     --check: writes nothing, exit status 1 when a file is not what it would be"""

import pathlib
import sys

import giop
from cdr import Encoder
from registry_calls import DAEMON_NAMES, get, sample_requests, samples, subtree

FOLDER = pathlib.Path(__file__).parent / "corpus"


def corpus():
    """File name -> contents."""
    files = {}
    for version in giop.VERSIONS:
        little = version != giop.V11  # all orders and versions, but not all of their combinations
        for name, data in sample_requests(DAEMON_NAMES, version=version, little=little).items():
            files[f"{name.strip('_')}_{version[0]}_{version[1]}"] = data
        files[f"locate_{version[0]}_{version[1]}"] = giop.locate_request(7, version=version, little=little)
        files[f"cancel_{version[0]}_{version[1]}"] = giop.cancel_request(7, version=version, little=little)
    files["fragments"] = giop.fragmented(giop.request(9, "get_many", samples(DAEMON_NAMES)["get_many"]), 16)
    files["row"] = b"".join(sample_requests(DAEMON_NAMES).values())
    files["contexts"] = giop.request(3, "subtree", subtree("fans", 1, 5),
                                     contexts=[(1, b"\1\0\0\0\1\0\1\0\x09\1\1\0"), (0x4E454F00, b"\1\0\x14\0")])
    profile = bytes(Encoder().octet(1).octet(1).octet(2).string("host").ushort(1).octets(giop.KEY).ulong(0).data)
    files["by_profile"] = giop.request(4, "get", get("fans"), target=giop.put_profile(profile))
    files["by_reference"] = giop.request(5, "get", get("fans"), target=giop.put_reference(profile))
    files["close"] = giop.message(giop.CLOSE_CONNECTION)
    return files


def main():
    wrong = []
    wanted = corpus()
    if "--check" not in sys.argv:
        FOLDER.mkdir(exist_ok=True)
        for name, data in wanted.items():
            (FOLDER / f"{name}.bin").write_bytes(data)
        return 0
    there = {path.stem: path.read_bytes() for path in FOLDER.glob("*.bin")}
    wrong = sorted(name for name in wanted.keys() | there.keys() if wanted.get(name) != there.get(name))
    print(f"not as written by {pathlib.Path(__file__).name}: {wrong}" if wrong else f"{len(there)} messages")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
