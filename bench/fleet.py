#!/usr/bin/env python3
"""Measures how many lines a collector writes and loses if many devices send: prints the figures of docs/fleet.md.

rates    lines at four rates from 10, 100 and 1,000 devices, with the kernel's default receive buffer and a large one
bursts   1,000 devices that each send 20 lines at the same moment, with several receive buffers

Runs rsyslog and syslog-ng with the configurations in examples/collectors, in its own namespaces. Start it with
bench/fleet.sh. The simulated devices run on the same machine and take processor time from the collector.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import time

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPOSITORY, "tests", "service"))
import collectors  # noqa: E402  (found by the line above)
import namespace  # noqa: E402

LOGS = "/tmp/devices"
# Each program, and the receive buffer as its configuration writes it.
PROGRAMS = {"rsyslog": '"16m"', "syslog-ng": "(16777216)"}
# The kernel doubles the value: 106,496 gives the default of 212,992 bytes.
BUFFERS = {106496: "usual", 1 << 20: "1 MiB", 4 << 20: "4 MiB", 16 << 20: "16 MiB"}
IDLE = 1  # seconds without work after which the collector is done


def lines_written():
    total = 0
    for folder, _, files in os.walk(LOGS):
        for name in files:
            with open(os.path.join(folder, name), "rb") as file:
                while block := file.read(1 << 20):
                    total += block.count(b" of a fleet")
    return total


def collector_sockets():
    """Returns the rows of the collector's sockets on port 514 in the kernel's table, split into columns."""
    with open("/proc/net/udp") as table:
        rows = [line.split() for line in table]
    return [row for row in rows if row[1] == "0200007F:0202"]


def wait_until_listening():
    while not collector_sockets():
        time.sleep(0.02)


def kernel_drops():
    """Returns the number of datagrams that the kernel dropped because the receive buffer was full."""
    return sum(int(row[-1]) for row in collector_sockets())


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as stat:
        return sum(map(int, stat.read().rpartition(")")[2].split()[11:13])) / os.sysconf("SC_CLK_TCK")


def peak_rss_mib(pid):
    with open(f"/proc/{pid}/status") as status:
        return int(next(line for line in status if line.startswith("VmHWM")).split()[1]) / 1024


def fleet(devices, rate, lines):
    run = subprocess.run([f"{namespace.FILES}/fleet", collectors.HOST, str(devices), str(rate), str(lines)],
                         check=True, capture_output=True, text=True)
    return json.loads(run.stdout)


def until_idle(pid):
    """Waits until the collector has spent no processor time for a second."""
    quiet, before = 0, cpu_seconds(pid)
    while quiet < 10 * IDLE:
        time.sleep(0.1)
        now = cpu_seconds(pid)
        quiet = quiet + 1 if now == before else 0
        before = now


def measure(program, devices, rate, lines, buffer):
    """Runs a newly started collector under one load."""
    shutil.rmtree(LOGS, ignore_errors=True)
    old = PROGRAMS[program]
    new = old[0] + str(buffer) + old[-1]
    collector = collectors.Collector(f"{program}-fleet", f"{program}-to-files", **{old: new})
    pid = collector.process.pid
    wait_until_listening()
    fleet(devices, 1000, devices * 4)  # opens the files, as a long-running collector has them open
    until_idle(pid)
    before, drops, cpu, begin = lines_written(), kernel_drops(), cpu_seconds(pid), time.monotonic()
    sent = fleet(devices, rate, lines)
    until_idle(pid)
    spent = time.monotonic() - begin - IDLE
    result = {"sent": sent["sent"], "rate": sent["sent"] / sent["seconds"], "drops": kernel_drops() - drops,
              "cpu": cpu_seconds(pid) - cpu, "rss": peak_rss_mib(pid)}
    collector.stop()
    result["lost"] = result["sent"] - (lines_written() - before)
    result["written"] = (result["sent"] - result["lost"]) / spent
    return result


def row(*cells):
    print("| " + " | ".join(cells) + " |", flush=True)


def lost_share(got):
    if got["lost"] != got["drops"]:
        print(f"{got['lost'] - got['drops']} lines were lost outside the receive buffer", file=sys.stderr)
    percent = 100 * got["lost"] / got["sent"]
    return "0" if got["lost"] == 0 else "< 0.01 %" if percent < 0.01 else f"{percent:.2f} %"


def granted(program, buffers):
    """Returns the receive buffers that the program gets: rsyslog as root may exceed rmem_max, syslog-ng may not."""
    if program == "rsyslog":
        return buffers
    with open("/proc/sys/net/core/rmem_max") as file:
        limit = int(file.read())
    return [buffer for buffer in buffers if buffer <= limit]


def rates(seconds):
    asked = (5000, 20000, 40000, 80000)
    row("Collector", "Receive buffer", "Devices", *[f"Lost at {rate:,}/s" for rate in asked],
        f"Written/s at {asked[-1]:,}/s", f"CPU per line at {asked[1]:,}/s, µs", "Peak RSS, MiB")
    row(*["---"] * 10)
    for program in PROGRAMS:
        for buffer in granted(program, (106496, 4 << 20)):
            for devices in (10, 100, 1000):
                got = [measure(program, devices, rate, rate * seconds, buffer) for rate in asked]
                cpu = got[1]["cpu"] / (got[1]["sent"] - got[1]["lost"]) * 1e6
                row(program, BUFFERS[buffer], f"{devices:,}", *map(lost_share, got), f"{got[-1]['written']:,.0f}",
                    f"{cpu:.0f}", f"{max(one['rss'] for one in got):.0f}")


def bursts():
    row("Collector", "Receive buffer", "Lines at once", "Sent within, ms", "Lost", "Peak RSS, MiB")
    row(*["---"] * 6)
    for program in PROGRAMS:
        for buffer in granted(program, BUFFERS):
            got = measure(program, 1000, 0, 20000, buffer)
            row(program, BUFFERS[buffer], f"{got['sent']:,}", f"{got['sent'] / got['rate'] * 1000:.0f}",
                lost_share(got), f"{got['rss']:.0f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=["rates", "bursts"])
    parser.add_argument("--seconds", type=int, default=5, help="for rates: how long each load lasts")
    args = parser.parse_args()
    status = namespace.rerun()
    if status is not None:
        sys.exit(status)
    build = os.path.join(REPOSITORY, "build")
    namespace.prepare({"fleet": f"{build}/bench/fleet", "collectors": f"{build}/collectors",
                       "examples": os.path.join(REPOSITORY, "examples")})
    if args.what == "rates":
        rates(args.seconds)
    else:
        bursts()


if __name__ == "__main__":
    main()
