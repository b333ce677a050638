"""What strangers do to a port that speaks TLS: no handshake, half of one, one that is wrong; and what those with a good
certificate can do. The daemon's other port, in clear, is to be served all the while."""

import socket
import ssl
import subprocess
import time

import giop
from attack_connections import close_all
from attack_patience import PATIENCE_SECONDS, ended
from cases import case
from giop import Closed, Connection, Refused
from registry_calls import get, put_filter, put_listener, read_value, subtree
from server_process import ANSWER_SECONDS, SETTLE_SECONDS, DaemonProcess, expect, wait_until


def check_answers(server, seconds=ANSWER_SECONDS):
    """Both ports answer a correct request on a new connection in time."""
    server.check_answers(seconds)
    start = time.monotonic()
    with server.connect_tls(seconds) as client:
        read_value(client.call("get", get(server.names.number)))
    took = time.monotonic() - start
    expect(took <= seconds * server.slowness, f"a get over TLS took {took:.2f} s, {seconds} are allowed")


def raw_connection(server):
    return Connection(server.tls_port, 60.0 * server.slowness)


class ByHand:
    """A client over TLS that says itself when how many bytes of its records go out."""

    def __init__(self, server):
        self.connection = raw_connection(server)
        self.incoming, self.outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
        self.tls = server.certificates.context().wrap_bio(self.incoming, self.outgoing, server_hostname="127.0.0.1")
        while True:
            try:
                self.tls.do_handshake()
                self.flush()
                return
            except ssl.SSLWantReadError:
                self.flush()
                data = self.connection.socket.recv(1 << 16)
                if not data:
                    raise Closed("in the handshake") from None
                self.incoming.write(data)

    def flush(self):
        self.connection.send(self.outgoing.read())

    def records(self, data):
        """The records that carry these bytes."""
        self.tls.write(data)
        return self.outgoing.read()


def deaf_client(server):
    """Asks more and more and never reads: the replies fill its socket."""
    client = ByHand(server)
    client.connection.socket.settimeout(0.5 * server.slowness)
    try:
        for _ in range(20000):
            client.connection.send(client.records(giop.request(1, "subtree", subtree())))
    except OSError:
        pass  # full
    return client


def client_hello(server, **settings):
    """The first message of a handshake."""
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    for name, value in settings.items():
        setattr(context, name, value)
    incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
    tls = context.wrap_bio(incoming, outgoing, server_hostname="127.0.0.1")
    try:
        tls.do_handshake()
    except ssl.SSLWantReadError:
        pass
    return outgoing.read()


def check_refused(server, what, log=None):
    """The server closes the connection that `what` makes, and names the reason in its log when there is one to name."""
    client = raw_connection(server)
    try:
        client.send(what)
        client.socket.shutdown(socket.SHUT_WR)
    except OSError:
        pass  # closed early
    expect(client.at_end(60.0 * server.slowness), f"a connection that began with {what[:20]!r} is not closed")
    client.close()
    if log is not None:
        expect(wait_until(lambda: log in server.errors(), 5), f"the log does not say \"{log}\"")


@case("tls")
def no_tls(server):
    """Messages in clear and noise at the port for TLS."""
    check_refused(server, b"GET / HTTP/1.1\r\n\r\n", "Refused a TLS connection from 127.0.0.1: http request")
    check_refused(server, giop.request(1, "get", get(server.names.number)),
                  "Refused a TLS connection from 127.0.0.1: wrong version number")
    hello = client_hello(server)
    for data in (b"", b"\0", bytes(range(256)), b"\x16\x03\x01\xff\xff" + bytes(70000), b"\x16\x03\x01\x00\x00" * 1000,
                 b"\x80\x2e\x01\x00\x02\x00\x15\x00\x00\x00\x10" + bytes(35), b"\x15\x03\x01\x00\x02\x02\x28",
                 b"\x14\x03\x03\x00\x01\x01" * 1000, hello[:-1], hello + hello, hello + bytes(5000),
                 hello[:60] + bytes(len(hello) - 60)):
        check_refused(server, data)
    for at in range(0, len(hello), 7):
        check_refused(server, hello[:at] + bytes((hello[at] ^ 0xFF,)) + hello[at + 1:])
    check_answers(server)


@case("tls")
def old_versions(server):
    """TLS 1.0 and 1.1 end with the alert for them."""
    for version in ("-tls1", "-tls1_1"):
        answer = openssl_client(server, version, "-cipher", "ALL:@SECLEVEL=0")
        expect("alert protocol version" in answer, f"{version} is not refused: {answer[-2000:]}")


