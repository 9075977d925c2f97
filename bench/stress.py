#!/usr/bin/env python3
"""Stress tests of the running service. Prints the results; exit status 1 if a requirement is not met.

restart [COUNT]   time from a killed child to the next nonce
soak [MINUTES]    several peers, random calls, killed children: checks memory, descriptors and order
flood [SECONDS]   two processes send as one peer, as fast as they can: memory, and whether others still get a nonce
burst [TIMES]     a peer sends many lines at once, without waiting: how many are lost
strangers [COUNT] CONNs from distinct addresses, without a cookie: memory, and the throughput of an admitted peer
confirmed [COUNT] three runs, two of them beside a busy peer, each kill the child COUNT times during `syslogctl log`:
                  no line is lost, few are repeated, and lines flow again soon
lossy [SEEDS]     500 lines through a network that loses, duplicates and reorders: each once, in order, and how fast
tool [LINES]      `syslogctl log`: lines per second from a pipe, time for one line, memory
peers [LINES]     cost of a line to the service with 0 to 100 other peers

--old BUILD: `tool` and `peers` measure the executables in BUILD too, in turn with this build's. An old `log` gets
--confirm, without which it would not wait for acks.
Runs in its own namespaces, with the harness of the service tests. Start it with bench/stress.sh.
"""
import argparse
import array
import bisect
import collections
import contextlib
import json
import multiprocessing
import os
import random
import select
import signal
import socket
import statistics
import struct
import subprocess
import sys
import threading
import time

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPOSITORY, "tests", "service"))
import namespace  # noqa: E402  (found by the line above)

COLLECTOR = "127.0.0.2"
LOAD_PORT = 40000  # load.c sends from it
SO_TIMESTAMPNS = 35  # socket(7); not in Python's socket module
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


def cpu_us(pid):
    """Returns the processor time of all running threads in microseconds."""
    total = 0
    for thread in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{thread}/schedstat") as schedstat:
            total += int(schedstat.read().split()[0])
    return total / 1000


def until_idle(pid):
    """Returns the seconds until the process is idle, measured in steps of 50 ms."""
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
    require(samples[-1][0] - samples[0][0] < 64, "the supervisor's memory grows by less than 64 KiB")
    require(len({sample[1] for sample in samples}) == 1, "the number of the supervisor's descriptors does not change")
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
    most, answered, tries = before, 0, 0
    while any(pourer.is_alive() for pourer in pourers):
        other = harness.Peer(connect=False)
        for _ in range(10):
            tries += 1
            if other.connect():
                answered += 1
                break
        other.close()
        most = max(most, rss_kib(child))
    quiet = until_idle(child)
    print(f"flood of {seconds} s: memory from {before} to at most {most} KiB; "
          f"{answered} nonces to others in {tries} tries; quiet after {quiet:.2f} s")
    require(service.child() == child, "the child lives")
    require(most - before < 8 * 1024, "memory grows by less than 8 MiB")
    require(quiet < 1, "quiet within a second")
    require(answered > 0, "others get nonces meanwhile")
    service.stop()


def load(harness, lines, window):
    """Returns the results of load.c, which sends lines through the service to the collector."""
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
        print(f"{lines} lines at once: {statistics.median(lost):.0f} lost (median), {max(lost)} at most")
        if lines <= 1000:
            require(max(lost) == 0, "none is lost")
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
    """Records each line's number and the kernel's time stamp of its arrival at the collector."""

    def __init__(self, collector):
        super().__init__(daemon=True)
        self.socket, self.times, self.numbers, self.ended = collector.socket, array.array("q"), array.array("q"), False
        self.socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        self.socket.settimeout(0.1)

    def run(self):
        while not self.ended:
            with contextlib.suppress(TimeoutError):
                datagram, ((_, _, stamp),), _, _ = self.socket.recvmsg(2048, 64)
                _, mark, number = datagram.partition(b"line ")
                if mark:
                    seconds, nanoseconds = struct.unpack("qq", stamp)
                    self.times.append(seconds * 10**9 + nanoseconds)
                    self.numbers.append(int(number.split()[0]))


