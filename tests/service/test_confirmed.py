"""When `syslogctl log` succeeds, its lines are in the log, whatever other peers do meanwhile."""
import fcntl
import os
import subprocess
import threading
import time
import unittest

from harness import DEADLINE, SANITIZED, TOOL, ServiceTest


class SlowReader(threading.Thread):
    """Reads a pipe at the speed of a serial line of 115,200 baud, and keeps what it has read."""

    STEP, PAUSE = 115, 0.01  # bytes, seconds

    def __init__(self, pipe):
        super().__init__(daemon=True)
        self.pipe, self.text = pipe, b""

    def run(self):
        while piece := os.read(self.pipe, self.STEP):
            self.text += piece
            time.sleep(self.PAUSE)


@unittest.skipUnless(os.path.exists(TOOL), "no syslogctl next to the service")
class Confirmed(ServiceTest):
    def log(self):
        result = subprocess.run([TOOL, "log", "confirmed"], stderr=subprocess.PIPE, text=True, timeout=3 * DEADLINE)
        self.assertEqual(result.returncode, 0, result.stderr)

    def check_after(self, calls):
        """Checks that the line is in the log when the tool ends, although another peer's calls came first."""
        service, peer = self.service(), self.peer()
        for _ in range(500):  # so that SyncLog has a long file to write
            peer.log(b"x" * 1000 + b"\n")
        service.fence(peer, insist=True)
        for call in calls:
            peer.call(call)
        self.log()
        # "Cookies do not match:", which a late CONN causes, has no line feed and can precede the line.
        self.assertEqual(sum(text.endswith("syslogctl.Info: confirmed") for text in service.texts()), 1)

    def test_after_calls_that_do_not_parse(self):
        self.check_after([b"LogMsg 1 `open"] * 6)

    def test_after_many_calls_that_take_long(self):
        self.check_after([b"SyncLog"] * (200 if SANITIZED else 1500))

    def test_after_lines_on_a_slow_console(self):
        """The child is killed as soon as the tool ends, and must have written the line."""
        reader, writer = os.pipe()
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        console = SlowReader(reader)
        service = self.service(stdout=writer)
        os.close(writer)
        console.start()
        peer = self.peer()
        for number in range(300):
            peer.log(b"ordinary line %3d of another peer, as long as most\n" % number)
        self.log()
        service.kill_child()
        service.stop()
        console.join()
        self.assertEqual(console.text.count(b"syslogctl.Info: confirmed\n"), 1, console.text[-1000:])
