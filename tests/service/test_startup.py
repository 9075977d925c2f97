"""What the service reads and prints at its start."""
import os
import random
import re
import time

from harness import CONFIG, PREFIX, SYSLOG_ON, ServiceTest, without_file_privileges

NO_CONFIG = "Syslog.Warning: Was not able to load conf options!"


class StartUp(ServiceTest):
    def test_prints_its_lines_in_order(self):
        before = time.time()
        service = self.service()
        self.peer()
        child = service.child()
        service.wait_for(f"Syslog.Info: Wait for child {child}...")
        texts = [text for text in service.texts() if "srv wrote" not in text]
        self.assertEqual(texts[:4], [NO_CONFIG, "Syslog.Info: Using file path '/tmp' for SyncLog",
                                     "Syslog.Info: TRACE messages will not be logged!",
                                     "Syslog.Info: Start child..."])
        # From here on two processes write, each in its own order.
        self.assertEqual(sorted(texts[4:7]), ["Syslog.Info: Child process...", "Syslog.Info: Continuing...",
                                              f"Syslog.Info: Wait for child {child}..."])
        self.assertLess(*[texts.index(f"Syslog.Info: {word}...") for word in ("Child process", "Continuing")])
        for line in service.console():
            thread = child if re.search("Child process|Continuing|srv wrote", line) else service.pid
            self.assertRegex(line, rf"^{PREFIX}\[#{thread:4d}\] Syslog\.")
        self.assertIn(service.console()[0][:9], [time.strftime("[%H:%M:%S", time.localtime(second))
                                                 for second in range(int(before), int(time.time()) + 1)])

    def test_debug_as_the_only_argument_turns_trace_on(self):
        for arguments, debug in [(["DEBUG"], True), (["debug", "x"], False), (["debug "], False)]:
            with self.subTest(arguments=arguments):
                service = self.service(*arguments)
                service.fence(peer := self.peer())
                peer.log(b"trace\n", kind=0)
                service.fence(peer)
                for text, expected in [("Syslog.Info: Debug mode selected, logging also TRACE messages!", debug),
                                       ("Syslog.Info: TRACE messages will not be logged!", not debug),
                                       ("test.Trace: trace", debug)]:
                    self.assertEqual(service.count(text), expected, text)

    def test_forwards_only_to_a_configured_and_known_server(self):
        collector = self.collector()
        on = SYSLOG_ON % collector.host
        using = "Syslog.Info: Using syslog server at UDP %s:514"
        failed = [using, "Syslog.ERROR: Cannot connect to syslog server at UDP %s:514"]
        for config, expected in [(on, [using % collector.host]), (on.replace("SysLog", "syslog"), []),
                                 (on.replace("[Data]", "[Other]"), []),
                                 (on.split("remotelog_addr")[0], [line % "" for line in failed]),
                                 (SYSLOG_ON % "host.invalid", [line % "host.invalid" for line in failed])]:
            with self.subTest(config=config):
                self.configure(config)
                service = self.service()
                service.fence(self.peer())
                self.assertEqual([text for text in service.texts() if "server at UDP" in text], expected)
                self.assertEqual(service.count(NO_CONFIG), 0)
                first = [b"<134>Syslog.Info: TRACE messages will not be logged!\n"] * (config == on)
                self.assertEqual(collector.heard()[:1], first)

    def test_serves_whatever_the_configuration_is(self):
        def unreadable():
            self.configure(SYSLOG_ON % "127.0.0.2")
            os.chmod(CONFIG, 0)

        noise = random.Random(1).randbytes(20000)
        on = (SYSLOG_ON % "127.0.0.2").encode()
        for name, make, loaded in [
                ("directory", lambda: os.makedirs(CONFIG), False), ("unreadable", unreadable, False),
                ("pipe", lambda: (os.makedirs(os.path.dirname(CONFIG)), os.mkfifo(CONFIG)), False),
                ("binary", lambda: self.configure(noise), True),
                ("huge", lambda: self.configure(b"#" * (1 << 26) + b"\n" + on), True)]:
            with self.subTest(name):
                self.clear_files()
                make()
                service = self.service(prepare=without_file_privileges)
                service.fence(self.peer())
                self.assertEqual(service.count(NO_CONFIG), not loaded)
                self.assertEqual(any("Using syslog" in text for text in service.texts()), name == "huge")