class BusyPeer(threading.Thread):
    """Repeats the same call, and joins again after each kill. call None: does nothing."""

    PAUSE = 0.001

    def __init__(self, harness, call):
        super().__init__(daemon=True)
        self.harness, self.call, self.kills, self.calls, self.ended = harness, call, 0, 0, False

    def run(self):
        while self.call and not self.ended:
            kills, peer = self.kills, self.harness.Peer()
            peer.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 0)  # it reads nothing
            with contextlib.suppress(ConnectionRefusedError):
                while kills == self.kills and not self.ended:
                    peer.call(self.call)
                    self.calls += 1
                    time.sleep(self.PAUSE)
            peer.close()


class Feeder(threading.Thread):
    """Writes lines to the tool as fast as the tool reads them."""

    AT_ONCE = 1000

    def __init__(self, process):
        super().__init__(daemon=True)
        self.process, self.count, self.ended = process, 0, False

    def run(self):
        with self.process.stdin as pipe:
            while not self.ended:
                pipe.write(b"".join(b"line %d\n" % n for n in range(self.count, self.count + self.AT_ONCE)))
                pipe.flush()
                self.count += self.AT_ONCE


def kill_and_watch(service):
    """Kills the child. Returns the times, in ns since 1970, before the kill and after the child ended."""
    child = service.child()
    watch = os.pidfd_open(child)
    before = time.time_ns()
    os.kill(child, signal.SIGKILL)
    select.select([watch], [], [])
    after = time.time_ns()
    os.close(watch)
    return before, after


def confirmed(harness, kills):
    for other, call in (("no other peer", None), ("a peer sends garbage", b"LogMsg 1 `open"),
                        ("a peer calls SyncLog", b"SyncLog")):
        print(f"{other}:")
        confirmed_with(harness, kills, call)


def confirmed_with(harness, kills, call):
    collector = harness.Collector(COLLECTOR)
    listener = Listener(collector)
    listener.start()
    os.makedirs(os.path.dirname(harness.CONFIG), exist_ok=True)
    with open(harness.CONFIG, "w") as configuration:
        configuration.write(harness.SYSLOG_ON % COLLECTOR)
    service = harness.Service(stdout=subprocess.DEVNULL)
    busy = BusyPeer(harness, call)
    busy.start()
    process = subprocess.Popen([harness.TOOL, "-q", "--timeout", "30", "log"], stdin=subprocess.PIPE)
    feeder = Feeder(process)
    feeder.start()
    killed = []
    for _ in range(kills):
        time.sleep(random.uniform(0.05, 0.35))
        killed.append(kill_and_watch(service))
        busy.kills += 1
    time.sleep(0.2)
    feeder.ended = True
    feeder.join()
    status = process.wait(60)
    busy.ended = True
    busy.join()
    time.sleep(0.5)
    listener.ended = True
    listener.join()
    collector.socket.close()
    service.stop()
    judge(killed, zip(listener.times, listener.numbers), feeder.count, busy.calls)
    require(status == 0, f"the tool reports all lines as confirmed (exit status {status})")


def judge(killed, arrived, lines, others):
    ends = [after for _, after in killed]
    seen, new, repeats, highest, disorder = bytearray(lines), array.array("q"), collections.Counter(), -1, 0
    for when, number in arrived:
        if seen[number]:
            repeats[bisect.bisect_right(ends, when)] += 1
            continue
        seen[number] = True
        new.append(when)
        disorder += number < highest
        highest = max(highest, number)
    pauses = [(new[next_new] - before) / 1e6 for before, after in killed
              if (next_new := bisect.bisect_right(new, after)) < len(new)]
    counts = [repeats[number] for number in range(1, len(killed) + 1)]
    print(f"{len(killed)} kills, {lines:,} lines, {lines - sum(seen)} lost, {disorder} out of order, "
          f"{others:,} calls of another peer")
    print(f"repeats per kill: mean {statistics.mean(counts):.1f}, median {statistics.median(counts):.0f}, most "
          f"{max(counts)}; {repeats[0]} before the first")
    print(f"kill to the next new line: median {statistics.median(pauses):.1f} ms, 99 % "
          f"{sorted(pauses)[int(len(pauses) * 0.99)]:.1f} ms, longest {max(pauses):.1f} ms")
    require(all(seen), "every line reached the collector")
    require(disorder == 0, "lines in order")
    require(max(counts) <= 64 and statistics.mean(counts) <= 10, "at most 64 repeats per kill, 10 on average")
    require(len(pauses) == len(killed) and statistics.median(pauses) <= 200, "lines flow again within 200 ms, median")


