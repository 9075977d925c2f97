"""What a client confirmed has arrived, whatever happens to the service or to datagrams on the way: how to tell."""
import random
import selectors
import socket
import threading

from harness import PORT, ServiceTest, until

LINES = 20000
PROXY_PORT = 12001


class Counter(threading.Thread):
    """Reads a collector all the time, and quickly, so that nothing is lost there; keeps the numbers of the lines."""

    BEGIN = b"<134>lib.Info: line "

    def __init__(self, collector):
        super().__init__(daemon=True)
        self.socket = collector.socket
        self.numbers = []
        self.seen = set()
        self.done = False

    def run(self):
        self.socket.settimeout(0.1)
        while not self.done:
            try:
                datagram = self.socket.recv(2048)
            except TimeoutError:
                continue
            if datagram.startswith(self.BEGIN):
                self.numbers.append(int(datagram[len(self.BEGIN):]))
                self.seen.add(self.numbers[-1])


class LossyPath(threading.Thread):
    """Stands before the service: of the datagrams each way it drops, doubles and delays some."""

    def __init__(self, rate):
        super().__init__(daemon=True)
        self.random = random.Random(1)
        self.rate = rate
        self.late = []  # sent behind those that come after them
        self.done = False
        self.peers = {}  # address of the client to the socket that stands for it, and back
        self.front = self.open(("127.0.0.1", PROXY_PORT))
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.front, selectors.EVENT_READ)

    @staticmethod
    def open(address):
        opened = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        opened.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        opened.bind(address)
        opened.setblocking(False)
        return opened

    def run(self):
        while not self.done:
            for key, _ in self.selector.select(0.01):
                self.receive(key.fileobj)
            late, self.late = self.late, []
            for datagram in late:
                self.send(*datagram)
        for key in list(self.selector.get_map().values()):
            key.fileobj.close()

    def receive(self, source):
        for _ in range(20):
            try:
                data, sender = source.recvfrom(2048)
            except (BlockingIOError, ConnectionRefusedError):
                return
            if source is not self.front:
                self.pass_on(self.front, data, self.peers[source])
                continue
            if sender not in self.peers:
                back = self.open(("127.0.0.1", 0))
                self.selector.register(back, selectors.EVENT_READ)
                self.peers[sender], self.peers[back] = back, sender
            self.pass_on(self.peers[sender], data, ("127.0.0.1", PORT))

    def pass_on(self, through, data, receiver):
        chance = self.random.random() / self.rate
        if chance < 1:
            return
        if chance < 2:
            self.late.append((through, data, receiver))
            return
        self.send(through, data, receiver)
        if chance < 3:
            self.send(through, data, receiver)

    @staticmethod
    def send(through, data, receiver):
        try:
            through.sendto(data, receiver)
        except ConnectionRefusedError:
            pass


class LinesTest(ServiceTest):
    """Clients of these tests log "line 0" to "line 19999" as module lib, type Info."""

    def start(self):
        service, collector = self.forwarding_service()
        until(service.child, "a child")
        counter = Counter(collector)
        counter.start()
        self.addCleanup(counter.join)
        self.addCleanup(setattr, counter, "done", True)
        return service, counter

    def lossy_path(self):
        """From PROXY_PORT to the service and back; one datagram in seven has an accident."""
        path = LossyPath(0.05)
        path.start()
        self.addCleanup(path.join)
        self.addCleanup(setattr, path, "done", True)

    def check(self, program, counter, in_order=True):
        """Every line has arrived; in_order: and without its repeats each stands behind the one before."""
        said = program.communicate(timeout=120)[0]
        self.assertEqual(program.returncode, 0, said)
        until(lambda: len(counter.seen) == LINES,
              lambda: f"{LINES} lines, of which {LINES - len(counter.seen)} are missing")
        expected = 0
        for number in counter.numbers:
            expected += number == expected
        if in_order:
            self.assertEqual(expected, LINES)
        print(f"{self.id()}: {said.strip()}, {len(counter.numbers) - LINES} repeats")
