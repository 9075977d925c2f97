"""Runs the comparison inside the namespaces that compare.sh makes. Run compare.sh."""
import hashlib
import json
import os
import platform
import re
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

COLLECTOR = "127.0.0.2"  # datagrams to it reach the collector, not the service's socket on 0.0.0.0:514
WINDOW = 64
WORK = os.path.abspath("build/bench")
PEER_PORT = 40000  # load.c sends from it


def admit_peer():
    """Joins from load.c's port, makes the service forward to the collector, and returns the cookie in hexadecimal."""
    peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    peer.bind(("127.0.0.1", PEER_PORT))
    peer.settimeout(0.2)
    peer.connect(("127.0.0.1", 11001))
    for _ in range(50):
        try:
            peer.send(b"CONN")
            cookie = hashlib.md5(peer.recv(64) + b"mosk").digest()
            break
        except (ConnectionRefusedError, socket.timeout):
            time.sleep(0.1)
    else:
        sys.exit("compare: the service does not answer")
    for call in ("SetVar remotelog_type 'SysLog server'", f"SetVar remotelog_addr {COLLECTOR}", "SyncVar"):
        peer.send(cookie + call.encode())
    time.sleep(0.1)
    return cookie.hex()


class Row:
    """One program under test."""

    def __init__(self, name, command, mode, target, what):
        self.name, self.command, self.mode, self.target, self.what = name, command, mode, target, what
        self.results = []

    def start(self, folder):
        with open(os.path.join(folder, self.name + ".out"), "w") as output:
            process = subprocess.Popen(self.command, stdout=output, stderr=subprocess.DEVNULL)
        time.sleep(1.0)
        if process.poll() is not None:
            sys.exit(f"compare: {self.name} ended at once: {' '.join(self.command)}")
        return process

    def load(self, lines, cookie):
        command = [f"{WORK}/load", self.mode, self.target, COLLECTOR, str(lines), str(WINDOW), cookie]
        return json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)

    def run(self, folder, lines):
        process = self.start(folder)
        cookie = admit_peer() if self.mode == "call" else "-"
        self.load(2000, cookie)  # warm-up: buffers, pools, files
        before = cpu_seconds(process.pid)
        result = self.load(lines, cookie)
        result["cpu_us"] = (cpu_seconds(process.pid) - before) / lines * 1e6
        result["rate"] = result["lines"] / result["seconds"]
        result["rss_kib"], result["pss_kib"] = memory(process.pid)
        self.results.append(result)
        stop(process)

    def count_syscalls(self, folder, lines):
        process = self.start(folder)
        cookie = admit_peer() if self.mode == "call" else "-"
        self.load(2000, cookie)
        target = tree(process.pid)[-1]
        report = os.path.join(folder, "strace")
        tracer = subprocess.Popen(["strace", "-c", "-f", "-o", report, "-p", str(target)], stderr=subprocess.DEVNULL)
        time.sleep(0.5)
        self.load(lines, cookie)
        tracer.send_signal(signal.SIGINT)
        tracer.wait()
        stop(process)
        with open(report) as text:
            total = re.search(r"^100\.00.*$", text.read(), re.MULTILINE).group(0).split()
        return int(total[3]) / lines

    def median(self, key):
        return statistics.median(result[key] for result in self.results)

    def ratio(self, key, other):
        """Returns the median of the rounds' ratios: a shared machine's speed changes by a sixth between rounds."""
        pairs = zip(self.results, other.results)
        return statistics.median(mine[key] / theirs[key] for mine, theirs in pairs)


def tree(pid):
    """Returns the process and its descendants."""
    pids = [pid]
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/children") as children:
            for child in children.read().split():
                pids += tree(int(child))
    return pids


def cpu_seconds(pid):
    total = 0
    for process in tree(pid):
        for task in os.listdir(f"/proc/{process}/task"):
            with open(f"/proc/{process}/task/{task}/schedstat") as stat:
                total += int(stat.read().split()[0])
    return total / 1e9


