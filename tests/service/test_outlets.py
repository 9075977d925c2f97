"""Outlets that fail: whatever becomes of its lines, the service serves on."""
import os
import re
import select

import namespace
from harness import DEADLINE, SYNC_FILE, SYSLOG_ON, ServiceTest, until, without_file_privileges


def read_sync():
    try:
        with open(SYNC_FILE, "rb") as sync:
            return sync.read()
    except OSError:
        return b""


class Console(ServiceTest):
    def check_serves(self):
        """Without a console to look at: a line reaches another peer and the sync file."""
        peer, listener = self.peer(), self.peer()
        peer.log(b"a line\n")
        self.assertEqual(listener.receive(), listener.cookie + b"LogMsg 1 `test` `a line\n`")
        until(lambda: peer.call(b"SyncLog") or b"test.Info: a line\n" in read_sync(), "the line to be kept")

    def test_closed_standard_descriptors(self):
        self.configure(SYSLOG_ON % self.collector().host)
        service = self.service("debug", prepare=lambda: os.closerange(0, 3))
        self.check_serves()
        # No socket may have become the console.
        for pid in (service.pid, service.child()):
            self.assertEqual([os.readlink(f"/proc/{pid}/fd/{fd}") for fd in range(3)], ["/dev/null"] * 3)

    def test_full_device(self):
        with open("/dev/full", "wb") as full:
            service = self.service("debug", stdout=full)
        self.check_serves()
        service.kill_child()
        self.check_serves()

    def test_reader_that_left(self):
        reader, writer = os.pipe()
        service = self.service("debug", stdout=writer)
        os.close(writer)
        self.check_serves()
        os.close(reader)
        self.check_serves()
        service.kill_child()
        self.check_serves()

    def test_reader_that_stands_still(self):
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        service = self.service(stdout=writer)
        os.close(writer)
        child = service.child()
        peer, listener = self.peer(), self.peer()
        for number in range(500):
            peer.log(b"line %d " % number + b"x" * 200 + b"\n")
            self.assertIn(b"line %d x" % number, listener.receive())
        self.assertEqual(service.child(), child)

        # No line was lost meanwhile.
        text = self.read_until(reader, b"line 499 x")
        self.assertEqual(re.findall(rb"Info: line (\d+) x{200}\n", text), [b"%d" % n for n in range(500)])

        for _ in range(500):
            peer.log(b"x" * 200 + b"\n")
            self.assertIsNotNone(listener.receive())
        self.assertNotEqual(service.kill_child(), child)
        peer, listener = self.peer(), self.peer()
        peer.log(b"last\n")
        self.assertIn(b"last", listener.receive())
        # What either process kept for the reader comes once, the supervisor's with its next line.
        text = self.read_until(reader, b"test.Info: last\n")
        text += self.read_until(reader, b"Wait for child %d...\n" % service.kill_child())
        for line in (b"Child exited with code 9, restarting...", b"Start child..."):
            self.assertEqual(text.count(b"Syslog.Info: %s\n" % line), 2, line)

    def read_until(self, reader, end):
        text = b""
        while end not in text:
            self.assertTrue(select.select([reader], [], [], DEADLINE)[0], text[-1000:])
            text += os.read(reader, 65536)
        return text


class SyncFile(ServiceTest):
    """Each test puts something in the way and takes it away again."""

    def start(self):
        service = self.service(prepare=without_file_privileges)
        peer = self.peer()
        self.serving = service.child()
        return service, peer

    def sync(self, service, peer):
        peer.log(b"kept\n")
        peer.call(b"SyncLog")
        service.fence(peer)
        self.assertEqual(service.child(), self.serving)
        return read_sync()

    def test_what_is_no_plain_file_is_left_alone(self):
        victim = "/tmp/victim"
        with open(victim, "w") as file:
            file.write("precious")
        service, peer = self.start()
        for name, make, remove in [("directory", lambda: os.mkdir(SYNC_FILE), os.rmdir),
                                   ("pipe", lambda: os.mkfifo(SYNC_FILE), os.unlink),
                                   ("link", lambda: os.symlink(victim, SYNC_FILE), os.unlink),
                                   ("loose link", lambda: os.symlink("/tmp/new", SYNC_FILE), os.unlink)]:
            with self.subTest(name):
                make()
                before = os.lstat(SYNC_FILE)
                if name == "pipe":
                    peer.call(b"SyncLog")
                    service.fence(peer)
                else:
                    self.assertIn(self.sync(service, peer), (b"", b"precious"))
                self.assertEqual(os.lstat(SYNC_FILE), before)
                self.assertEqual(sorted(os.listdir("/tmp")), ["synclog", "victim"])
                remove(SYNC_FILE)
                self.assertIn(b"kept", self.sync(service, peer))
                os.unlink(SYNC_FILE)

    def test_read_only(self):
        service, peer = self.start()
        whole = self.sync(service, peer)
        os.chmod(SYNC_FILE, 0o444)
        self.assertEqual(self.sync(service, peer), whole)
        os.chmod(SYNC_FILE, 0o644)
        os.chmod("/tmp", 0o555)
        self.addCleanup(os.chmod, "/tmp", 0o1777)
        # A file that can't be replaced is written over.
        self.assertGreater(len(self.sync(service, peer)), len(whole))

    def test_read_only_and_full_device(self):
        service, peer = self.start()
        namespace.mount("tmpfs", "/tmp", "tmpfs", 0, "size=32k")
        self.addCleanup(namespace.unmount, "/tmp")
        whole = self.sync(service, peer)
        self.assertIn(b"kept", whole)

        namespace.mount(None, "/tmp", None, namespace.MS_REMOUNT | namespace.MS_RDONLY)
        self.assertEqual(self.sync(service, peer), whole)
        namespace.mount(None, "/tmp", None, namespace.MS_REMOUNT)

        with open("/tmp/filler", "wb", buffering=0) as filler, self.assertRaises(OSError):
            while True:
                filler.write(b"x" * 4096)
        self.assertEqual(self.sync(service, peer), whole)
        self.assertEqual(sorted(os.listdir("/tmp")), ["filler", "synclog"])
        os.unlink("/tmp/filler")
        self.assertGreater(len(self.sync(service, peer)), len(whole))


class RemoteSyslog(ServiceTest):
    def test_collector_that_is_absent_then_comes(self):
        # Without it the service would have port 514 of every address to itself and nothing be refused.
        other = self.collector(host="127.0.0.9", share=False)
        self.configure(SYSLOG_ON % "127.0.0.2")
        service, peer = self.service(), self.peer()
        child = service.child()
        for number in range(100):
            peer.log(b"lost %d\n" % number)
        service.fence(peer)
        collector = self.collector(share=False)
        peer.log(b"found\n")
        service.fence(peer)
        self.assertEqual(collector.receive(), b"<134>test.Info: found\n")
        self.assertNotEqual(collector.sender[1], 514)
        self.assertEqual(other.heard(), [])
        self.assertEqual(service.child(), child)
        self.assertEqual(service.count("test.Info: lost 99"), 1)

    def test_address_without_a_road(self):
        for address in ("203.0.113.1", "255.255.255.255", "0.0.0.0"):
            with self.subTest(address):
                self.configure(SYSLOG_ON % address)
                service, peer = self.service(), self.peer()
                peer.log(b"a line\n")
                service.fence(peer)
                self.assertEqual(service.count("test.Info: a line"), 1)
                self.assertEqual(service.count(f"Syslog.Info: Using syslog server at UDP {address}:514"), 1)
