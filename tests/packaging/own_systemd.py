"""A service manager of its own: systemd as process 1 of namespaces of its own, with a root folder of its own.

Nothing outside is touched but one control group, which is removed at the end. All mounts are made in the namespaces and
vanish with them; the processes in there end with the one that started it. The network in there is a loopback only."""

import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

DEVICES = ("null", "zero", "full", "random", "urandom", "tty")


class Unavailable(Exception):
    """This machine cannot do it; the text says why."""


def unified_hierarchy():
    """Where the version 2 hierarchy of control groups is."""
    for line in pathlib.Path("/proc/self/mounts").read_text(encoding="utf-8").splitlines():
        _, target, kind, options, *_ = line.split()
        if kind == "cgroup2" and "rw" in options.split(","):
            return pathlib.Path(target)
    raise Unavailable("there is no version 2 hierarchy of control groups that can be written")


def require_machine():
    """Raises Unavailable where no service manager of its own can be started."""
    if os.geteuid() != 0:
        raise Unavailable("namespaces and mounts need root")
    for tool in ("unshare", "nsenter", "setpriv", "pivot_root", "mount", "ip", "hostname"):
        if shutil.which(tool) is None:
            raise Unavailable(f"{tool} is not installed")
    done = subprocess.run(["unshare", "--mount", "--pid", "--fork", "--ipc", "--uts", "--net", "--cgroup",
                           "--mount-proc", "true"], capture_output=True, text=True, timeout=120, check=False)
    if done.returncode != 0:
        raise Unavailable(f"namespaces are refused: {done.stderr.strip()}")
    unified_hierarchy()


def remove_groups(top):
    """Removes a control group and those below it, as far as no process is in them."""
    below = sorted((path for path in top.rglob("*") if path.is_dir()), key=lambda path: len(path.parts), reverse=True)
    for group in [*below, top]:
        with contextlib.suppress(OSError):
            group.rmdir()


