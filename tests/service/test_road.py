"""The road of a call: from a peer to the console, the sync file and the collector."""
import re
import subprocess
import sys

from harness import EXAMPLE_PEER, PREFIX, SYNC_FILE, ServiceTest

SYSLOG_ON = '[Data]\nremotelog_type="SysLog server"\nremotelog_addr=%s\n'


class Road(ServiceTest):
    def start_forwarding(self, *arguments, **options):
        collector = self.collector(**options)
        self.configure(SYSLOG_ON % collector.host)
        return self.service(*arguments), collector

    def sync_lines(self, service, peer):
        peer.call(b"SyncLog")
        service.fence(peer)
        with open(SYNC_FILE, encoding="latin-1", newline="\n") as sync:
            return sync.read().split("\n")

    def test_a_strangers_line_reaches_all_outlets(self):
        service, collector = self.start_forwarding()
        peer = self.peer()
        subprocess.run([sys.executable, EXAMPLE_PEER, "link down, 100%s `~\\ ä"], check=True)
        service.fence(peer)
        text = "link down, 100%s `~\\ ä".encode().decode("latin-1")
        self.assertEqual(service.count("net.Warning: " + text), 1)
        sync = [line for line in self.sync_lines(service, peer) if "link down" in line]
        self.assertEqual(len(sync), 1)
        self.assertRegex(sync[0], rf"^{PREFIX} net\.Warning: {re.escape(text)}$")
        heard = list(iter(lambda: collector.receive(0), None))
        self.assertEqual(heard.count(b"<132>net.Warning: link down, 100%s `~\\ \xc3\xa4\n"), 1, heard)
        self.assertEqual(collector.sender[1], 514)

    def test_ten_thousand_calls_arrive_once_and_in_order(self):
        total, window = 10000, 50
        service, collector = self.start_forwarding()
        sender, listener = self.peer(), self.peer()
        service.fence(sender)
        while collector.receive(0):
            pass
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
        kept = [line for line in self.sync_lines(service, sender) if line]
        self.assertEqual([line.partition(" ")[2] for line in kept], calls[-500:])
