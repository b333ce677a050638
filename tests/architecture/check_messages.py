#!/usr/bin/env python3
"""Checks that the operation guide knows every message that the daemon may log.

Usage: check_messages.py ROOT
A message is known when the first text between quotes of its call stands in docs/operations/guide.md; of a format the
longest piece between its fields has to. A colon and blanks at its end do not count, nor do the stars of a heading line. Exit status 1 when one is missing, or there is none."""

import pathlib
import re
import sys

FOLDERS = ("bmc", "core", "daemon")
# The first argument begins with a text; what begins with a variable has its text elsewhere.
TEXT = r'"((?:[^"\\]|\\.)+)"'
CALL = re.compile(
    r"(?:(?:Log(?:Info|Warning|Error|Critical|Caught|AndGoOn)|->Warning|\.Warning)\(\s*(?:std::string\()?"
    # A library without a log of its own hands the level and the text to its host.
    r"|LogLevel_e::\w+,\s*(?:fmt::format\(\s*)?)" + TEXT
)
FIELD = re.compile(r"\{[^}]*\}")

# Stands for the TEXT of the message's row.
UNKNOWN = re.compile(r"Unknown [Ee]xception\.?$")


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    guide = (root / "docs/operations/guide.md").read_text(encoding="utf-8")
    problems = []
    checked = 0
    for folder in FOLDERS:
        for source in sorted((root / folder).rglob("*.cpp")):
            text = source.read_text(encoding="utf-8")
            for call in CALL.finditer(text):
                pieces = FIELD.split(UNKNOWN.sub("", call[1].replace('\\"', '"')))
                message = max(pieces, key=len).strip().rstrip(" :")
                checked += 1
                if not message and not UNKNOWN.search(call[1]):
                    problems.append(f"{source.relative_to(root).as_posix()}: a message without words of its own: {call[1]}")
                if message.strip("*") and message not in guide:
                    line = text.count("\n", 0, call.start()) + 1
                    problems.append(f'{source.relative_to(root).as_posix()}:{line}: the guide does not know "{message}"')
    if not checked:
        problems.append("no message anywhere")
    print("\n".join(problems) if problems else f"the guide knows all {checked} messages")
    return 1 if problems else 0


sys.exit(main())
