# A handler for Python's logging that holds each record until it is acknowledged: python3 velk_logging.py "link down"
"""Copy this file next to your program, then:

    handler = velk_logging.VelkHandler()
    logging.getLogger().addHandler(handler)
    ...
    for text in handler.flush(5):
        print("not confirmed:", text)

The logger's name becomes the module. docs/protocol.md describes the protocol.
"""
import collections
import contextlib
import hashlib
import logging
import os
import re
import secrets
import select
import socket
import sys
import threading
import time
import weakref

CALL_MOST = 1434  # bytes of the longest call
HEAD_MOST = len("WithAck ") + 16 + 1 + 18 + 1
ON_THE_WAY = 64  # window in calls: more could overflow the service's receive buffer
AFTER_LOSS = 4  # smallest window after a loss; each confirmed call adds one
PAUSE, PAUSE_MOST = 0.25, 4  # seconds to wait for an ack: at first, at most
PORTS = range(11101, 11133)  # the service keeps a record of every port it has seen, so use few


def escape(text):
    return text.replace(b"~", b"~~").replace(b"`", b"~`")


def calls(kind, module, text):
    """Yields (call, line) for each line of the text. A line too long for a datagram becomes several calls."""
    head = b"LogMsg %d `%s` " % (kind, escape(module.encode("utf-8", "backslashreplace")))
    room = CALL_MOST - HEAD_MOST - len(head) - len("`\n`")
    if room < 100:
        raise ValueError("the logger's name is too long for a module")
    for line in text.replace("\0", "\\0").split("\n"):
        piece = b""
        for character in line:
            more = escape(character.encode("utf-8", "backslashreplace"))
            if len(piece) + len(more) > room:
                yield head + b"`%s\n`" % piece, line
                piece = b""
            piece += more
        yield head + b"`%s\n`" % piece, line


