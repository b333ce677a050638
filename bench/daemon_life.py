#!/usr/bin/env python3
"""What the daemon costs from outside: start, stop, memory, idleness.

usage: daemon_life.py BUILD_FOLDER [RUNS]

Runs the built daemon on the chassis of 300 recorded sensors and prints, for each figure, minimum, median and maximum.
"""
import os
import pathlib
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
CONFIG = """<zelkor><boards backend="sim" chassis="{chassis}"/>
<monitor enabled="true"><frequency>60</frequency>
<filter><absolute enabled="false"/></filter></monitor></zelkor>"""


def memory_kib(pid, field):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(field + ":"):
            return int(line.split()[1])
    raise KeyError(field)


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / 1e9 if fields else 0.0


def one_run(program, folder, idle):
    notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    notify.bind(f"{folder}/notify")
    notify.settimeout(30)
    environment = dict(os.environ, NOTIFY_SOCKET=f"{folder}/notify")
    begin = time.perf_counter()
    daemon = subprocess.Popen([program, "--config", f"{folder}/config.xml", "--log-dir", f"{folder}/log", "--port", "0"],
                              env=environment, stderr=subprocess.DEVNULL)
    assert notify.recv(100) == b"READY=1"
    ready = time.perf_counter() - begin
    log = pathlib.Path(f"{folder}/log/zelkor-platformd.log")
    while "relative filter" not in log.read_text():
        time.sleep(0.001)
    time.sleep(1.0)
    idle_cpu = 0.0
    if idle:
        before = cpu_seconds(daemon.pid)
        time.sleep(idle)
        idle_cpu = cpu_seconds(daemon.pid) - before
    resident = memory_kib(daemon.pid, "VmRSS")
    begin = time.perf_counter()
    daemon.send_signal(signal.SIGTERM)
    status = daemon.wait()
    stop = time.perf_counter() - begin
    assert status == 0, status
    notify.close()
    os.unlink(f"{folder}/notify")
    subprocess.run(["rm", "-rf", f"{folder}/log"], check=True)
    return ready * 1e3, stop * 1e3, resident / 1024, idle_cpu * 1e3


def main():
    program = f"{sys.argv[1]}/bin/zelkor-platformd"
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 7
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(f"{folder}/config.xml").write_text(CONFIG.format(chassis=ROOT / "examples/chassis/recorded.xml"))
        rows = [one_run(program, folder, 10 if run == 0 else 0) for run in range(runs)]
    print(f"{'figure':38}{'min':>10}{'median':>10}{'max':>10}")
    for name, values in (("start to READY [ms]", [row[0] for row in rows]),
                         ("SIGTERM to exit [ms]", [row[1] for row in rows]),
                         ("resident memory [MiB]", [row[2] for row in rows]),
                         ("CPU in 10 s between passes [ms]", [rows[0][3]])):
        print(f"{name:38}{min(values):10.2f}{statistics.median(values):10.2f}{max(values):10.2f}")


if __name__ == "__main__":
    main()
