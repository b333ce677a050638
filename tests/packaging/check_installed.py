#!/usr/bin/env python3
"""Checks what an installation puts where: installs the build into a folder of its own and looks.

Usage: check_installed.py CMAKE BUILD [FILE]...
FILE: what has to be there, too, below the prefix.
Exit status 1 when something is missing, or does not work where it was put."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

# Below the prefix.
EXPECTED = [
    "bin/zelkor-chassisctl",
    "bin/zelkor-regctl",
    "sbin/zelkor-platformd",
    "lib/systemd/system/zelkor-platformd.service",
    "share/bash-completion/completions/zelkor-chassisctl",
    "share/bash-completion/completions/zelkor-platformd",
    "share/bash-completion/completions/zelkor-regctl",
    "share/man/man1/zelkor-chassisctl.1",
    "share/man/man1/zelkor-regctl.1",
    "share/man/man5/zelkor-platformd.xml.5",
    "share/man/man8/zelkor-platformd.8",
]
PAGES = ("zelkor-platformd", "zelkor-platformd.xml", "zelkor-regctl", "zelkor-chassisctl")


def output_of(*command, **environment):
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False, env={**os.environ, **environment})
    return done.returncode, done.stdout + done.stderr


def problems_in(prefix, expected):
    problems = [f"{name} is not installed" for name in expected if not (prefix / name).is_file()]
    if problems:
        return problems
    for name in ("bin/zelkor-chassisctl", "bin/zelkor-regctl", "sbin/zelkor-platformd"):
        status, text = output_of(str(prefix / name), "--version")
        if status != 0 or not text.startswith(pathlib.Path(name).name + " "):
            problems.append(f"{name} --version: status {status}: {text}")
    if shutil.which("man"):
        for page in PAGES:
            status, text = output_of("man", "-M", str(prefix / "share/man"), "-w", page)
            if status != 0:
                problems.append(f"man does not find {page}: {text}")
    return problems


def main():
    cmake, build, *others = sys.argv[1:]
    expected = EXPECTED + [name for name in others if name]
    with tempfile.TemporaryDirectory() as folder:
        prefix = pathlib.Path(folder) / "usr"
        status, text = output_of(cmake, "--install", build, "--prefix", str(prefix), DESTDIR="")
        problems = [f"status {status} of the installation: {text}"] if status != 0 else problems_in(prefix, expected)
    print("\n".join(problems) if problems else f"all {len(expected)} files are where they belong")
    return 1 if problems else 0


sys.exit(main())
