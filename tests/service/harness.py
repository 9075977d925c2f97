"""Shared by the service tests: the service, a peer, a collector, and files."""
import contextlib
import hashlib
import os
import re
import shutil
import signal
import socket
import subprocess
import time
import unittest

import namespace

BINARY = os.path.join(namespace.FILES, "syslog")
TOOL = os.path.join(namespace.FILES, "syslogctl")
os.environ["TSAN_OPTIONS"] = f"suppressions={namespace.FILES}/tests/tsan.txt"
WITH_TOOL = {**os.environ, "PATH": f"{namespace.FILES}:{os.environ['PATH']}"}  # environment with the tool in PATH
CONFIG = "/flash/conf/kavlune.conf"
SYNC_FILE = "/tmp/synclog"
SYSLOG_ON = '[Data]\nremotelog_type="SysLog server"\nremotelog_addr=%s\n'
PORT = 11001
SYSLOG_PORT = 514
DEADLINE = 20.0  # seconds to wait for an event; only a failing test waits that long
LONGEST = 200  # seconds for a whole test

PREFIX = r"\[\d\d:\d\d:\d\d\.\d{3}\]"
with open(BINARY, "rb") as _binary:
    SANITIZED = re.search(rb"__(asan|tsan)_init", _binary.read()) is not None

signal.signal(signal.SIGINT, signal.default_int_handler)  # otherwise ignored in a shell's background job


def until(condition, what):
    """Polls until condition() is true and returns its result. Fails after the deadline."""
    end = time.monotonic() + DEADLINE
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"{what() if callable(what) else what}: not within {DEADLINE} s")
        time.sleep(0.002)


def quote(text):
    return b"`" + text.replace(b"~", b"~~").replace(b"`", b"~`") + b"`"


def log_call(kind, module, text):
    return b"LogMsg %d %s %s" % (kind, quote(module), quote(text))


def read_sync():
    """Returns the content of the sync file, or b"" if it cannot be read."""
    try:
        with open(SYNC_FILE, "rb", opener=lambda path, flags: os.open(path, flags | os.O_NONBLOCK)) as sync:
            return sync.read()
    except OSError:
        return b""


def processes():
    """Maps the id of every process of the namespace to (parent, state). A zombie's state is Z."""
    found = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{name}/stat") as stat:
                fields = stat.read().rpartition(")")[2].split()
            found[int(name)] = (int(fields[1]), fields[0])
        except (FileNotFoundError, ProcessLookupError):
            pass
    return found


def without_file_privileges():
    """For Service's prepare: makes file permissions apply to root too."""
    PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH = 24, 1, 2
    for capability in (CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH):
        namespace.control_process(PR_CAPBSET_DROP, capability)


def roomy_socket():
    """Returns a UDP socket with room for some fifty thousand datagrams, if we may exceed the limit."""
    SO_RCVBUFFORCE = 33
    new = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    for option in (socket.SO_RCVBUF, SO_RCVBUFFORCE):
        with contextlib.suppress(PermissionError):
            new.setsockopt(socket.SOL_SOCKET, option, 64 << 20)
    return new


class Receiver:
    def receive(self, timeout=DEADLINE):
        """Returns the next datagram, or None after the timeout."""
        self.socket.settimeout(timeout)
        try:
            datagram, self.sender = self.socket.recvfrom(65536)
            return datagram
        except (TimeoutError, BlockingIOError):
            return None

    def heard(self):
        """Returns all datagrams that have arrived."""
        return list(iter(lambda: self.receive(0), None))


class Peer(Receiver):
    """An admitted peer. connect=False: not admitted."""

    socket = None
    cookie = b""

    def __init__(self, host="127.0.0.1", port=0, connect=True):
        self.address = (host, port)
        self.open()
        if connect:
            until(self.connect, "an answer to CONN")
            self.send(self.cookie)

    def open(self):
        self.close()
        self.socket = roomy_socket()
        self.socket.bind(self.address)
        self.socket.connect(("127.0.0.1", PORT))

    def close(self):
        if self.socket is not None:
            self.socket.close()

    def connect(self):
        """Tries once, from a new socket, so that a late nonce for an earlier try is not used."""
        self.open()
        try:
            self.send(b"CONN")
            nonce = self.receive(0.5)
        except ConnectionRefusedError:
            return False
        if nonce is None:
            return False
        self.cookie = hashlib.md5(nonce + b"mosk").digest()
        return len(nonce) == 16

    @property
    def name(self):
        return self.socket.getsockname()

    def send(self, datagram):
        self.socket.send(datagram)

    def call(self, text):
        self.send(self.cookie + text)

    def log(self, text, kind=1, module=b"test"):
        self.call(log_call(kind, module, text))


class Collector(Receiver):
    """A remote syslog server. share=False: the service cannot send from port 514."""

    def __init__(self, host="127.0.0.2", share=True):
        self.socket = roomy_socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, int(share))
        self.socket.bind((host, SYSLOG_PORT))
        self.host = host