def openssl_client(server, *options, commands="", certificate="operator"):
    """What `openssl s_client` says of a connection; it shows that client's certificate, none without a name."""
    command = ["openssl", "s_client", "-connect", f"127.0.0.1:{server.tls_port}", *options]
    if certificate:
        command += ["-cert", server.certificates.path(f"{certificate}.pem"),
                    "-key", server.certificates.path(f"{certificate}.key")]
    done = subprocess.run(command, input=commands, capture_output=True, text=True, check=False, errors="replace",
                          timeout=100 * server.slowness)
    return done.stdout + done.stderr


def issue_bad_certificates(server):
    """expired.pem and, by an authority that nobody knows, alien.pem."""
    folder = server.certificates.folder

    def openssl(*words):
        subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True)
    key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
    openssl("req", "-new", *key, "-keyout", "expired.key", "-out", "expired.csr", "-subj", "/CN=expired")
    openssl("x509", "-req", "-in", "expired.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-days", "-1", "-out",
            "expired.pem")
    openssl("req", "-x509", *key, "-keyout", "alien.key", "-out", "alien.pem", "-subj", "/O=Lab/CN=operator")


@case("tls")
def bad_certificates(server):
    """None, one that has expired, and one that says the right name and that nobody known has signed."""
    issue_bad_certificates(server)
    for name, alert in (("", "alert certificate required"), ("expired", "alert certificate expired"),
                        ("alien", "alert unknown ca")):
        # Something to do keeps it there until it hears what the server thinks.
        answer = openssl_client(server, "-ign_eof", certificate=name)
        expect(alert in answer, f"the certificate \"{name}\" is not refused by \"{alert}\": {answer[-2000:]}")
        try:
            with Connection(server.tls_port, 10.0 * server.slowness, context=server.certificates.context(name)) as client:
                client.call("get", get(server.names.number))
            expect(False, f"a client with the certificate \"{name}\" is served")
        except (ssl.SSLError, OSError, Closed):
            pass
    check_answers(server)


@case("tls")
def nothing_negotiated_anew(server):
    """A client of TLS 1.2 that wants to negotiate anew, and one of 1.3 that changes its keys again and again."""
    answer = openssl_client(server, "-tls1_2", commands="R\n")
    expect("no renegotiation" in answer, f"negotiated anew: {answer[-2000:]}")
    openssl_client(server, "-tls1_3", commands="K\n" * 2000)
    check_answers(server)


@case("tls")
def many_half_handshakes(server):
    """Five hundred clients that say nothing, or half of a greeting: others are served meanwhile, and in the end they are
    closed."""
    hello = client_hello(server)
    waiting = []
    for number in range(500):
        client = raw_connection(server)
        client.send(hello[:(0, 3, 5, 40, len(hello))[number % 5]])
        waiting.append(client)
    worst = 0.0
    patience = PATIENCE_SECONDS * min(server.slowness, 4)
    end = time.monotonic() + patience
    while time.monotonic() < end and waiting:
        start = time.monotonic()
        check_answers(server)
        worst = max(worst, time.monotonic() - start)
        waiting = [client for client in waiting if not ended(client, "half a handshake")]
        time.sleep(0.2)
    expect(not waiting, f"{len(waiting)} handshakes are still waited for after {patience} s")
    print(f"the slowest two answers meanwhile took {worst * 1000:.0f} ms")


@case("tls")
def time_to_greet(server):
    """Clients that connect and say nothing are closed, but none before the idle time is over: whoever is slow to begin with
    the handshake is not cut off by chance."""
    waiting = []
    end = time.monotonic() + 1.5 * server.idle  # longer than it takes the server to look at all of them once
    while time.monotonic() < end or waiting:
        if time.monotonic() < end:
            waiting.append((time.monotonic(), raw_connection(server)))
        closed = [one for one in waiting if ended(one[1], "a greeting")]
        waiting = [one for one in waiting if one not in closed]
        lived = min((time.monotonic() - since for since, _ in closed), default=server.idle)
        expect(lived > 0.9 * server.idle, f"one is closed after {lived:.1f} s, and may be silent for {server.idle} s")
        expect(time.monotonic() < end + PATIENCE_SECONDS * min(server.slowness, 4), "silent connections are not closed")
        time.sleep(0.125)