class OwnSystemd:
    """A running systemd, from start() to stop(); also as a context."""

    def __init__(self, root=None, binds=()):
        """root: the root folder, which is written to. None: the machine's own files, to which nothing is written, and
        of which no unit is enabled. binds: folders of the machine that can be read in there, at the same place."""
        if root is None and not pathlib.Path("/lib/systemd/systemd").exists():
            raise Unavailable("systemd is not installed")
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix="zelkor-systemd-"))
        self._plan = {"folder": str(self._folder), "root": None if root is None else str(root),
                      "binds": [str(path) for path in binds]}
        self._group = unified_hierarchy() / f"zelkor-test-{os.getpid()}"
        self._process = None
        self._pid = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        # What one that was killed left behind.
        for group in self._group.parent.glob("zelkor-test-*"):
            if not pathlib.Path(f"/proc/{group.name.rpartition('-')[2]}").exists():
                remove_groups(group)
        self._group.mkdir()
        enter_group = f"echo $$ > '{self._group}/cgroup.procs' && exec \"$@\""
        with open(self._folder / "console", "wb") as console:
            self._process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "sh", "-c", enter_group, "sh", "unshare", "--mount", "--pid", "--fork",
                 "--ipc", "--uts", "--net", "--cgroup", "--kill-child=KILL", sys.executable, __file__,
                 json.dumps(self._plan)], stdin=subprocess.DEVNULL, stdout=console, stderr=console)
        end = time.monotonic() + 180
        while self._running_state() not in ("running", "degraded"):
            if self._process.poll() is not None or time.monotonic() > end:
                said = (self._folder / "console").read_text(encoding="utf-8", errors="replace")
                self.stop()
                raise Unavailable(f"systemd does not start in namespaces of its own: {said[-2000:]}")
            time.sleep(0.05)

    def stop(self):
        if self._process is not None:
            self._process.kill()
            self._process.wait()
            self._process = None
        # The processes in there may take a moment to be gone.
        end = time.monotonic() + 60
        while self._group.exists() and time.monotonic() < end:
            remove_groups(self._group)
            time.sleep(0.02)
        shutil.rmtree(self._folder, ignore_errors=True)

    def _running_state(self):
        if self._pid is None:
            children = pathlib.Path(f"/proc/{self._process.pid}/task/{self._process.pid}/children")
            with contextlib.suppress(OSError):
                self._pid = (children.read_text(encoding="utf-8").split() or [None])[0]
        if self._pid is None or not pathlib.Path(f"/proc/{self._pid}/comm").exists() or pathlib.Path(
                f"/proc/{self._pid}/comm").read_text(encoding="utf-8").strip() != "systemd":
            return None
        return self.run("systemctl", "is-system-running", check=False).stdout.strip()

    def command(self, *words, own_network=True, environment=None):
        """The command line that runs these words in there. With the machine's network when it is not to be the own."""
        namespaces = ["--mount", "--pid", "--ipc", "--uts", "--cgroup"] + (["--net"] if own_network else [])
        settings = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8",
                    **(environment or {})}
        return ["nsenter", "--target", str(self._pid), *namespaces, "--", "env", "-i", "--chdir=/",
                *[f"{name}={value}" for name, value in settings.items()], *[str(word) for word in words]]

    def run(self, *words, own_network=True, environment=None, check=True, timeout=300, **options):
        """Runs these words in there and returns the subprocess, its output as text."""
        done = subprocess.run(self.command(*words, own_network=own_network, environment=environment), text=True,
                              timeout=timeout, check=False, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, **options)
        if check and done.returncode != 0:
            raise AssertionError(f"{' '.join(map(str, words))}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return done

    def write(self, path, text, mode=None):
        """Writes a file in there, and makes its folder when it is missing."""
        subprocess.run(self.command("sh", "-c", 'mkdir -p "$(dirname "$1")" && cat > "$1"', "sh", path), text=True,
                       input=text, timeout=120, check=True)
        if mode is not None:
            self.run("chmod", mode, path)

    def read(self, path):
        """The text of a file in there; nothing when it is not there."""
        return self.run("cat", path, check=False).stdout


def mount(*words):
    subprocess.run(["mount", *map(str, words)], check=True)


def own_root(plan):
    """Mounts the root folder as the plan says. Runs in the namespaces."""
    folder = pathlib.Path(plan["folder"])
    if plan["root"] is not None:
        mount("--bind", plan["root"], plan["root"])
        return pathlib.Path(plan["root"])
    mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", folder)
    for name in ("upper", "work", "root"):
        (folder / name).mkdir()
    mount("-t", "overlay", "-o", f"lowerdir=/,upperdir={folder}/upper,workdir={folder}/work", "overlay", folder / "root")
    root = folder / "root"
    # Of the machine's own services none is started.
    mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", root / "etc/systemd/system")
    for name in ("fstab", "hosts"):
        (root / "etc" / name).write_text("", encoding="utf-8")
    return root


def mount_kernel_folders(root):
    mount("-t", "proc", "proc", root / "proc")
    # The kernel's settings are the machine's.
    for path in (root / "proc/sys", root / "proc/sysrq-trigger"):
        if path.exists():
            mount("--bind", path, path)
            mount("-o", "remount,bind,ro", path)
    mount("-t", "sysfs", "-o", "ro", "sysfs", root / "sys")
    mount("-t", "cgroup2", "cgroup2", root / "sys/fs/cgroup")
    for name in ("run", "tmp"):
        mount("-t", "tmpfs", "-o", "mode=1777" if name == "tmp" else "mode=755", "tmpfs", root / name)
    device_folder = root / "dev"
    mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", device_folder)
    for name in DEVICES:
        (device_folder / name).touch()
        mount("--bind", f"/dev/{name}", device_folder / name)
    for name in ("pts", "shm"):
        (device_folder / name).mkdir()
    mount("-t", "devpts", "-o", "newinstance,ptmxmode=0666", "devpts", device_folder / "pts")
    mount("-t", "tmpfs", "-o", "mode=1777", "tmpfs", device_folder / "shm")
    (device_folder / "ptmx").symlink_to("pts/ptmx")
    (device_folder / "fd").symlink_to("/proc/self/fd")


def become_systemd(plan):
    """Process 1 of the namespaces: makes the root folder and runs systemd in it."""
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    subprocess.run(["mount", "--make-rprivate", "/"], check=True)
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    subprocess.run(["hostname", "zelkor-test"], check=True)
    root = own_root(plan)
    mount_kernel_folders(root)
    for path in plan["binds"]:
        (root / path.lstrip("/")).mkdir(parents=True, exist_ok=True)
        mount("--bind", path, root / path.lstrip("/"))
        mount("-o", "remount,bind,ro", root / path.lstrip("/"))
    unit_folder = root / "run/systemd/system"
    unit_folder.mkdir(parents=True)
    (unit_folder / "zelkor-test.target").write_text(
        "[Unit]\nRequires=basic.target\nAfter=basic.target\nAllowIsolate=yes\n", encoding="utf-8")
    # The kernel is the machine's, too.
    for name in ("systemd-modules-load.service", "systemd-sysctl.service"):
        (unit_folder / name).symlink_to("/dev/null")
    old_root = root / "run/old-root"
    old_root.mkdir()
    os.chdir(root)
    subprocess.run(["pivot_root", ".", "run/old-root"], check=True)
    os.chroot(".")
    os.chdir("/")
    subprocess.run(["umount", "--lazy", "/run/old-root"], check=True)
    # As systemd finds it on a machine: what it mounts for a service is seen there.
    subprocess.run(["mount", "--make-rshared", "/"], check=True)
    os.execve("/lib/systemd/systemd",
              ["/lib/systemd/systemd", "--system", "--unit=zelkor-test.target", "--log-target=console", "--show-status=no"],
              {"container": "zelkor-test", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8"})


if __name__ == "__main__":
    become_systemd(json.loads(sys.argv[1]))
