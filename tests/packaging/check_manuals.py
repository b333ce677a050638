#!/usr/bin/env python3
"""Checks manual pages.

Usage: check_manuals.py warnings PAGE...
       check_manuals.py help PAGE PROGRAM
       check_manuals.py self_test PAGE PROGRAM
  warnings   man has nothing to warn of, and the sections that such a page has are there
  help       what the program's --help tells (options, defaults, commands, exit statuses) stands in the page, and the
             page tells of no option and no command that the program does not have
  self_test  the check "help" finds what is planted in a copy of the page, and "warnings" too
Exit status 1 when something is wrong, 77 when man is not installed."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

FILE_SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "FILES", "EXAMPLES", "SEE ALSO"]
PROGRAM_SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "ENVIRONMENT", "SIGNALS", "FILES",
                    "EXAMPLES", "SEE ALSO"]
OPTION = re.compile(r"(?<![\w-])(--[a-z][a-z-]*[a-z]|-[a-zA-Z](?![\w-]))")
DEFAULT = re.compile(r"\(=([^)]+)\)")
# Programs of others in examples: their options are their own.
OTHERS = re.compile(r"^\s*(xmllint|openssl|systemctl|journalctl|runuser)\b")


def man(*words, width="80"):
    """As a person's terminal would have it. @return standard output and what man had to say"""
    environment = {"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "MANROFFSEQ": "", "MANWIDTH": width,
                   "MANPAGER": "cat", "HOME": "/nonexistent"}
    done = subprocess.run(["man", *words], capture_output=True, text=True, env=environment, timeout=200, check=False)
    if done.returncode != 0 and not done.stderr:
        sys.exit(f"man {' '.join(words)}: status {done.returncode}")
    return done.stdout, done.stderr


def sections_of(page):
    """The rendered page: section -> its lines."""
    text, _ = man("--nh", "--nj", "-E", "UTF-8", "-l", str(page), width="1000")
    sections = {}
    name = ""
    for line in re.sub(".\b", "", text).splitlines():
        if re.fullmatch(r"[A-Z][A-Z ]+", line):
            name = line
        sections.setdefault(name, []).append(line)
    return sections


def warnings(*pages):
    problems = []
    for page in map(pathlib.Path, pages):
        _, said = man("--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", str(page))
        problems += [f"{page.name}: {line}" for line in said.splitlines()]
        wanted = FILE_SECTIONS if page.suffix == ".5" else PROGRAM_SECTIONS
        there = sections_of(page)
        problems += [f"{page.name}: there is no section {name}" for name in wanted if name not in there]
        for name, number in re.findall(r"\b([a-z][\w.-]+)\((\d)\)", "\n".join(there.get("SEE ALSO", []))):
            if not (page.parent / f"{name}.{number}").is_file():
                problems.append(f"{page.name}: there is no page {name}({number})")
    return problems


def differences(what, told, page_tells):
    return ([f"the page does not tell of {what} {name}" for name in sorted(told - page_tells)] +
            [f"the page tells of {what} {name}, which the program does not have" for name in sorted(page_tells - told)])


def commands_in(lines, indent):
    """First words of the lines with this indent that begin with a command; of fpga its second word, too."""
    found = set()
    for line in lines:
        if re.match(rf" {{{indent}}}[a-z]", line):
            found.add(line.split()[0])
            found |= set(re.findall(r"\bfpga [a-z]+", line))
    return found


def check_help(page, program):
    done = subprocess.run([program, "--help"], capture_output=True, text=True, timeout=200, check=True)
    told = done.stdout
    sections = sections_of(page)
    options = set(OPTION.findall(told))
    # The page may tell of the options anywhere, but each has an entry of its own.
    entries = [line for line in sections.get("OPTIONS", []) if re.match(r" {7}-", line)]
    problems = differences("the option", options, {option for line in entries for option in OPTION.findall(line)})
    for name, lines in sections.items():
        if name == "OPTIONS":
            continue
        anywhere = {option for line in lines if not OTHERS.match(line) for option in OPTION.findall(line)}
        problems += [f"{name} tells of the option {option}, which the program does not have"
                     for option in sorted(anywhere - options)]
    text = " ".join(" ".join(lines) for lines in sections.values())
    problems += [f"the page does not tell the default {value}" for value in DEFAULT.findall(told)
                 if not re.search(rf"(?<!\w){re.escape(value)}(?!\w)", text)]
    commands = commands_in(told.split("Exit status")[0].splitlines(), 2)
    problems += differences("the command", commands, commands_in(sections.get("COMMANDS", []), 7))
    if "Exit status:" in told:
        statuses = set(re.findall(r"(?:^|; |: )(\d)\b", re.sub(r"\s+", " ", told.split("Exit status:")[1])))
        statuses |= {"0"}
        entries = {line.split()[0] for line in sections.get("EXIT STATUS", []) if re.match(r" {7}\d", line)}
        problems += differences("the exit status", statuses, entries)
    if not options:
        problems.append("--help tells of no option")
    return problems


def self_test(page, program):
    """Each planted fault has to be found."""
    text = pathlib.Path(page).read_text(encoding="utf-8")
    problems = check_help(page, program) + warnings(page)
    faults = {
        "an option without entry": (text.replace('.B \\-\\-version\n', '.B none\n'), "--version"),
        "an option that is not there": (text.replace(".SH EXIT", ".TP\n.B \\-\\-nowhere\nNothing.\n.SH EXIT"), "--nowhere"),
        "an option in an example": (text.replace(".SH SEE", "Try\n.B \\-\\-nowhere\n.SH SEE"), "--nowhere"),
        "a missing section": (text.replace(".SH EXIT STATUS", ".SH OUTCOME"), "EXIT STATUS"),
        "an unknown page": (text + ",\n.BR zelkor\\-none (1)\n", "zelkor-none"),
        "a macro that is not there": (text + ".XYZ\n", "XYZ"),
        "a command that is not there": (text.replace(".SH OPTIONS", ".TP\n.B nowhere\nNothing.\n.SH OPTIONS"), "nowhere"),
    }
    if ".SH COMMANDS" not in text:
        del faults["a command that is not there"]
    with tempfile.TemporaryDirectory() as folder:
        for other in pathlib.Path(page).parent.glob("*.[158]"):
            shutil.copy(other, folder)
        for name, (broken, expected) in faults.items():
            copy = pathlib.Path(folder) / pathlib.Path(page).name
            copy.write_text(broken, encoding="utf-8")
            found = check_help(copy, program) + warnings(copy)
            if not any(expected in problem for problem in found):
                problems.append(f"{name} is not found: {found}")
    return problems


def main():
    if shutil.which("man") is None:
        print("man is not installed: nothing is checked")
        return 77
    check = {"warnings": warnings, "help": check_help, "self_test": self_test}[sys.argv[1]]
    problems = check(*sys.argv[2:])
    print("\n".join(problems) if problems else "nothing is wrong")
    return 1 if problems else 0


sys.exit(main())
