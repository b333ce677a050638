#!/usr/bin/env python3
"""Checks that sources quoted in the documentation are the sources as they are.

Usage: check_quotes.py ROOT
A quote is a fenced block right after a comment `<!-- quote: PATH -->`. Exit status 1 when one differs, or there is none."""

import pathlib
import re
import sys

QUOTE = re.compile(r"<!-- quote: (?P<path>\S+) -->\n+```\w*\n(?P<text>.*?)```\n", re.DOTALL)


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    problems = []
    checked = 0
    pages = [root / "README.md", *sorted((root / "docs").rglob("*.md"))]
    for page in (page for page in pages if page.is_file()):
        text = page.read_text(encoding="utf-8")
        where = page.relative_to(root).as_posix()
        found = list(QUOTE.finditer(text))
        if len(found) != text.count("<!-- quote: "):
            problems.append(f"{where}: a quote without its block")
        for quote in found:
            checked += 1
            source = root / quote["path"]
            if not source.is_file():
                problems.append(f"{where}: {quote['path']} is not there")
            elif source.read_text(encoding="utf-8") != quote["text"]:
                problems.append(f"{where}: the quote of {quote['path']} differs from the file")
    if not checked:
        problems.append("no quote anywhere")
    print("\n".join(problems) if problems else f"{checked} quotes agree with their files")
    return 1 if problems else 0


sys.exit(main())
