"""Outlets that fail: the service goes on even if its lines are lost."""
import contextlib
import os
import re
import select
import stat

import namespace
from harness import (DEADLINE, PREFIX, SYNC_FILE, SYSLOG_ON, ServiceTest, read_sync, roomy_socket, until,
                     without_file_privileges)


class Console(ServiceTest):
    def check_serves(self):
        """Checks that a line reaches another peer and the sync file. Needs no console."""
        peer, listener = self.peer(), self.peer()
        peer.log(b"a line\n")
        self.assertEqual(listener.receive(), listener.cookie + b"LogMsg 1 `test` `a line\n`")
        until(lambda: peer.call(b"SyncLog") or b"test.Info: a line\n" in read_sync(), "the line to be kept")

    def test_closed_standard_descriptors(self):
        self.configure(SYSLOG_ON % self.collector().host)
        service = self.service("debug", prepare=lambda: os.closerange(0, 3))
        self.check_serves()
        # No socket may get the console's descriptor.
        for pid in (service.pid, service.child()):
            self.assertEqual([os.readlink(f"/proc/{pid}/fd/{fd}") for fd in range(3)], ["/dev/null"] * 3)

    def test_full_device_and_reader_that_left(self):
        reader, left = os.pipe()
        os.close(reader)
        for writer in (os.open("/dev/full", os.O_WRONLY), left):
            service = self.service("debug", stdout=writer)
            os.close(writer)
            self.check_serves()
            service.kill_child()
            self.check_serves()

    def test_reader_that_does_not_read(self):
        reader, service = self.service_at(os.pipe())
        child = service.child()
        peer, listener = self.peer(), self.peer()

        def fill():
            for number in range(500):
                peer.log(b"line %d " % number + b"x" * 200 + b"\n")
                self.assertIn(b"line %d x" % number, listener.receive())

        fill()
        self.assertEqual(service.child(), child)
        text = self.read_until(reader, b"line 499 x")
        self.assertEqual(re.findall(rb"Info: line (\d+) x{200}\n", text), [b"%d" % n for n in range(500)])
        peer.call(b"SyncLog")
        until(lambda: read_sync().count(b"\n") == 500, "the last 500 lines")
        listener.heard()

        fill()
        service.kill_child()
        peer, listener = self.peer(), self.peer()
        peer.log(b"last\n")
        self.assertIn(b"last", listener.receive())
        text = self.read_until(reader, b"test.Info: last\n")
        peer.call(b"SyncLog")
        stored = until(lambda: b"last" in read_sync() and read_sync(), "the sync file")
        _, child_lines = self.own_lines(service, text)
        self.assertEqual(child_lines, stored[stored.rindex(b"Start child..."):].count(b" Syslog."))
        text += self.read_until(reader, b"Wait for child %d...\n" % service.kill_child())
        supervisor_lines, _ = self.own_lines(service, text)
        self.assertEqual(supervisor_lines, 6)

    def test_terminal_that_is_not_read(self):
        reader, service = self.service_at(os.openpty())
        child = service.child()
        stranger = self.peer(connect=False)

        def fill():
            for _ in range(1000):
                until(stranger.connect, "an answer to CONN")  # each logs a line
            self.assertEqual(service.child(), child)

        fill()
        self.peer().log(b"last\n")
        text = self.read_until(reader, b"test.Info: last\r\n").replace(b"\r", b"")
        # A line that the terminal took in part is both shown and counted as dropped.
        self.assertGreaterEqual(self.own_lines(service, text)[1], 1001)
        self.assertRegex(text, rb"\n" + PREFIX.encode() + rb"\[# *\d+\] test\.Info: last\n$")
        fill()
        service.kill_child()

    def own_lines(self, service, text):
        """Counts "Syslog" lines shown, plus any lines reported as dropped: [the supervisor's, the child's]."""
        counts = [0, 0]
        for thread, line in re.findall(rb"^\[[\d:.]+\]\[# *(\d+)\] Syslog\.(.+)$", text, re.MULTILINE):
            dropped = re.match(rb"Warning: Console lines dropped here: (\d+)$", line)
            counts[int(thread) != service.pid] += int(dropped[1]) if dropped else 1
        return counts

    def service_at(self, ends):
        """Starts a service whose console is the second end. Returns the first end, to read from, and the service."""
        reader, writer = ends
        self.addCleanup(os.close, reader)
        service = self.service(stdout=writer)
        os.close(writer)
        return reader, service

    def read_until(self, reader, end):
        text = b""
        while end not in text:
            self.assertTrue(select.select([reader], [], [], DEADLINE)[0], text[-1000:])
            text += os.read(reader, 65536)
        return text


