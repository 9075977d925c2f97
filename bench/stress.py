#!/usr/bin/env python3
"""Strains the running service and prints what happened; exit status 1 when a bound was broken.

restart [COUNT]   time from a killed child to the next nonce
soak MINUTES      several peers, random calls, killed children: memory, descriptors and order are watched
flood [SECONDS]   a peer that sends as fast as it can: memory, and what others still get
burst [TIMES]     lines that a peer sends at once, without waiting for any: how many are lost
strangers [COUNT] connects from distinct addresses: memory, and what they cost an admitted peer
confirmed [COUNT] a child killed COUNT times under `syslogctl log --confirm`: every confirmed line at the collector
tool [LINES]      lines per second through `syslogctl log` from a pipe, with and without receipts

Runs in namespaces of its own, with the harness of the tests of the service. bench/stress.sh builds what it needs.
"""
import argparse
import json
import multiprocessing
import os
import random
import signal
import statistics
import subprocess
import sys
import threading
import time

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPOSITORY, "tests", "service"))
import namespace  # noqa: E402  (found by the line above)

COLLECTOR = "127.0.0.2"
LOAD_PORT = 40000  # load.c sends from it
SO_RCVBUFFORCE = 33  # socket(7); Python has no name for it
failures = []


def require(holds, text):
    print(f"{'ok    ' if holds else 'FAILED'}  {text}", flush=True)
    if not holds:
        failures.append(text)


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        return int(next(line for line in status if line.startswith("VmRSS")).split()[1])


def cpu_ticks(pid):
    with open(f"/proc/{pid}/stat") as stat:
        return sum(map(int, stat.read().rpartition(")")[2].split()[11:13]))


def until_idle(pid):
    """Seconds until the process spends no more time, measured in steps of 50 ms."""
    begin = time.monotonic()
    ticks = cpu_ticks(pid)
    while time.monotonic() - begin < 30:
        time.sleep(0.05)
        before, ticks = ticks, cpu_ticks(pid)
        if ticks == before:
            break
    return time.monotonic() - begin - 0.05


def restart(harness, count):
    service = harness.Service(stdout=subprocess.DEVNULL)
    harness.Peer()
    times = []
    for _ in range(count):
        old = service.child()
        stranger = harness.Peer(connect=False)
        os.kill(old, signal.SIGKILL)
        begin = time.monotonic()
        nonce = None
        while nonce is None:
            try:
                stranger.send(b"CONN")
                nonce = stranger.receive(0.001)
            except ConnectionRefusedError:
                pass
        times.append((time.monotonic() - begin) * 1000)
        stranger.close()
    service.stop()
    times.sort()
    print(f"{count} kills: median {statistics.median(times):.2f} ms, 99 % {times[int(count * 0.99)]:.2f} ms, "
          f"longest {times[-1]:.2f} ms from the kill to the next nonce")
    require(statistics.median(times) <= 5, "median at most 5 ms")


class Reader(threading.Thread):
    """Reads the service's console and checks that each peer's lines keep their order."""

    def __init__(self, pipe):
        super().__init__(daemon=True)
        self.pipe, self.lines, self.disorder, self.last = pipe, 0, 0, {}

    def run(self):
        with os.fdopen(self.pipe, encoding="latin-1", newline="\n") as console:
            for line in console:
                self.lines += 1
                _, mark, rest = line.partition("soak=")
                if not mark:
                    continue
                peer, number = map(int, rest.split()[:2])
                self.disorder += number <= self.last.get(peer, -1)
                self.last[peer] = number


def random_call(index, number, harness):
    choice = random.random()
    if choice < 0.9:
        text = b"soak=%d %d %s\n" % (index, number, b"y" * random.randrange(1200))
        return harness.log_call(random.randrange(1, 4), b"soak", text)
    if choice < 0.94:
        return b"SetVar remotelog_addr 127.0.0.%d" % random.randrange(2, 9)
    return random.choice([b"SyncLog", b"SyncVar", b"SetVar remotelog_type 'SysLog server'",
                          b"SetVar remotelog_type off", b"LogMsg 1 `open", os.urandom(random.randrange(1, 1400))])


