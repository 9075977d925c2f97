"""syslogctl from the user's view: options anywhere, dump and status, check, and the bridge's UDP port."""
import json
import os
import pty
import re
import signal
import socket
import subprocess

from harness import CONFIG, TOOL, until
from test_syslogctl import DONE, NO_ANSWER, NOT_CONFIRMED, USAGE, ToolTest


class CommandLine(ToolTest):
    def test_options_may_be_anywhere(self):
        service = self.service("debug")
        self.run_tool("log", "disk full", "-t", "disk", "now", "-l", "error")
        self.run_tool("-t", "disk", "log", "--", "-l", "error")
        self.assertEqual(self.module_lines(service, "disk"), [b"ERROR: disk full now", b"Info: -l error"])
        levels = {b"ERROR": ("0", "3", "emerg", "alert", "crit", "err"), b"Warning": ("4", "warn"),
                  b"Info": ("5", "6", "notice"), b"Trace": ("7", "debug")}
        for word, names in levels.items():
            for name in names:
                self.run_tool("log", name, "-t", "level", "-l", name)
                self.assertEqual(self.module_lines(service, "level")[-1], word + b": " + name.encode())
        for wrong in (["log", "x", "-l", "8"], ["log", "x", "-l", "none"], ["log", "x", "-5"], ["set", "a", "b", "-f"]):
            self.run_tool(*wrong, code=USAGE)
        self.assertIn("2 sent, 2 answers", self.run_tool("ping", "-i", "0.01", "-c", "2")[0])

    def test_help_describes_one_command(self):
        self.assertEqual(self.run_tool("help")[0], self.run_tool("--help")[0])
        for ways in (["help", "log"], ["log", "--help"], ["-h", "log", "x"]):
            said = self.run_tool(*ways)[0]
            self.assertTrue("--level" in said and "--json" not in said, said)
        self.run_tool("help", "nothing", code=USAGE)


class Dump(ToolTest):
    def test_shows_the_lines_asked_for(self):
        self.service("debug")
        peer = self.peer()
        self.run_tool("log", "first")
        lines = self.run_tool("dump")[0].splitlines()
        self.assertFalse([line for line in lines if "srv wrote" in line or "cookie" in line or "SyncLog" in line])
        peer.log(b"\xff\"\\\x1b[31m\n", 3, b"a.b")
        peer.log(b"up\ndown\n", 1, b"net")
        peer.log(b"slow\n", 2, b"net")
        self.run_tool("log", "done", "-t", "last")
        self.assertEqual([line.rpartition("] ")[2] for line in self.run_tool("dump", "-n", "3")[0].splitlines()],
                         ["net.Info: up", "down", "net.Warning: slow", "last.Info: done"])
        self.assertIn("srv wrote", self.run_tool("dump", "--all", "-t", "Syslog")[0])
        rows = [json.loads(row) for row in self.run_tool("dump", "--json", "-l", "warning")[0].splitlines()]
        for row in rows:
            self.assertRegex(row.pop("time"), r"^\d\d:\d\d:\d\d\.\d{3}$")
        self.assertEqual(rows, [{"level": "error", "module": "a.b", "text": "\ufffd\"\\\x1b[31m"},
                                {"level": "warning", "module": "net", "text": "slow"}])
        rows = [json.loads(row) for row in self.run_tool("dump", "--json", "-t", "net")[0].splitlines()]
        self.assertEqual([row["text"] for row in rows], ["up\ndown", "slow"])
        ours, terminal = pty.openpty()
        self.run_tool("dump", "-t", "a.b", stdout=terminal)
        self.assertTrue(os.read(ours, 1000).endswith(b'a.b.Error: \\xff"\\\\x1b[31m\r\n'))

    def test_follows_and_reports_gaps(self):
        service = self.service()
        peer = self.peer()
        peer.log(b"0\n", module=b"n")
        service.fence(peer)
        tool = self.start_tool("dump", "-f", "-t", "n", text=True)
        follow = lambda: tool.stdout.readline()[15:]
        self.assertEqual(follow(), "n.Info: 0\n")
        for number in range(1, 900):
            peer.log(b"%d\n" % number, module=b"n")
            if number % 300 == 0:
                for shown in range(number - 299, number + 1):
                    self.assertEqual(follow(), f"n.Info: {shown}\n")
        for shown in range(601, 900):
            self.assertEqual(follow(), f"n.Info: {shown}\n")
        service.kill_child()
        peer = self.peer()
        peer.log(b"again\n", module=b"n")
        self.assertEqual(follow(), "n.Info: again\n")
        for number in range(600):
            peer.log(b"%d\n" % number, module=b"n")
        until(lambda: follow() == "n.Info: 599\n", "the last line")
        tool.send_signal(signal.SIGINT)
        said = tool.communicate(timeout=20)[1]
        self.assertEqual((tool.returncode, said.count("lines may be missing here")), (DONE, 2), said)

    def test_says_why_nothing_is_printed(self):
        self.service()
        self.run_tool("log", "x")
        os.system("mount -t tmpfs -o size=4k none /tmp && head -c 4096 /dev/zero >/tmp/full")
        try:
            said = self.run_tool("dump", code=NOT_CONFIRMED)[1]
        finally:
            os.system("umount /tmp")
        self.assertIn("is full", said)
        tool = self.start_tool("dump", "-t", "none", text=True)
        self.assertIn("no matching lines", tool.communicate(timeout=20)[1])


