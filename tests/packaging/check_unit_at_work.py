#!/usr/bin/env python3
"""The service as a service manager runs it: start, stop, crash, watchdog, rotation, and what its processes may do.

Usage: check_unit_at_work.py BUILD
Installs the build into a copy of the machine's files that vanishes afterwards, and runs systemd there (own_systemd.py).
Exit status 77 when this machine cannot do that."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True
import own_systemd  # noqa: E402  (beside this file)

HERE = pathlib.Path(__file__).resolve().parent
UNIT = "zelkor-platformd.service"
DROP_IN = f"/run/systemd/system/{UNIT}.d/test.conf"
LOG = "/var/log/zelkor/zelkor-platformd.log"
CONFIGURATION = "/etc/zelkor/zelkor-platformd.xml"
# As installed, but quick.
QUICK = "[Service]\nRestartSec=100ms\nTimeoutStartSec=20\n"
WORKERS = """
  <monitor><frequency>1</frequency><filter><absolute enabled="false"/></filter></monitor>
  <damage_protection><frequency>1</frequency></damage_protection>
  <temperature_control>
    <frequency>1</frequency>
    <fans><set lower="0" upper="30" rpm="3000"/><set lower="25" upper="45" rpm="6500"/></fans>
  </temperature_control>
  <timesync><frequency>1</frequency></timesync>