def lossy(harness, seeds):
    from lossy import LossyPath, lines_of
    lines = [f"line {number}" for number in range(500)]
    port, times, wrong = 11002, [], []
    for seed in range(seeds):
        service = harness.Service()
        service.child()
        path = LossyPath(port, ("127.0.0.1", harness.PORT), seed)
        begin = time.monotonic()
        status = subprocess.run([harness.TOOL, "--timeout", "60", "-s", f"127.0.0.1:{port}", "log", "-t", "lossy"],
                                input="\n".join(lines).encode()).returncode
        times.append(time.monotonic() - begin)
        path.close()
        if status != 0 or lines != lines_of(service, "lossy"):
            wrong.append(seed)
        service.stop()
    print(f"{seeds} seeds: median {statistics.median(times):.2f} s, longest {max(times):.2f} s (seed "
          f"{times.index(max(times))}) for 500 lines; last seed's datagrams: to the service {path.counts[True]}, "
          f"back {path.counts[False]}")
    require(not wrong, f"each line once and in order (wrong with seeds {wrong})")
    require(max(times) <= 10, "within 10 s")


class Build:
    """A service, and the command that logs through it and waits for the acks."""

    def __init__(self, name, service, tool, *options):
        self.name, self.binary = name, service
        self.log = [tool, "-q", "--timeout", "60", "log", *options]
        self.results = collections.defaultdict(list)

    @contextlib.contextmanager
    def running(self, harness, others=0):
        """Runs the service with this number of idle admitted peers."""
        service = harness.Service(stdout=subprocess.DEVNULL, binary=self.binary)
        peer = harness.Peer()
        peer.send(b"CONN")  # this peer only waited for the service; CONN ends its admission
        peers = [peer, *(harness.Peer() for _ in range(others))]
        yield service
        service.stop()
        for peer in peers:
            peer.close()

    def send(self, text):
        """Returns the seconds until all is confirmed, the tool's memory in KiB and its processor time in seconds."""
        begin, before = time.monotonic(), os.times()
        process = subprocess.Popen(self.log, stdin=subprocess.PIPE)
        process.stdin.write(text)
        memory = rss_kib(process.pid)  # the tool has read all but one pipe buffer
        process.stdin.close()
        require_quietly(process.wait() == 0, f"{' '.join(self.log)}: exit status {process.returncode}")
        after = os.times()
        spent = after.children_user + after.children_system - before.children_user - before.children_system
        return time.monotonic() - begin, memory, spent

    def send_one(self):
        begin = time.monotonic()
        process = os.posix_spawn(self.log[0], [*self.log, "one line"], os.environ)
        status = os.waitpid(process, 0)[1]
        require_quietly(status == 0, f"{' '.join(self.log)} one line: status {status}")
        return time.monotonic() - begin

    def median(self, what):
        return statistics.median(self.results[what])


def require_quietly(holds, text):
    if not holds:
        require(False, text)


def lines_of_60(count):
    return b"".join(b"line %08d %s\n" % (number, b"x" * 45) for number in range(count))


