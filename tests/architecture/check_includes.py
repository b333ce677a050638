#!/usr/bin/env python3
"""Checks who includes whom: the directions between the libraries, and which of them may know an outside library.

Usage: check_includes.py ROOT
Prints FILE:LINE: text for every include that goes the wrong way; exit status 1 when there is one."""

import pathlib
import re
import sys

# Folder -> folders whose headers its sources may include, besides its own. A file belongs to the longest folder (or
# file) named here that holds it.
ARROWS = {
    "core/shared/qstd": set(),
    "core/shared/qfeature": {"core/shared/qstd"},
    "core/shared/qcfg": {"core/shared/qstd"},
    "core/shared/qnode": {"core/shared/qstd"},
    "core/shared/qreg": {"core/shared/qnode", "core/shared/qstd"},
    "core/shared/qreg/tls": {"core/shared/qstd"},
    "core/shared/qreg/corba": {"core/shared/qreg", "core/shared/qreg/tls", "core/shared/qnode", "core/shared/qstd"},
    "core/shared/qapp": {"core/shared/qreg", "core/shared/qreg/tls", "core/shared/qnode", "core/shared/qcfg", "core/shared/qfeature",
                         "core/shared/qstd", "bmc"},
    "bmc": {"core/shared/qstd"},
    "bmc/sim": {"bmc", "bmc/sim/control_protocol.h", "core/shared/qcfg", "core/shared/qstd"},
    # The language of the control socket: its client knows it and nothing else of the simulation.
    "bmc/sim/control_protocol.h": {"core/shared/qstd"},
    "bmc/ipmi": {"bmc", "bmc/ipmi/settings.h", "bmc/ipmi/plugin_loader.h", "core/shared/qcfg", "core/shared/qstd"},
    # What a program itself knows of boards over IPMI: their settings, and how the backend is loaded.
    "bmc/ipmi/settings.h": {"bmc", "bmc/ipmi", "core/shared/qcfg", "core/shared/qstd"},
    "bmc/ipmi/plugin_loader.h": {"bmc", "bmc/ipmi", "bmc/ipmi/settings.h", "core/shared/qcfg", "core/shared/qstd"},
    "daemon": {"bmc", "core/shared/qapp", "core/shared/qreg", "core/shared/qnode", "core/shared/qcfg",
               "core/shared/qfeature", "core/shared/qstd"},
    "daemon/main.cpp": {"daemon", "bmc", "bmc/sim", "bmc/ipmi", "bmc/ipmi/plugin_loader.h", "core/shared/qreg/corba", "core/shared/qapp",
                        "core/shared/qreg", "core/shared/qnode", "core/shared/qcfg", "core/shared/qfeature",
                        "core/shared/qstd"},
    "tools/regctl": {"core/shared/qreg/corba", "core/shared/qreg/tls", "core/shared/qreg", "core/shared/qnode", "core/shared/qstd"},
    # What others write knows the wire contract and no header of ours.
    "examples/registry_client": set(),
    "tools/chassisctl": {"bmc", "bmc/sim/control_protocol.h", "bmc/ipmi/settings.h", "bmc/ipmi/plugin_loader.h",
                         "core/shared/qcfg", "core/shared/qstd"},
}

# Outside library -> (the folders that may include it, whether only sources may and headers not).
OUTSIDE = {
    "libxml/": ({"core/shared/qcfg"}, True),
    "spdlog/": ({"core/shared/qstd"}, True),
    "omniORB4/": ({"core/shared/qreg/corba"}, False),
    "omnithread": ({"core/shared/qreg/corba"}, False),
    "openssl/": ({"core/shared/qreg/tls", "core/shared/qreg/corba"}, False),
    "systemd/": ({"core/shared/qapp"}, True),
    "gtest/": (set(), False),
    "gmock/": (set(), False),
    "benchmark/": (set(), False),
}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def owner(path):
    """The entry of ARROWS that the file belongs to, None when there is none."""
    names = [name for name in ARROWS if path == name or path.startswith(name + "/")]
    return max(names, key=len, default=None)


def target(root, file, name):
    """The path below the root that an include in quotes means, None when no such file is there."""
    for folder in (file.parent, root / "core/shared", root, root / "daemon"):
        if (folder / name).is_file():
            return (folder / name).resolve().relative_to(root).as_posix()
    return None


def problem_of(root, file, bracket, name):
    """What is wrong with one include; None when nothing is."""
    path = file.relative_to(root).as_posix()
    source = owner(path)
    for prefix, (folders, sources_only) in OUTSIDE.items():
        if name.startswith(prefix):
            if source not in folders:
                return f"{source} includes <{name}>, which is only for {', '.join(sorted(folders)) or 'tests and benches'}"
            if sources_only and path.endswith(".h"):
                return f"a header includes <{name}>, which only sources may"
    if bracket == "<":
        return None
    included = target(root, file, name)
    if included is None:
        # A header that the build makes (build_info.h and the like) is not below the folders of sources.
        return None if "/" not in name else f'"{name}" is no file of this project'
    if included.startswith(("tests/", "bench/", "fuzz/")):
        return f'{source} includes "{name}": nothing outside may include tests, benches or fuzz targets'
    wanted = owner(included)
    if wanted == source or wanted in ARROWS[source]:
        return None
    return f'{source} includes "{name}" of {wanted}'


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    problems = []
    count = 0
    for top in ("core", "bmc", "daemon", "examples", "tools"):
        for file in sorted((root / top).rglob("*")):
            if file.suffix not in (".h", ".cpp") or not file.is_file():
                continue
            count += 1
            path = file.relative_to(root).as_posix()
            if owner(path) is None:
                problems.append(f"{path}:1: belongs to no folder of the table in {pathlib.Path(__file__).name}")
                continue
            for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
                found = INCLUDE.match(line)
                problem = problem_of(root, file, *found.groups()) if found else None
                if problem:
                    problems.append(f"{path}:{number}: {problem}")
    print("\n".join(problems) if problems else f"{count} files include each other in the right directions")
    if count == 0:
        print(f"no sources below {root}")
    return 1 if problems or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
