#!/usr/bin/env python3
"""The life of the Debian packages on a machine that has nothing but Debian's least system: installed, used, upgraded,
removed, purged.

Usage: check_clean_root.py BUILD
BUILD holds the packages (BUILD/packages) and the end-to-end tests, which are run against the installed programs. The root
folder is made in memory from the sources of packages that this machine has, with systemd running in it (own_systemd.py);
archives are kept below BUILD. Exit status 77 when this machine cannot do that."""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

sys.dont_write_bytecode = True
import own_systemd  # noqa: E402  (beside this file)

SOURCE = pathlib.Path(__file__).resolve().parents[2]
UNIT = "zelkor-platformd.service"
CONFIGURATION = "/etc/zelkor/zelkor-platformd.xml"
PACKAGES = ("zelkor-platformd", "zelkor-bmc-ipmi")
# The service manager, what is recommended, and what the end-to-end tests need: simulated controllers, certificates, time zones.
INCLUDED = "systemd,logrotate,openipmi,ipmitool,openssl,tzdata"
SHARDS = 6
# What the package manager and the service manager keep for themselves, and what is made anew at any time.
NOT_LOOKED_AT = ("/var/lib/dpkg", "/var/lib/apt", "/var/cache", "/var/log/apt", "/var/log/dpkg.log", "/var/log/journal",
                 "/var/log/alternatives.log", "/var/lib/systemd/catalog", "/etc/ld.so.cache", "/proc", "/sys", "/dev", "/run",
                 "/tmp", "/var/tmp", "/root")
LEFT_BY_REMOVAL = [
    "/etc/logrotate.d/zelkor-platformd", "/etc/zelkor", CONFIGURATION, f"{CONFIGURATION}.dpkg-dist",
    # That the service is enabled is a choice of the operator, too.
    f"/etc/systemd/system/multi-user.target.wants/{UNIT}", f"/var/lib/systemd/deb-systemd-helper-enabled/{UNIT}.dsh-also",
    f"/var/lib/systemd/deb-systemd-helper-enabled/multi-user.target.wants/{UNIT}",
    "/var/log/zelkor", "/var/log/zelkor/zelkor-platformd.log"]


def expect(is_true, text):
    if not is_true:
        raise AssertionError(text)


def in_own_mounts():
    """Goes on in a namespace of mounts that vanish with this program, however it ends."""
    if "ZELKOR_OWN_MOUNTS" not in os.environ:
        own_systemd.require_machine()
        os.execvpe("unshare", ["unshare", "--mount", "--propagation=private", sys.executable, *sys.argv],
                   {**os.environ, "ZELKOR_OWN_MOUNTS": "1"})


def step(text, begin=time.monotonic()):
    print(f"{time.monotonic() - begin:6.1f} s  {text}", flush=True)


