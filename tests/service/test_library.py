"""libvelk: what it confirmed has arrived, whatever happens to the service."""
import os
import subprocess

import namespace
from harness import SANITIZED
from lines import LINES, LinesTest

PROGRAM = os.path.join(namespace.FILES, "velk_lines")
THREAD = "1"  # VELK_THREAD


class Library(LinesTest):
    def test_no_confirmed_line_is_lost_while_the_child_is_killed(self):
        self.check_while_killing_children([PROGRAM, "127.0.0.1", str(LINES), THREAD])

    def test_a_child_that_closes_its_parents_handle_leaves_the_parent_joined(self):
        for flags in ("0", THREAD):
            service = self.service()
            peer = self.peer()  # the service is there, so the parent has joined when it forks
            result = subprocess.run([PROGRAM, "127.0.0.1", "2000", flags, "fork"], stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, text=True, timeout=60)
            self.assertEqual(result.returncode, 0, result.stdout)
            service.fence(peer)
            texts = service.texts()
            self.assertEqual([text for text in texts if text.startswith("lib.")],
                             [f"lib.Info: line {number}" for number in range(2000)])
            self.assertEqual(sum(": srv wrote 16 to " in text for text in texts), 2 + 1, flags)

    def test_a_program_that_closes_the_librarys_descriptors_loses_neither_lines_nor_its_files(self):
        # To close what another thread uses is what a sanitizer looks for.
        for flags in ("0",) if SANITIZED else ("0", THREAD):
            service = self.service()
            self.peer()  # the service is there
            result = subprocess.run([PROGRAM, "127.0.0.1", "2000", flags, "close"], stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT, text=True, timeout=60, cwd="/tmp")
            self.assertEqual(result.returncode, 0, result.stdout)
            self.assertEqual([text for text in service.texts() if text.startswith("lib.")],
                             [f"lib.Info: line {number}" for number in range(2000)])
