#!/usr/bin/env python3
"""Shows that a memory limit turns a flood of forged connects into a restart: memory_limit.py SYSLOG [MIB]

Every forged address costs the child a small record. At the limit the child ends, the next one serves, and peers join
again. Tries a limit on the address space, as most start scripts set it, and on a control group, as systemd does.
"""
import contextlib
import os
import random
import resource
import socket
import struct
import sys
import threading
import time

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPOSITORY, "tests", "service"))
import namespace  # noqa: E402  (found by the line above)

LONGEST = 60.0  # seconds of flood


def connect_from(address, port, to_port):
    """Makes an IPv4 packet. The kernel fills in its length and IP checksum; the UDP checksum may be 0."""
    payload = b"CONN"
    udp = struct.pack(">4H", port, to_port, 8 + len(payload), 0)
    ip = struct.pack(">BBHHHBBHII", 0x45, 0, 0, 0, 0, 64, socket.IPPROTO_UDP, 0, address, 0x7F000001)
    return ip + udp + payload


@contextlib.contextmanager
def control_group(limit):
    """Yields a function that moves the calling process into a group with this limit; None if none can be made."""
    version2 = os.path.exists("/sys/fs/cgroup/cgroup.controllers")
    group = f"/sys/fs/cgroup/{'' if version2 else 'memory/'}velk-test-{os.getpid()}-{random.randrange(1 << 30)}"
    settings = ({"memory.max": limit, "memory.swap.max": 0} if version2
                else {"memory.limit_in_bytes": limit, "memory.swappiness": 0})
    try:
        os.mkdir(group)
    except OSError:
        yield None
        return
    try:
        for name, value in settings.items():
            with open(f"{group}/{name}", "w") as file:
                file.write(str(value))
    except OSError:
        os.rmdir(group)
        yield None
        return

    def join():
        with open(f"{group}/cgroup.procs", "w") as file:
            file.write("0")
    try:
        yield join
    finally:
        os.rmdir(group)


def flood(harness, service):
    """Forges connects until the child ends. Returns their number."""
    raw = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_RAW)
    first = service.child()
    count = 0
    end = time.monotonic() + LONGEST
    while harness.processes().get(first, (0, "Z"))[1] != "Z":
        if time.monotonic() > end:
            raise AssertionError(f"{count} forged connects in {LONGEST} s did not end the child")
        for _ in range(500):
            address = 0x7F000000 | random.randrange(1 << 16, 1 << 24)
            raw.sendto(connect_from(address, random.randrange(1024, 65536), harness.PORT), ("127.0.0.1", 0))
            count += 1
    raw.close()
    return count


def join_again(harness, peer):
    harness.until(peer.connect, "an answer to CONN")
    peer.send(peer.cookie)


def survive(harness, kind, prepare):
    reader, writer = os.pipe()
    exits = []

    def read_console():  # from a pipe: /tmp is in memory, so a file there would count against the limit
        with os.fdopen(reader, encoding="latin-1") as console:
            exits.extend(line.strip() for line in console if "Child exited" in line)
    console = threading.Thread(target=read_console)
    console.start()
    service = harness.Service(stdout=writer, prepare=prepare)
    os.close(writer)
    peers = harness.Peer(), harness.Peer()
    count = flood(harness, service)
    begin = time.monotonic()
    for peer in peers:
        join_again(harness, peer)
    down = time.monotonic() - begin
    call = b"Any call"
    peers[0].call(call)
    heard = peers[1].receive()
    assert heard == peers[1].cookie + call, heard
    assert service.process.poll() is None
    for peer in peers:
        peer.close()
    service.process.terminate()
    service.process.wait(harness.DEADLINE)
    console.join()
    assert service.errors() in ("", "syslog: out of memory\n"), service.errors()
    print(f"{kind}: {count} forged connects, then {exits[0].partition('] ')[2]!r}; "
          f"all joined again {down * 1000:.0f} ms later")


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    if os.geteuid() != 0:
        print("left out: all tests of the memory limit: needs root, to forge addresses")
        return
    limit = int(sys.argv[2] if len(sys.argv) == 3 else 16) << 20
    try:
        status = namespace.rerun()
        if status is not None:
            sys.exit(status)
        tests = os.path.dirname(namespace.__file__)
        namespace.prepare({"syslog": sys.argv[1], "tests": tests})
    except namespace.Unavailable as reason:
        print(f"left out: all tests of the memory limit: {reason}")
        return
    sys.path.insert(0, os.path.join(namespace.FILES, "tests"))
    import harness  # only now: it needs the prepared service
    survive(harness, "address space", lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
    with control_group(limit) as join:
        if join is None:
            print("left out: the memory limit of a control group: none can be made here")
        else:
            survive(harness, "control group", join)


main()
