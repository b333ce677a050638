#!/usr/bin/env python3
"""What the daemon costs from outside: start, stop, memory, idleness.

usage: daemon_life.py BUILD_FOLDER [RUNS]

Runs the built daemon with all its workers on the chassis of recorded sensors and prints, for each figure, its bound,
minimum, median and maximum. The stop is measured twice: between passes on boards that answer at once, and in the midst of
passes on boards each of which takes a second for every access.
"""
import json
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
CONFIG = """<zelkor><boards backend="sim" chassis="{chassis}"{control}/>
<monitor enabled="true"><frequency>{period}</frequency><filter><absolute enabled="false"/></filter></monitor>
<damage_protection enabled="true"><frequency>{period}</frequency></damage_protection>
<temperature_control enabled="true"><frequency>{period}</frequency>
<fans><set lower="10" upper="60" rpm="5000"/></fans><sensors><exclude board="os/0">all</exclude>
<exclude board="io/2">35</exclude><exclude board="io/4">14</exclude><exclude board="io/7">all</exclude></sensors>
</temperature_control>
<timesync enabled="true"><frequency>{period}</frequency><delta>2</delta></timesync></zelkor>"""
# Sensors whose limit is below the table's end are left out above, or the fans would be at maximum speed all the time.
STARTED = ("Monitor settings:", "Damage Protection settings:", "Fans changed from",
           "*Time synchronization process started.")
SLOW_RUNS = 3


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


def configure(folder, period, control=""):
    pathlib.Path(f"{folder}/config.xml").write_text(
        CONFIG.format(chassis=ROOT / "examples/chassis/recorded.xml", period=period, control=control))


def start(program, folder):
    """The daemon, its first passes made, and the seconds from its start to READY."""
    notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    notify.bind(f"{folder}/notify")
    notify.settimeout(30)
    environment = dict(os.environ, NOTIFY_SOCKET=f"{folder}/notify")
    begin = time.perf_counter()
    daemon = subprocess.Popen([program, "--config", f"{folder}/config.xml", "--log-dir", f"{folder}/log", "--port", "0"],
                              env=environment, stderr=subprocess.DEVNULL)
    assert notify.recv(100) == b"READY=1"
    ready = time.perf_counter() - begin
    notify.close()
    os.unlink(f"{folder}/notify")
    log = pathlib.Path(f"{folder}/log/zelkor-platformd.log")
    while not all(message in log.read_text() for message in STARTED):
        time.sleep(0.001)
    time.sleep(1.0)
    return daemon, ready


def stop(daemon, folder):
    """The seconds from SIGTERM to the exit, which leaves the fans safe."""
    begin = time.perf_counter()
    daemon.send_signal(signal.SIGTERM)
    status = daemon.wait()
    duration = time.perf_counter() - begin
    assert status == 0, status
    log = pathlib.Path(f"{folder}/log/zelkor-platformd.log").read_text()
    changes = [line for line in log.splitlines() if "Fans changed from" in line]
    assert changes[-1].endswith("to 6500 RPM."), changes
    assert log.count(" process stopped") == 4, log
    subprocess.run(["rm", "-rf", f"{folder}/log"], check=True)
    return duration


def quick_run(program, folder, idle):
    daemon, ready = start(program, folder)
    idle_cpu = 0.0
    if idle:
        before = cpu_seconds(daemon.pid)
        time.sleep(idle)
        idle_cpu = cpu_seconds(daemon.pid) - before
    resident = memory_kib(daemon.pid, "VmRSS")
    return ready * 1e3, stop(daemon, folder) * 1e3, resident / 1024, idle_cpu * 1e3


def slow_run(program, control, folder):
    """The stop in the midst of passes when every board takes a second for an access."""
    daemon, _ = start(program, folder)
    control = [control, "--socket", f"{folder}/chassis.sock"]
    listed = json.loads(subprocess.run([*control, "list", "--json"], check=True, capture_output=True).stdout)
    for board in listed["boards"]:
        subprocess.run([*control, "slow", board["uri"], "1000"], check=True)
    time.sleep(1.5)  # longer than the period: each worker is in a pass
    return stop(daemon, folder) * 1e3


def main():
    program = f"{sys.argv[1]}/bin/zelkor-platformd"
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 7
    with tempfile.TemporaryDirectory() as folder:
        configure(folder, 60)
        rows = [quick_run(program, folder, 10 if run == 0 else 0) for run in range(runs)]
        configure(folder, 1, ' control="chassis.sock"')
        slow = [slow_run(program, f"{sys.argv[1]}/bin/zelkor-chassisctl", folder) for _ in range(SLOW_RUNS)]
    print(f"{'figure':42}{'bound':>10}{'min':>10}{'median':>10}{'max':>10}")
    for name, bound, values in (("start to READY [ms]", 100, [row[0] for row in rows]),
                                ("SIGTERM to exit [ms]", 100, [row[1] for row in rows]),
                                ("SIGTERM to exit, 1 s for an access [ms]", 2000, slow),
                                ("resident memory [MiB]", 16, [row[2] for row in rows]),
                                ("CPU in 10 s between passes [ms]", "", [rows[0][3]])):
        print(f"{name:42}{bound:>10}{min(values):10.2f}{statistics.median(values):10.2f}{max(values):10.2f}")


if __name__ == "__main__":
    main()