class CleanRoot:
    def __init__(self, build):
        self.build = build
        self.folder = build / "clean-root"
        self.root = self.folder / "root"
        self.archives = self.folder / "archives"

    def make(self):
        """Debian's least system, by the sources of packages of this machine."""
        self.archives.mkdir(parents=True, exist_ok=True)
        self.root.mkdir(exist_ok=True)
        # In memory: the package manager has every file written to the disk, which takes longer than all else.
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755,size=3g", "tmpfs", self.root], check=True)
        sources = subprocess.run(["apt-get", "indextargets", "--format", "deb $(REPO_URI) $(RELEASE) $(COMPONENT)",
                                  "Created-By: Packages", "Origin: Debian"], capture_output=True, text=True, check=True)
        if not sources.stdout:
            raise own_systemd.Unavailable("apt knows no source of Debian's packages (apt-get update)")
        release = dict(line.split("=", 1) for line in
                       pathlib.Path("/etc/os-release").read_text(encoding="utf-8").splitlines() if "=" in line)
        # Archives that were fetched before are not fetched again.
        keep = ["--skip=download/empty,essential/unlink,cleanup/apt/cache,cleanup/apt/lists",
                '--setup-hook=mkdir -p "$1/var/cache/apt/archives/partial"',
                f'--setup-hook=cp -n "{self.archives}"/*.deb "$1/var/cache/apt/archives/" 2>/dev/null || true']
        done = subprocess.run(["mmdebstrap", "--quiet", "--mode=root", "--variant=minbase",
                               f"--include={INCLUDED}", *keep, release["VERSION_CODENAME"], self.root, "-"],
                              input=sources.stdout, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        expect(done.returncode == 0, done.stdout)
        # As Debian's installation writes it; the least system has none.
        (self.root / "etc/hosts").write_text("127.0.0.1\tlocalhost\n::1\tlocalhost ip6-localhost ip6-loopback\n", encoding="utf-8")

    def keep_archives(self):
        for package in (self.root / "var/cache/apt/archives").glob("*.deb"):
            if not (self.archives / package.name).exists():
                shutil.copy(package, self.archives)


class Life:
    def __init__(self, build, manager, root, binds):
        self.build = build
        self.binds = binds
        self.manager = manager
        self.root = root
        self.packages = self.put_in({name: self.package(name) for name in PACKAGES})

    def package(self, name):
        found = sorted((self.build / "packages").glob(f"{name}_*.deb"))
        expect(len(found) == 1, f"{len(found)} packages {name} in {self.build}/packages, expected one")
        return found[0]

    def put_in(self, packages):
        """Copies packages into the root. Their names in there."""
        for package in packages.values():
            shutil.copy(package, self.root / "var/tmp")
        return [f"/var/tmp/{package.name}" for package in packages.values()]

    def apt(self, *words):
        self.manager.run("apt-get", "-q", "-y", "--no-install-recommends", *words, own_network=False,
                         environment={"DEBIAN_FRONTEND": "noninteractive"})

    def show(self, name):
        return self.manager.run("systemctl", "show", "--value", "-p", name, UNIT).stdout.strip()

    def strangers(self, before):
        """Files that were not there before and belong to no package."""
        owned = set(self.manager.run("sh", "-c", "cat /var/lib/dpkg/info/*.list").stdout.splitlines())
        # A package that is removed but for its configuration still has a list.
        for name in PACKAGES:
            owned -= set(self.manager.read(f"/var/lib/dpkg/info/{name}.list").splitlines()) - set(before)
        return sorted(path for path in set(self.files()) - set(before) if path not in owned)

    def files(self):
        prune = [word for path in (*NOT_LOOKED_AT, SOURCE, self.build) for word in ("-path", str(path), "-o")][:-1]
        return self.manager.run("find", "/", "(", *prune, ")", "-prune", "-o", "-print").stdout.splitlines()

    def install(self):
        self.apt("install", *self.packages)
        expect(self.show("ActiveState") == "active", "the service does not run after the installation\n" + self.journal())
        expect(self.manager.run("systemctl", "is-enabled", UNIT).stdout == "enabled\n", "it is not enabled")
        tree = self.manager.run("zelkor-regctl", "tree").stdout
        expect("boards" in tree and "fans" in tree, tree)
        expect("***Platform daemon started" in self.manager.read("/var/log/zelkor/zelkor-platformd.log"), "no log")
        expect(self.manager.run("stat", "-c", "%U", f"/proc/{self.show('MainPID')}").stdout == "zelkor\n",
               "it runs as somebody else")

    def journal(self):
        self.manager.run("journalctl", "--sync")
        return self.manager.run("journalctl", "-o", "cat", "--no-pager", "-u", UNIT).stdout

    def run_tests(self):
        """The end-to-end tests, in several parts at a time. They and all that they start, the daemons above all, run as the
        service does: as its user, with its restrictions. Only their folders are others."""
        self.manager.run("systemctl", "stop", UNIT)
        passed_over = ("Type=", "Exec", "Watchdog", "Restart", "Timeout", "ProtectHome=")
        lines = [line for line in self.manager.read(f"/lib/systemd/system/{UNIT}").splitlines()
                 if not line.startswith(passed_over) and "Directory" not in line]
        expect(lines.count("User=zelkor") == 1 and len(lines) > 30, "the restrictions of the unit are not found")
        parts = {}
        for program in sorted((self.build / "bin").glob("e2e*_test")):
            for shard in range(SHARDS):
                name = f"zelkor-{program.name}-{shard}.service"
                settings = {"ZELKOR_PROGRAMS": "/usr/sbin:/usr/bin", "GTEST_TOTAL_SHARDS": SHARDS,
                            "GTEST_SHARD_INDEX": shard, "GTEST_BRIEF": 1, "TMPDIR": "/tmp"}
                own = ["Type=oneshot", f"ExecStart={program}", "ProtectHome=tmpfs",
                       f"BindReadOnlyPaths={' '.join(self.binds)}",
                       *[f"Environment={key}={value}" for key, value in settings.items()]]
                self.manager.write(f"/run/systemd/system/{name}",
                                   "\n".join(lines).replace("[Service]", "\n".join(["[Service]", *own])) + "\n")
                parts[name] = None
        expect(parts, "no end-to-end tests are built")
        self.manager.run("systemctl", "daemon-reload")
        for name in parts:
            parts[name] = subprocess.Popen(self.manager.command("systemctl", "start", name), stdin=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL)
        statuses = {name: part.wait() for name, part in parts.items()}
        self.manager.run("journalctl", "--sync")
        passed = 0
        for name, status in statuses.items():
            said = self.manager.run("journalctl", "-o", "cat", "--no-pager", "-u", name).stdout
            expect(status == 0, f"{name}: status {status}\n{said}")
            passed += sum(int(line.split()[3]) for line in said.splitlines() if "[  PASSED  ]" in line)
        expect(passed > 0, "no test was run")
        self.manager.run("systemctl", "start", UNIT)
        return passed

    def upgrade(self):
        """To packages of a higher version, whose own configuration is another."""
        mine = self.manager.read(CONFIGURATION).replace("<frequency>60</frequency>", "<frequency>7</frequency>", 1)
        self.manager.write(CONFIGURATION, mine)
        process = self.show("MainPID")
        self.apt("install", "-o", "Dpkg::Options::=--force-confdef", "-o", "Dpkg::Options::=--force-confold",
                 *self.put_in({name: self.higher(name) for name in PACKAGES}))
        for name in PACKAGES:
            version = self.manager.run("dpkg-query", "-W", "-f", "${Version}", name).stdout
            expect(version.endswith("-2"), f"{name} is of version {version}")
        expect(self.manager.read(CONFIGURATION) == mine, "the operator's configuration is changed")
        expect(self.show("ActiveState") == "active" and self.show("MainPID") != process, "the service was not started anew")
        settings = self.manager.read("/var/log/zelkor/zelkor-platformd.log").rpartition("Monitor settings:")[2]
        expect("frequency = 7 seconds" in settings, f"the operator's configuration is not in force\n{settings}")

    def higher(self, name):
        folder = self.build / "clean-root/higher" / name
        shutil.rmtree(folder, ignore_errors=True)
        folder.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["dpkg-deb", "-R", self.package(name), folder], check=True)
        control = folder / "DEBIAN/control"
        version = self.manager.run("dpkg-query", "-W", "-f", "${Version}", name).stdout
        control.write_text(control.read_text(encoding="utf-8").replace(version, version.rpartition("-")[0] + "-2"),
                           encoding="utf-8")
        configuration = folder / CONFIGURATION.lstrip("/")
        if configuration.exists():
            configuration.write_text(configuration.read_text(encoding="utf-8") + "<!-- of the higher version -->\n",
                                     encoding="utf-8")
        package = folder.with_name(f"{name}_higher.deb")
        subprocess.run(["dpkg-deb", "--root-owner-group", "-Znone", "-b", folder, package], check=True,
                       stdout=subprocess.DEVNULL)
        return package

    def take_away(self, before):
        self.apt("remove", *PACKAGES)
        expect(self.manager.run("systemctl", "is-active", UNIT, check=False).returncode != 0, "the service still runs")
        left = [path for path in self.strangers(before) if not path.startswith("/var/log/zelkor/sensors")]
        expect(left == sorted(LEFT_BY_REMOVAL), "left by the removal:\n" + "\n".join(left))
        self.apt("purge", *PACKAGES)
        expect(self.strangers(before) == [], "left by the purge:\n" + "\n".join(self.strangers(before)))
        named = self.manager.run("find", "/", "-xdev", "-name", "*zelkor*", "-not", "-path", f"{SOURCE}*", "-not", "-path",
                                 "/var/tmp/*").stdout
        expect(named == "", f"left by the purge:\n{named}")