</zelkor>
"""
SIMULATED = '<zelkor>\n  <boards backend="sim" control="/run/zelkor/chassis.sock"/>' + WORKERS
MANAGER: own_systemd.OwnSystemd


def await_true(is_true, seconds=100):
    """Whether it came true in time."""
    end = time.monotonic() + seconds
    while not is_true():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


class ServiceTest(unittest.TestCase):
    """Each test begins with a stopped service, the configuration of a simulated chassis and no logs."""

    def setUp(self):
        self.end_service()
        MANAGER.run("sh", "-c", "rm -rf /var/log/zelkor /var/cache/zelkor /run/systemd/system/zelkor-*.d")
        MANAGER.write(CONFIGURATION, SIMULATED)
        self.restrict()
        self.begin = f"@{time.time():.6f}"

    def tearDown(self):
        self.end_service()

    def end_service(self):
        MANAGER.run("systemctl", "stop", UNIT, check=False)
        MANAGER.run("systemctl", "reset-failed", UNIT, check=False)

    def restrict(self, more=""):
        """Puts these lines behind those of the unit."""
        MANAGER.write(DROP_IN, QUICK + more)
        MANAGER.run("systemctl", "daemon-reload")

    def start(self):
        done = MANAGER.run("systemctl", "start", UNIT, check=False)
        self.assertEqual(done.returncode, 0, done.stderr + self.journal())

    def show(self, name, unit=UNIT):
        return MANAGER.run("systemctl", "show", "--value", "-p", name, unit).stdout.strip()

    def journal(self):
        MANAGER.run("journalctl", "--sync")
        return MANAGER.run("journalctl", "-o", "cat", "--no-pager", "-u", UNIT, "--since", self.begin).stdout

    def await_log(self, text):
        self.assertTrue(await_true(lambda: text in MANAGER.read(LOG)), f"{text!r} is not in\n{MANAGER.read(LOG)}")

    def chassis(self, *words):
        return MANAGER.run("zelkor-chassisctl", "--socket", "/run/zelkor/chassis.sock", *words).stdout


class ServiceLife(ServiceTest):

    def test_start_is_complete_when_the_workers_run_and_an_orderly_stop_needs_no_help(self):
        self.start()
        self.assertEqual(self.show("ActiveState"), "active")
        self.assertIn("*Monitor process started.", MANAGER.read(LOG))
        MANAGER.run("systemctl", "stop", UNIT)
        self.assertEqual(self.show("Result"), "success")
        self.assertIn("***Platform daemon is stopping.", MANAGER.read(LOG))
        self.assertNotIn("All fans are set to 6500 RPM.", self.journal())

    def test_crash_sets_the_fans_from_outside_and_the_service_starts_anew(self):
        self.start()
        process = self.show("MainPID")
        MANAGER.run("kill", "-SEGV", process)
        self.assertTrue(await_true(lambda: self.show("MainPID") not in ("0", process) and
                                   self.show("ActiveState") == "active"), self.journal())
        self.assertIn("All fans are set to 6500 RPM.", self.journal())
        self.assertEqual(self.show("NRestarts"), "1")

    def test_hung_process_is_ended_by_the_watchdog_and_the_service_starts_anew(self):
        self.restrict("WatchdogSec=4\nTimeoutAbortSec=1\n")
        self.start()
        process = self.show("MainPID")
        MANAGER.run("kill", "-STOP", process)
        self.assertTrue(await_true(lambda: self.show("MainPID") not in ("0", process) and
                                   self.show("ActiveState") == "active"), self.journal())
        self.assertIn("All fans are set to 6500 RPM.", self.journal())

    def test_watchdog_is_fed(self):
        self.restrict("WatchdogSec=4\n")
        self.start()
        time.sleep(6)
        self.assertEqual((self.show("ActiveState"), self.show("NRestarts")), ("active", "0"), self.journal())

    def test_findings_of_the_check_stand_in_the_journal_and_do_not_hinder_the_start(self):
        MANAGER.write(CONFIGURATION, SIMULATED.replace("<monitor>", '<monitor colour="red">'))
        self.start()
        self.assertRegex(self.journal(), f"{CONFIGURATION}:3: (error|warning): .*colour")
        named = MANAGER.run("journalctl", "-o", "cat", "--no-pager", "-t", "zelkor-platformd", "--since", self.begin).stdout
        self.assertIn("colour", named, "the finding stands under another name than the daemon's")

    def test_check_that_does_not_end_is_ended(self):
        command = [line for line in MANAGER.run("systemctl", "cat", UNIT).stdout.splitlines()
                   if line.startswith("ExecStartPre=")][-1].partition("=-")[2].split()
        limit = command.index("20")
        MANAGER.write("/run/systemd/hangs", "#!/bin/sh\ntrap '' TERM\nwhile :; do sleep 1; done\n", "755")
        quick = [*command[:limit], "1", "/run/systemd/hangs"]
        self.restrict(f"ExecStartPre=\nExecStartPre=-{' '.join(quick)}\n")
        begin = time.monotonic()
        self.start()
        self.assertLess(time.monotonic() - begin, 60)

    def test_configuration_that_cannot_be_read_is_told_and_the_service_tries_again(self):
        MANAGER.write(CONFIGURATION, "<zelkor>")
        MANAGER.run("systemctl", "start", UNIT, check=False)
        self.assertIn(f"{CONFIGURATION}:1:", self.journal())
        MANAGER.write(CONFIGURATION, SIMULATED)
        self.assertTrue(await_true(lambda: self.show("ActiveState") == "active"), self.journal())

    def test_rotation_loses_nothing_and_the_new_file_is_in_use(self):
        MANAGER.write(DROP_IN, QUICK + f"ExecStart=\nExecStart={PROGRAM} --trace-level 3\n")
        MANAGER.run("systemctl", "daemon-reload")
        self.start()
        board = json.loads(self.chassis("list", "--json"))["boards"][0]["uri"]
        sensor_log = f"/var/log/zelkor/sensors/{board.replace('/', '_')}.log"
        self.assertTrue(await_true(lambda: MANAGER.read(sensor_log) != ""))
        before = MANAGER.read(LOG)
        for _ in range(2):
            MANAGER.run("logrotate", "--force", "--state", "/run/logrotate.state", "/etc/logrotate.d/zelkor-platformd")
            self.assertTrue(await_true(lambda: MANAGER.run("test", "-e", LOG, check=False).returncode == 0), self.journal())
            self.chassis("missing", board)
            self.await_log("Problem accessing board")
            self.chassis("heal", board)
            self.assertTrue(await_true(lambda: MANAGER.read(sensor_log) != ""))
        names = MANAGER.run("ls", "-l", "/var/log/zelkor", "/var/log/zelkor/sensors").stdout
        for name in ("zelkor-platformd.log", "zelkor-platformd.trace"):
            for ending in ("", ".1", ".2.gz"):
                self.assertRegex(names, f"-rw-r--r-- 1 zelkor zelkor .* {name}{ending}\n")
        self.assertIn(f"{pathlib.Path(sensor_log).name}.2.gz\n", names)
        oldest = MANAGER.run("zcat", f"{LOG}.2.gz").stdout
        self.assertTrue(oldest.startswith(before))
        everything = oldest + MANAGER.read(f"{LOG}.1") + MANAGER.read(LOG)
        in_journal = [line for line in self.journal().splitlines() if line.startswith("[2")]
        self.assertGreater(len(in_journal), 10)
        lines = everything.splitlines()
        self.assertEqual([line for line in in_journal if line not in lines], [])

    def make_certificate(self):
        """A new key and a certificate that it has signed itself, in the folder of the configuration."""
        with tempfile.TemporaryDirectory() as folder:
            key, certificate = (pathlib.Path(folder, name) for name in ("key", "certificate"))
            subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                            "-subj", "/CN=server", "-days", "90", "-keyout", key, "-out", certificate], check=True,
                           capture_output=True)
            MANAGER.write("/etc/zelkor/server.pem", certificate.read_text(encoding="utf-8"))
            MANAGER.write("/etc/zelkor/server.key", key.read_text(encoding="utf-8"))
            MANAGER.run("chmod", "600", "/etc/zelkor/server.key")

    def test_reload_reads_certificates_anew_and_a_key_that_is_a_credential_at_a_restart_only(self):
        self.make_certificate()
        self.restrict("LoadCredential=tls.key:/etc/zelkor/server.key\n")
        MANAGER.write(CONFIGURATION, SIMULATED.replace(
            "  <monitor>", '  <registry><tls certificate="server.pem" key-credential="tls.key" ca="server.pem"/></registry>'
            "\n  <monitor>"))
        self.start()
        MANAGER.run("systemctl", "reload", UNIT)
        self.await_log("TLS: certificates, key and revocation lists were read anew.\n")
        self.make_certificate()
        MANAGER.run("systemctl", "reload", UNIT)
        self.await_log("ERROR    TLS goes on with the files as they were read before - ")
        self.assertIn("does not belong to the key ", MANAGER.read(LOG))
        MANAGER.run("systemctl", "restart", UNIT)
        self.assertEqual(self.show("ActiveState"), "active", self.journal())
        MANAGER.run("rm", "/etc/zelkor/server.pem", "/etc/zelkor/server.key")


class Restrictions(ServiceTest):

    def problems(self, patience, configuration=SIMULATED, expected="Fans changed from"):
        """What goes wrong in a life of the service under the unit and the drop-in, or does not go right within so many
        seconds."""
        MANAGER.write(CONFIGURATION, configuration)
        MANAGER.run("systemctl", "start", UNIT, check=False)
        found = []
        if self.show("ActiveState") != "active":
            found.append(f"the start: {self.show('Result')}")
        elif not await_true(lambda: expected in MANAGER.read(LOG), patience):
            found.append(f"no message {expected!r}")
        else:
            MANAGER.run("mv", LOG, f"{LOG}.1")
            MANAGER.run("systemctl", "reload", UNIT)
            if MANAGER.run("zelkor-regctl", "set", "fans", "4000", check=False).returncode != 0:
                found.append("a client's write")
            if not await_true(lambda: MANAGER.read(LOG) != "", patience):
                found.append("no log after a rotation")
        MANAGER.run("systemctl", "stop", UNIT)
        if self.show("Result") != "success":
            found.append(f"the stop: {self.show('Result')}")
        log = MANAGER.read(f"{LOG}.1") + MANAGER.read(LOG)
        found += [line for line in log.splitlines() if line[26:34].strip() in ("WARNING", "ERROR", "CRITICAL")]
        return found

    def test_the_service_works_under_them(self):
        self.assertEqual(self.problems(100), [], self.journal())

    def test_what_the_service_needs_is_missed_when_it_is_taken_away(self):
        for lines in ("LogsDirectory=", "RuntimeDirectory=", f"InaccessiblePaths={os.path.dirname(CONFIGURATION)}",
                      "RestrictAddressFamilies=~AF_INET AF_INET6", "RestrictAddressFamilies=~AF_UNIX",
                      "RestrictAddressFamilies=~AF_NETLINK",
                      "SystemCallFilter=~timerfd_create", "SystemCallFilter=~clone clone3"):
            with self.subTest(lines):
                self.end_service()
                MANAGER.run("rm", "-rf", "/var/log/zelkor")
                self.restrict(f"Restart=no\nTimeoutStartSec=5\n{lines}\n")
                self.assertNotEqual(self.problems(10), [])

    def restrictions(self, own):
        """A unit with these lines, restricted as the service is."""
        other = ("Type=", "Exec", "Watchdog", "Restart", "SyslogIdentifier=")
        lines = [line for line in MANAGER.read(UNIT_FILE).splitlines() if not line.startswith(other)]
        return "\n".join(lines).replace("[Service]\n", "[Service]\n" + own)

    def test_device_of_the_group_can_be_opened_once_it_is_let_in(self):
        """A device that does nothing when it is opened stands for that of IPMI, which few machines have."""
        minors = {name: minor for minor, name in map(str.split, MANAGER.read("/proc/misc").splitlines())}
        minor = next((minors[name] for name in ("tun", "fuse", "loop-control") if name in minors), None)
        if minor is None:
            self.skipTest("the kernel has none of the devices that could stand for that of IPMI")
        MANAGER.run("mknod", "-m", "660", "/dev/zelkor-device", "c", "10", minor)
        MANAGER.run("chgrp", "zelkor", "/dev/zelkor-device")
        opens = "Type=oneshot\nExecStart=/bin/sh -c 'exec 3<>/dev/zelkor-device'\n"
        results = {}
        for user, is_let_in in (("zelkor", True), ("zelkor", False), ("nobody", True)):
            text = self.restrictions(opens).replace("User=zelkor\nGroup=zelkor\n", f"User={user}\n")
            text = text.replace("Directory=zelkor", "Directory=")
            if is_let_in:
                text = text.replace("DeviceAllow=", "DeviceAllow=char-misc rw\nDeviceAllow=")
            MANAGER.write("/run/systemd/system/zelkor-device.service", text)
            MANAGER.run("systemctl", "daemon-reload")
            results[user, is_let_in] = MANAGER.run("systemctl", "start", "zelkor-device", check=False).returncode == 0
        MANAGER.run("rm", "/dev/zelkor-device")
        self.assertEqual(results, {("zelkor", True): True, ("zelkor", False): False, ("nobody", True): False})

    def probe(self, unit_text):
        MANAGER.write("/run/systemd/system/zelkor-probe.service", unit_text)
        MANAGER.run("systemctl", "daemon-reload")
        MANAGER.run("mknod", "-m", "666", "/dev/zelkor-probe", "c", "1", "11", check=False)
        MANAGER.run("systemctl", "start", "zelkor-probe.service")
        MANAGER.run("journalctl", "--sync")
        return json.loads(MANAGER.run("journalctl", "-o", "cat", "--no-pager", "-n", "1", "-t", "zelkor-probe").stdout)

    def test_nothing_else_is_allowed(self):
        MANAGER.write("/usr/local/lib/zelkor-probe.py", (HERE / "probe.py").read_text(encoding="utf-8"))
        probe = "Type=oneshot\nSyslogIdentifier=zelkor-probe\nExecStart=/usr/bin/python3 /usr/local/lib/zelkor-probe.py\n"
        result = self.probe(self.restrictions(probe))
        self.assertEqual([name for name, error in result["allowed"].items() if error], [], result)
        self.assertEqual([name for name, error in result["forbidden"].items() if not error], [], result)
        self.assertEqual(result["status"], {"CapPrm": "0" * 16, "CapBnd": "0" * 16, "NoNewPrivs": "1", "Seccomp": "2"})
        self.assertEqual(str(result["user"]), MANAGER.run("id", "-u", "zelkor").stdout.strip())
        # Without the restrictions the same is allowed: it is they that forbid it.
        MANAGER.run("mkdir", "-p", "/var/log/zelkor", "/var/cache/zelkor", "/run/zelkor")
        free = self.probe("[Service]\n" + probe)
        MANAGER.run("rm", "-rf", "/var/log/zelkor", "/var/cache/zelkor", "/run/zelkor")
        self.assertEqual({name: error for name, error in free["forbidden"].items() if error},
                         {"set the clock": "EINVAL"})
        self.assertEqual(result["forbidden"]["set the clock"], "EPERM")


@unittest.skipUnless(pathlib.Path("/usr/bin/ipmi_sim").exists(), "ipmi_sim is not installed")
class BoardsOverIpmi(ServiceTest):
    """A controller that answers, whose password is a credential, and one that does not."""

    CONFIGURATION = """<zelkor>
  <boards backend="ipmi" timeout="1000" retries="1">
    <board uri="io/1" type="io" name="IO1" host="127.0.0.1" port="9001" user="operator" cipher="3"
           password-credential="io1"/>
    <board uri="io/2" type="io" name="IO2" host="127.0.0.1" port="9002" user="operator"
           password-file="/etc/zelkor/io2.pass"/>
  </boards>
