"""Tries what the service's processes may and may not do, and prints the errors by name, nothing where it worked.

Runs in place of the daemon under its unit's restrictions. Nothing that it tries has an effect outside its namespaces."""

import ctypes
import errno
import json
import mmap
import os
import pathlib
import socket
import sys

LIBC = ctypes.CDLL(None, use_errno=True)
CLONE_NEWUTS = 0x04000000
ADDR_NO_RANDOMIZE = 0x0040000
CLOCK_REALTIME = 0


def libc(name, *arguments):
    if getattr(LIBC, name)(*arguments) == -1:
        raise OSError(ctypes.get_errno(), name)


def write(path):
    pathlib.Path(path).write_text("x", encoding="utf-8")
    os.unlink(path)


def set_user_bit():
    path = "/tmp/zelkor-probe"
    pathlib.Path(path).touch()
    try:
        os.chmod(path, 0o4755)
    finally:
        os.unlink(path)


def bind(family, kind, address):
    with socket.socket(family, kind) as server:
        server.bind(address)


def wrong_time():
    # Out of range, so that it is refused in any case: by whom is the question.
    libc("clock_settime", CLOCK_REALTIME, (ctypes.c_long * 2)(-1, 0))


ALLOWED = {
    "write to the log folder": lambda: write("/var/log/zelkor/probe"),
    "write to the cache folder": lambda: write("/var/cache/zelkor/probe"),
    "write to the runtime folder": lambda: write("/run/zelkor/probe"),
    "read the configuration": lambda: pathlib.Path("/etc/zelkor/zelkor-platformd.xml").read_bytes(),
    "listen for clients": lambda: bind(socket.AF_INET6, socket.SOCK_STREAM, ("::", 5678)),
    "talk to controllers": lambda: bind(socket.AF_INET, socket.SOCK_DGRAM, ("0.0.0.0", 0)),
    "have a control socket": lambda: socket.socket(socket.AF_UNIX).close(),
    "raise the limit of open files": lambda: libc("prlimit64", 0, 7, (ctypes.c_ulong * 2)(1024, 1024), None),
}
FORBIDDEN = {
    "write the configuration": lambda: write("/etc/zelkor/probe"),
    "write to the system": lambda: write("/usr/probe"),
    "write to the state of others": lambda: write("/var/lib/probe"),
    "look into homes": lambda: os.listdir("/root"),
    "open a device": lambda: open("/dev/zelkor-probe", "rb").close(),
    "see other processes": lambda: os.listdir("/proc/1"),
    "see the kernel's settings": lambda: os.listdir("/proc/sys/kernel"),
    "see packets of others": lambda: socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, 0).close(),
    "send raw packets": lambda: socket.socket(socket.AF_INET, socket.SOCK_RAW, 1).close(),
    "mount": lambda: libc("mount", b"none", b"/tmp", b"tmpfs", 0, None),
    "have namespaces": lambda: libc("unshare", CLONE_NEWUTS),
    "set the clock": wrong_time,
    "set the host's name": lambda: socket.sethostname(socket.gethostname()),
    "have writable memory that runs": lambda: mmap.mmap(-1, 4096, prot=mmap.PROT_READ | mmap.PROT_WRITE | mmap.PROT_EXEC),
    "switch address randomization off": lambda: libc("personality", ADDR_NO_RANDOMIZE),
    "make a program run as its owner": set_user_bit,
    "run in real time": lambda: os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1)),
    "be another user": lambda: os.setuid(12345),
}


def attempt(action):
    """The name of the error, or of its kind; nothing when it worked."""
    try:
        action()
    except OSError as error:
        return errno.errorcode.get(error.errno, str(error.errno))
    return None


def main():
    status = dict(line.split(":\t", 1) for line in
                  pathlib.Path("/proc/self/status").read_text(encoding="utf-8").splitlines() if ":\t" in line)
    result = {"status": {name: status[name] for name in ("CapPrm", "CapBnd", "NoNewPrivs", "Seccomp")},
              "user": os.getuid(), "allowed": {name: attempt(action) for name, action in ALLOWED.items()},
              "forbidden": {name: attempt(action) for name, action in FORBIDDEN.items()}}
    json.dump(result, sys.stdout)


main()