def memory(pid):
    """Returns RSS and PSS of the whole program in KiB."""
    totals = {"Rss": 0, "Pss": 0}
    for process in tree(pid):
        with open(f"/proc/{process}/smaps_rollup") as rollup:
            for line in rollup:
                key = line.split(":")[0]
                if key in totals:
                    totals[key] += int(line.split()[1])
    return totals["Rss"], totals["Pss"]


def stop(process):
    process.terminate()
    try:
        process.wait(5)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def version(program, *arguments):
    """Returns the version in the program's first line of output, such as 3.38.1 in "syslog-ng 3 (3.38.1)"."""
    run = subprocess.run([program, *arguments], capture_output=True, text=True)
    return re.search(r"\d+(\.\d+)+", (run.stdout + run.stderr).splitlines()[0]).group()


def write_file(path, text):
    with open(path, "w") as file:
        file.write(text)
    return path


def rows(folder):
    def rsyslog(port, head=""):
        return write_file(f"{folder}/rsyslog-{port}.conf", f"""{head}
module(load="imudp")
input(type="imudp" address="127.0.0.1" port="{port}")
action(type="omfile" file="{folder}/rsyslog-{port}.log" asyncWriting="off" flushOnTXEnd="on")
action(type="omfwd" target="{COLLECTOR}" port="514" protocol="udp")
""")
    syslog_ng = write_file(f"{folder}/syslog-ng.conf", f"""@version: 3.38
options {{ flush-lines(1); stats-freq(0); keep-hostname(yes); dns-cache(no); use-dns(no); }};
source s {{ network(ip("127.0.0.1") port(2514) transport("udp")); }};
destination f {{ file("{folder}/syslog-ng.log" flush-lines(1)); }};
destination n {{ network("{COLLECTOR}" port(514) transport("udp")); }};
log {{ source(s); destination(f); destination(n); }};
""")
    rsyslogd, syslog_ngd = (os.path.abspath(f"build/collectors/{name}") for name in ("rsyslogd", "syslog-ng"))
    one_by_one = 'main_queue(queue.dequeueBatchSize="1")'
    programs = [
        Row("floor", [f"{WORK}/floor", "3514", f"{folder}/floor.log", COLLECTOR], "raw", "3514", "`bench/floor.c`"),
        Row("floor, two threads", [f"{WORK}/floor", "3515", f"{folder}/floor2.log", COLLECTOR, "two"], "raw", "3515",
            "the same, but one thread receives and another writes"),
        Row("this service", [os.path.abspath("build/syslog")], "call", "11001", "this tree"),
        Row("rsyslogd, batches", [rsyslogd, "-n", "-f", rsyslog(1514), "-i", f"{folder}/rsyslog.pid"], "raw", "1514",
            f"rsyslog {version(rsyslogd, '-v')} with its defaults, which writes lines in batches"),
        Row("rsyslogd", [rsyslogd, "-n", "-f", rsyslog(1515, one_by_one), "-i", f"{folder}/rsyslog.pid"], "raw", "1515",
            "the same, but with batches of one line"),
        Row("syslog-ng", [syslog_ngd, "-F", "--no-caps", "-f", syslog_ng, "-R", f"{folder}/ng.persist",
                          "-p", f"{folder}/ng.pid", "-c", f"{folder}/ng.ctl"], "raw", "2514",
            f"syslog-ng {version(syslog_ngd, '-V')}"),
        Row("this service, musl", [os.path.abspath("build-small/syslog")], "call", "11001",
            "the static binary with a musl made for size"),
        Row("busybox syslogd", ["busybox", "syslogd", "-n", "-L", "-R", f"{COLLECTOR}:514", "-O",
                                f"{folder}/busybox.log"], "unix", "/dev/log",
            f"BusyBox {version('busybox')}"),
    ]
    return programs


