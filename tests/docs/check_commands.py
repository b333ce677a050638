#!/usr/bin/env python3
"""Checks that the programs understand every command line of theirs that the documents show.

Usage: check_commands.py ROOT PROGRAMS [self_test]
Looked at are the lines of code blocks in README.md and in every .md file below docs, examples and tools, and of the manual pages,
that begin with one of the programs, perhaps with "$ " or a folder in front, and are no synopsis. They are run without doing
anything: the daemon with --help behind, the tools against a server, or a socket, that is not there, so that they end with
status 2 where the command is right. Exit status 1 when one is not understood, or there is none."""

import pathlib
import re
import shlex
import subprocess
import sys

LINE = re.compile(r"^\s*(?:\$ )?(?:[\w./]*/)?(zelkor-(?:platformd|regctl|chassisctl)\b(?!\.).*)$")
SYNOPSIS = re.compile(r"\[(?!\w*::)|\bCOMMAND\b|\.\.\.|\bDIR\b|\|\s*-")
# The files that these name are the reader's.
TLS_FILES = ("--ca", "--certificate", "--key")
NOBODY = {"zelkor-regctl": ["--server", "127.0.0.1:1"], "zelkor-chassisctl": ["--socket", "/nonexistent/socket"]}


def code_lines(text):
    """(number, line) of the blocks of a Markdown page; a backslash at the end of a line joins the next one."""
    fenced = False
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("```"):
            fenced = not fenced
        elif fenced or line.startswith("    "):
            yield number, line


def manual_lines(text):
    """The same of a manual page."""
    example = False
    for number, line in enumerate(text.splitlines(), 1):
        if line in (".EX", ".EE"):
            example = line == ".EX"
        elif example:
            yield number, line.replace("\\-", "-").replace("\\e", "\\")


def commands(lines):
    """(number, words) of the command lines of the programs."""
    joined = ""
    for number, line in lines:
        if line.endswith("\\"):
            joined += line[:-1]
            continue
        found = LINE.match(joined + line)
        joined = ""
        if found and not SYNOPSIS.search(found[1].split(" #")[0]):
            words = shlex.split(found[1], comments=True)
            ends = [place for place, word in enumerate(words) if re.match(r"[<>|&;]", word)]
            yield number, words[:ends[0]] if ends else words


def refusal(programs, words):
    """Why a program does not understand the words; None when it does."""
    name, arguments = words[0], words[1:]
    if name == "zelkor-platformd" or arguments[:1] == ["import"]:
        # Not run: the files that it names are the reader's.
        arguments = [*arguments, "--help"]
        expected = 0
    elif {"--help", "--version"} & set(arguments):
        expected = 0
    else:
        # What the line itself says of the server comes later, and would be said twice.
        if "--tls" in arguments:
            # The options by themselves, then the command without them.
            refused = refusal(programs, [*words, "--help"])
            if refused:
                return refused
            arguments.remove("--tls")
        for own in (NOBODY[name][0], *TLS_FILES):
            while own in arguments:
                place = arguments.index(own)
                arguments = arguments[:place] + arguments[place + 2:]
        arguments = [*NOBODY[name], *arguments]
        expected = 2
    done = subprocess.run([programs / name, *arguments], capture_output=True, text=True, timeout=200, check=False,
                          stdin=subprocess.DEVNULL)
    if done.returncode == expected:
        return None
    return f"{' '.join(words)}: status {done.returncode}: {done.stderr.strip().splitlines()[:1]}"


def check(root, programs):
    pages = [root / "README.md"] + sorted(page for folder in ("docs", "examples", "tools", "packaging/man")
                                          for page in (root / folder).rglob("*") if page.suffix in (".md", ".1", ".5", ".8"))
    problems = []
    count = 0
    for page in (page for page in pages if page.is_file()):
        text = page.read_text(encoding="utf-8")
        for number, words in commands((code_lines if page.suffix == ".md" else manual_lines)(text)):
            count += 1
            problem = refusal(programs, words)
            if problem:
                problems.append(f"{page.relative_to(root).as_posix()}:{number}: {problem}")
    if not count:
        problems.append("no command anywhere")
    return problems, count


def self_test(programs):
    """Commands that are right, and wrong in every way."""
    right = ["zelkor-regctl get fans", "zelkor-regctl --server h:1 watch 'boards/**' --count 3", "zelkor-chassisctl list --json",
             "zelkor-chassisctl --socket s set io/1 16 -5", "zelkor-platformd --config c.xml --port 0",
             "zelkor-chassisctl import --uri io/1 table.txt",
             "zelkor-regctl --server h:1 --tls --ca ca.pem --certificate c.pem --key c.key get fans"]
    wrong = ["zelkor-regctl --tls --ca ca.pem --pem c.pem --key c.key get fans",
             "zelkor-regctl --tls --ca ca.pem --certificate c.pem --key c.key fetch fans", "zelkor-regctl fetch fans", "zelkor-regctl get", "zelkor-regctl get fans --colour", "zelkor-chassisctl heat io/1",
             "zelkor-chassisctl set io/1", "zelkor-platformd --configuration c.xml",
             "zelkor-platformd lab.xml", "zelkor-chassisctl import --url io/1 table.txt"]
    problems = [f"right, but: {text}" for text in (refusal(programs, shlex.split(line)) for line in right) if text]
    problems += [f"wrong, but not found: {line}" for line in wrong if not refusal(programs, shlex.split(line))]
    found = [words for _, words in commands(code_lines("text zelkor-a\n\n    $ bin/zelkor-regctl get fans | head  # all\n"
                                                       "    zelkor-regctl [--json] COMMAND\n"))]
    if found != [["zelkor-regctl", "get", "fans"]]:
        problems.append(f"found {found}")
    return problems, len(right) + len(wrong)


def main():
    root, programs = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
    problems, count = self_test(programs) if sys.argv[3:] == ["self_test"] else check(root, programs)
    print("\n".join(problems) if problems else f"{count} command lines are understood")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
