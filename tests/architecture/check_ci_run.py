#!/usr/bin/env python3
"""That .ci/run fails with each of its steps, says what was not tested, and ends with all it started when it is told to. In
a folder where every program that it calls does no more than this check asks of it.

Usage: check_ci_run.py ROOT"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

STEPS = (".ci/install-packages", ".ci/test-i386 true", "make deb", "cmake", "python3", "make asan-build", "make asan-test",
         "make tsan-build", "make tsan-test", ".ci/test-i386 --build", ".ci/test-i386", "make build", "make test")
MAY_BE_IMPOSSIBLE = (".ci/test-i386 true", "python3")
LIMIT_SECONDS = 60
# "NAME WORD" or "NAME": what is asked of it stands in $STEP and $STATUS. One that hangs says its process's id first.
STUB = """#!/bin/sh
name=$(basename "$0")
[ "$name" != "$0" ] && [ -e ".ci/$name" ] && name=.ci/$name
case $name in make | .ci/test-i386) name="$name${1:+ $1}" ;; esac
echo "($name)"
[ "$name" = "$STEP" ] || exit 0
[ "$STATUS" = hang ] || exit "$STATUS"
echo $$ >process.new && mv process.new process
exec sleep 600
"""


def expect(is_true, text):
    if not is_true:
        raise AssertionError(text)


class Place:
    def __init__(self, root, folder):
        self.folder = folder
        self.temporary = folder / "tmp"
        for each in ("bin", ".ci", "tmp"):
            (folder / each).mkdir()
        shutil.copy(root / ".ci/run", folder / ".ci/run")
        for each in ("bin/make", "bin/cmake", "bin/python3", ".ci/install-packages", ".ci/test-i386"):
            (folder / each).write_text(STUB, encoding="utf-8")
            (folder / each).chmod(0o755)

    def start(self, step="", status="0"):
        environment = {**os.environ, "PATH": f"{self.folder}/bin:{os.environ['PATH']}", "TMPDIR": str(self.temporary),
                       "STEP": step, "STATUS": status}
        with open(self.folder / "output", "w", encoding="utf-8") as output:
            return subprocess.Popen([".ci/run"], cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                                    stdout=output, stderr=subprocess.STDOUT)

    def run(self, step="", status="0"):
        """Its exit status, and what it said."""
        done = self.start(step, status).wait(LIMIT_SECONDS)
        expect(not list(self.temporary.iterdir()), f"{step}: files are left")
        return done, (self.folder / "output").read_text(encoding="utf-8")

    def stop_amid(self, step, number):
        """Tells it to end while a step hangs."""
        process_file = self.folder / "process"
        process_file.unlink(missing_ok=True)
        run = self.start(step, "hang")
        try:
            self.stop_once_there(run, step, number, process_file)
        finally:
            run.kill()
        expect(not list(self.temporary.iterdir()), f"stopped amid {step}: files are left")

    @staticmethod
    def stop_once_there(run, step, number, process_file):
        end = time.monotonic() + LIMIT_SECONDS
        while not process_file.exists():
            expect(time.monotonic() < end and run.poll() is None, f"{step} is not come to")
            time.sleep(0.01)
        run.send_signal(number)
        status = run.wait(LIMIT_SECONDS)
        expect(status == 1, f"stopped amid {step}: status {status}")
        expect(not pathlib.Path("/proc", process_file.read_text(encoding="utf-8").strip()).exists(), f"{step} still runs")


def check(place):
    status, said = place.run()
    expect(status == 0 and "NOT TESTED" not in said and said.endswith("(make test)\n"), f"status {status}:\n{said}")
    for step in STEPS:
        expect(f"({step})\n" in said, f"{step} is not run:\n{said}")
        failed, said_then = place.run(step, "3")
        expect(failed == 3, f"{step} fails, and the run ends with status {failed}:\n{said_then}")
    for step in MAY_BE_IMPOSSIBLE:
        status, said = place.run(step, "77")
        expect(status == 0 and said.count("NOT TESTED") == 1, f"{step} is not possible: status {status}\n{said}")
    for step in STEPS:
        place.stop_amid(step, signal.SIGTERM)


def main():
    with tempfile.TemporaryDirectory() as folder:
        check(Place(pathlib.Path(sys.argv[1]), pathlib.Path(folder)))
    print("every step counts, and the run ends when it is told to")


main()