def tool(harness, lines, builds):
    text = lines_of_60(lines)
    for _ in range(5):
        for build in builds:
            with build.running(harness) as service:
                build.results["ms"] += [build.send_one() * 1000 for _ in range(20)]
                child = service.child()
                before = cpu_us(child)
                seconds, memory, spent = build.send(text)
                for what, value in (("speed", lines / seconds), ("tool", memory), ("child", rss_kib(child)),
                                    ("supervisor", rss_kib(service.pid)), ("cpu", (cpu_us(child) - before) / lines),
                                    ("tool cpu", spent * 1e6 / lines)):
                    build.results[what].append(value)
    for build in builds:
        speeds = " ".join(f"{speed:,.0f}" for speed in build.results["speed"])
        print(f"{build.name}: {build.median('speed'):,.0f} lines/s ({speeds}); us per line: service "
              f"{build.median('cpu'):.2f}, tool {build.median('tool cpu'):.2f}; one line "
              f"{build.median('ms'):.2f} ms; RSS, KiB: tool {build.median('tool')}, child "
              f"{build.median('child')}, supervisor {build.median('supervisor')}; syslogctl has "
              f"{os.path.getsize(build.log[0]):,} bytes")
    this = builds[0]
    require(this.median("ms") <= 5, "one confirmed line at most 5 ms, median")
    for old in builds[1:]:
        ratio = statistics.median(mine / theirs for mine, theirs in zip(this.results["speed"], old.results["speed"]))
        require(ratio >= 2.5, f"{ratio:.2f} times the throughput of {old.name}, median of 5 pairs")
        for what in ("child", "supervisor"):
            require(this.median(what) - old.median(what) <= 200, f"{what}: at most 200 KiB more")


def peers(harness, lines, builds):
    text = lines_of_60(lines)
    for others in (0, 1, 10, 100):
        for _ in range(5):
            for build in builds:
                with build.running(harness, others) as service:
                    child = service.child()
                    before = cpu_us(child)
                    seconds, _, _ = build.send(text)
                    build.results[f"cpu {others}"].append((cpu_us(child) - before) / lines)
                    build.results[f"speed {others}"].append(lines / seconds)
        figures = (f"{build.name} {build.median(f'cpu {others}'):.2f} us a line, "
                   f"{build.median(f'speed {others}'):,.0f} lines/s" for build in builds)
        print(f"{others} other peers: {'; '.join(figures)}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=["restart", "soak", "flood", "burst", "strangers", "confirmed", "lossy", "tool",
                                         "peers"])
    parser.add_argument("amount", type=float, nargs="?")
    parser.add_argument("--old", metavar="BUILD")
    args = parser.parse_args()
    status = namespace.rerun()
    if status is not None:
        sys.exit(status)
    build = os.path.join(REPOSITORY, "build")
    tests = os.path.dirname(namespace.__file__)
    files = {"syslog": f"{build}/syslog", "load": f"{build}/bench/load", "syslogctl": f"{build}/syslogctl",
             "tests": tests}
    if args.old:
        files.update({f"old-{name}": f"{args.old}/{name}" for name in ("syslog", "syslogctl")})
    namespace.prepare(files)
    sys.path.insert(0, os.path.join(namespace.FILES, "tests"))
    import harness  # only now: it needs the files that prepare() copies
    builds = [Build("this build", harness.BINARY, harness.TOOL)]
    if args.old:
        builds.append(Build("old build", *(f"{namespace.FILES}/old-{name}" for name in ("syslog", "syslogctl")),
                            "--confirm"))
    runs = {"restart": lambda: restart(harness, int(args.amount or 200)),
            "soak": lambda: soak(harness, args.amount or 10),
            "flood": lambda: flood(harness, args.amount or 5),
            "burst": lambda: burst(harness, int(args.amount or 9)),
            "strangers": lambda: strangers(harness, int(args.amount or 200000)),
            "confirmed": lambda: confirmed(harness, int(args.amount or 1000)),
            "lossy": lambda: lossy(harness, int(args.amount or 20)),
            "tool": lambda: tool(harness, int(args.amount or 100000), builds),
            "peers": lambda: peers(harness, int(args.amount or 20000), builds)}
    runs[args.what]()
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
