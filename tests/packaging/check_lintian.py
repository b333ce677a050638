#!/usr/bin/env python3
"""Makes the Debian packages of a build and has lintian look at them: neither an error nor a warning is let pass.

Usage: check_lintian.py BUILD [PACKAGE...]
With PACKAGE, those are looked at and none is made. Exit status 77 when lintian or what makes the packages is missing."""

import pathlib
import shutil
import subprocess
import sys
import tempfile


def make(build, folder):
    subprocess.run(["cpack", "--config", f"{pathlib.Path(build).absolute()}/CPackConfig.cmake", "-B", folder,
                    "-D", f"CPACK_OUTPUT_FILE_PREFIX={folder}"], cwd=folder, check=True, stdout=subprocess.DEVNULL)
    return sorted(pathlib.Path(folder).glob("*.deb"))


def findings(packages):
    """What lintian says that counts, and its status."""
    done = subprocess.run(["lintian", "--fail-on=error,warning", "--allow-root", *map(str, packages)], capture_output=True,
                          text=True, timeout=500, check=False)
    return done.stdout + done.stderr, done.returncode


def main():
    for tool in ("lintian", "dpkg-shlibdeps", "cpack"):
        if shutil.which(tool) is None:
            print(f"Skipped: {tool} is not installed")
            return 77
    with tempfile.TemporaryDirectory() as folder:
        packages = [pathlib.Path(name) for name in sys.argv[2:]] or make(sys.argv[1], folder)
        if not packages:
            print("there are no packages")
            return 1
        text, status = findings(packages)
        print(text or f"lintian accepts {', '.join(package.name for package in packages)}")
        # A package without its copyright must be found, or else nothing is.
        subprocess.run(["dpkg-deb", "-R", packages[0], f"{folder}/broken"], check=True)
        shutil.rmtree(f"{folder}/broken/usr/share/doc")
        subprocess.run(["dpkg-deb", "--root-owner-group", "-b", f"{folder}/broken", f"{folder}/broken.deb"], check=True,
                       stdout=subprocess.DEVNULL)
        if findings([f"{folder}/broken.deb"])[1] == 0:
            print("a package without copyright is accepted: this check finds nothing")
            return 1
        return 0 if status == 0 else 1


sys.exit(main())
