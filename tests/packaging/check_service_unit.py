#!/usr/bin/env python3
"""Checks the service unit.

Usage: check_service_unit.py verify|security|stop_post UNIT PROGRAM
PROGRAM is the path that the unit names for the daemon; a stand-in takes its place.
  verify     systemd-analyze finds nothing wrong with the unit
  security   what is open to the service is little, by systemd-analyze's count
  stop_post  what runs after the daemon's end calls for safe fans when, and only when, it was not orderly
Exit status 1 when something is wrong, 77 when the check cannot be done on this machine."""

import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile

# Writes its arguments down and ends with the status that the test wants.
STAND_IN = """#!/bin/sh
echo "$*" >> "$(dirname "$0")/calls"
exit "${STAND_IN_STATUS:-0}"
"""
# What the service manager says of a service's end, with what is expected then.
RESULTS = {"success": False, "watchdog": True, "signal": True, "exit-code": True, "core-dump": True, "timeout": True,
           "protocol": True, "resources": True, "oom-kill": True, None: True}


def with_stand_in(unit, program, folder):
    """A copy of the unit in the folder, whose daemon is the stand-in. Both lines that name the daemon must be there."""
    stand_in = folder / "zelkor-platformd"
    stand_in.write_text(STAND_IN, encoding="utf-8")
    stand_in.chmod(0o755)
    text = unit.read_text(encoding="utf-8")
    for line in (f"ExecStart={program}\n", f" {program} --fans-safe; }}'\n"):
        if text.count(line) != 1:
            sys.exit(f"{unit}: {text.count(line)} times {line.strip()!r}, expected once")
    copy = folder / unit.name
    copy.write_text(text.replace(program, str(stand_in)), encoding="utf-8")
    return copy


def verify(unit, folder):
    if shutil.which("systemd-analyze") is None:
        print("Skipped: systemd-analyze is not installed")
        return 77
    broken = folder / "broken.service"
    broken.write_text(unit.read_text(encoding="utf-8").replace("WatchdogSec", "WatchdogSex"), encoding="utf-8")
    problems = findings(unit)
    if not findings(broken):
        problems.append("an unknown key is not found: this check finds nothing")
    print("\n".join(problems) if problems else "systemd-analyze finds nothing wrong")
    return 1 if problems else 0


def findings(unit):
    """What systemd-analyze says of this unit, and not of those that it looks into on the way."""
    done = subprocess.run(["systemd-analyze", "verify", "--man=no", str(unit)], capture_output=True, text=True,
                          timeout=200, check=False)
    said = [line for line in (done.stdout + done.stderr).splitlines() if unit.name in line]
    return said or ([f"status {done.returncode}: {done.stderr}"] if done.returncode != 0 else [])


def security(unit, folder):
    if shutil.which("systemd-analyze") is None:
        print("Skipped: systemd-analyze is not installed")
        return 77
    # Two lines less, and it is more than that.
    open_unit = folder / "open.service"
    open_unit.write_text("".join(line for line in unit.read_text(encoding="utf-8").splitlines(keepends=True)
                                 if not line.startswith(("CapabilityBoundingSet=", "SystemCallFilter="))),
                         encoding="utf-8")
    said, status = exposure(unit)
    print(said)
    if exposure(open_unit)[1] == 0:
        print("all privileges and calls are let pass: this check finds nothing")
        return 1
    return 0 if status == 0 else 1


def exposure(unit):
    """What systemd-analyze says of what is open to a unit; the status is bad when it is more than 2.0 of 10."""
    done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=20", "--no-pager", str(unit)],
                          capture_output=True, text=True, timeout=200, check=False)
    return done.stdout + done.stderr, done.returncode


def stop_post(unit, folder):
    values = [line.partition("=")[2] for line in unit.read_text(encoding="utf-8").splitlines()
              if line.startswith("ExecStopPost=")]
    if len(values) != 1:
        sys.exit(f"{unit}: {len(values)} lines ExecStopPost, expected one")
    # As the service manager takes it apart: words by quotes, then a doubled dollar for a dollar.
    command = [word.replace("$$", "$") for word in shlex.split(values[0])]
    calls = folder / "calls"
    problems = []
    for result, is_expected in RESULTS.items():
        for status in (0, 1):
            calls.unlink(missing_ok=True)
            environment = {"PATH": os.environ["PATH"], "STAND_IN_STATUS": str(status)}
            if result is not None:
                environment["SERVICE_RESULT"] = result
            done = subprocess.run(command, env=environment, timeout=200, check=False)
            called = calls.read_text(encoding="utf-8") if calls.exists() else ""
            expected = "--fans-safe\n" if is_expected else ""
            if called != expected:
                problems.append(f"SERVICE_RESULT={result}: called with {called!r}, expected {expected!r}")
            if done.returncode != (status if is_expected else 0):
                problems.append(f"SERVICE_RESULT={result}: status {done.returncode} when the daemon's is {status}")
    print("\n".join(problems) if problems else f"right after each of {len(RESULTS)} ends")
    return 1 if problems else 0


def main():
    check = {"verify": verify, "security": security, "stop_post": stop_post}[sys.argv[1]]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        return check(with_stand_in(pathlib.Path(sys.argv[2]), sys.argv[3], folder), folder)


sys.exit(main())
