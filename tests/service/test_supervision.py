"""What the supervisor does when a child ends or cannot start."""
import contextlib
import os
import re
import resource
import signal
import socket
import statistics
import time
import unittest

from harness import PORT, SANITIZED, SYNC_FILE, ServiceTest, processes, until

RESTART = "Syslog.Info: Child exited with code %d, restarting..."


class Supervision(ServiceTest):
    def test_restarts_killed_children_without_leaks(self):
        service, collector = self.forwarding_service()
        old = self.peer()
        descriptors = os.listdir(f"/proc/{service.pid}/fd")
        times = []
        for _ in range(50):
            begin = time.monotonic()
            new = service.kill_child()
            self.peer()
            times.append(time.monotonic() - begin)
        service.wait_for(RESTART % signal.SIGKILL, 50)
        self.assertEqual(os.listdir(f"/proc/{service.pid}/fd"), descriptors)
        self.assertEqual(set(processes()), {os.getpid(), service.pid, new})
        print(f"restart: {statistics.median(times) * 1000:.1f} ms, at most {max(times) * 1000:.1f} ms")
        self.assertLess(statistics.median(times), 1.0 if SANITIZED else 0.1)

        # The new child does not know earlier peers, but still forwards as configured.
        old.log(b"from the old\n")
        peer = self.peer()
        collector.heard()
        peer.log(b"from the new\n")
        service.fence(peer)
        self.assertEqual(service.count("test.Info: from the old"), 0)
        self.assertIn(b"<134>test.Info: from the new\n", collector.heard())

    def test_restarts_a_child_when_sigchld_was_ignored(self):
        service = self.service(prepare=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        os.kill(service.child(), signal.SIGTERM)
        service.wait_for(RESTART % signal.SIGTERM)

    def test_restarts_until_its_port_is_free(self):
        unfinished = f"{SYNC_FILE}.unfinished-aB3xYz"
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("", PORT))
            with open(unfinished, "w"):  # as if a service that has the port were writing it
                pass
            service = self.service(environment={"TSAN_OPTIONS": os.environ["TSAN_OPTIONS"] + ":atexit_sleep_ms=0"})
            # After pauses of 10, 20, 40 ms and so on, up to a second.
            service.wait_for(RESTART % 256, 6)
            begin = time.monotonic()
            service.wait_for(RESTART % 256, 8)
            self.assertGreater(time.monotonic() - begin, 0.9)
            self.assertTrue(os.path.exists(unfinished))
        # glibc and musl word it differently.
        reports = [text for text in service.texts()
                   if re.match(r"Syslog.ERROR: UDP port 11001: Address (already )?in use", text)]
        self.assertGreaterEqual(len(reports), 8)
        self.assertGreaterEqual(service.count("Syslog.ERROR: Unable to open GDQ client!"), 8)
        self.peer()
        self.assertFalse(os.path.exists(unfinished))
        service.kill_child()  # it has served, so the next one starts at once
        self.peer()

    def test_pauses_after_children_that_end_before_they_serve(self):
        service = self.service()
        begin = time.monotonic()
        for count in range(7):  # pauses of 1.27 s altogether
            child = service.child()
            time.sleep(0.05)  # until it has the port
            os.kill(child, signal.SIGSYS)  # like a seccomp filter at the first recvmmsg(2)
            service.wait_for("Syslog.Info: Start child...", count + 2)
        self.assertGreater(time.monotonic() - begin, 1.5)

    def test_shares_its_port_with_no_other_program(self):
        service = self.service()
        self.peer()
        for address in ("", "127.0.0.1"):
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
                other.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                with self.assertRaises(OSError):
                    other.bind((address, PORT))
        for _ in range(20):
            service.kill_child()
            self.peer()  # the next child has the port

    def service_with_full_console(self, address_space, **limits):
        """Starts a service with a full pipe as its console and these limits. Returns it and the end to read from."""
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        os.set_blocking(writer, False)
        with self.assertRaises(BlockingIOError):
            while True:
                os.write(writer, bytes(4096))
        os.set_blocking(writer, True)

        def prepare():
            os.dup2(writer, 2)
            for name, value in {"RLIMIT_AS": address_space, **limits}.items():
                resource.setrlimit(getattr(resource, name), (value, value))
        service = self.service(stdout=writer, prepare=prepare)
        os.close(writer)
        return service, reader

    @unittest.skipIf(SANITIZED, "sanitizers need more address space than the limit allows")
    def test_restarts_a_child_that_runs_out_of_memory(self):
        service, _ = self.service_with_full_console(6 << 20)
        peer = self.peer()
        first = service.child()

        # The worker thread is blocked on the console while calls pile up.
        def piled_up():
            with contextlib.suppress(ConnectionRefusedError):
                for _ in range(50):
                    peer.log(b"x" * 1300)
            return first not in processes()
        until(piled_up, "the end of the child")
        self.peer()

    @unittest.skipIf(SANITIZED, "sanitizers need more address space than the limit allows")
    def test_its_longest_backlog_fits_the_start_scripts_limit(self):
        service, reader = self.service_with_full_console(16 << 20, RLIMIT_STACK=64 << 20)
        peer = self.peer()
        first = service.child()
        for number in range(2500):
            peer.log(b"x" * 1380 + b"\n")
            time.sleep(0.001 if number % 20 == 0 else 0)
        os.set_blocking(reader, False)
        seen = bytearray()

        def backlog_seen():
            with contextlib.suppress(BlockingIOError):
                seen.extend(os.read(reader, 1 << 20))
            return seen.count(b"test.Info: xxx") >= 2000
        until(backlog_seen, "all that was pending")
        self.assertEqual(first, service.child())

    def test_ignores_sighup_and_sigttou(self):
        service = self.service()
        peer = self.peer()
        for number in (signal.SIGHUP, signal.SIGTTOU):
            for pid in (first := service.child(), service.pid):
                os.kill(pid, number)
        service.fence(peer)
        self.assertEqual(first, service.child())

    def test_a_signal_to_the_supervisor_ends_both(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGKILL):
            with self.subTest(number):
                service = self.service()
                self.peer()
                self.assertEqual(service.stop(number), -number)
                self.check_no_process_left()
