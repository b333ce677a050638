#!/usr/bin/env python3
"""Does to a registry server what strangers do, and looks whether it stays in order.

Usage: run_attacks.py --daemon PROGRAM | --helper PROGRAM [--sanitizer NAME] [--tls] [--descriptors N] [--idle N]
       GROUP|CASE ...
Each case gets the same running server. After each one the server must live, answer a correct request within two
seconds, come to rest and be no bigger than it may be; after the last one it must have given back its connections and
threads, and end with status 0 when it is told to. Exit status 1 at the first difference."""

import argparse
import sys
import time

import attack_arguments  # noqa: F401  (the modules add their cases)
import attack_connections  # noqa: F401
import attack_messages  # noqa: F401
import attack_patience  # noqa: F401
import attack_tls  # noqa: F401
from cases import GROUPS
from giop import Closed, Refused
from server_process import Baseline, Failure, add_server_options, start_server


def chosen(names):
    """The cases of the groups, or the single cases, of these names."""
    found = []
    for name in names:
        cases = GROUPS.get(name) or [one for group in GROUPS.values() for one in group if one.__name__ == name]
        if not cases:
            sys.exit(f"{name}: no such group or case; groups are {', '.join(sorted(GROUPS))}")
        found += cases
    return found


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    add_server_options(parser)
    parser.add_argument("names", nargs="+", metavar="GROUP|CASE")
    options = parser.parse_args()
    name = "start"
    try:
        with start_server(options) as server:
            baseline = Baseline(server)
            for one in chosen(options.names):
                name, start = one.__name__, time.monotonic()
                one(server)
                baseline.check_sane()
                print(f"{name}: {time.monotonic() - start:.1f} s, {server.resident_mib():.0f} MiB", flush=True)
            name = "after all"
            baseline.check_given_back()
            name = "the end"
    except (Failure, Closed, Refused, OSError) as failure:
        print(f"{name}: {type(failure).__name__}: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
