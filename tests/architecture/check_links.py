#!/usr/bin/env python3
"""Checks that what the documents name is there: the targets of their links, headings included, and files in backquotes.

Usage: check_links.py ROOT
Looked at are README.md, CHANGELOG.md, CONTRIBUTING.md and every .md file below docs, examples, tools, bench and tests. A name
in backquotes is taken for a file when it begins with a folder of the project (daemon/monitor.cpp, tests/unit) or is the bare
name of a source; the latter may stand in any folder. Exit status 1 when something is missing, or no link is there."""

import pathlib
import re
import sys

FOLDERS = ("docs", "examples", "tools", "bench", "tests")
SOURCES = ("bench", "bmc", "cmake", "core", "daemon", "docs", "examples", "fuzz", "packaging", "tests", "tools")
LINK = re.compile(r"\[[^\]]+\]\(([^)\s]+)\)")
QUOTED = re.compile(r"(?<!`)`([^`\n]+)`(?!`)")
PATH = re.compile(rf"(?:{'|'.join(SOURCES)})/[\w./*{{}},-]*")
BARE = re.compile(r"[\w-]+\.(?:cpp|h|py|idl|md)")


def without_blocks(text):
    """The text with its blocks of code empty; lines stay."""
    return re.sub(r"(?ms)^```.*?^```", lambda block: "\n" * block[0].count("\n"), text)


def anchors(page):
    """The anchors of a page's headings, as the usual viewers make them."""
    headings = re.findall(r"(?m)^#+ (.+)$", without_blocks(page.read_text(encoding="utf-8")))
    return {re.sub(r"[^\w -]", "", heading.replace("`", "")).strip().lower().replace(" ", "-") for heading in headings}


def problem_of_link(page, target):
    """What is wrong with a link; None when nothing is, or when it leads elsewhere."""
    if re.match(r"[a-z]+:", target):
        return None
    path, _, anchor = target.partition("#")
    file = (page.parent / path).resolve() if path else page
    if not file.exists():
        return f"the link leads nowhere: {target}"
    if anchor and anchor not in anchors(file):
        return f"there is no such heading: {target}"
    return None


def problem_of_name(root, name, bare_names):
    """What is wrong with a text in backquotes; None when nothing is, or when it is no file's name."""
    if PATH.fullmatch(name):
        # `a/{b,c}.h` are two files, and a star stands for some.
        options = re.fullmatch(r"(.*)\{([^{}]+)\}(.*)", name)
        names = [options[1] + each + options[3] for each in options[2].split(",")] if options else [name]
        missing = [each for each in names if not any(root.glob(each.rstrip("/")))]
        return f"there is no {missing[0]}" if missing else None
    if BARE.fullmatch(name) and name not in bare_names:
        return f"there is no file {name} anywhere"
    return None


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    pages = [page for page in (root / name for name in ("README.md", "CHANGELOG.md", "CONTRIBUTING.md")) if page.is_file()]
    pages += sorted(page for folder in FOLDERS for page in (root / folder).rglob("*.md"))
    bare_names = {path.name for folder in SOURCES for path in (root / folder).rglob("*")} | {page.name for page in pages}
    problems = []
    links = 0
    for page in pages:
        for number, line in enumerate(without_blocks(page.read_text(encoding="utf-8")).splitlines(), 1):
            targets = LINK.findall(line)
            links += len(targets)
            found = [problem_of_link(page, target) for target in targets]
            if not line.startswith("    "):
                found += [problem_of_name(root, name, bare_names) for name in QUOTED.findall(line)]
            problems += [f"{page.relative_to(root).as_posix()}:{number}: {problem}" for problem in found if problem]
    if not links:
        problems.append("no link anywhere")
    print("\n".join(problems) if problems else f"{links} links in {len(pages)} documents lead somewhere")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
