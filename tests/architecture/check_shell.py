#!/usr/bin/env python3
"""Has shellcheck look at every shell script: what begins with a shell's name, and completions.

Usage: check_shell.py ROOT
Exit status 77 when shellcheck is not installed."""

import pathlib
import re
import shutil
import subprocess
import sys

SHELL = re.compile(rb"#! ?(/usr)?/bin/(env )?(ba|da)?sh\b")
# Not what is built, nor what is not of this project.
PASSED_OVER = re.compile(r"(build.*|\..*)")


def is_kept(path):
    return path.name == ".ci" or not PASSED_OVER.fullmatch(path.name)


def files_below(folder):
    for path in sorted(folder.iterdir()):
        if path.is_symlink() or not is_kept(path):
            continue
        if path.is_dir():
            yield from files_below(path)
        elif path.is_file():
            yield path


def main():
    if shutil.which("shellcheck") is None:
        print("Skipped: shellcheck is not installed")
        return 77
    root = pathlib.Path(sys.argv[1])
    scripts, completions = [], []
    for path in files_below(root):
        with open(path, "rb") as file:
            first = file.readline(100)
        if SHELL.match(first):
            scripts.append(str(path))
        elif path.suffix == ".bash" or path.parent.name == "completions" and path.name != "CMakeLists.txt":
            completions.append(str(path))
    if not scripts:
        print(f"no shell scripts below {root}")
        return 1
    status = subprocess.run(["shellcheck", *scripts], check=False).returncode
    if completions:
        status |= subprocess.run(["shellcheck", "--shell=bash", *completions], check=False).returncode
    if status == 0:
        print(f"{len(scripts)} scripts and {len(completions)} completions are in order")
    return 1 if status else 0


sys.exit(main())
