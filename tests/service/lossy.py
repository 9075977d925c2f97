"""A lossy network on loopback, for kernels without netem."""
import heapq
import random
import select
import socket
import threading
import time


def lines_of(service, module):
    """Returns the module's Info lines on the service's console. Text may precede one: the service logs "Cookies do not
    match:" without a line feed, for a call whose cookie a delayed CONN made invalid."""
    texts = (text.partition(f"{module}.Info: ") for text in service.console())
    return [text for _, mark, text in texts if mark]


class LossyPath(threading.Thread):
    """Relays datagrams between clients of `port` and a server, and loses, duplicates and delays some of them.

    Each client has its own socket to the server, so the server sees one endpoint per client. In each direction
    the seed decides what happens to the n-th datagram.
    """

    LOST, DOUBLED, LATE = 0.2, 0.1, 0.2  # probabilities
    MOST_DELAY = 0.005  # seconds

    def __init__(self, port, server, seed):
        super().__init__(daemon=True)
        self.server = server
        self.entrance = self.open_socket(("127.0.0.1", port))
        self.upstream = {}  # each client's socket to the server
        self.decide = {upwards: random.Random(f"{seed} {upwards}") for upwards in (True, False)}
        self.counts = {upwards: dict.fromkeys(("carried", "lost", "doubled", "overtaken"), 0)
                       for upwards in (True, False)}
        self.due = []  # heap of (time, number, upwards, client, datagram)
        self.number = 0
        self.last = {}  # highest number relayed, by (upwards, client)
        self.wake, self.woken = socket.socketpair()
        self.start()

    @staticmethod
    def open_socket(address):
        new = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        new.bind(address)
        new.setblocking(False)
        return new

    def close(self):
        self.wake.close()
        self.join()
        for each in (self.entrance, self.woken, *self.upstream.values()):
            each.close()

    def run(self):
        while True:
            wait = max(0, self.due[0][0] - time.monotonic()) if self.due else None
            ready = select.select([self.woken, self.entrance, *self.upstream.values()], [], [], wait)[0]
            if self.woken in ready:
                return
            for each in ready:
                self.receive(each)
            while self.due and self.due[0][0] <= time.monotonic():
                self.hand_on(*heapq.heappop(self.due)[1:])

    def receive(self, source):
        while True:
            try:
                datagram, sender = source.recvfrom(65536)
            except BlockingIOError:
                return
            except ConnectionRefusedError:  # no server is running
                continue
            upwards = source is self.entrance
            if upwards and sender not in self.upstream:
                self.upstream[sender] = self.open_socket(("127.0.0.1", 0))
                self.upstream[sender].connect(self.server)
            client = sender if upwards else next(
                client for client, each in self.upstream.items() if each is source)
            self.plan(upwards, client, datagram)

    def plan(self, upwards, client, datagram):
        decide, counts = self.decide[upwards], self.counts[upwards]
        lost, doubled = decide.random() < self.LOST, decide.random() < self.DOUBLED
        delays = [decide.uniform(0, self.MOST_DELAY) * (decide.random() < self.LATE) for _ in range(2)]
        self.number += 1
        counts["carried"] += 1
        counts["lost"] += lost
        counts["doubled"] += doubled and not lost
        for delay in () if lost else delays[:1 + doubled]:
            heapq.heappush(self.due, (time.monotonic() + delay, self.number, upwards, client, datagram))

    def hand_on(self, number, upwards, client, datagram):
        self.counts[upwards]["overtaken"] += number < self.last.get((upwards, client), 0)
        self.last[upwards, client] = max(number, self.last.get((upwards, client), 0))
        try:
            if upwards:
                self.upstream[client].send(datagram)
            else:
                self.entrance.sendto(datagram, client)
        except (BlockingIOError, ConnectionRefusedError):
            pass
