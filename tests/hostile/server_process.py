"""A registry server in a process of its own: starts it, looks into it by /proc, and ends it.

Either the tests' own server, tests/integration/registry/registry_server, which prints its port; or the daemon, with a
simulated chassis, which tells its port in the log. Both end with status 0 at SIGTERM."""

import os
import pathlib
import re
import resource
import signal
import ssl
import subprocess
import sys
import tempfile
import time

from giop import Connection
from registry_calls import DAEMON_NAMES, HELPER_NAMES, get, read_value

SANITIZER_REPORT = re.compile(r"(AddressSanitizer|LeakSanitizer|ThreadSanitizer|UndefinedBehavior|runtime error:|"
                              r"==\d+== *(Invalid|Conditional|Use of|Syscall param|Process terminating))")


# What the sanitizer says of any object when no descriptor is left for it to look with: see cmake/ZelkorBuild.cmake.
NOT_LOOKED_AT = re.compile(r".*runtime error: .* which does not point to an object of type .*\n")

# What is known to be kept.
LEAKS = f"suppressions={pathlib.Path(__file__).resolve().parent / 'lsan.supp'}:print_suppressions=0"


# How long a server may take to answer, and to end: what a busy machine needs, and less than the server's time-out of a
# client that does not read (10 s), which others must not wait for.
ANSWER_SECONDS = 8.0

# How long it may take to come to rest: threads end some seconds after their connection, and a server may keep a few for
# the next one.
SETTLE_SECONDS = 60


class Failure(Exception):
    """What a test found wrong."""


def expect(condition, text):
    if not condition:
        raise Failure(text)