class SyncFile(ServiceTest):
    def test_replaces_other_files_or_leaves_them_alone(self):
        open(SYNC_FILE + ".unfinished-aB3xYz", "w").close()  # left by a child killed while it wrote
        service = self.service(prepare=without_file_privileges)
        peer = self.peer()
        self.assertEqual(os.listdir("/tmp"), [])
        namespace.mount("tmpfs", "/tmp", "tmpfs", 0, "size=32k")
        self.addCleanup(namespace.unmount, "/tmp")

        def sync():
            peer.log(b"kept\n")
            return "\n".join(self.sync_lines(service, peer))

        def check_refused(why):
            state = lambda: (sorted(os.listdir("/tmp")), os.lstat(SYNC_FILE)[:7], read_sync())
            before = state()
            sync()
            self.assertEqual(state(), before)
            service.wait_for(f"Syslog.ERROR: Cannot write {SYNC_FILE}: {why}")

        with open(SYNC_FILE, "w"):  # made by another program
            os.chmod(SYNC_FILE, 0o600)
        if namespace.is_real_root():
            os.chown(SYNC_FILE, 12345, 12345)
        self.assertIn("kept", sync())
        status = os.lstat(SYNC_FILE)
        self.assertEqual((status.st_mode, status.st_uid), (stat.S_IFREG | 0o644, os.geteuid()))
        namespace.mount(None, "/tmp", None, namespace.MS_REMOUNT | namespace.MS_RDONLY)
        check_refused("Read-only file system")
        namespace.mount(None, "/tmp", None, namespace.MS_REMOUNT)
        with open("/tmp/filler", "wb", buffering=0) as filler, contextlib.suppress(OSError):
            while True:
                filler.write(b"x" * 4096)
        check_refused("No space left on device")
        os.unlink("/tmp/filler")
        os.chmod("/tmp", 0o555)
        # The service cannot replace its own file now, so it overwrites it.
        before = len(read_sync())
        self.assertGreater(len(sync()), before)


class RemoteSyslog(ServiceTest):
    def test_sends_from_port_514_unless_a_local_collector_has_it(self):
        # /proc as with systemd's ProcSubset=pid. Kernels before 5.8 do not have the option.
        with contextlib.suppress(OSError):
            namespace.mount("proc", "/proc", "proc", 0, "subset=pid")
            self.addCleanup(namespace.unmount, "/proc")
        sender = roomy_socket()
        self.addCleanup(sender.close)
        elsewhere = self.collector()
        for host, is_local in ((elsewhere.host, False), (elsewhere.host, True), ("127.0.0.1", True)):
            here = self.collector(host="") if is_local else None
            target = elsewhere if host == elsewhere.host else here
            self.configure(SYSLOG_ON % host)
            service = self.service()
            for _ in range(2):  # forwarding is set up by the supervisor, then by a child
                peer = self.peer()
                target.heard()
                peer.log(b"forwarded\n")
                until(lambda: target.receive() == b"<134>test.Info: forwarded\n", "the line")
                self.assertEqual(target.sender[1] != 514, is_local)
                if is_local:
                    here.heard()
                    sender.sendto(b"a device's", ("127.0.0.1", 514))
                    self.assertEqual(here.receive(), b"a device's")
                service.kill_child()
                peer = self.peer()
                for kind in (b"", b"SysLog server"):
                    peer.call(b"SetVar remotelog_type '%s'" % kind)
                    peer.call(b"SyncVar")
                service.fence(peer)
            if is_local:
                here.socket.close()

    def test_collector_that_starts_later(self):
        # This one holds port 514: a service that got it would receive its own datagrams, not a refusal.
        other = self.collector(host="127.0.0.9", share=False)
        self.configure(SYSLOG_ON % "127.0.0.2")
        service, peer = self.service(), self.peer()
        for number in range(100):
            peer.log(b"lost %d\n" % number)
        service.fence(peer)
        collector = self.collector(share=False)
        peer.log(b"found\n")
        service.fence(peer)
        self.assertEqual(collector.receive(), b"<134>test.Info: found\n")
        self.assertNotEqual(collector.sender[1], 514)
        self.assertEqual(other.heard(), [])
        self.assertEqual(service.count("test.Info: lost 99"), 1)
