"""Makes one call of one function fail at a time: the service must go on, restart its child, or exit with status 1."""
import contextlib
import errno
import os
import re
import shutil
import signal
import struct
import subprocess
import time
import unittest

import namespace
from harness import SANITIZED, SYSLOG_ON, Peer, ServiceTest, processes, read_sync, until

LIBRARY = os.path.join(namespace.FILES, "fail_kth.so")
FAIL_FILE = os.path.join(namespace.FILES, "fail_kth")
FUNCTIONS = ("malloc", "recvmmsg", "sendto", "write", "pwrite64", "open64", "mkostemp64", "rename", "fdopen",
             "open_memstream", "socket", "bind", "fork", "waitpid", "pthread_create")
CALLS = [b"LogMsg 2 `m` `text %d\n`", b"SetVar remotelog_addr 127.0.0.%d", b"SyncVar", b"SyncLog",
         b"LogMsg 3 `m` `" + b"x" * 600 + b"%d\n`", b"SetVar v%d `y`", b"WithAck c%d 1 SyncLog"]
CALLS = [b"LogMsg 'open"] + [call.replace(b"%d", b"%d" % number) for number in range(8) for call in CALLS]
# Only these functions may end the supervisor after its line "Start child...". Its last lines then:
LAST_WORDS = {"fork": r"Start child\.\.\.\nSyslog\.ERROR: fork\(\) failed!\nSyslog\.Info: Exiting application\.\.\.$",
              "waitpid": r"Wait for child (\d+)\.\.\.\n(.*\n)*"
                         r"Syslog\.ERROR: Waitpid returned -1 instead of \1! Exiting"}


def numbers():
    """Yields every number at first, then fewer and fewer."""
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

    def call(self, *texts):
        """Joins as a new peer and makes the calls, unless the supervisor has ended."""
        peer = Peer(connect=False)
        until(lambda: self.ended() or peer.connect(), "an answer to CONN")
        with contextlib.suppress(ConnectionRefusedError):  # the child ended
            peer.send(peer.cookie)
            for text in texts if not self.ended() else ():
                peer.call(text)
        peer.close()

    def works(self):
        """Whether a new peer's line reaches the console and the sync file, or the supervisor has ended."""
        line = f"after {time.monotonic()}"
        self.call(b"LogMsg 1 `test` `%s\n`" % line.encode(), b"SyncLog")
        for _ in range(50):
            if self.started.count("test.Info: " + line) and line.encode() in read_sync():
                return True
            time.sleep(0.001)
        return self.ended()

    def run_once(self, function, at, number=0):
        """Runs the service while call `at` of the function fails. If it is 0, every call fails with errno `number`."""
        self.clear_files()
        self.configure(SYSLOG_ON % "127.0.0.2")
        with open(FAIL_FILE, "wb") as state:
            state.write(struct.pack("IiI32s", at, number, 0, function.encode()))
        self.service(environment={"LD_PRELOAD": LIBRARY, "FAIL_FILE": FAIL_FILE})
        self.call(*CALLS)
        if not self.ended():
            old = self.started.child()
            with contextlib.suppress(ProcessLookupError):  # it has just ended
                os.kill(old, signal.SIGKILL)
            until(lambda: self.ended() or old not in processes(), "the end of the child")
        self.call(*CALLS)
        until(self.works, "a line on the console and in the sync file")

    def calls_counted(self):
        with open(FAIL_FILE, "rb") as state:
            return struct.unpack_from("IiI", state.read())[2]

    def check_end(self, function, errors):
        said = "\n".join(self.started.texts())
        if self.ended():
            self.assertEqual(self.started.process.returncode, 1)
            self.assertRegex(said, LAST_WORDS.get(function, r"\A((?!Start child)(.|\n))*\Z"))
        else:
            self.assertNotRegex(said, r"fork\(\) failed|Waitpid returned")
        codes = [int(code) for code in re.findall(r"Child exited with code (\d+)", said)]
        self.assertLessEqual(set(codes), {signal.SIGKILL, 256})
        self.assertIn(errors, ("", "syslog: out of memory\n"))

    def let_fail(self, function):
        for at in numbers():
            with self.subTest(function, at=at):
                try:
                    self.run_once(function, at)
                finally:
                    errors = self.started.errors()
                    os.truncate(self.started.errors_path, 0)  # stop() fails if there are any
                self.check_end(function, errors)
            if self.calls_counted() < at:
                return at

    def test_serves_where_recvmmsg_is_refused(self):
        for number in (errno.ENOSYS, errno.EPERM, errno.EACCES, errno.ENOMEM):  # a seccomp filter may return any
            with self.subTest(number=number):
                self.run_once("recvmmsg", 0, number)
                self.assertFalse(self.ended())
                self.assertGreater(self.calls_counted(), 0)

    def test_each_function(self):
        for function in FUNCTIONS:
            begin = time.monotonic()
            last = self.let_fail(function)
            self.assertGreater(last, 1, function + " was never called")
            print(f"{function}: fewer than {last} calls, {time.monotonic() - begin:.1f} s")