class VelkHandler(logging.Handler):
    """Any thread may log and none blocks: if too many records are held, handleError() is called.

    A thread of the handler sends, and joins the service again if it restarts. A forked child starts with nothing held.
    host: an IPv4 address; a name would be resolved at each join. most: the largest number of calls to hold.
    """

    def __init__(self, host="127.0.0.1", port=11001, password="mosk", most=2048):
        super().__init__()
        self._service = host, port
        self._password = password.encode()
        self._most = most
        self._start()
        handler = weakref.ref(self)
        os.register_at_fork(after_in_child=lambda: handler() and not handler()._ending and handler()._start())

    def emit(self, record):
        try:
            kind = sum(record.levelno >= level for level in (logging.INFO, logging.WARNING, logging.ERROR))
            more = list(calls(kind, record.name, self.format(record)))
            with self._changed:
                if self._ending or len(self._held) + len(more) > self._most:
                    raise BufferError("closed" if self._ending else "cannot hold more records")
                if not self._held:
                    self._set_due(0)
                self._held.extend(more)
            self._wake()
        except Exception:
            self.handleError(record)

    def flush(self, timeout=5):
        """Waits up to timeout seconds until all records are confirmed. Returns the texts that are not."""
        with self._changed:
            target = self._confirmed + len(self._held)
            self._changed.wait_for(lambda: self._confirmed >= target, timeout)
            return [text for _, text in self._held][:max(0, target - self._confirmed)]

    def close(self, timeout=1):
        """Drops records that are not confirmed within the timeout: reports them and returns their texts."""
        lost = self.flush(timeout)
        with self._changed:
            first, self._ending = not self._ending, True
        if first:
            self._wake()
            self._thread.join()
            self._leave()
            self._waker.close()
            self._woken.close()
            if lost and logging.raiseExceptions and sys.stderr:
                print(f"{len(lost)} calls are not confirmed, the first: {lost[0]}", file=sys.stderr)
        super().close()
        return lost

    def _start(self):
        self._changed = threading.Condition()  # guards what both threads change
        self._held = collections.deque()  # unacknowledged (call, text), oldest first
        self._confirmed = 0
        self._ending = False
        self._socket = self._cookie = None
        self._rename()
        self._set_due(0)
        self._waker, self._woken = socket.socketpair()
        self._waker.setblocking(False)
        self._thread = threading.Thread(target=self._run, name="velk", daemon=True)
        self._thread.start()

    def _wake(self):
        with contextlib.suppress(OSError):  # buffer full: the thread will wake anyway
            self._waker.send(b"\0")

    def _set_due(self, silences):
        self._silences = silences
        self._due = time.monotonic() + min(PAUSE * 2 ** min(silences, 10), PAUSE_MOST)

    def _rename(self):
        """Takes a new client name, which the service does not know yet."""
        self._client = secrets.token_hex(8).encode()
        self._known = False
        self._first = 1  # number of the oldest held call
        self._sent = 0  # how many held calls were sent
        self._gap = 0  # number of the last call retransmitted because of a gap
        self._window = ON_THE_WAY

    def _run(self):
        while not self._ending:
            with self._changed:
                self._send()
                pause = max(0, self._due - time.monotonic()) * 1000 if self._held else None
            poll = select.poll()
            for each in filter(None, (self._woken, self._socket)):
                poll.register(each, select.POLLIN)
            ready = dict(poll.poll(pause))
            if self._woken.fileno() in ready:
                self._woken.recv(4096)
            with self._changed:
                self._receive()
                if self._held and time.monotonic() >= self._due:
                    self._silence()

    def _transmit(self, datagram):
        with contextlib.suppress(OSError):  # like a lost datagram
            self._socket.send(datagram)

    def _send(self):
        if self._held and self._socket is None:
            self._join()
        # A client name's first call is sent alone: after its ack, a `last` of 0 means that the service forgot the name.
        most = min(len(self._held), self._window if self._known else 1)
        while self._cookie and self._sent < most:
            head = b"WithAck %s %d " % (self._client, self._first + self._sent)
            self._transmit(self._cookie + head + self._held[self._sent][0])
            self._sent += 1

    def _silence(self):
        self._set_due(self._silences + 1)
        if self._silences == 1 and self._cookie:
            self._sent, self._window = 0, AFTER_LOSS
        else:
            self._join()  # the service may have restarted

    def _join(self):
        """Joins from a new socket, so that a late nonce for the old one is not used."""
        self._leave()
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setblocking(False)
        for port in PORTS[self._silences % 8:]:  # another port: the service confuses peers with equal address * port
            with contextlib.suppress(OSError):  # the port is taken
                self._socket.bind(("", port))
                break
        with contextlib.suppress(OSError):  # no such host, no network: retried later
            self._socket.connect(self._service)
        self._transmit(b"CONN")

    def _leave(self):
        if self._socket is not None:
            if self._cookie:
                self._transmit(b"CONN")  # the service stops relaying calls to us
            self._socket.close()
        self._socket = self._cookie = None

    def _receive(self):
        while self._socket is not None:
            try:
                datagram = self._socket.recv(2048)
            except BlockingIOError:
                return
            except OSError:  # refused: the service may be starting
                continue
            if len(datagram) == 16:
                self._cookie = hashlib.md5(datagram + self._password).digest()
                self._sent = 0
                continue
            answer = re.fullmatch(rb"Ack %s (\d{1,18}) (\d{1,18}) \d+" % self._client, datagram[16:])
            if answer and datagram[:16] == self._cookie:
                self._answer(int(answer[1]), int(answer[2]))

    def _answer(self, last, asked):
        """Handles an ack of call `asked`: all up to `last` are logged. If `asked` is greater, one between was lost."""
        if last == 0 and self._known:
            self._rename()
            return
        self._known = True
        confirmed = min(max(last - self._first + 1, 0), len(self._held))
        for _ in range(confirmed):
            self._held.popleft()
        self._first += confirmed
        self._confirmed += confirmed
        self._sent = max(self._sent - confirmed, 0)
        self._window = min(self._window + confirmed, ON_THE_WAY)
        if asked > last and last + 1 == self._first != self._gap:  # once for each missing call
            self._gap, self._sent, self._window = self._first, 0, max(self._window // 2, AFTER_LOSS)
        self._set_due(0)
        self._changed.notify_all()


def main(text):
    handler = VelkHandler()
    log = logging.getLogger("net")
    log.addHandler(handler)
    log.warning("%s", text)
    return 1 if handler.close(5) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]) if len(sys.argv) == 2 else __doc__)
