"""syslogctl through a network that loses, duplicates and reorders datagrams."""
import os
import subprocess
import unittest

from harness import DEADLINE, PORT, TOOL, ServiceTest
from lossy import LossyPath, lines_of

ENTRANCE = 11002


@unittest.skipUnless(os.path.exists(TOOL), "no syslogctl next to the service")
class Lossy(ServiceTest):
    def test_each_line_arrives_once_and_in_order(self):
        service = self.service()
        path = LossyPath(ENTRANCE, ("127.0.0.1", PORT), seed=20251)
        self.addCleanup(path.close)
        lines = [f"line {number}" for number in range(500)]
        tool = subprocess.run([TOOL, "-s", f"127.0.0.1:{ENTRANCE}", "log", "-t", "lossy"], input="\n".join(lines),
                              stderr=subprocess.PIPE, text=True, timeout=DEADLINE)
        self.assertEqual(tool.returncode, 0, tool.stderr)
        self.assertEqual(lines_of(service, "lossy"), lines)
        for counts in path.counts.values():
            for fault in ("lost", "doubled", "overtaken"):
                self.assertGreater(counts[fault], 0, path.counts)
