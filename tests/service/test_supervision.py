"""The supervisor: what it does about a child that ends, cannot start or cannot be waited for."""
import os
import signal
import socket

from harness import PORT, ServiceTest


class Supervision(ServiceTest):
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
