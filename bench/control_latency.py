#!/usr/bin/env python3
"""How long the fans take to follow a sensor: from a step of its reading to the new value in the last fan register.

usage: control_latency.py BUILD_FOLDER [STEPS]

Runs the built daemon with a fan control period of 1 s and steps one sensor up and down a table of two bands, each time at
another moment of the period. The time is taken from before the program that sets the reading is started to the
line of the chassis' journal that tells of the last of the six writes, so both programs' own time is in it. Prints the
minimum, median and maximum in milliseconds; what is over the period of 1000 ms is the daemon's and the tools'.
"""
import pathlib
import random
import statistics
import subprocess
import sys
import tempfile
import time

CHASSIS = """<chassis><board uri="icb/0" type="icb" name="ICB"><fans/>
<sensor id="1" name="Inlet" type="temperature" units="C" value="30" unc="80" uc="90" unr="100"/></board></chassis>"""
CONFIG = """<zelkor><boards backend="sim" chassis="chassis.xml" control="chassis.sock"/>
<temperature_control><frequency>1</frequency><fans>
<set lower="20" upper="40" rpm="3000"/><set lower="40" upper="60" rpm="5000"/></fans></temperature_control></zelkor>"""
LAST_REGISTER = "0x68"


def main():
    build = pathlib.Path(sys.argv[1]).resolve() / "bin"
    steps = int(sys.argv[2]) if len(sys.argv) > 2 else 20
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        (root / "chassis.xml").write_text(CHASSIS)
        (root / "config.xml").write_text(CONFIG)
        tool = [str(build / "zelkor-chassisctl"), "--socket", str(root / "chassis.sock")]
        daemon = subprocess.Popen(
            [str(build / "zelkor-platformd"), "--config", str(root / "config.xml"), "--log-dir", str(root / "log"),
             "--port", "0"], stderr=subprocess.DEVNULL)
        times = []
        try:
            while not (root / "chassis.sock").exists():
                time.sleep(0.01)
            journal = subprocess.Popen(tool + ["journal", "--follow"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                       text=True)

            def await_write(value):
                for line in journal.stdout:
                    if line.endswith(f"FpgaSpiWrite {LAST_REGISTER} {value}\n"):
                        return
                raise SystemExit("the journal ended before the fans followed")

            await_write(645)  # 3000 RPM: settled in the lower band
            for step in range(steps):
                time.sleep(1.0 + random.random())
                reading, raw = (("50", 387), ("30", 645))[step % 2]
                begin = time.perf_counter()
                subprocess.run(tool + ["set", "icb/0", "1", reading], check=True)
                await_write(raw)
                times.append((time.perf_counter() - begin) * 1000)
        finally:
            daemon.terminate()
            daemon.wait()
    print(f"step to register, period 1000 ms, {steps} steps: min {min(times):.1f} median {statistics.median(times):.1f} "
          f"max {max(times):.1f} ms (bound: 1020)")


if __name__ == "__main__":
    main()
