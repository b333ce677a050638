#!/usr/bin/env python3
"""Has xmllint look at every XML file that is shipped: configurations against the schema, chassis for their form.

Usage: check_xml.py SOURCE SCHEMA
Exit status 77 when xmllint is not installed."""

import pathlib
import shutil
import subprocess
import sys
import tempfile


def lint(schema, files):
    """What xmllint says when something is wrong, else nothing."""
    done = subprocess.run(["xmllint", "--nonet", "--noout", *(["--schema", schema] if schema else []), *files],
                          capture_output=True, text=True, timeout=200, check=False)
    return "" if done.returncode == 0 else done.stdout + done.stderr


def main():
    if shutil.which("xmllint") is None:
        print("Skipped: xmllint is not installed")
        return 77
    source, schema = pathlib.Path(sys.argv[1]), sys.argv[2]
    configurations = [source / "packaging/etc/zelkor-platformd.xml", *sorted(source.glob("examples/config/*.xml"))]
    chassis = sorted(source.glob("examples/chassis/*.xml"))
    if len(configurations) < 2 or not chassis:
        print(f"there are no examples below {source}")
        return 1
    said = lint(schema, configurations) + lint(None, chassis)
    with tempfile.NamedTemporaryFile("w", suffix=".xml") as wrong:
        wrong.write('<zelkor><monitor colour="red"/></zelkor>')
        wrong.flush()
        if not lint(schema, [wrong.name]):
            said += "an unknown attribute is not found: this check finds nothing\n"
    print(said or f"{len(configurations)} configurations and {len(chassis)} chassis are in order")
    return 1 if said else 0


sys.exit(main())
