#!/usr/bin/env python3
"""Checks that the operation guide knows every message that the daemon may log, and none that it does not have.

Usage: check_messages.py ROOT [--list]
The messages of the guide are the texts in backquotes in the first column of the tables of docs/operations/guide.md whose
first heading is "message". Words in capitals (NAME, N, TEXT) and … stand for anything; a message may be cut at its end.

The messages of the sources are the texts of all calls that log (CALL below), put together from their parts: what stands
between quotes is text, everything else stands for anything. A call whose text is made elsewhere needs an entry in COMPOSED,
which says where. What ends a start is logged too, so the texts of exceptions raised in START are messages.

--list prints the messages of the sources. Exit status 1 when the two differ, or there is no message."""

import pathlib
import re
import sys

from source_texts import ANYTHING, MORE, Source, end_of, split

FOLDERS = ("bmc", "core", "daemon")
LEVEL = r"(?:qstd::)?LogLevel_e::\w+"
CALL = re.compile(
    r"\b(?P<log>LogInfo|LogWarning|LogError|LogCritical)\("
    r"|\b(?P<caught>LogCaught)\("
    r"|\b(?P<going>LogAndGoOn)\("
    # A log that limits how often it writes.
    r"|(?:->|\.)(?P<limited>Warning|Info)\("
    # A library without a log of its own hands the level and the text to its host.
    r"|\b(?P<levelled>m_log|emplace_back|push_back|Write|Show|Append)\((?=\s*\{?\s*" + LEVEL + r")")

# Where it is only handed on: (file, text of the call).
HANDED_ON = {
    ("bmc/ipmi/plugin_loader.cpp", "text"),
    ("daemon/worker_frame.cpp", "prefix + error.what()"),
    ("daemon/worker_frame.cpp", "unknown"),
    ("daemon/worker_frame.cpp", 'subject + ". Exception: " + error.what()'),
    ("daemon/worker_frame.cpp", 'subject + ". Unknown exception."'),
    ("core/shared/qreg/corba/limited_log.cpp", "text + count"),
    ("core/shared/qreg/limited_log.cpp", "text + count"),
    ("core/shared/qapp/zelkor_application_commands.cpp", "logProblem"),  # of START
    ("core/shared/qapp/zelkor_application.cpp", "error.what()"),         # of START
    ("core/shared/qapp/actions.cpp", "error.what()"),                    # of START
}

# (file, text of the call) -> where the text is made: the file, and pairs of what finds a part of it there and the message
# with {} for that part.
FAN_TABLE = ("daemon/fan_table.cpp", [(r'"([A-Z][^"]* [^"]*)"', "{}*"), (r'"( is [^"]*: )"', "Temperature: *{}*")])
COMPOSED = {
    ("daemon/temperature_control.cpp", "*error"): FAN_TABLE,
    ("daemon/temperature_control.cpp", "step.warning"): FAN_TABLE,
    ("bmc/ipmi/reachability.cpp", 'fmt::format("{} {}: {}{}", Name(port), ControllerWords(result.failure), result.text, '
     'm_allBoards)'): ("bmc/ipmi/reachability.cpp", [(r'return "([a-z ]+)";', "Controller * {}: *")]),
    ("core/shared/qapp/registry_settings.cpp", '"TLS: " + concern'):
        ("core/shared/qreg/tls/identity.cpp", [(r'"(expire[sd] at |holds only from )"', "TLS: *: {}*")]),
}

# Exceptions raised here end a start, or what is asked for in its place, and their text is logged, or stands on standard error
# where there is no log yet. Those that name a line of a file (AtLine) are one message.
START = ("core/shared/qapp/*.cpp", "core/shared/qcfg/document.cpp", "core/shared/qstd/log.cpp",
         "core/shared/qstd/trace_file.cpp", "bmc/sim/listening_socket.cpp", "daemon/fans_safe.cpp")
