"""libvelk: what it confirmed has arrived, whatever happens to the service."""
import os

import namespace
from lines import LINES, LinesTest

PROGRAM = os.path.join(namespace.FILES, "velk_lines")
THREAD = "1"  # VELK_THREAD


class Library(LinesTest):
    def test_no_confirmed_line_is_lost_while_the_child_is_killed(self):
        self.check_while_killing_children([PROGRAM, "127.0.0.1", str(LINES), THREAD])