def check(build):
    for tool in ("mmdebstrap", "apt-get", "dpkg-deb"):
        if shutil.which(tool) is None:
            raise own_systemd.Unavailable(f"{tool} is not installed")
    clean = CleanRoot(build)
    step("making a root folder")
    clean.make()
    step("starting systemd in it")
    # What the tests need. Not the folders above, which the service's user need not be able to enter.
    sources = [path for path in SOURCE.iterdir() if path.is_dir() and not path.name.startswith(("build", "."))]
    binds = [str(path) for path in (*sources, build / "bin", build / "tests", build / "lib")]
    with own_systemd.OwnSystemd(clean.root, binds) as manager:
        life = Life(build, manager, clean.root, binds)
        before = life.files()
        step("installing the packages")
        life.install()
        step("running the end-to-end tests against the installed programs")
        step(f"{life.run_tests()} tests passed; upgrading")
        life.upgrade()
        step("removing and purging")
        life.take_away(before)
    clean.keep_archives()
    step("done: installed, used, upgraded, removed, purged")


def main():
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))
    try:
        in_own_mounts()
        check(pathlib.Path(os.path.abspath(sys.argv[1])))
    except own_systemd.Unavailable as reason:
        print(f"Skipped: {reason}")
        return 77
    except AssertionError as problem:
        print(problem)
        return 1
    return 0


sys.exit(main())