def soak(harness, minutes):
    reader, writer = os.pipe()
    service = harness.Service(stdout=writer)
    os.close(writer)
    console = Reader(reader)
    console.start()
    peers = [harness.Peer() for _ in range(5)]
    sent = restarts = 0
    end = time.monotonic() + minutes * 60
    next_kill = time.monotonic() + 20
    samples = []
    while time.monotonic() < end:
        for index, peer in enumerate(peers):
            try:
                peer.call(random_call(index, sent, harness))
            except ConnectionRefusedError:
                pass
            peer.heard()
            sent += 1
        time.sleep(0.001)
        if sent % 5000 == 0:
            samples.append((rss_kib(service.pid), len(os.listdir(f"/proc/{service.pid}/fd")), rss_kib(service.child())))
        if time.monotonic() > next_kill:
            service.kill_child()
            restarts += 1
            peers = [harness.Peer() for _ in peers]
            next_kill = time.monotonic() + 20
    zombies = sum(state == "Z" for _, state in harness.processes().values())
    service.stop()
    console.join(10)
    print(f"{sent:,} calls, {console.lines:,} lines, {restarts} restarts in {minutes} min; supervisor "
          f"{samples[0][0]} to {samples[-1][0]} KiB, child at most {max(sample[2] for sample in samples)} KiB")
    require(console.disorder == 0, "every peer's lines in order")
    require(samples[-1][0] - samples[0][0] < 64, "the supervisor's memory stays")
    require(len({sample[1] for sample in samples}) == 1, "the supervisor's descriptors stay")
    require(zombies == 0, "no zombie")
    require(max(sample[2] for sample in samples) < 12 * 1024, "the child's memory is bounded")


def pour(peer, seconds):
    datagram = peer.cookie + b"LogMsg 1 flood '" + b"z" * 1000 + b"\n'"
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for _ in range(1000):
            peer.send(datagram)


def flood(harness, seconds):
    service = harness.Service(stdout=subprocess.DEVNULL)
    child = service.child()
    peer = harness.Peer()
    peer.log(b"warm\n")
    before = rss_kib(child)
    pourers = [multiprocessing.Process(target=pour, args=(peer, seconds)) for _ in range(2)]
    for pourer in pourers:
        pourer.start()
    most, admitted, tries = before, 0, 0
    while any(pourer.is_alive() for pourer in pourers):
        other = harness.Peer(connect=False)
        for _ in range(10):
            tries += 1
            if other.connect():
                admitted += 1
                break
        other.close()
        most = max(most, rss_kib(child))
    quiet = until_idle(child)
    print(f"flood of {seconds} s: memory from {before} to at most {most} KiB; "
          f"{admitted} handshakes of others in {tries} tries; quiet after {quiet:.2f} s")
    require(service.child() == child, "the child lives")
    require(most - before < 8 * 1024, "memory grows by less than 8 MiB")
    require(quiet < 1, "quiet within a second")
    require(admitted > 0, "others are admitted meanwhile")
    service.stop()


def load(harness, lines, window):
    """What load.c's peer finds out by sending lines through the service to the collector."""
    peer = harness.Peer(port=LOAD_PORT)
    for call in (b"SetVar remotelog_type 'SysLog server'", b"SetVar remotelog_addr " + COLLECTOR.encode(), b"SyncVar"):
        peer.call(call)
    peer.close()
    time.sleep(0.2)
    run = subprocess.run([f"{namespace.FILES}/load", "call", str(harness.PORT), COLLECTOR, str(lines), str(window),
                          peer.cookie.hex()], check=True, capture_output=True, text=True)
    return json.loads(run.stdout)


def rate(harness, lines=100000):
    result = load(harness, lines, 64)
    return result["lines"] / result["seconds"]


def burst(harness, times):
    service = harness.Service(stdout=subprocess.DEVNULL)
    load(harness, 5000, 64)
    for lines in (250, 500, 1000, 2000, 4000):
        lost = [load(harness, lines, lines)["lost"] for _ in range(times)]
        print(f"{lines} lines at once: {statistics.median(lost):.0f} lost as a rule, {max(lost)} at most")
        require(lines > 1000 or max(lost) == 0, "up to 1,000 are held")
    service.stop()


def strangers(harness, count):
    service = harness.Service(stdout=subprocess.DEVNULL)
    child = service.child()
    rate(harness, 5000)
    speed = statistics.median(rate(harness) for _ in range(3))
    before = rss_kib(child)
    begin = time.monotonic()
    for number in range(count):
        stranger = harness.Peer(f"127.{1 + number // 65000}.{number // 255 % 255}.{1 + number % 255}",
                                20000 + number % 30011, connect=False)
        stranger.send(b"CONN")
        stranger.receive(0.5)
        stranger.close()
    spent = time.monotonic() - begin
    after = rss_kib(child)
    speed_after = statistics.median(rate(harness) for _ in range(3))
    print(f"{count:,} strangers in {spent:.0f} s: {(after - before) * 1024 / count:.0f} bytes each; "
          f"{speed:,.0f} lines/s before, {speed_after:,.0f} after")
    require(service.child() == child, "the child lives")
    require(speed_after >= 0.8 * speed, "throughput at least 0.8 of what it was")
    service.stop()


