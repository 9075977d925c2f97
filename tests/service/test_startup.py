"""What the service says and reads when it starts."""
import os
import re
import signal
import socket
import time

from harness import PORT, PREFIX, ServiceTest


class StartUp(ServiceTest):
    def test_says_its_lines_in_order(self):
        self.configure("")
        before = time.time()
        service = self.service()
        self.peer()
        texts = service.texts()
        child = service.child()
        self.assertEqual(texts[:3], ["Syslog.Info: Using file path '/tmp' for SyncLog",
                                     "Syslog.Info: TRACE messages will not be logged!",
                                     "Syslog.Info: Start child..."])
        # Two processes write from here on, each in its own order.
        self.assertEqual(sorted(texts[3:6]), ["Syslog.Info: Child process...", "Syslog.Info: Continuing...",
                                              f"Syslog.Info: Wait for child {child}..."])
        self.assertLess(texts.index("Syslog.Info: Child process..."), texts.index("Syslog.Info: Continuing..."))

        stamps = []
        for line in service.console():
            time_text, thread = re.fullmatch(rf"({PREFIX})\[#( *\d+)\] .*", line).groups()
            self.assertRegex(thread, r" {0,3}\d{1,4}|\d{5,}")
            self.assertEqual(int(thread), child if "hild process" in line or "srv wrote" in line
                             or "Continuing" in line else service.pid, line)
            stamps.append(time_text)
        allowed = {time.strftime("[%H:%M:%S", time.localtime(before + i)) for i in range(-1, 60)}
        self.assertIn(stamps[0][:9], allowed)

    def test_restarts_a_child_though_started_with_its_signal_ignored(self):
        service = self.service(prepare=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        os.kill(service.child(), signal.SIGKILL)
        service.wait_for("Syslog.Info: Child exited with code 9, restarting...")

    def test_restarts_without_a_fault_until_its_port_is_free(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("", PORT))
            service = self.service(environment={"TSAN_OPTIONS": "atexit_sleep_ms=0"})
            # Often: now and then the end of a child meets the start of its queue's thread.
            service.wait_for("Syslog.Info: Child exited with code 256, restarting...", 300)
        self.assertGreaterEqual(service.count("Syslog.ERROR: Unable to open GDQ client!"), 300)
        self.peer()