def wait_until(condition, seconds, period=0.02):
    """Whether the condition became true within so many seconds."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(period)
    return True


class ServerProcess:
    """A running server. `sanitizer` (address, thread or empty) says how it was built: its memory says nothing then and
    it is slower. `names` are paths of its tree."""

    def __init__(self, command, *, sanitizer="", descriptors=None, names=HELPER_NAMES, start_seconds=100):
        self.sanitizer = sanitizer.partition(",")[0]
        self.slowness = {"": 1, "address": 4, "undefined": 4, "thread": 8, "valgrind": 20}[self.sanitizer]
        self.names = names
        self.is_stopped = False  # by the test itself
        self.has_few_descriptors = descriptors is not None
        self.folder = tempfile.TemporaryDirectory(prefix="registry-test-")
        folder = pathlib.Path(self.folder.name)
        self.out, self.err = folder / "out", folder / "err"
        self.prepare(folder)

        def limit():
            if descriptors:
                resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, descriptors))
        command = [os.path.abspath(command[0]), *command[1:]]  # it runs in a folder of its own
        if self.sanitizer == "valgrind":
            known = pathlib.Path(__file__).resolve().parent / "valgrind.supp"
            command = ["valgrind", "--quiet", "--error-exitcode=99", f"--suppressions={known}", *command]
        environment = dict(os.environ, LSAN_OPTIONS=LEAKS, UBSAN_OPTIONS=f"halt_on_error={0 if self.has_few_descriptors else 1}")
        with open(self.out, "wb") as out, open(self.err, "wb") as err:
            self.process = subprocess.Popen(command, stdout=out, stderr=err, stdin=subprocess.DEVNULL, cwd=folder,
                                            preexec_fn=limit, env=environment)
        self.port = None
        wait_until(lambda: self.read_port() or self.process.poll() is not None, start_seconds * self.slowness)
        if self.port is None:
            self.process.kill()
            raise Failure(f"{command[0]} did not tell its port: {self.errors() or self.out.read_text()}")

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is None:
            if not self.is_stopped:
                self.stop()
        else:
            # What it says belongs to the failure, an end by itself above all.
            state = "still ran" if self.alive() else f"had ended by itself, status {self.process.poll()}"
            print(f"the server {state}; its errors: {self.errors()[-6000:] or 'none'}", file=sys.stderr)
            self.process.kill()
            self.process.wait()
        self.folder.cleanup()

    def prepare(self, folder):
        """Writes what the server reads; this one reads nothing."""

    def read_port(self):
        found = re.search(r"^(\d+)\n", self.out.read_text(errors="replace"), re.M)
        self.port = int(found.group(1)) if found else None
        return self.port

    def connect(self, timeout=60.0):
        return Connection(self.port, timeout * self.slowness)

    def connect_tls(self, timeout=60.0):
        """Only to a daemon that was started with TLS."""
        return Connection(self.tls_port, timeout * self.slowness, context=self.certificates.context())

    def errors(self):
        return self.err.read_text(errors="replace")

    def alive(self):
        return self.process.poll() is None

    def check_alive(self):
        expect(self.alive(), f"the server ended by itself, status {self.process.poll()}: {self.errors()[-6000:]}")

    def status(self, name):
        """A number of /proc/PID/status: VmRSS (KiB), Threads."""
        self.check_alive()
        text = pathlib.Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(re.search(rf"^{name}:\s+(\d+)", text, re.M).group(1))

    def resident_mib(self):
        return self.status("VmRSS") / 1024

    def threads(self):
        return self.status("Threads")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def cpu_seconds(self):
        """Time on the processor so far, user and system."""
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text(encoding="ascii").rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def cpu_share(self, seconds=0.5):
        """The share of one core that the server takes now."""
        before, start = self.cpu_seconds(), time.monotonic()
        time.sleep(seconds)
        return (self.cpu_seconds() - before) / (time.monotonic() - start)

    def check_rests(self, share, what):
        """The server takes less than this share of one core, once it has had the processor for what it still had to do."""
        expect(wait_until(lambda: self.cpu_share() < share, SETTLE_SECONDS * self.slowness), f"the server is busy {what}")

    def check_answers(self, seconds=ANSWER_SECONDS):
        """A correct request on a new connection is answered in time, with a number."""
        start = time.monotonic()
        with Connection(self.port, seconds * self.slowness) as client:
            kind, value = read_value(client.call("get", get(self.names.number)))
        took = time.monotonic() - start
        expect(kind in (2, 6), f"{self.names.number} is {value!r} of type {kind}: no number")
        expect(took <= seconds * self.slowness, f"a get took {took:.2f} s, {seconds} are allowed")

    def stop(self, seconds=ANSWER_SECONDS):
        """Ends the server as its system does. @raises Failure when it does not end well."""
        self.check_alive()
        self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(seconds * self.slowness)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise Failure(f"the server did not end within {seconds * self.slowness} s after SIGTERM") from None
        self.check_report()
        expect(status == 0, f"the server ended with status {status}: {self.errors()[-3000:]}")

    def check_report(self):
        """@raises Failure when a sanitizer (or valgrind) reported something."""
        errors = NOT_LOOKED_AT.sub("", self.errors()) if self.has_few_descriptors else self.errors()
        found = SANITIZER_REPORT.search(errors)
        expect(found is None, f"report on standard error:\n{self.errors()[-6000:]}")


class Certificates:
    """What the example makes for TLS, in a folder: of an authority, a server and a client, "operator"."""

    SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "examples/tls/make-certificates"

    def __init__(self, folder):
        self.folder = folder
        subprocess.run([self.SCRIPT, "localhost", "127.0.0.1"], cwd=folder, check=True, capture_output=True)

    def path(self, name):
        return str(self.folder / name)

    def context(self, name="operator"):
        """For a client that shows the certificate of that name; none for no name."""
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        context.load_verify_locations(self.path("ca.pem"))
        if name:
            context.load_cert_chain(self.path(f"{name}.pem"), self.path(f"{name}.key"))
        return context


class DaemonProcess(ServerProcess):
    """The daemon, with a simulated chassis of `sensors` sensors on two boards. It closes a connection that is idle for
    `idle` seconds. With `tls` it listens on a second port, `tls_port`, and has `certificates`."""

    def __init__(self, program, *, sensors=250, idle=60, tls=False, **parts):
        self.program, self.sensors, self.idle, self.tls = program, sensors, idle, tls
        self.tls_port = self.certificates = None
        super().__init__([program, "--config", "config.xml", "--log-dir", "log", "--port", "0", "--listen", "127.0.0.1"],
                         names=DAEMON_NAMES, **parts)

    def prepare(self, folder):
        """Writes what the daemon reads."""
        sensor = ('<sensor id="{0}" name="Sensor {0}" type="temperature" units="C" value="{0}.5" lnc="0" nominal="30" '
                  'unc="175" uc="185" unr="295"/>')
        sensors = "\n".join(sensor.format(number) for number in range(1, self.sensors + 1))
        (folder / "chassis.xml").write_text(
            f'<chassis>\n<board uri="icb/0" type="icb" name="ICB">\n<fans/>\n{sensors}\n</board>\n'
            '<board uri="os/0" type="os" name="host"/>\n</chassis>\n', encoding="utf-8")
        registry = f'<registry idle_time="{self.idle}"/>'
        if self.tls:
            self.certificates = Certificates(folder)
            registry = (f'<registry idle_time="{self.idle}" push="true">\n<tls certificate="server.pem" key="server.key" '
                        'ca="ca.pem" port="0"/>\n</registry>')
        (folder / "config.xml").write_text(
            f'<zelkor>\n{registry}\n<boards backend="sim" chassis="chassis.xml" '
            'control="chassis.sock"/>\n<temperature_control enabled="false"/>\n<monitor><frequency>1</frequency></monitor>\n</zelkor>\n', encoding="utf-8")

    def read_port(self):
        found = re.search(r"Registry server listens on port (\d+)\n", self.errors())
        over_tls = re.search(r"Registry server listens on port (\d+) with TLS\n", self.errors())
        if found is None or (self.tls and over_tls is None):
            return None
        self.tls_port = int(over_tls.group(1)) if self.tls else None
        self.port = int(found.group(1))
        return self.port


def add_server_options(parser):
    """The options of every program here that starts a server."""
    which = parser.add_mutually_exclusive_group(required=True)
    which.add_argument("--daemon", metavar="PROGRAM", help="the server is the daemon")
    which.add_argument("--helper", metavar="PROGRAM", help="the server is the tests' registry server")
    parser.add_argument("--sanitizer", default="", help="the sanitizers it is built with, or valgrind to run it under")
    parser.add_argument("--idle", type=int, default=60, help="seconds after which it closes an idle connection")
    parser.add_argument("--tls", action="store_true", help="the daemon speaks TLS on a second port")
    parser.add_argument("--descriptors", type=int, help="how many files it may open")


def start_server(options):
    """The server that the options ask for."""
    parts = {"sanitizer": options.sanitizer, "descriptors": options.descriptors}
    if options.daemon:
        return DaemonProcess(options.daemon, idle=options.idle, tls=options.tls, **parts)
    return ServerProcess([options.helper, f"idle={options.idle}", "push=1"], **parts)


class Baseline:
    """What a server takes when nobody uses it, to compare with afterwards."""

    def __init__(self, server, resident_mib=60):
        self.server = server
        self.resident_mib = resident_mib
        server.check_answers()
        self.threads = server.threads()
        self.descriptors = server.descriptors()

    def check_sane(self):
        """@raises Failure unless the server lives, answers, comes to rest and is no bigger than it may be."""
        server = self.server
        server.check_alive()
        server.check_report()
        server.check_answers()
        expect(wait_until(lambda: server.cpu_share(0.2) < 0.15, SETTLE_SECONDS * server.slowness),
               "the server does not come to rest")
        if not server.sanitizer:
            expect(server.resident_mib() <= self.resident_mib,
                   f"{server.resident_mib():.0f} MiB are resident, {self.resident_mib} are allowed")

    def check_given_back(self):
        """@raises Failure unless connections and threads are as many as at the begin."""
        server, settle = self.server, SETTLE_SECONDS * self.server.slowness
        expect(wait_until(lambda: server.descriptors() <= self.descriptors + 1, settle),
               f"{server.descriptors()} descriptors are open, {self.descriptors} were before")
        expect(wait_until(lambda: server.threads() <= self.threads + 4, settle),
               f"{server.threads()} threads run, {self.threads} did before")
