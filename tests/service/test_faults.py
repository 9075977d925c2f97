"""One call of one function fails, each in its turn: the service goes on, or ends cleanly and is started anew."""
import contextlib
import os
import re
import shutil
import signal
import struct
import subprocess
import time
import unittest

import namespace
from harness import SANITIZED, SYNC_FILE, SYSLOG_ON, Peer, ServiceTest, processes, until

LIBRARY = os.path.join(namespace.FILES, "fail_kth.so")
FAIL_FILE = os.path.join(namespace.FILES, "fail_kth")
OUT_OF_MEMORY = "syslog: out of memory\n"
CALLS = [b"LogMsg 2 `m` `text %d\n`", b"SetVar remotelog_addr 127.0.0.%d", b"SyncVar", b"SyncLog",
         b"LogMsg 3 `m` `" + b"x" * 600 + b"%d\n`", b"SetVar v%d `y`"]
CALLS = [b"LogMsg 'open"] + [call.replace(b"%d", b"%d" % number) for number in range(8) for call in CALLS]


def numbers():
    """Every one at first, then some."""
    number = 1
    while True:
        yield number
        number += 1 + number // 8


@unittest.skipIf(SANITIZED, "a sanitizer's library must be the first to be loaded")
@unittest.skipIf(shutil.which("cc") is None, "no C compiler")
class Faults(ServiceTest):
    @classmethod
    def setUpClass(cls):
        source = os.path.join(namespace.FILES, "tests", "fail_kth.c")
        subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-o", LIBRARY, source], check=True)

    def ended(self):
        return self.started.process.poll() is not None

    def join(self):
        """A new peer, or None when the supervisor has ended."""
        peer = Peer(connect=False)
        until(lambda: self.ended() or peer.connect(), "an answer to CONN")
        if not self.ended():
            peer.send(peer.cookie)
            return peer
        peer.close()
        return None

    def call(self, *texts):
        peer = self.join()
        if peer is None:
            return
        try:
            for text in texts:
                peer.call(text)
        except ConnectionRefusedError:  # the child has ended
            pass
        peer.close()

    def works(self):
        """Whether a new peer's line gets to the console and into the sync file."""
        line = f"after {time.monotonic()}"
        self.call(b"LogMsg 1 `test` `%s\n`" % line.encode(), b"SyncLog")
        for _ in range(50):
            if self.started.count("test.Info: " + line) and os.path.exists(SYNC_FILE):
                with open(SYNC_FILE, encoding="latin-1") as sync:
                    if line in sync.read():
                        return True
            time.sleep(0.001)
        return self.ended()

    def run_once(self):
        """False: the supervisor has ended."""
        self.service(environment={"LD_PRELOAD": LIBRARY, "FAIL_FILE": FAIL_FILE})
        self.call(*CALLS)
        if not self.ended():
            old = self.started.child()
            with contextlib.suppress(ProcessLookupError):  # it was about to end
                os.kill(old, signal.SIGKILL)
            until(lambda: self.ended() or old not in processes(), "the end of the child")
        self.call(*CALLS)
        until(self.works, "a line in all outlets")
        return not self.ended()

    def take_errors(self):
        errors = self.started.errors()
        os.truncate(self.started.errors_path, 0)  # stop() wants none
        return errors

    def check_end(self, function, goes_on, errors):
        texts = self.started.texts()
        if not goes_on:
            self.assertEqual(self.started.process.returncode, 1)
            self.assertTrue(function == "fork" or "Syslog.Info: Start child..." not in texts, texts)
        codes = [int(code) for code in re.findall(r"Child exited with code (\d+)", "\n".join(texts))]
        self.assertLessEqual(set(codes), {signal.SIGKILL, 256})
        self.assertIn(errors, ("", OUT_OF_MEMORY))

    def let_fail(self, function):
        for number in numbers():
            with self.subTest(function, number=number):
                self.clear_files()
                self.configure(SYSLOG_ON % "127.0.0.2")
                with open(FAIL_FILE, "wb") as state:
                    state.write(struct.pack("II32s", number, 0, function.encode()))
                try:
                    goes_on = self.run_once()
                finally:
                    errors = self.take_errors()
                self.check_end(function, goes_on, errors)
            with open(FAIL_FILE, "rb") as state:
                if struct.unpack_from("II", state.read())[1] < number:
                    return number

    def test_each_function(self):
        for function in ("malloc", "recvfrom", "sendto", "write", "writev", "pwrite64", "open64", "mkostemp64",
                         "rename", "fdopen", "open_memstream", "socket", "bind", "fork",
                         "pthread_create"):
            begin = time.monotonic()
            last = self.let_fail(function)
            print(f"{function}: up to {last - 1}, {time.monotonic() - begin:.1f} s")
