# Python's logging with receipts: each record is held until the service has it. python3 velk_logging.py "link down"
"""A program puts this file beside itself and says

    handler = velk_logging.VelkHandler()
    logging.getLogger().addHandler(handler)
    ...
    for text in handler.flush(5):
        print("not confirmed:", text)

The name of the logger becomes the module. The protocol is described in docs/protocol.md.
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

CALL_MOST = 1434  # bytes of a call in a datagram
HEAD_MOST = len("WithAck ") + 16 + 1 + 18 + 1
ON_THE_WAY = 64  # calls at most: more than a receive buffer holds are lost
AFTER_LOSS = 4  # at least; more with each answer
PAUSE, PAUSE_MOST = 0.25, 4  # seconds without an answer
PORTS = range(11101, 11133)  # the service keeps a record of each port for ever, so take one of few


def escape(text):
    return text.replace(b"~", b"~~").replace(b"`", b"~`")


def calls(kind, module, text):
    """Yields (call, text): a line feed begins another line, and so does what is too long for a datagram."""
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
    """Any thread may log, and none waits for the service: where no more can be held, handleError() is called.

    Its own thread sends, and joins the service again when that has restarted. A forked child begins with nothing held.
    host: an IPv4 address, as a name would be looked up again and again. most: how many lines are held.
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
                    raise BufferError("closed" if self._ending else "no more records can be held")
                if not self._held:
                    self._wait(0)
                self._held.extend(more)
            self._wake()
        except Exception:
            self.handleError(record)

    def flush(self, timeout=5):
        """Waits until all that was logged is confirmed, at most so many seconds. Returns the texts that are not."""
        with self._changed:
            target = self._confirmed + len(self._held)
            self._changed.wait_for(lambda: self._confirmed >= target, timeout)
            return [text for _, text in self._held][:target - self._confirmed]

    def close(self, timeout=1):
        """Gives up what is not confirmed in time: says so, and returns the texts."""
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
                print(f"{len(lost)} log lines are not confirmed, the first: {lost[0]}", file=sys.stderr)
        super().close()
        return lost

    def _start(self):
        self._changed = threading.Condition()  # guards what is below
        self._held = collections.deque()  # (call, text) without an answer, the oldest first
        self._confirmed = 0
        self._ending = False
        self._socket = self._cookie = None
        self._rename()
        self._wait(0)
        self._waker, self._woken = socket.socketpair()
        self._waker.setblocking(False)
        self._thread = threading.Thread(target=self._run, name="velk", daemon=True)
        self._thread.start()

    def _wake(self):
        with contextlib.suppress(OSError):  # full: it will wake
            self._waker.send(b"\0")

    def _wait(self, silences):
        self._silences = silences
        self._due = time.monotonic() + min(PAUSE * 2 ** min(silences, 10), PAUSE_MOST)

    def _rename(self):
        """The service does not know the client's name, or does not any more."""
        self._client = secrets.token_hex(8).encode()
        self._known = False
        self._first = 1  # the number of the oldest call that is held
        self._sent = 0  # how many of those held are on their way
        self._gap = 0  # the number at which the service last missed one
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
        with contextlib.suppress(OSError):  # lost like any datagram
            self._socket.send(datagram)

    def _send(self):
        if self._held and self._socket is None:
            self._join()
        # The first call under a name goes alone: an answer with 0 means later that the service has forgotten the name.
        most = min(len(self._held), self._window if self._known else 1)
        while self._cookie and self._sent < most:
            head = b"WithAck %s %d " % (self._client, self._first + self._sent)
            self._transmit(self._cookie + head + self._held[self._sent][0])
            self._sent += 1

    def _silence(self):
        self._wait(self._silences + 1)
        if self._silences == 1 and self._cookie:
            self._sent, self._window = 0, AFTER_LOSS
        else:
            self._join()  # it may have restarted

    def _join(self):
        """From a new socket, so that no late nonce is taken for this one's."""
        self._leave()
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setblocking(False)
        for port in PORTS[self._silences % 8:]:  # another each time: the service may not tell two ports apart
            with contextlib.suppress(OSError):  # taken
                self._socket.bind(("", port))
                break
        with contextlib.suppress(OSError):  # no such name, no network: tried again
            self._socket.connect(self._service)
        self._transmit(b"CONN")

    def _leave(self):
        if self._socket is not None:
            if self._cookie:
                self._transmit(b"CONN")  # the service relays nothing to us any more
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
        """All up to `last` were logged; a greater `asked` says that one between was lost."""
        if last == 0 and self._known:
            self._rename()
            return
        self._known = True
        run = min(max(last - self._first + 1, 0), len(self._held))
        for _ in range(run):
            self._held.popleft()
        self._first += run
        self._confirmed += run
        self._sent = max(self._sent - run, 0)
        self._window = min(self._window + run, ON_THE_WAY)
        if asked > last == self._first - 1 != self._gap - 1:  # once for each that is missing
            self._gap, self._sent, self._window = self._first, 0, max(self._window // 2, AFTER_LOSS)
        self._wait(0)
        self._changed.notify_all()


def main(text):
    handler = VelkHandler()
    log = logging.getLogger("net")
    log.addHandler(handler)
    log.warning("%s", text)
    return 1 if handler.close(5) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]) if len(sys.argv) == 2 else __doc__)
