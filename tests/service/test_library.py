"""libvelk: what it confirmed has arrived, whatever happens to the service or to datagrams on the way."""
import os
import subprocess
import time

import namespace
from lines import LINES, PROXY_PORT, LinesTest

PROGRAM = os.path.join(namespace.FILES, "velk_lines")
THREAD = "1"  # VELK_THREAD


class Library(LinesTest):
    def write_lines(self, server, flags="0"):
        return subprocess.Popen([PROGRAM, server, str(LINES), flags], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True)

    def test_no_confirmed_line_is_lost_while_the_child_is_killed(self):
        service, counter = self.start()
        program = self.write_lines("127.0.0.1")
        for _ in range(10):
            time.sleep(0.3)
            service.kill_child()
        self.check(program, counter)

    def test_no_line_is_lost_on_a_lossy_path(self):
        service, counter = self.start()
        self.lossy_path()
        program = self.write_lines(f"127.0.0.1:{PROXY_PORT}", THREAD)
        for _ in range(3):
            time.sleep(0.5)
            service.kill_child()
        self.check(program, counter, in_order=False)  # it swaps calls, and their receipts back again