def make_private(folder):
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    # All files in memory, and our own /dev: one of the daemons listens on /dev/log only.
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", folder], check=True)
    os.mkdir(f"{folder}/dev")
    for node in ("null", "zero", "random", "urandom"):
        subprocess.run(["cp", "-a", f"/dev/{node}", f"{folder}/dev/"], check=True)
    subprocess.run(["mount", "--bind", f"{folder}/dev", "/dev"], check=True)


def machine():
    with open("/proc/cpuinfo") as info:
        model = re.search(r"model name\s*:\s*(.*)", info.read())
    # Without the suffix that distributions add to the kernel's version.
    kernel = re.match(r"[\d.]*\d", platform.release()).group()
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    name = model.group(1) if model else platform.machine()
    return f"{name}, {os.cpu_count()} processors, Linux {kernel}, {system}"


def table(programs, syscalls):
    floor = programs[0]
    heads = ["Program", "Lines/s", "Lines, floor = 1", "Lost", "CPU per line, µs", "CPU, floor = 1",
             "RSS, KiB", "PSS, KiB", "p50, µs", "p99, µs"]
    lines = [f"| {' | '.join(heads)} |", "|---" * len(heads) + "|"]
    for row in programs:
        lost = sum(result["lost"] for result in row.results)
        lines.append(f"| {row.name} | {row.median('rate'):,.0f} | {row.ratio('rate', floor):.2f} | {lost} | "
                     f"{row.median('cpu_us'):.2f} | {row.ratio('cpu_us', floor):.2f} | "
                     f"{row.median('rss_kib'):.0f} | {row.median('pss_kib'):.0f} | "
                     f"{row.median('p50_us'):.0f} | {row.median('p99_us'):.0f} |")
    counts = "; ".join(f"{name}: {count:.2f}" for name, count in syscalls.items())
    return "\n".join(lines) + f"\n\nSystem calls per line (`strace -c -f`): {counts}.\n"


def draw(programs, folder, path):
    data = "".join(f'"{row.name}" {row.median("rate"):.0f} {row.median("cpu_us"):.2f}\n' for row in programs)
    script = f"""
set terminal svg size 760,300 font "sans,11" background "white"
set output "{path}"
set style fill solid 0.8
set boxwidth 0.6
set yrange [0:*]
set xtics rotate by -20
set multiplot layout 1,2
set title "Lines per second"
plot "{write_file(f'{folder}/chart.dat', data)}" using 0:2:xtic(1) with boxes notitle linecolor rgb "#33658a"
set title "Processor time per line, µs"
plot "{folder}/chart.dat" using 0:3:xtic(1) with boxes notitle linecolor rgb "#86bbd8"
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def report(programs, syscalls, rounds, lines):
    text = table(programs, syscalls)
    print(text)
    path = "docs/benchmarks.md"
    with open(path) as file:
        before, _, rest = file.read().partition("<!-- compare: begin -->\n")
        _, _, after = rest.partition("<!-- compare: end -->\n")
    legend = "".join(f"- {row.name}: {row.what}\n" for row in programs)
    write_file(path, f"{before}<!-- compare: begin -->\nMedians of {rounds} rounds of {lines:,} lines; "
                     f"ratios are medians of the rounds' ratios.\n{machine()}.\n\n{legend}\n{text}"
                     f"<!-- compare: end -->\n{after}")


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 15
    lines = int(sys.argv[2]) if len(sys.argv) > 2 else 100000
    with tempfile.TemporaryDirectory() as folder:
        make_private(folder)
        try:
            programs = rows(folder)
            for number in range(rounds):
                for row in programs:
                    row.run(folder, lines)
                    result = row.results[-1]
                    print(f"round {number + 1}: {row.name:16} {result['rate']:9,.0f} lines/s  "
                          f"{result['cpu_us']:6.2f} µs  lost {result['lost']}", flush=True)
            syscalls = {row.name: row.count_syscalls(folder, 20000) for row in programs[:3]}
            report(programs, syscalls, rounds, lines)
            draw(programs, folder, os.path.abspath("docs/benchmarks.svg"))
        finally:
            subprocess.run(["umount", "-l", "/dev", folder], check=False)


if __name__ == "__main__":
    main()
