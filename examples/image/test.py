"""Boots an image, watches its serial line, receives its syslog: test.py FOLDER, in a network namespace.

The processor is emulated, which works on any machine. ACCEL=kvm in the environment is faster where there is KVM.
"""
import os
import re
import socket
import subprocess
import sys
import threading
import time

LIMIT = 150  # seconds for the whole test, enough without KVM on a busy machine
BEGIN = time.monotonic()
FOLDER = sys.argv[1]


class Heard(threading.Thread):
    """Everything received so far, from a stream or as datagrams joined together."""

    def __init__(self, read):
        super().__init__(daemon=True)
        self.read, self.data = read, b""
        self.start()

    def run(self):
        while piece := self.read(4096):
            self.data += piece

    def wait_for(self, pattern):
        while not (found := re.search(pattern, self.data, re.MULTILINE)):
            if time.monotonic() - BEGIN > LIMIT:
                heard = self.data.decode(errors="replace")[-3000:]
                raise SystemExit(f"FAILED: no {pattern} within {LIMIT} s\n{heard}")
            time.sleep(0.05)
        print(f"{time.monotonic() - BEGIN:5.1f} s  {found[0].decode().strip()}", flush=True)


collector = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
collector.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
collector.bind(("127.0.0.1", 514))  # inside QEMU this is 10.0.2.2
lines = Heard(collector.recv)
machine = subprocess.Popen(
    ["qemu-system-x86_64", "-accel", os.environ.get("ACCEL", "tcg"), "-m", "128", "-no-reboot",
     "-display", "none", "-monitor", "none",
     "-kernel", f"{FOLDER}/vmlinuz", "-initrd", f"{FOLDER}/image.cpio.gz", "-append", "console=ttyS0 quiet panic=-1",
     "-netdev", "user,id=net", "-device", "virtio-net-pci,netdev=net,romfile=", "-serial", "stdio"],
    stdin=subprocess.PIPE, stdout=subprocess.PIPE)
try:
    screen = Heard(machine.stdout.read1)
    screen.wait_for(rb"/ # ")
    lines.wait_for(rb"^<134>boot\.Info: \[[\d:.]+\] kernel\.\w+: Linux version .*")  # from before the network was up
    machine.stdin.write(b"logger -t greeting -p user.warning hello from inside $((6 * 7))\n")
    machine.stdin.flush()
    lines.wait_for(rb"^<132>greeting\.Warning: hello from inside 42$")
    machine.stdin.write(b"kill -9 $(pidof syslog | tr ' ' '\\n' | sort -n | tail -n 1); sleep 1; "
                        b"logger -t again still here\n")
    machine.stdin.flush()
    lines.wait_for(rb"^<134>again\.Info: still here$")
    machine.stdin.write(b"free | head -n 2; ps | grep syslog; poweroff\n")
    machine.stdin.flush()
    machine.wait(max(1, LIMIT - (time.monotonic() - BEGIN)))
    print(screen.data.decode(errors="replace")[-1500:])
    print("ok")
finally:
    machine.kill()