""" + WORKERS
    LAN = """name "sim"
set_working_mc 0x20
  startlan 1
    addr 127.0.0.1 9001
    priv_limit admin
    guid a123456789abcdefa123456789abcdef
  endlan
  user 2 true "operator" "secret" admin 10 md5
"""
    FPGA = """<fpga read="0x30 0x10 {addr:hi} {addr:lo}" reply="{value:hi} {value:lo}"
           write="0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}"/>"""
    CONTROLLER = """mc_setbmc 0x20
mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02
sel_enable 0x20 100 0x0a
mc_enable 0x20
"""

    def setUp(self):
        super().setUp()
        MANAGER.write("/run/sim/lan.conf", self.LAN)
        MANAGER.write("/run/sim/sim.emu", self.CONTROLLER)
        MANAGER.run("systemd-run", "--unit=zelkor-sim", "ipmi_sim", "-n", "-c", "/run/sim/lan.conf", "-f",
                    "/run/sim/sim.emu", "-s", "/run/sim")
        MANAGER.write("/run/io1.pass", "secret\n", "600")
        MANAGER.write("/etc/zelkor/io2.pass", "secret\n", "600")
        MANAGER.run("chown", "zelkor", "/etc/zelkor/io2.pass")
        self.restrict("LoadCredential=io1:/run/io1.pass\n")

    def tearDown(self):
        super().tearDown()
        MANAGER.run("systemctl", "stop", "zelkor-sim")
        MANAGER.run("systemctl", "reset-failed", "zelkor-sim", check=False)

    def test_backend_is_loaded_and_asks_its_controllers(self):
        MANAGER.write(CONFIGURATION, self.CONFIGURATION)
        self.start()
        self.await_log("Controller 127.0.0.1:9001 answers:")
        self.await_log("Controller 127.0.0.1:9002 does not answer:")

    def test_crash_sets_the_fans_over_ipmi_with_the_credential(self):
        """The simulator has no fan registers: that it refuses the commands shows that the session was opened."""
        MANAGER.write(CONFIGURATION, self.CONFIGURATION.replace('"io/1" type="io"', '"icb/0" type="icb"').replace(
            'password-credential="io1"/>', 'password-credential="io1">' + self.FPGA + "</board>"))
        self.start()
        self.await_log("Controller 127.0.0.1:9001 answers:")
        MANAGER.run("kill", "-SEGV", self.show("MainPID"))
        self.assertTrue(await_true(lambda: self.show("NRestarts") == "1" and self.show("ActiveState") == "active"),
                        self.journal())
        self.assertRegex(self.journal(), "ERROR +Not all fans are at 6500 RPM: left_front cannot be")
        self.assertIn("command 0x30/0x11: 0xD4 (insufficient privilege level)", self.journal())
        self.assertNotIn("cannot open", self.journal())


def install(build):
    """Everything of the build, in a folder of its own."""
    folder = tempfile.TemporaryDirectory(prefix="zelkor-installed-")
    subprocess.run(["cmake", "--install", build, "--strip"], env={**os.environ, "DESTDIR": folder.name}, check=True,
                   stdout=subprocess.DEVNULL)
    return folder


def main():
    global MANAGER, PROGRAM, UNIT_FILE
    try:
        own_systemd.require_machine()
        with install(sys.argv[1]) as files, own_systemd.OwnSystemd(binds=[files]) as MANAGER:
            # Where /lib is a link it stays one.
            MANAGER.run("sh", "-c", f"tar -C '{files}' -c . | tar -C / -x --keep-directory-symlink --no-overwrite-dir")
            MANAGER.run("systemd-sysusers")
            MANAGER.run("systemctl", "daemon-reload")
            UNIT_FILE = MANAGER.run("systemctl", "show", "--value", "-p", "FragmentPath", UNIT).stdout.strip()
            PROGRAM = MANAGER.run("sh", "-c", "command -v zelkor-platformd").stdout.strip()
            return 0 if unittest.main(argv=sys.argv[:1] + sys.argv[2:], exit=False).result.wasSuccessful() else 1
    except own_systemd.Unavailable as reason:
        print(f"Skipped: {reason}")
        return 77


sys.exit(main())