class Status(ToolTest):
    def test_shows_what_the_machine_and_the_log_say(self):
        self.assertIn("no program uses UDP port 11001", self.run_tool("--timeout", "0.2", "status", code=NO_ANSWER)[0])
        service, collector = self.forwarding_service()
        out = self.run_tool("status")[0]
        self.assertRegex(out, r"11001 serves, round trip \d+\.\d{3} ms\n")
        self.assertRegex(out, rf"restarts +0\nforwards to +{collector.host}, as configured\ndropped +0 datagrams")
        os.utime(CONFIG, (1 << 32, 1 << 32))
        self.assertIn("not known: /flash/conf/kavlune.conf has changed since the start", self.run_tool("status")[0])
        os.utime(CONFIG, (0, 0))
        child = service.kill_child()
        self.run_tool("remote", "on", "127.0.0.9")
        self.run_tool("remote", "on", "no-such-host.invalid", code=NOT_CONFIRMED)
        peer = self.peer()
        os.kill(child, signal.SIGSTOP)
        for _ in range(3000):
            peer.log(b"x" * 1300)
        os.kill(child, signal.SIGCONT)
        self.run_tool("log", input=b"x\n" * 600)
        out = self.run_tool("status")[0]
        self.assertRegex(out, rf"running +since \d{{4}}-.*, process {service.pid}\n")
        self.assertRegex(out, rf"\nserving +since .*, process {child}\n")
        self.assertRegex(out, r"restarts +not known.*\nforwards to +not known.*; at start .*, as configured\n"
                              r"dropped +[1-9]\d* datagrams")
        self.assertRegex(out, r"memory +RSS \d+ \+ \d+ KiB, PSS [1-9]\d* \+ [1-9]\d* KiB\n$")
        service.kill_child()
        self.run_tool("remote", "on", "127.0.0.9")
        self.run_tool("remote", "on", "no-such-host.invalid", code=NOT_CONFIRMED)
        self.assertRegex(self.run_tool("status")[0], r"restarts +2\nforwards to +127.0.0.9\n")
        self.assertEqual(self.run_tool("status", "-q")[0], "")
        out = self.run_tool("--timeout", "0.1", "-s", "192.0.2.1", "status", code=NO_ANSWER)[0]
        self.assertIn("another machine", out)


