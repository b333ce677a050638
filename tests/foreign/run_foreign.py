#!/usr/bin/env python3
"""Lets programs that are not ours judge the registry server: an ORB for Tcl talks to it, and a protocol analyser looks
at every byte of the conversation.

Usage: run_foreign.py --daemon PROGRAM | --helper PROGRAM [--sanitizer NAME] --idl FILE [--chassisctl PROGRAM]
                      [--regctl PROGRAM]
With --regctl the client is that tool of ours instead of the Tcl script: only the analyser is foreign then. Exit status
77 when a program of the other kind is not installed, 1 at the first difference."""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "hostile"))
from server_process import Failure, add_server_options, expect, start_server  # noqa: E402

# What is there when Combat is: `package require` fails otherwise.
PROBE = "if {[catch {package require combat}]} {exit 3}; exit 0"


def missing():
    """The first foreign program that is not installed; None when all are."""
    for program in ("tclsh", "tshark", "omniidl"):
        if shutil.which(program) is None:
            return program
    if subprocess.run(["tclsh"], input=PROBE, text=True, check=False).returncode == 3:
        return "tcl-combat"
    return None


def types_of(idl, folder):
    """The IDL's types for the Tcl client, written into the folder."""
    made = subprocess.run(["omniidl", f"-p{HERE}", "-bcombat_ir", idl], capture_output=True, text=True, check=False,
                          env=dict(os.environ, PYTHONDONTWRITEBYTECODE="1"))
    expect(made.returncode == 0, f"omniidl: {made.stderr}")
    path = folder / "types.tcl"
    path.write_text(made.stdout, encoding="utf-8")
    return path


def run_client(command, seconds):
    done = subprocess.run(command, capture_output=True, timeout=seconds, check=False)
    text = (done.stdout + done.stderr).decode(errors="replace")
    expect(done.returncode == 0, f"{pathlib.Path(command[0]).name} ended with status {done.returncode}:\n{text}")
    return text.strip()


def analyse(capture, port):
    """@raises Failure unless the capture holds GIOP, all of it well-formed. @return the names of the operations"""
    def tshark(*words):
        done = subprocess.run(["tshark", "-r", str(capture), "-d", f"tcp.port=={port},giop", *words],
                              capture_output=True, text=True, check=False)
        expect(done.returncode == 0, f"tshark: {done.stderr}")
        return [line for line in done.stdout.splitlines() if line]

    malformed = tshark("-Y", "_ws.malformed")
    expect(not malformed, "malformed packets:\n" + "\n".join(malformed[:10]))
    wrong = tshark("-Y", "tcp.analysis.lost_segment || tcp.analysis.retransmission || tcp.checksum.status == 0",
                   "-o", "tcp.check_checksum:TRUE")
    expect(not wrong, "the capture itself is wrong:\n" + "\n".join(wrong[:10]))
    requests = tshark("-Y", "giop.type == 0", "-T", "fields", "-e", "giop.request_op")
    replies = tshark("-Y", "giop.type == 1")
    expect(requests and replies, f"{len(requests)} requests and {len(replies)} replies were recognised")
    return {name for line in requests for name in line.split(",")}


def converse(server, folder, client, wanted):
    """Lets the client, a function of the port, talk through a relay that records; the analyser must find that it asked
    for the wanted operations."""
    capture = folder / "conversation.pcap"
    relay = subprocess.Popen([sys.executable, str(HERE / "relay.py"), str(server.port), str(capture)],
                             stdout=subprocess.PIPE, text=True)
    try:
        client(int(relay.stdout.readline()))
    finally:
        relay.terminate()
        relay.wait(60)
    operations = analyse(capture, server.port)
    expect(wanted <= operations, f"the analyser does not see {sorted(wanted - operations)} in {sorted(operations)}")
    print(f"well-formed, {len(operations)} operations recognised")


def talk(options, server, folder):
    """The conversations of one run."""
    limit = 200 * server.slowness
    socket = pathlib.Path(server.folder.name) / "chassis.sock"
    if options.regctl:
        def tool(port):
            for words in (["tree"], ["get", "fans"], ["set", "fans", "3000"], ["ls", "boards"]):
                run_client([options.regctl, "--server", f"127.0.0.1:{port}", *words], limit)
        converse(server, folder, tool, {"subtree", "set", "children"})
        return
    types = types_of(options.idl, folder)
    for version in ("1.2", "1.0"):
        if options.daemon:
            command = [HERE / "chassis_test.tcl", types, "PORT", version, options.chassisctl, socket]
            wanted = {"describe", "children", "get", "subtree", "set", "subscribe", "poll", "open_view", "read_view"}
        else:
            command = [HERE / "registry_test.tcl", types, "PORT", version, "1"]
            wanted = {"hello", "get_many", "set_many", "subscribe_to", "renew", "unsubscribe", "close_view"}

        def script(port, command=command):
            print(run_client(["tclsh", *[str(port) if word == "PORT" else str(word) for word in command]], limit))
        converse(server, folder, script, wanted)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    add_server_options(parser)
    parser.add_argument("--idl", required=True)
    parser.add_argument("--chassisctl")
    parser.add_argument("--regctl")
    options = parser.parse_args()
    absent = missing()
    if absent:
        print(f"{absent} is not installed: nothing is tested")
        return 77
    try:
        with tempfile.TemporaryDirectory(prefix="registry-foreign-") as folder, start_server(options) as server:
            talk(options, server, pathlib.Path(folder))
    except (Failure, subprocess.TimeoutExpired) as failure:
        print(failure, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