class Service:
    """The service, started as a device starts it. Its console goes to a file unless stdout says otherwise."""

    def __init__(self, *arguments, stdout=None, prepare=None, environment=None, binary=BINARY):
        self.console_path = os.path.join(namespace.FILES, "console")
        self.errors_path = os.path.join(namespace.FILES, "errors")
        self._fences = 0
        with open(self.console_path, "wb") as console, open(self.errors_path, "wb") as errors:
            self.process = subprocess.Popen(
                [binary, *arguments], stdin=subprocess.DEVNULL, stdout=console if stdout is None else stdout,
                stderr=errors, preexec_fn=prepare, env={**os.environ, **(environment or {})})
        self.pid = self.process.pid

    def console(self):
        """Returns the complete console lines."""
        with open(self.console_path, encoding="latin-1", newline="\n") as console:
            return console.read().split("\n")[:-1]

    def texts(self):
        """Returns the console lines without time and thread id."""
        return [re.sub(PREFIX + r"\[# *\d+\] ", "", line, count=1) for line in self.console()]

    def count(self, text):
        return self.texts().count(text)

    def wait_for(self, text, count=1):
        """Waits until the console has the line, without time and thread id, count times."""
        until(lambda: self.count(text) >= count, lambda: "\n".join(self.texts()[-40:] + [f"line {text!r}"]))

    def fence(self, peer, insist=False):
        """Waits until all earlier calls have been handled.

        insist: repeat the line of the fence. A full socket may drop it, and after a call that cannot be parsed,
        pending calls wait until another call arrives.
        """
        self._fences += 1
        line = f"fence {self._fences}"
        send = lambda: peer.log(b"\n%s\n" % line.encode())  # on a line of its own
        send()
        if insist:
            until(lambda: self.count(line) or send(), line)
        self.wait_for(line)

    def child(self):
        """Returns the id of the serving process."""
        return until(lambda: next((pid for pid, (parent, state) in processes().items()
                                   if parent == self.pid and state != "Z"), None), "a serving child")

    def kill_child(self):
        """Kills the serving process and returns the id of the next one."""
        old = self.child()
        os.kill(old, signal.SIGKILL)
        return until(lambda: (self.child() != old and self.child()), "another child")

    def errors(self):
        with open(self.errors_path, encoding="latin-1") as errors:
            return errors.read()

    def stop(self, number=signal.SIGINT):
        """Ends the service as a user does. Fails if it wrote to standard error, as a sanitizer does."""
        if self.process.poll() is None:
            self.process.send_signal(number)
        status = self.process.wait(DEADLINE)
        if self.errors():
            raise AssertionError(self.errors()[:20000])
        return status


class ServiceTest(unittest.TestCase):
    """Starts each test with /tmp and /flash empty, and checks that no process is left at its end."""

    maxDiff = 4000
    started = None

    def setUp(self):
        signal.signal(signal.SIGALRM, self.fail_late)
        signal.alarm(LONGEST)
        self.addCleanup(signal.alarm, 0)
        self.clear_files()
        self.addCleanup(self.check_no_process_left)

    def fail_late(self, *_):
        raise AssertionError(f"the test has not ended within {LONGEST} s")

    def clear_files(self):
        for folder in ("/tmp", "/flash"):
            for entry in os.scandir(folder):
                if entry.is_dir(follow_symlinks=False):
                    shutil.rmtree(entry.path)
                else:
                    os.unlink(entry.path)

    def service(self, *arguments, **options):
        """Starts the service, after stopping an earlier one of the test."""
        if self.started is not None:
            self.started.stop()
        self.started = Service(*arguments, **options)
        self.addCleanup(self.started.stop)
        return self.started

    def peer(self, *arguments, **options):
        peer = Peer(*arguments, **options)
        self.addCleanup(peer.close)
        return peer

    def collector(self, **options):
        collector = Collector(**options)
        self.addCleanup(collector.socket.close)
        return collector

    def forwarding_service(self, *arguments, **collector_options):
        collector = self.collector(**collector_options)
        self.configure(SYSLOG_ON % collector.host)
        return self.service(*arguments), collector

    def sync_lines(self, service, peer):
        """Makes the service write the sync file and returns its lines; the last one is empty."""
        peer.call(b"SyncLog")
        service.fence(peer)
        return read_sync().decode("latin-1").split("\n")

    def configure(self, text):
        os.makedirs(os.path.dirname(CONFIG), exist_ok=True)
        with open(CONFIG, "wb") as config:
            config.write(text if isinstance(text, bytes) else text.encode())

    def check_no_process_left(self):
        def gone():
            # We are the first process of the namespace, so we inherit orphans.
            while len(processes()) > 1 and os.waitpid(-1, os.WNOHANG)[0] != 0:
                pass
            return len(processes()) == 1
        until(gone, lambda: f"the end of every process, {processes()}")
