"""The road of a call: from a peer to the console, the sync file and the collector."""
import re
import subprocess
import sys

from harness import EXAMPLE_PEER, PREFIX, ServiceTest


class Road(ServiceTest):
    def test_a_strangers_line_reaches_all_outlets(self):
        service, collector = self.forwarding_service()
        peer = self.peer()
        line = "link down, 100%s `~\\ ä"
        subprocess.run([sys.executable, EXAMPLE_PEER, line], check=True)
        service.fence(peer)
        text = line.encode().decode("latin-1")
        self.assertEqual(service.count("net.Warning: " + text), 1)
        kept = [line for line in self.sync_lines(service, peer) if "link down" in line]
        self.assertEqual(len(kept), 1)
        self.assertRegex(kept[0], rf"^{PREFIX} net\.Warning: {re.escape(text)}$")
        self.assertEqual(collector.heard().count(b"<132>net.Warning: " + line.encode() + b"\n"), 1)
        self.assertEqual(collector.sender[1], 514)

    def test_ten_thousand_calls_arrive_once_and_in_order(self):
        total, window = 10000, 50
        service, collector = self.forwarding_service()
        sender, listener = self.peer(), self.peer()
        service.fence(sender)
        collector.heard()
        listener.receive()
        for first in range(0, total, window):
            batch = range(first, first + window)
            for number in batch:
                sender.log(b"call %d\n" % number)
            self.assertEqual([listener.receive() for _ in batch],
                             [listener.cookie + b"LogMsg 1 `test` `call %d\n`" % number for number in batch])
            self.assertEqual([collector.receive() for _ in batch],
                             [b"<134>test.Info: call %d\n" % number for number in batch])
        service.wait_for(f"test.Info: call {total - 1}")
        calls = [text for text in service.texts() if "call" in text]
        self.assertEqual(calls, [f"test.Info: call {number}" for number in range(total)])
        kept = self.sync_lines(service, sender)[:-1]
        self.assertEqual([line.partition(" ")[2] for line in kept], calls[-500:])