AT_LINE = "FILE:LINE: TEXT"
# In START, and all that is raised here gets its line where it is caught.
LINE_IS_ADDED = ("core/shared/qapp/tls_section.cpp",)
# Texts of such exceptions that are made apart from them: the file, and what finds the expression there.
START_TEXTS = (("core/shared/qreg/corba/endpoint.cpp", r'return ("Cannot [^;]*);'),
               ("core/shared/qcfg/document.cpp", r'return (name \+ "[^;]*);'))
# In START, but of the command line, which is read before there is a log, or of the program itself.
NO_START = ("core/shared/qapp/options.cpp", "core/shared/qapp/actions.cpp",
            "core/shared/qapp/zelkor_application_commands.cpp")
NEVER_RAISED = ("A process has one application only", "There is no application", "This program has no way to reach boards",
                "Trace level ")
THROW = re.compile(r"\bthrow (?:qstd::)?Exception\(")


def without_comments(path):
    """The file's text; lines stay."""
    return re.sub(r"(?m)^([ \t]*)//.*$", r"\1", path.read_text(encoding="utf-8"))


def has_words(message):
    return re.search(r"[A-Za-z]{2}", message) is not None


def arguments_of(source, begin):
    return split(source.text[begin:end_of(source.text, begin) - 1], ",")


def messages_of_call(source, call, root):
    """The messages of one call, or what is wrong with it as an exception."""
    arguments = arguments_of(source, call.end())
    if call["levelled"]:
        # {level, text} in one, or level and text, perhaps with the time between them.
        expression = arguments[-1] if len(arguments) > 1 else split(arguments[0].strip("{} "), ",")[-1]
    else:
        expression = arguments[0]
    key = (source.path, re.sub(r"\s+", " ", re.sub(r'"\s+"', "", expression)))
    if key in HANDED_ON or re.match(r"const std::string&", expression):
        return []
    branches = split(expression, "?")
    alternatives = split(branches[1], ":") if len(branches) == 2 else [expression]
    messages = []
    for alternative in alternatives:
        key = (source.path, re.sub(r"\s+", " ", alternative))
        if key in COMPOSED:
            USED.add(key)
            file, kinds = COMPOSED[key]
            text = without_comments(root / file)
            messages += [re.sub(r"\*$", MORE, form).replace("*", ANYTHING).replace("{}", part)
                         for parts, form in kinds for part in re.findall(parts, text)]
        else:
            messages += source.messages(alternative, call.start())
    if call["going"]:
        messages = [message + end for message in messages for end in (". Exception: " + ANYTHING, ". Unknown exception.")]
    if call["caught"]:
        messages = [message + ANYTHING for message in messages] + source.messages(arguments[1], call.start())
    wordless = [message for message in messages if not has_words(message)]
    if not messages or any(set(message) - {"*"} for message in wordless):
        raise ValueError(f"a message without words of its own: {key[1]}")
    return [message for message in messages if has_words(message)]


USED = set()


def messages_in_sources(root):
    """(where, message) for all of them, and problems."""
    found, problems = [], []
    starts = {path for pattern in START for path in root.glob(pattern)} - {root / path for path in NO_START}
    for path in sorted(path for folder in FOLDERS for end in ("cpp", "h") for path in (root / folder).rglob(f"*.{end}")):
        name = path.relative_to(root).as_posix()
        if name == "core/shared/qstd/log.h":
            continue  # the calls themselves
        text = without_comments(path)
        source = Source(name, text)
        for call in CALL.finditer(text):
            where = f"{name}:{text.count(chr(10), 0, call.start()) + 1}"
            try:
                found += [(where, message) for message in messages_of_call(source, call, root)]
            except ValueError as problem:
                problems.append(f"{where}: {problem}")
        raised = [(each.start(), arguments_of(source, each.end())[0]) for each in THROW.finditer(text) if path in starts]
        raised += [(each.start(), each[1]) for file, expression in START_TEXTS if file == name
                   for each in re.finditer(expression, text)]
        for place, expression in raised:
            has_line = expression.startswith(("qcfg::AtLine(", "AtLine(")) or name in LINE_IS_ADDED
            told = [AT_LINE] if has_line else source.messages(expression, place)
            found += [(f"{name}:{text.count(chr(10), 0, place) + 1}", message) for message in told
                      if has_words(message) and not message.startswith(NEVER_RAISED)]
    problems += [f"{file}: COMPOSED of check_messages.py names a call that is not there: {call}"
                 for file, call in sorted(set(COMPOSED) - USED) if (root / file).is_file()]
    return found, problems


