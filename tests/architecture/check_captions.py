#!/usr/bin/env python3
"""Checks that a folder's README which lists the folder's files lists exactly those that are there.

Usage: check_captions.py ROOT
A README lists files when one of its tables has the heading "File" or "Files" in its first column; each row names one
or several files in backquotes, folders with a slash at the end, or a folder's files with their path. All of the folder's files but the README and the build
file must be in it, and nothing else. Exit status 1 when one differs."""

import pathlib
import re
import subprocess
import sys

NEVER_LISTED = {"README.md", "CMakeLists.txt"}


def listed_names(text):
    """The names in the first columns of the README's file tables; None when it has no such table."""
    names = None
    in_table = False
    for line in text.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.lstrip().startswith("|"):
            in_table = False
        elif cells[0].lower() in ("file", "files"):
            in_table = True
            names = names or set()
        elif in_table and not set(cells[0]) <= set("-: "):
            names |= set(re.findall(r"`([^`]+)`", cells[0]))
    return names


def names_in(root, folder, listed):
    """The names in a folder that version control knows, or would; all that is there when there is no such control.
    Of a subfolder whose files are listed one by one, the files; of others the folder."""
    opened = {name.split("/")[0] for name in listed if "/" in name.rstrip("/")}
    known = subprocess.run(["git", "-C", str(root), "ls-files", "--cached", "--others", "--exclude-standard", "--",
                            str(folder)], capture_output=True, text=True, check=False)
    if known.returncode == 0 and known.stdout:
        paths = [root / line for line in known.stdout.splitlines()]
    else:
        paths = [path for path in folder.rglob("*") if path.is_file()]
    names = set()
    for path in paths:
        if path.is_file():
            parts = path.relative_to(folder).parts
            names.add("/".join(parts) if len(parts) == 1 or parts[0] in opened else parts[0] + "/")
    return names - NEVER_LISTED


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    problems = []
    checked = 0
    for readme in sorted(root.rglob("README.md")):
        folder = readme.parent
        if any(part.startswith((".", "build")) for part in folder.relative_to(root).parts):
            continue
        listed = listed_names(readme.read_text(encoding="utf-8"))
        if listed is None:
            continue
        checked += 1
        there = names_in(root, folder, listed)
        where = readme.relative_to(root).as_posix()
        problems += [f"{where}: `{name}` is listed but not there" for name in sorted(listed - there)]
        problems += [f"{where}: `{name}` is there but not listed" for name in sorted(there - listed)]
    print("\n".join(problems) if problems else f"{checked} lists of files agree with their folders")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
