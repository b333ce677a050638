#!/usr/bin/env python3
"""Checks what an installation puts where: installs the build below a folder of its own and looks.

Usage: check_installed.py CMAKE BUILD PREFIX [FILE]...
PREFIX is the one that the build was configured with. FILE: what has to be there, too, below it.
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
    "lib/sysusers.d/zelkor-platformd.conf",
    "lib/udev/rules.d/60-zelkor-platformd.rules",
    "lib/systemd/system/zelkor-platformd.service",
    "share/bash-completion/completions/zelkor-chassisctl",
    "share/bash-completion/completions/zelkor-platformd",
    "share/bash-completion/completions/zelkor-regctl",
    "share/doc/zelkor-platformd/docs/operations/guide.md",
    "share/doc/zelkor-platformd/examples/config/ipmi.xml",
    "share/doc/zelkor-platformd/examples/tls/make-certificates",
    "share/man/man1/zelkor-chassisctl.1.gz",
    "share/man/man1/zelkor-regctl.1.gz",
    "share/man/man5/zelkor-platformd.xml.5.gz",
    "share/man/man8/zelkor-platformd.8.gz",
    "share/zelkor/registry.idl",
    "share/zelkor/zelkor-platformd.xsd",
]
PAGES = ("zelkor-platformd", "zelkor-platformd.xml", "zelkor-regctl", "zelkor-chassisctl")


def output_of(*command, **environment):
    done = subprocess.run(command, capture_output=True, text=True, timeout=200, check=False, env={**os.environ, **environment})
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
    cmake, build, prefix, *others = sys.argv[1:]
    expected = EXPECTED + [name for name in others if name]
    with tempfile.TemporaryDirectory() as folder:
        # Whatever stands outside of the prefix goes below the folder, too.
        status, text = output_of(cmake, "--install", build, DESTDIR=folder)
        there = pathlib.Path(folder) / prefix.lstrip("/")
        problems = [f"status {status} of the installation: {text}"] if status != 0 else problems_in(there, expected)
    print("\n".join(problems) if problems else f"all {len(expected)} files are where they belong")
    return 1 if problems else 0


sys.exit(main())