def messages_in_guide(text):
    """(line, message as it stands) of all tables whose first column has the heading "message"."""
    found = []
    in_table = False
    for number, line in enumerate(text.splitlines(), 1):
        if not line.startswith("|"):
            in_table = False
            continue
        first = re.split(r"(?<!\\)\|", line)[1].strip()
        if first == "message":
            in_table = True
        elif in_table and not set(first) <= set("-: "):
            found += [(number, message) for message in re.findall(r"`([^`]+)`", first)]
    return found


def in_guide(message):
    """A message of the guide as it can be compared."""
    return re.sub(r"\b[A-Z]+\b|…", ANYTHING, message) + ANYTHING


def agree(left, right):
    """Whether there is a text that both stand for."""
    def widen(reached):
        """A place at ANYTHING in right may be left without taking a letter."""
        return reached | {place + 1 for place in reached if place < len(right) and right[place] == ANYTHING}

    left, right = (re.sub(f"[{ANYTHING}{MORE}]+", ANYTHING, text.strip("*")) for text in (left, right))
    states = {0}  # the places in right that can be reached together with the place in left
    for letter in left:
        states = widen(states)
        if letter == ANYTHING:
            states = set(range(min(states), len(right) + 1)) if states else set()
        else:
            states = {place if right[place] == ANYTHING else place + 1 for place in states
                      if place < len(right) and right[place] in (letter, ANYTHING)}
    return len(right) in widen(states)


RUN = 8  # so many letters in a row are no accident
LONG = 12  # a piece of a message that has to be accounted for


def pieces(message, least):
    return [piece for piece in re.split(f"[{ANYTHING}{MORE}]", message) if len(piece) >= least]


def share(piece, others):
    """Whether the piece has a run of letters in common with one of the others."""
    return any(piece[place:place + RUN] in other for place in range(len(piece) - RUN + 1) for other in others)


def is_same(message, told):
    """Whether a message of the sources is one of the guide: they agree, and not only because either leaves so much open."""
    if message == AT_LINE:
        return told == in_guide(AT_LINE)
    ours, theirs = pieces(message, RUN), pieces(told, RUN)
    return agree(message, told) and (not ours or share(ours[0], theirs)) and \
        (MORE in message or all(share(piece, ours) for piece in pieces(told, LONG)))


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    found, problems = messages_in_sources(root)
    if "--list" in sys.argv:
        for where, message in found:
            print(where, re.sub(f"[{ANYTHING}{MORE}]+", "*", message))
    told = messages_in_guide((root / "docs/operations/guide.md").read_text(encoding="utf-8"))
    rows = [(line, message, in_guide(message)) for line, message in told]
    known = set()
    for where, message in found:
        matching = [row for row in rows if is_same(message, row[2])]
        known.update(row[:2] for row in matching)
        if not matching:
            shown = re.sub(f"[{ANYTHING}{MORE}]+", "…", message)
            problems.append(f'{where}: the guide does not know "{shown}"')
    problems += [f'docs/operations/guide.md:{line}: there is no message "{message}"' for line, message, _ in rows
                 if (line, message) not in known]
    if not found:
        problems.append("no message anywhere")
    print("\n".join(problems) if problems else f"the guide knows all {len({message for _, message in found})} messages")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