class Check(ToolTest):
    def findings(self, text):
        self.configure(text)
        result = subprocess.run([TOOL, "check"], capture_output=True, text=True, timeout=20)
        self.assertEqual((result.returncode, result.stderr), (NOT_CONFIRMED, ""), result.stdout)
        return re.findall(r"^/flash/conf/kavlune\.conf:(\d+): (.*)$", result.stdout, re.M)

    def test_finds_each_mistake_and_its_line(self):
        self.assertIn("missing, so nothing is set", self.run_tool("check")[0])
        good = "# c\n[data]\nREMOTELOG_TYPE= \"SysLog server\" # c\nremotelog_addr=log-1.example\n[other]\nx=1\n;x\n\n"
        self.configure(good)
        self.assertEqual(self.run_tool("check")[0], "/flash/conf/kavlune.conf: ok\n")
        data = "[Data]\nremotelog_type=SysLog server\nremotelog_addr=%s\n"
        for text, line, part in [
                (good.replace("\n", "\r\n"), 4, "carriage return"),
                ("\ufeff" + good, 1, "byte order mark"),
                (good + "[data]\nfoo=1\n", 10, "does not use 'foo'"),
                ("[Data]\nremotelog_type =x\n", 2, "before '='"),
                ("[Data\n", 1, "missing ']'"),
                ("[Data ]\n", 1, "has blanks"),
                ("[Data] x=1\n", 1, "is ignored"),
                ('[Data]\nremotelog_type="x\n', 2, "unclosed quote"),
                ("[Data]\nremotelog_type\n", 2, "missing '='"),
                ('[Data]\nremotelog_type="none"x\n', 2, "closing quote"),
                ("[Data]\nremotelog_type=none \n", 2, "blanks"),
                ('[Data]\nremotelog_type="SysLog server "\n', 2, "unknown type"),
                ("[Data]\nremotelog_type=syslog server\n", 2, "unknown type"),
                (data % "10.0.0.7:514", 3, "514"),
                (data % "10.0.0.7 # rack 3", 3, "10.0.0.73"),
                (data % "10.0.0", 3, "invalid address"),
                (data % "a b", 3, "invalid address"),
                (data % "", 3, "empty"),
                ("[Data]\nremotelog_type=SysLog server\n", 2, "missing remotelog_addr"),
                ("[Data]\nremotelog_addr=a\n", 2, "missing remotelog_type"),
                ("remotelog_addr=a\n", 1, "outside section"),
                (data % "a\\", 3, "backslash"),
                ("#" * 1024 + "\n", 1, "longer"),
                (data % "a" + "remotelog_addr=b\n", 4, "line 3"),
                ("[Data]\nremotelog_type=none\0\n", 2, "NUL")]:
            found = self.findings(text)
            self.assertTrue([row for row in found if row[0] == str(line) and part in row[1]], (text, found))
        for path, why in (("/tmp", "not a regular file"), ("/tmp/none", "No such file")):
            self.assertIn(why, self.run_tool("check", path, code=USAGE)[1])

    def test_warns_of_a_text_without_a_line_feed(self):
        self.service()
        tool = self.start_tool("call", "logmsg", "1", "m", "text", text=True)
        self.assertIn("no line feed", tool.communicate(timeout=20)[1])
        self.assertEqual(tool.returncode, DONE)
        self.run_tool("call", "LogMsg", "1", "m", "text\n")


class Network(ToolTest):
    def test_logs_datagrams_from_other_machines(self):
        service = self.service()
        bridge = self.start_tool("bridge", "--socket", "/tmp/log", "--udp", "5514")
        until(lambda: f":{5514:04X} " in open("/proc/net/udp").read(), "the port")
        for arguments, why in [(["--udp", "5514"], "another program"), (["--udp", "0"], "cannot use"),
                               (["--udp", "a:1"], "cannot use"),
                               (["--udp", "192.0.2.1:1"], "ddress")]:
            self.assertIn(why, self.run_tool("bridge", "--socket", "/tmp/other", *arguments, code=USAGE)[1])
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as gear:
            gear.bind(("127.0.0.7", 0))
            for text in (b"<28>Jan  2 10:00:00 sw1 lldpd[7]: port 3 down\r\n",
                         b"<11>1 2024-01-02T10:00:00Z sw1 snmpd 8 - - a\nb\x1b",
                         b"<3>panic", b"<43>Jan  2 10:00:00 sw1 Syslog: forged", b"<14>gear: " + b"x" * 20000):
                gear.sendto(text, ("127.0.0.1", 5514))
            bridge.send_signal(signal.SIGSTOP)  # more datagrams wait than it reads at once
            for number in range(400):
                gear.sendto(b"<14>burst: %d" % number, ("127.0.0.1", 5514))
        bridge.terminate()
        bridge.send_signal(signal.SIGCONT)
        self.assertEqual(bridge.wait(20), DONE)
        self.assertEqual(self.module_lines(service, "burst"), [b"Info: 127.0.0.7 %d" % number for number in range(400)])
        lines = [line for module in ("lldpd", "snmpd", "user", "local[Syslog]")
                 for line in self.module_lines(service, module)]
        self.assertEqual(lines, [b"Warning: 127.0.0.7 [7] port 3 down", b"ERROR: 127.0.0.7 [8] a",
                                 b"ERROR: 127.0.0.7 b\\x1b", b"ERROR: 127.0.0.7 panic", b"ERROR: 127.0.0.7 forged"])
        self.assertRegex(self.module_lines(service, "gear")[-1], rb"\(\d+ bytes cut\)$")
