#!/usr/bin/env python3
"""Resident memory of the daemon on a chassis of 5,000 sensors (55,000 leaves in the registry) beyond that on an empty one.

usage: memory.py BUILD_FOLDER"""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import time

BOARDS = 50
SENSORS = 100
LEAVES = 11
GOAL = 200


def chassis(boards, sensors):
    """A chassis description with that many boards of so many sensors."""
    lines = ["<chassis>"]
    for board in range(boards):
        lines.append(f'<board uri="io/{board}" type="io" name="B{board}">')
        lines += [f'<sensor id="{sensor}" name="Inlet air {sensor}" type="temperature" units="degrees C" value="48" '
                  'nominal="35" lnr="-20" lc="-10" lnc="0" unc="70" uc="80" unr="90"/>' for sensor in range(sensors)]
        lines.append("</board>")
    return "\n".join(lines + ["</chassis>"])


def resident(program, boards, sensors):
    """Bytes that the daemon holds after its first pass."""
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(f"{folder}/chassis.xml").write_text(chassis(boards, sensors), encoding="utf-8")
        pathlib.Path(f"{folder}/config.xml").write_text(
            "<zelkor><boards backend='sim' chassis='chassis.xml'/></zelkor>", encoding="utf-8")
        notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        notify.bind(f"{folder}/notify")
        notify.settimeout(60)
        daemon = subprocess.Popen([program, "--config", f"{folder}/config.xml", "--log-dir", f"{folder}/log", "--port",
                                   "0"], env=dict(os.environ, NOTIFY_SOCKET=f"{folder}/notify"),
                                  stderr=subprocess.DEVNULL)
        try:
            assert notify.recv(100) == b"READY=1"
            time.sleep(2)
            status = pathlib.Path(f"/proc/{daemon.pid}/status").read_text(encoding="utf-8")
            return next(int(line.split()[1]) * 1024 for line in status.splitlines() if line.startswith("VmRSS"))
        finally:
            daemon.send_signal(signal.SIGTERM)
            daemon.wait()


def main():
    program = f"{sys.argv[1]}/bin/zelkor-platformd"
    empty = resident(program, 1, 0)
    full = resident(program, BOARDS, SENSORS)
    leaves = BOARDS * SENSORS * LEAVES
    print(f"resident: {empty / 2**20:.1f} MiB on a chassis without sensors, {full / 2**20:.1f} MiB with {leaves} leaves: "
          f"{(full - empty) / leaves:.0f} bytes a leaf, sensors of the simulation included (goal {GOAL})")


main()