class Listener(threading.Thread):
    """Notes the numbers of the lines that reach the collector."""

    def __init__(self, collector):
        super().__init__(daemon=True)
        self.collector, self.seen, self.lines, self.ended = collector, set(), 0, False

    def run(self):
        while not self.ended:
            datagram = self.collector.receive(0.1)
            while datagram is not None:
                _, mark, number = datagram.partition(b"line ")
                if mark:
                    self.lines += 1
                    self.seen.add(int(number.split()[0]))
                datagram = self.collector.receive(0)


def confirmed(harness, kills):
    collector = harness.Collector(COLLECTOR)
    collector.socket.setsockopt(harness.socket.SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20)
    listener = Listener(collector)
    listener.start()
    os.makedirs(os.path.dirname(harness.CONFIG), exist_ok=True)
    with open(harness.CONFIG, "w") as configuration:
        configuration.write(harness.SYSLOG_ON % COLLECTOR)
    service = harness.Service(stdout=subprocess.DEVNULL)
    tool = subprocess.Popen([harness.TOOL, "-q", "--timeout", "30", "log", "--confirm"], stdin=subprocess.PIPE)
    ended = threading.Event()

    def feed():
        number = 0
        while not ended.is_set():
            tool.stdin.write(b"".join(b"line %d\n" % n for n in range(number, number + 50)))
            tool.stdin.flush()
            number += 50
            time.sleep(0.01)
        tool.stdin.close()
        feeder.count = number
    feeder = threading.Thread(target=feed)
    feeder.start()
    for _ in range(kills):
        time.sleep(random.uniform(0.05, 0.35))
        service.kill_child()
    ended.set()
    feeder.join()
    status = tool.wait(60)
    time.sleep(0.5)
    listener.ended = True
    listener.join()
    service.stop()
    lost = set(range(feeder.count)) - listener.seen
    print(f"{kills} kills, {feeder.count:,} lines confirmed with exit status {status}, {listener.lines:,} arrived, "
          f"{len(lost)} lost")
    require(status == 0, "the tool says that all are confirmed")
    require(not lost, "every confirmed line reached the collector")


def tool(harness, lines):
    service = harness.Service(stdout=subprocess.DEVNULL)
    harness.Peer()
    text = b"".join(b"line %08d %s\n" % (n, b"x" * 45) for n in range(lines))
    for options in ([], ["--confirm"]):
        begin = time.monotonic()
        process = subprocess.Popen([harness.TOOL, "-q", "--timeout", "60", "log", *options], stdin=subprocess.PIPE)
        process.stdin.write(text)
        memory = rss_kib(process.pid)  # it has read all but the last pipe's worth
        process.stdin.close()
        require(process.wait() == 0, "exit status 0")
        speed = lines / (time.monotonic() - begin)
        print(f"syslogctl log {' '.join(options):9} {speed:9,.0f} lines/s, {memory} KiB resident")
    print(f"syslogctl has {os.path.getsize(harness.TOOL):,} bytes")
    service.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=["restart", "soak", "flood", "burst", "strangers", "confirmed", "tool"])
    parser.add_argument("amount", type=float, nargs="?")
    args = parser.parse_args()
    status = namespace.enter()
    if status is not None:
        sys.exit(status)
    build = os.path.join(REPOSITORY, "build")
    tests = os.path.dirname(namespace.__file__)
    namespace.prepare({"syslog": f"{build}/syslog", "load": f"{build}/bench/load", "syslogctl": f"{build}/syslogctl",
                       "tests": tests})
    sys.path.insert(0, os.path.join(namespace.FILES, "tests"))
    import harness  # it looks at the service, which is in its place only now
    runs = {"restart": lambda: restart(harness, int(args.amount or 200)),
            "soak": lambda: soak(harness, args.amount or 10),
            "flood": lambda: flood(harness, args.amount or 5),
            "burst": lambda: burst(harness, int(args.amount or 9)),
            "strangers": lambda: strangers(harness, int(args.amount or 200000)),
            "confirmed": lambda: confirmed(harness, int(args.amount or 1000)),
            "tool": lambda: tool(harness, int(args.amount or 100000))}
    runs[args.what]()
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
