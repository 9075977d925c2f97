"""syslogctl with the running service: what arrives, what it prints, and its exit status."""
import json
import os
import re
import resource
import signal
import socket
import subprocess
import time
import unittest

import namespace
from harness import DEADLINE, SYNC_FILE, TOOL, ServiceTest, until, without_file_privileges

DONE, NOT_CONFIRMED, USAGE, NO_ANSWER = range(4)


@unittest.skipUnless(os.path.exists(TOOL), "no syslogctl next to the service")
class ToolTest(ServiceTest):
    def run_tool(self, *arguments, code=DONE, **options):
        """Runs the tool to its end. Returns its standard output and error."""
        if "input" not in options:
            options.setdefault("stdin", subprocess.DEVNULL)
        result = subprocess.run([TOOL, *arguments], stdout=options.pop("stdout", subprocess.PIPE),
                                stderr=subprocess.PIPE, timeout=120, **options)
        said = result.stderr.decode()
        self.assertEqual(result.returncode, code, (arguments, said))
        self.assertEqual(code != DONE, "syslogctl: " in said, said)
        return (result.stdout or b"").decode(), said

    def start_tool(self, *arguments, **options):
        tool = subprocess.Popen([TOOL, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        self.addCleanup(tool.communicate)
        self.addCleanup(tool.kill)
        return tool

    def module_lines(self, service, module):
        """Returns the lines of one module as bytes, each with its level."""
        begin = module + "."
        return [text[len(begin):].encode("latin-1") for text in service.texts() if text.startswith(begin)]


class Log(ToolTest):
    def test_words_and_standard_input_arrive_unchanged(self):
        service = self.service("debug")
        for level, word in [("trace", b"Trace"), ("info", b"Info"), ("warning", b"Warning"), ("error", b"ERROR")]:
            self.run_tool("log", "-l", level, "-t", "words", "--", level, "-5 %s", "`~'\"")
            self.assertEqual(self.module_lines(service, "words")[-1], b"%s: %s -5 %%s `~'\"" % (word, level.encode()))
        self.run_tool("log", "-t", "two", "one\ntwo")
        self.run_tool("log", "-t", "two", "")
        self.assertEqual(self.module_lines(service, "two"), [b"Info: one", b"Info: two", b"Info: "])
        every = b"".join(b"<%c>\n" % byte for byte in range(256)) + b"\n\nno line end"
        self.run_tool("log", "-t", "bytes", input=every)
        expected = [b"Info: " + line for line in every.replace(b"\0", b"\\0").split(b"\n")]
        self.assertEqual(self.module_lines(service, "bytes"), expected)

    def test_is_confirmed_at_once_and_connects_only_to_join_and_leave(self):
        service = self.service()
        peer = self.peer()  # waits until the service runs
        times = []
        for number in range(1, 6):
            begin = time.monotonic()
            self.run_tool("log", "--confirm", "-t", "quick", "x")
            times.append(time.monotonic() - begin)
            # The line must be there when the tool ends.
            self.assertEqual(len(self.module_lines(service, "quick")), number)
        self.assertLess(min(times), 0.2)
        service.fence(peer)
        self.assertEqual(sum(": srv wrote 16 to " in text for text in service.texts()), 2 * 5 + 1)

    def test_a_signal_stops_it_cleanly(self):
        service = self.service()
        tool = self.start_tool("log", "-t", "cut", stdin=subprocess.PIPE)
        tool.stdin.write(b"first\nbegun")
        tool.stdin.flush()
        until(lambda: self.module_lines(service, "cut"), "a line")
        tool.send_signal(signal.SIGTERM)
        said = tool.communicate()[1].decode()
        self.assertEqual((tool.returncode, "interrupted" in said), (NOT_CONFIRMED, True), said)
        self.assertEqual(self.module_lines(service, "cut"), [b"Info: first"])


class Commands(ToolTest):
    def test_sets_variables_and_makes_any_call(self):
        service = self.service("debug")
        self.run_tool("set", "foo", "b 'a~`r")
        service.wait_for("Syslog.Trace: SetVar(foo=b 'a~`r)")
        self.run_tool("call", "logmsg", "2", "any", "call\n")
        self.assertEqual(self.module_lines(service, "any"), [b"Warning: call"])

        # Other peers may handle calls that the service refuses.
        peer = self.peer()
        said = self.run_tool("call", "--", "Foo", "a b", "it's", "`~", "", "-x", code=NOT_CONFIRMED)[1]
        self.assertIn("refused 1 call:", said)
        heard = until(lambda: next((call for call in iter(peer.receive, None) if b"Foo" in call), None), "the call")
        self.assertRegex(heard, re.escape(peer.cookie) + rb"WithAck \w+ 1 Foo `a b` `it's` `~`~~` `` `-x`$")
        self.assertIn("refused", self.run_tool("call", "LogMsg", "1", "two", code=NOT_CONFIRMED)[1])
        self.run_tool("call", "SyncLog", *["ignored"] * 29)
        self.assertIn("too long", self.run_tool("call", "Foo", "x" * 1400, code=USAGE)[1])

    def test_switches_forwarding_whatever_it_was_before(self):
        service, collector = self.forwarding_service()
        using = f"Syslog.Info: Using syslog server at UDP {collector.host}:514"
        disabled = "Syslog.Info: Remote syslog server logging disabled"
        self.run_tool("remote", "on", collector.host)  # as the configuration has it
        service.wait_for(using, 2)
        for count in (1, 2):
            self.run_tool("remote", "off")
            service.wait_for(disabled, count)
        said = self.run_tool("remote", "on", "no-such-host.invalid", code=NOT_CONFIRMED)[1]
        self.assertIn("Cannot connect to syslog server at UDP no-such-host.invalid:514", said)

    def test_dumps_the_current_log_or_nothing(self):
        with open(SYNC_FILE, "w") as sync:
            sync.write("[00:00:00.000] old.Info: from before\n")
        os.chmod(SYNC_FILE, 0o444)
        os.chmod("/tmp", 0o555)
        service = self.service(prepare=without_file_privileges)
        out, said = self.run_tool("--timeout", "0.5", "dump", code=NOT_CONFIRMED)
        self.assertEqual((out, "out of date" in said), ("", True), said)
        os.chmod("/tmp", 0o777)
        for number in range(3):
            self.run_tool("log", f"now {number}")
            lines = [line.partition("] ")[2] for line in self.run_tool("dump")[0].splitlines()]
            self.assertIn(f"syslogctl.Info: now {number}", lines[-10:])
            self.assertFalse([line for line in lines if "old.Info" in line])
        os.chmod("/tmp", 0o555)
        for wrong, why in ((lambda: os.symlink("/dev/zero", SYNC_FILE), "not a regular file"), (self.forge, "forged"),
                           (self.forge_by_second_name, "forged")):
            os.chmod("/tmp", 0o777)
            os.unlink(SYNC_FILE)
            wrong()
            os.chmod("/tmp", 0o555)
            said = self.run_tool("--timeout", "0.5", "dump", code=USAGE)[1]
            self.assertTrue(SYNC_FILE in said and why in said, said)
        os.chmod("/tmp", 0o777)
        self.assertIn("run it there", self.run_tool("-s", "192.0.2.1", "dump", code=USAGE)[1])
        self.assertEqual(service.process.poll(), None)

    def test_dumps_a_file_that_can_only_be_overwritten(self):
        for path in (SYNC_FILE, "/tmp/mounted"):
            open(path, "w").close()
        subprocess.run(["mount", "--bind", "/tmp/mounted", SYNC_FILE], check=True)
        self.addCleanup(namespace.unmount, SYNC_FILE)
        self.service()
        for number in range(10):  # in quick succession: the same inode each time, so only the time shows a new write
            self.run_tool("log", f"now {number}")
            self.assertIn(f"syslogctl.Info: now {number}\n", self.run_tool("dump")[0])

    def forge(self):
        if not namespace.is_real_root():
            self.skipTest("only root can give a file to another user")
        with open(SYNC_FILE, "w") as file:
            file.write("[00:00:00.000] forged.Info: line\n")
        os.chown(SYNC_FILE, 12345, 12345)

    def forge_by_second_name(self):
        """Makes a file of the service's user that the service must not overwrite, as it has a second name."""
        os.mknod(SYNC_FILE)
        os.chmod(SYNC_FILE, 0o666)
        os.link(SYNC_FILE, "/tmp/second")

    def test_shows_what_others_call_and_goes_on_after_a_restart(self):
        service = self.service()
        watches = [self.start_tool("watch", *options, "-n", "6", text=True) for options in (["--json"], [])]
        for watch in watches:
            self.assertIn("listening", watch.stderr.readline())
        service.kill_child()
        for watch in watches:
            self.assertIn("joined 127.0.0.1:11001 again", watch.stderr.readline())
        peer = self.peer()
        peer.log("ä \"\x1b[31m\n".encode() + b"\xff", kind=3, module=b"net")
        peer.call(b"setvar 'a b' c")
        peer.call(b"LogMsg 1 'open")
        # Numbered calls are shown like any other; acks and empty WithAcks are not.
        peer.call(b"WithAck `me` 1 LogMsg 2 net numbered")
        peer.call(b"WITHACK me 2")
        peer.call(b"ack me 2 2 0")
        peer.call(b"WithAck me 3 LogMsg 1 'open")
        peer.call(b"WithAck me")
        peer.log(b"last\n")
        rows, lines = [watch.communicate(timeout=20)[0].splitlines() for watch in watches]
        rows = [json.loads(row) for row in rows]
        text = "ä \"\x1b[31m\n\ufffd"
        for row in rows:
            self.assertRegex(row.pop("time"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        unreadable = {"call": "LogMsg", "unreadable": "1 'open"}
        self.assertEqual(rows[:5], [
            {"call": "LogMsg", "args": ["3", "net", text], "level": "error", "module": "net", "text": text},
            {"call": "setvar", "args": ["a b", "c"]}, unreadable,
            {"call": "LogMsg", "args": ["2", "net", "numbered"], "level": "warning", "module": "net",
             "text": "numbered"}, unreadable])
        self.assertEqual([line[15:] for line in lines], [
            "net.ERROR: ä \"\\x1b[31m\\x0a\\xff", "setvar 'a b' 'c'", "LogMsg (unreadable arguments) 1 'open",
            "net.Warning: numbered", "LogMsg (unreadable arguments) 1 'open", "test.Info: last"])
        self.assertEqual([watch.returncode for watch in watches], [DONE, DONE])

    def test_pings_through_a_restart(self):
        service = self.service()
        ping = self.start_tool("ping", "-i", "0.05", "-n", "13", text=True)
        self.assertRegex(ping.stdout.readline(), r"^PING 127\.0\.0\.1:11001: handshake time=\d+\.\d{3} ms\n")
        answers = [ping.stdout.readline() for _ in range(3)]
        service.kill_child()
        answers += [ping.stdout.readline() for _ in range(10)]
        for number, answer in enumerate(answers, start=1):
            self.assertRegex(answer, rf"^answer from 127\.0\.0\.1:11001: seq={number} time=\d+\.\d+ ms\n")
        out = ping.stdout.read()
        self.assertEqual(ping.wait(20), DONE)
        self.assertRegex(out, r"13 sent, 13 answers, 0% loss, time \d+ms\n")
        low, mean, high = map(float, re.search(r"\nrtt min/avg/max = (.*)/(.*)/(.*) ms\n$", out).groups())
        self.assertTrue(0 < low <= mean <= high, out)


class Bridge(ToolTest):
    SOCKET = "/tmp/log"

    def start_bridge(self, *options):
        before = os.umask(0o077)  # must not affect the socket's mode
        bridge = self.start_tool("bridge", "--socket", self.SOCKET, *options)
        os.umask(before)
        program = until(self.connect, "the bridge")
        self.assertEqual(os.stat(self.SOCKET).st_mode & 0o777, 0o666)
        return bridge, program

    def connect(self):
        program = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(program.close)
        try:
            program.connect(self.SOCKET)
        except (FileNotFoundError, ConnectionRefusedError):
            return None
        return program

    def stop_bridge(self, bridge):
        bridge.terminate()
        said = bridge.communicate(timeout=60)[1].decode()
        self.assertEqual(bridge.returncode, DONE, said)

    def test_logs_what_programs_write(self):
        service = self.service()
        bridge, program = self.start_bridge()
        for record in (b"<27>Jan  2 10:00:00 prog[7]: a\n", b"<12>Jan  2 10:00:00 prog: b\r\nc\0d\0",
                       b"<11>prog: x\r[10:00:00.000][#   7] Syslog.ERROR: x",
                       b"<11>1 2024-01-02T10:00:00Z box prog 7 - [a b=\"c\"] x", b"<11>Syslog: Child exited",
                       b"<11>\xc2\x9b1Gprog: \xc2\x9b1Gx",
                       b"<14>prog: " + b"x" * 9000):
            program.send(record)
        self.stop_bridge(bridge)
        self.assertFalse(os.path.exists(self.SOCKET))
        lines = self.module_lines(service, "prog")
        self.assertEqual(lines[:5], [b"ERROR: [7] a", b"Warning: b", b"Warning: c\\0d",
                                     rb"ERROR: x\x0d[10:00:00.000][#   7] Syslog.ERROR: x", b'ERROR: [7] [a b="c"] x'])
        joined = b"".join(line.removeprefix(b"Info: ") for line in lines[5:])
        self.assertRegex(joined, rb"^x{8000,} \(\d+ bytes cut\)$")
        self.assertEqual(self.module_lines(service, "local[Syslog]"), [b"ERROR: Child exited"])
        self.assertEqual(self.module_lines(service, r"\xc2\x9b1Gprog"), [rb"ERROR: \xc2\x9b1Gx"])

    def test_logs_what_the_c_library_sends(self):
        service = self.service()
        script = f"""set -e
            touch /tmp/null && mount --bind /dev/null /tmp/null  # mknod needs real root
            mount -t tmpfs none /dev && touch /dev/null && mount --bind /tmp/null /dev/null && ln -s null /dev/kmsg
            {TOOL} bridge --kmsg & until [ -S /dev/log ]; do kill -0 $!; sleep 0.02; done
            python3 -c 'import syslog as s; s.openlog("py", s.LOG_PID, s.LOG_DAEMON); s.syslog(s.LOG_ERR, "by libc")'
            kill -TERM $! && wait $!"""
        result = subprocess.run(["unshare", "--mount", "sh", "-c", script], stderr=subprocess.PIPE, cwd="/",
                                timeout=DEADLINE)
        self.assertEqual(result.returncode, DONE)
        self.assertRegex(result.stderr, rb"^[^\n]*continuing without it\n$")  # /dev/kmsg is /dev/null here
        self.assertRegex(self.module_lines(service, "py")[0], rb"^ERROR: \[\d+\] by libc$")

    def test_keeps_a_burst_and_reports_losses(self):
        service = self.service()
        bridge, program = self.start_bridge()
        total = 30000
        child = service.child()
        os.kill(child, signal.SIGSTOP)  # so that the bridge's buffers fill up
        for number in range(total):
            program.send(b"<14>n: %d" % number)
        os.kill(child, signal.SIGCONT)
        self.stop_bridge(bridge)
        text = "\n".join(service.texts())
        # Calls retransmitted while the child was stopped were run only once.
        numbers = list(map(int, re.findall(r"^n\.Info: (\d+)$", text, re.M)))
        reported = list(map(int, re.findall(r"^syslogctl\.Warning: (\d+) messages were lost here$", text, re.M)))
        gaps = [after - before - 1 for before, after in zip([-1, *numbers], [*numbers, total]) if after - before != 1]
        self.assertEqual(reported, gaps)
        self.assertTrue(numbers and gaps)

    def test_counts_what_it_cannot_send_in_time(self):
        bridge, program = self.start_bridge("--timeout", "1")  # without a service
        for _ in range(9000):
            program.send(b"<13>t: x")
        bridge.terminate()
        said = bridge.communicate(timeout=60)[1].decode()
        self.assertEqual(bridge.returncode, NOT_CONFIRMED)
        self.assertRegex(said, r"8192 calls are not confirmed\n.*messages not sent: 808\n")

    def test_replaces_only_dead_sockets(self):
        service = self.service()
        bridge, _ = self.start_bridge()
        self.assertIn("another program reads from", self.run_tool("bridge", "--socket", self.SOCKET, code=USAGE)[1])
        bridge.kill()
        bridge.communicate()
        bridge, program = self.start_bridge()
        program.send(b"<14>prog: after")
        self.stop_bridge(bridge)
        self.assertEqual(self.module_lines(service, "prog"), [b"Info: after"])

        with open("/tmp/file", "w") as file:
            file.write("kept")
        os.symlink("/tmp/file", "/tmp/link")
        os.mkdir("/tmp/closed", 0o555)
        for path, why in [("/tmp/file", "not a socket"), ("/tmp/link", "not a socket"), ("/tmp/no/log", "No such file"),
                          ("/tmp/closed/log", "run as root"), ("/tmp/" + "x" * 108, "invalid socket path"),
                          ("", "invalid socket path")]:
            said = self.run_tool("bridge", "--socket", path, code=USAGE, preexec_fn=without_file_privileges)[1]
            self.assertIn(why, said)
        with open("/tmp/link") as file:
            self.assertEqual(file.read(), "kept")


class Trouble(ToolTest):
    def test_reports_wrong_usage(self):
        self.assertLessEqual(len(self.run_tool("--help")[0].splitlines()), 24)
        for arguments in ([], ["x"], ["-x", "log"], ["log", "--nothing"], ["log", "-l", "loud", "x"], ["log", "-t"],
                          ["log", "-t", "", "x"], ["log", "-t", "x" * 49, "x"], ["log", "--json", "x"],
                          ["--json", "log", "x"], ["set", "a"], ["remote"], ["dump", "x"], ["watch", "-n", "0"],
                          ["ping", "-n", "99999999999999999999"], ["ping", "-i", "0"], ["--timeout", "nan", "dump"],
                          ["-s", "a:0", "dump"], ["-s", "a:70000", "dump"], ["-s", "", "dump"], ["call"],
                          ["call", "a"] + ["b"] * 30, ["remote", "up"], ["remote", "on", "a:514"],
                          ["remote", "on", "x" * 80], ["call", "a b"], ["set", "", "x"],
                          ["--password-file", "/tmp/none", "dump"]):
            self.run_tool(*arguments, code=USAGE)
        self.assertIn("invalid option '-J'", self.run_tool("dump", "-Jq", code=USAGE)[1])

    def test_distinguishes_a_wrong_password_from_no_answer(self):
        with open("/tmp/password", "w") as password:
            password.write("wrong\nmosk\n")
        commands = ["log", "x"], ["set", "a", "b"], ["ping", "-n", "1"], ["watch"], ["dump"]
        for command in commands:
            self.assertIn("no answer", self.run_tool("--timeout", "0.2", *command, code=NO_ANSWER)[1])
        self.assertIn("unknown host", self.run_tool("-s", "no-such-host.invalid", "log", "x", code=NO_ANSWER)[1])
        service = self.service()
        until(service.child, "a child")
        options = "--password-file", "/tmp/password", "--timeout", "8"
        tools = [(command, self.start_tool(*options, *command, stdin=subprocess.DEVNULL, text=True))
                 for command in commands]
        for command, tool in tools:
            said = tool.communicate(timeout=60)[1]
            self.assertEqual((tool.returncode, "the password is wrong" in said), (NOT_CONFIRMED, True), said)
            # It may also be an older service, which sends no acks, so the tool sends each call once, without WithAck.
            self.assertEqual("1 call was sent once and is not confirmed" in said, command[0] in ("log", "set", "dump"))
        for text in ("mosk\nrest\n", "mosk\r\nrest", "mosk\r", "mosk"):
            with open("/tmp/password", "w", newline="") as password:
                password.write(text)
            self.run_tool("--password-file", "/tmp/password", "log", "x")

    def test_reports_a_password_that_does_not_arrive(self):
        self.service()
        os.mkfifo("/tmp/password")
        log = ["--password-file", "/tmp/password", "log", "x"]
        self.assertIn("--timeout", self.run_tool("--timeout", "0.2", *log, code=USAGE)[1])  # no one writes
        writer = os.open("/tmp/password", os.O_RDWR)
        self.addCleanup(os.close, writer)
        os.write(writer, b"mos")
        self.assertIn("--timeout", self.run_tool(*log[:2], "--timeout", "0.2", "log", "x", code=USAGE)[1])
        tool = self.start_tool(*log, stdin=subprocess.DEVNULL)
        os.write(writer, b"mos")
        time.sleep(0.05)  # the rest arrives later
        os.write(writer, b"k\n")
        self.assertEqual((tool.wait(20), tool.stderr.read()), (DONE, b""))
        tool = self.start_tool("--timeout", "60", *log, stdin=subprocess.DEVNULL)
        tool.send_signal(signal.SIGINT)
        self.assertNotEqual(tool.wait(20), DONE)
        said = self.run_tool("--password-file", "/tmp", "log", "x", code=USAGE)[1]
        self.assertIn("Is a directory", said)

    def test_reports_missing_descriptors_and_a_full_device(self):
        service = self.service()

        def closing(*descriptors):
            return lambda: [os.close(descriptor) for descriptor in descriptors]

        for limit in (4, 5, 6):
            said = self.run_tool("log", "x", code=USAGE,
                                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)))[1]
            self.assertRegex(said, "Too many open files|No file descriptors")  # glibc, musl

        self.run_tool("log", "-t", "shut", "words", preexec_fn=closing(0, 1))
        self.assertEqual(self.module_lines(service, "shut"), [b"Info: words"])
        self.assertIn("standard input", self.run_tool("log", code=USAGE, preexec_fn=closing(0))[1])
        for command in (["dump"], ["--help"], ["ping", "-n", "1"]):
            self.assertIn("standard output", self.run_tool(*command, code=USAGE, preexec_fn=closing(1))[1])
            with open("/dev/full", "w") as full:
                self.assertIn("No space left", self.run_tool(*command, code=USAGE, stdout=full)[1])
