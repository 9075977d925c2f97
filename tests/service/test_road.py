"""The road of a call: from a peer to the console, the sync file and the collector."""
from harness import ServiceTest


class Road(ServiceTest):
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
