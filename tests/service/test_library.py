"""Every line that the library or the tool has confirmed is in the log, even if children were killed."""
import os
import subprocess
import threading

import namespace
from harness import TOOL, ServiceTest, until

THREAD = "1"  # VELK_THREAD
LINES = 50000
KILLS = 10
WINDOW = 64  # calls that a client sends before it waits for an ack


class Counter(threading.Thread):
    """Reads a collector fast enough to lose nothing, and keeps the numbers of the lines."""

    BEGIN = b"<134>lib.Info: line "

    def __init__(self, collector):
        super().__init__(daemon=True)
        self.collector = collector
        self.numbers = []
        self.seen = set()
        self.done = False

    def run(self):
        while not self.done:
            datagram = self.collector.receive(0.1) or b""
            if datagram.startswith(self.BEGIN):
                self.numbers.append(int(datagram[len(self.BEGIN):]))
                self.seen.add(self.numbers[-1])


class Lines(ServiceTest):
    def test_lines_of_the_library(self):
        program = os.path.join(namespace.FILES, "velk_lines")
        self.check_while_killing_children([program, "127.0.0.1", str(LINES), THREAD])

    def test_lines_of_the_tool(self):
        numbers = f"seq -f 'line %.0f' 0 {LINES - 1}"
        self.check_while_killing_children(["sh", "-c", f"{numbers} | {TOOL} log -t lib"])

    def check_while_killing_children(self, command):
        """Kills children while the command logs "line 0" to "line 49999" as module lib, type Info, with acks.

        Every line must arrive, in order. At most one window of lines per killed child may come twice.
        """
        service, collector = self.forwarding_service()
        until(service.child, "a child")
        counter = Counter(collector)
        counter.start()
        self.addCleanup(counter.join)
        self.addCleanup(setattr, counter, "done", True)
        program = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        killed = 0
        for kill in range(KILLS):
            until(lambda: len(counter.seen) > kill * LINES // KILLS or program.poll() is not None, "more lines")
            killed += program.poll() is None
            service.kill_child()
        said = program.communicate(timeout=120)[0]
        self.assertEqual(program.returncode, 0, said)
        until(lambda: len(counter.seen) == LINES,
              lambda: f"{LINES} lines, of which {LINES - len(counter.seen)} are missing")
        shown = [int(text[len("lib.Info: line "):]) for text in service.texts() if text.startswith("lib.")]
        for numbers in (counter.numbers, shown):
            self.assertEqual(list(dict.fromkeys(numbers)), list(range(LINES)))
        repeats = len(counter.numbers) - LINES
        print(f"{self.id()}: {said.strip()}, {repeats} repeats in {killed} kills")
        self.assertGreater(killed, KILLS // 2)
        self.assertLessEqual(repeats, killed * WINDOW)
