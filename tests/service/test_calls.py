"""What each call does."""
import os

from harness import SYNC_FILE, ServiceTest, log_call

ON, OFF = b"'SysLog server'", b"none"


class Calls(ServiceTest):
    def test_variables_switch_forwarding_on_and_off(self):
        first, second = self.collector(), self.collector(host="127.0.0.3")
        service, peer = self.service(), self.peer()

        def heard_after(*calls):
            for call in calls:
                peer.call(call)
            service.fence(peer)
            first.heard(), second.heard()
            peer.log(b"heard\n", kind=3)
            service.fence(peer)
            return [collector.heard().count(b"<131>test.Error: heard\n") for collector in (first, second)]

        self.assertEqual(heard_after(), [0, 0])
        self.assertEqual(heard_after(b"SetVar remotelog_addr 127.0.0.2", b"SetVar remotelog_type " + ON),
                         [0, 0])
        self.assertEqual(heard_after(b"SyncVar"), [1, 0])
        self.assertEqual(first.sender[1], 514)
        self.assertEqual(heard_after(b"setvar remotelog_addr 127.0.0.3"), [1, 0])
        self.assertEqual(heard_after(b"syncvar with 'any' arguments"), [0, 1])
        self.assertEqual(heard_after(b"SetVar remotelog_type " + OFF), [0, 1])
        self.assertEqual(heard_after(b"SyncVar"), [0, 0])
        self.assertEqual(heard_after(b"SetVar remotelog_type " + ON, b"SetVar remotelog_addr no-host.invalid",
                                     b"SyncVar"), [0, 0])
        self.assertEqual(heard_after(b"SetVar remotelog_addr 127.0.0.2", b"SYNCVAR"), [1, 0])
        texts = [text for text in service.texts() if "server" in text]
        using = "Syslog.Info: Using syslog server at UDP %s:514"
        self.assertEqual(texts, [using % "127.0.0.2", using % "127.0.0.3",
                                 "Syslog.Info: Remote syslog server logging disabled",
                                 using % "no-host.invalid",
                                 "Syslog.ERROR: Cannot connect to syslog server at UDP no-host.invalid:514",
                                 using % "127.0.0.2"])

    def test_syncvar_does_nothing_without_a_change(self):
        service, collector = self.forwarding_service("debug")
        peer = self.peer()
        for call in (b"SetVar remotelog_addr 127.0.0.2", b"SetVar other thing", b"SetVar remotelog_type",
                     b"SetVar remotelog_type x y", b"SyncVar"):
            peer.call(call)
        service.fence(peer)
        texts = [text.partition(" -> 0x")[0] for text in service.texts() if "Var" in text or "disabled" in text]
        self.assertEqual(texts, ["Syslog.Trace: " + text for text in (
            "SetVar(remotelog_addr=127.0.0.2)", "SetVar(other=thing)", "ERROR: OnDispatchError(SetVar,remotelog_type)",
            "ERROR: OnDispatchError(SetVar,remotelog_type x y)", "SyncVar()")])
        self.assertIn(b"<131>Syslog.Trace: SyncVar()\n", collector.heard())
        # A change of the type alone is enough.
        peer.call(b"SetVar remotelog_type none")
        peer.call(b"SyncVar")
        service.fence(peer)
        self.assertEqual(service.count("Syslog.Info: Remote syslog server logging disabled"), 1)

    def test_each_outlet_names_type_and_module(self):
        service, collector = self.forwarding_service("debug")
        peer = self.peer()
        service.fence(peer)
        collector.heard()
        start = len(service.texts())
        rows = [(b"0 net", "net.Trace", "net.Trace", 131), (b"1 net", "net.Info", "net.Info", 134),
                (b"2 net", "net.Warning", "net.Warning", 132), (b"3 net", "net.ERROR", "net.Error", 131),
                (b"3 ''", "Syslog.ERROR", "Syslog.Error", 131), (b"x 'a b'", "a b.Trace", "a b.Trace", 131),
                (b"4294967298 net", "net.Warning", "net.Warning", 132), (b"-4294967295 n", "n.Info", "n.Info", 134),
                (b"4 net", None, None, None), (b"-1 net", None, None, None), (b"4294967300 net", None, None, None)]
        for kind, *_ in rows:
            peer.call(b"LogMsg " + kind + b" '100%s %n %d\n'")
        service.fence(peer)
        self.assertFalse(os.path.exists(SYNC_FILE), "is written on request only")
        *lines, end = self.sync_lines(service, peer)
        self.assertEqual(end, "")
        kept = [line.partition(" ")[2] for line in lines if "100%" in line]
        known = rows[:8]
        self.assertEqual([text for text in service.texts()[start:] if "100%" in text],
                         [f"{console}: 100%s %n %d" for _, console, _, _ in known])
        self.assertEqual(kept, [f"{stored}: 100%s %n %d" for _, _, stored, _ in known])
        self.assertEqual([line.decode() for line in collector.heard() if b"100%" in line],
                         [f"<{priority}>{stored}: 100%s %n %d\n" for _, _, stored, priority in known])

    def test_accepts_datagrams_of_at_most_1450_bytes(self):
        service, collector = self.forwarding_service()
        peer, listener = self.peer(), self.peer()
        overhead = 16 + len(log_call(1, b"test", b"\n"))
        for size in (1450, 1451, 65507):
            text = b"x" * (size - overhead)
            peer.log(text + b"\n")
            service.fence(peer)
            accepted = size == 1450
            self.assertEqual(service.count("test.Info: " + text.decode()), accepted)
            self.assertEqual((b"<134>test.Info: " + text)[:1024] in collector.heard(), accepted)
            self.assertEqual([len(datagram) for datagram in listener.heard()[:-1]], [size] * accepted)

    def test_logs_rejected_calls_as_trace_and_unparsable_ones_always(self):
        for arguments in ([], ["debug"]):
            with self.subTest(arguments):
                service, peer = self.service(*arguments), self.peer()
                for call in (b"LogMsg 1 net", b"LogMsg 1 net a b", b"Nonsense  %s %n", b"LogMsg",
                             b"LogMsg 1 net `x", b"SyncLog 'a~"):
                    peer.call(call)
                service.fence(peer, insist=True)
                texts = [text.partition(" -> 0x")[0] for text in service.texts() if "On" in text]
                trace = [f"Syslog.Trace: ERROR: OnDispatchError({call}" for call in (
                    "LogMsg,1 net)", "LogMsg,1 net a b)", "Nonsense, %s %n)", "LogMsg,)")]
                self.assertEqual(texts, (trace if arguments else []) + [
                    "Syslog.ERROR: OnParseError(LogMsg,1 net `x)", "Syslog.ERROR: OnParseError(SyncLog,'a~)"])
