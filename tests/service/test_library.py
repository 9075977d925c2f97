"""libvelk: what it confirmed has arrived, whatever happens to the service."""
import os

import namespace
from lines import LINES, LinesTest

THREAD = "1"  # VELK_THREAD


class Library(LinesTest):
    def test_no_confirmed_line_is_lost_while_the_child_is_killed(self):
        program = os.path.join(namespace.FILES, "velk_lines")
        self.check_while_killing_children([program, "127.0.0.1", str(LINES), THREAD])