@case("tls")
def stuck_in_a_record(server):
    """Clients with a good certificate that stop in the middle, that never read, that say nothing: each is closed in
    time."""
    waiting = {}
    whole = giop.request(1, "get", get(server.names.number))
    for size in (1, 4, 5, 6, 30):
        client = ByHand(server)
        client.connection.send(client.records(whole)[:size])
        waiting[f"after {size} bytes of a record"] = client.connection
    for size in (1, 11, 12, 30, len(whole) - 1):
        client = ByHand(server)
        client.connection.send(client.records(whole[:size]))
        waiting[f"after {size} bytes of a message"] = client.connection
        client = ByHand(server)
        client.connection.send(client.records(whole[:size]) + client.records(whole[size:])[:7])
        waiting[f"after {size} bytes and a piece of a record"] = client.connection
    waiting["silent"] = ByHand(server).connection
    for number in range(5):  # the server's sending must time out
        waiting[f"never reads {number}"] = deaf_client(server).connection
    closed = set()
    patience = PATIENCE_SECONDS * min(server.slowness, 4)
    end = time.monotonic() + patience
    while time.monotonic() < end and len(closed) < len(waiting):
        check_answers(server)
        closed |= {what for what, client in waiting.items() if what not in closed and ended(client, what)}
        time.sleep(0.2)
    left = sorted(set(waiting) - closed)
    expect(not left, f"not closed after {patience} s: {', '.join(left)}")


@case("tls")
def noise_behind_the_handshake(server):
    """Records that do not decrypt, and messages that are none in records that do."""
    for data in (b"\x17\x03\x03\x00\x20" + bytes(32), b"\x17\x03\x03\xff\xff" + bytes(70000), b"\x15\x03\x03\x00\x02\x02\x28",
                 b"\x16\x03\x03\x00\x04\x00\x00\x00\x00", b"GIOP" + bytes(100)):
        client = ByHand(server)
        client.connection.send(data)
        expect(client.connection.at_end(60.0 * server.slowness), f"{data[:8]!r} leaves the connection open")
        client.connection.close()
    for data in (b"HTTP" + bytes(100), giop.header(giop.REQUEST, 1 << 30), giop.header(9, 0), bytes(5000)):
        client = ByHand(server)
        client.connection.send(client.records(data))
        expect(client.connection.at_end(60.0 * server.slowness), f"{data[:8]!r} leaves the connection open")
        client.connection.close()
    check_answers(server)


@case("tls")
def opened_and_reset(server):
    for _ in range(300 // server.slowness):
        with server.connect_tls() as client:
            client.send(giop.request(1, "get", get(server.names.number)))
            client.reset()
    for _ in range(300 // server.slowness):
        client = raw_connection(server)
        client.send(client_hello(server))
        client.reset()


@case("tls")
def listener_in_clear(server):
    """Push is on, but not for those who speak TLS: a listener would get in clear what they ask for."""
    with server.connect_tls() as client:
        try:
            client.call("subscribe_to", lambda out: put_listener(put_filter(out, [server.names.number], lease_s=1)))
            expect(False, "a client over TLS got its listener")
        except Refused as refusal:
            expect("Listeners are called in clear" in str(refusal), f"refused otherwise: {refusal}")


@case("tls")
def stop_amid_handshakes(server):
    """Another server, told to stop while clients stand in the middle of a handshake or never read, ends in time."""
    with DaemonProcess(server.program, tls=True, sanitizer=server.sanitizer) as other:
        hello = client_hello(other)
        waiting = []
        for number in range(300):
            client = raw_connection(other)
            client.send(hello[:(0, 5, len(hello))[number % 3]])
            waiting.append(client)
        deaf = deaf_client(other)
        stuck = ByHand(other)
        stuck.connection.send(stuck.records(giop.request(1, "get", get(other.names.number)))[:9])
        start = time.monotonic()
        other.process.terminate()
        expect(wait_until(lambda: not other.alive(), ANSWER_SECONDS * other.slowness), "no end within the time for it")
        print(f"it ended after {time.monotonic() - start:.2f} s")
        other.check_report()
        expect(other.process.poll() == 0, f"it ended with status {other.process.poll()}: {other.errors()[-3000:]}")
        close_all(waiting)
        other.is_stopped = True


@case("tls_descriptors")
def descriptors_exhausted_over_tls(server):
    """The server may open few files: it refuses connections before a handshake, serves those it has, does not spin."""
    held, refused = [], 0
    for _ in range(150):
        try:
            held.append(server.connect_tls())
        except (OSError, ssl.SSLError):
            refused += 1
    expect(8 <= len(held) < 120 and refused > 0, f"{len(held)} connections are held where 100 files may be open")
    server.check_rests(0.15, "with connections that it cannot take")
    for client in held:
        read_value(client.call("get", get(server.names.number)))
    close_all(held)
    expect(wait_until(lambda: answers(server), SETTLE_SECONDS * server.slowness), "no new connection is taken after all have gone")


def answers(server):
    try:
        check_answers(server)
        return True
    except (Closed, OSError):
        return False
