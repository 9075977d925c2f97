"""The programs in examples/."""
import logging
import os
import subprocess
import sys
import threading

import namespace
from harness import PORT, WITH_TOOL, ServiceTest, until
from lossy import LossyPath, lines_of

sys.path.append(namespace.FILES)
import velk_logging  # noqa: E402  (found by the line above)

PROGRAMS = [*([sys.executable, os.path.join(namespace.FILES, name)] for name in ("peer.py", "velk_logging.py")),
            *([os.path.join(namespace.FILES, name)] for name in ("log_c", "log_cpp", "log.sh", "wire.sh"))]
ENTRANCE = 11002  # port of a path that loses datagrams
LINE = "100%s `~\\ ä"


class Examples(ServiceTest):
    def start_program(self, program):
        return subprocess.Popen([*program, LINE], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                env=WITH_TOOL)

    def test_each_writes_its_line_once(self):
        service = self.service()
        peer = self.peer()
        for number, program in enumerate(PROGRAMS, start=1):
            with self.subTest(program[-1]):
                started = self.start_program(program)
                said = started.communicate()[0]
                self.assertEqual(started.returncode, 0, said)
                service.fence(peer)
                self.assertEqual(service.count("net.Warning: " + LINE.encode().decode("latin-1")), number)

    def test_wire_sh_finds_its_answer_among_other_calls(self):
        self.service()
        stop, peer = threading.Event(), self.peer()

        def call():
            while not stop.wait(0.002):
                peer.call(b"Others do this")
        caller = threading.Thread(target=call)
        caller.start()
        said = self.start_program([os.path.join(namespace.FILES, "wire.sh")]).communicate()[0]
        stop.set()
        caller.join()
        self.assertRegex(said, r"^Ack \d+ 1 1 0\n$")

    def test_the_event_loop_sends_again_while_it_waits_for_input(self):
        loop = subprocess.Popen([os.path.join(namespace.FILES, "event_loop")], stdin=subprocess.PIPE, text=True)

        def say(text):
            loop.stdin.write(text)
            loop.stdin.flush()
        say("early\n")
        service = self.service()
        service.wait_for("net.Warning: early")
        service.fence(self.peer())  # by then the line's ack has been sent
        service.kill_child()
        say("one\ntwo\nno end")
        service.wait_for("net.Warning: two")
        loop.stdin.close()
        self.assertEqual(loop.wait(20), 0)
        self.assertEqual([text for text in service.texts() if text.startswith("net.")],
                         [f"net.Warning: {text}" for text in ("early", "one", "two", "no end")])

    def test_each_reports_that_no_service_runs(self):
        for program in [self.start_program(program) for program in PROGRAMS]:
            with self.subTest(program.args[-2]):
                self.assertNotEqual(program.communicate()[0], "")
                self.assertNotEqual(program.returncode, 0)


class Handler(ServiceTest):
    """The handler for Python's logging."""

    def logger(self, name="py", **options):
        handler = velk_logging.VelkHandler(**options)
        self.addCleanup(handler.close, 0)
        self.errors = []
        handler.handleError = self.errors.append
        log = logging.Logger(name)
        log.addHandler(handler)
        return log, handler

    @staticmethod
    def lines(service):
        return [text.partition(": ")[2] for text in service.texts() if text.startswith("py.Info: ")]

    def test_every_record_is_logged_when_the_child_is_killed(self):
        service = self.service()
        log, handler = self.logger()
        missing = []

        def say(name):
            for number in range(500):
                log.info("%s %d", name, number)
                if number % 5 == 0:
                    missing.extend(handler.flush(20))
        threads = [threading.Thread(target=say, args=(name,)) for name in "abc"]
        for thread in threads:
            thread.start()
        for kill in range(2):
            until(lambda: len(self.lines(service)) > 300 * (kill + 1), "more lines")
            service.kill_child()
        for thread in threads:
            thread.join()
        self.assertEqual((handler.flush(20), missing, self.errors), ([], [], []))
        lines = self.lines(service)
        for name in "abc":
            numbers = [int(line.split()[1]) for line in lines if line.startswith(name)]
            self.assertEqual(list(dict.fromkeys(numbers)), list(range(500)), name)
        self.assertLessEqual(len(lines), 1500 + 2 * velk_logging.ON_THE_WAY)

    def test_each_record_arrives_once_and_in_order_through_losses(self):
        service = self.service()
        path = LossyPath(ENTRANCE, ("127.0.0.1", PORT), seed=20251)
        self.addCleanup(path.close)
        log, handler = self.logger(port=ENTRANCE)
        lines = [f"line {number}" for number in range(200)]
        for line in lines:
            log.info(line)
        self.assertEqual(handler.flush(20), [])
        self.assertEqual(lines_of(service, "py"), lines)

    def test_unconfirmed_records_are_reported_and_retried(self):
        log, handler = self.logger(most=3)
        for number in range(5):
            log.info("line %d", number)
        self.assertEqual(len(self.errors), 2, "records that were not held")
        self.assertEqual(handler.flush(0.1), ["line 0", "line 1", "line 2"])
        service = self.service()
        self.assertEqual(handler.flush(20), [])
        self.assertEqual(self.lines(service), ["line 0", "line 1", "line 2"])
        self.assertEqual(handler.close(), [])
        log.info("after the end")
        self.assertEqual(len(self.errors), 3)

    def test_any_text_arrives(self):
        service = self.service()
        log, handler = self.logger()
        log.info("100%% `~\\ \0 \udcff\n\nthird")
        log.info("`" * 1500)
        log.info("%d", "no number")
        self.assertEqual((handler.flush(20), len(self.errors)), ([], 1))
        lines = self.lines(service)
        self.assertEqual(lines[:3], ["100%% `~\\ \\0 \\udcff", "", "third"])
        self.assertEqual("".join(lines[3:]), "`" * 1500)
        log, handler = self.logger("n" * 1400)
        log.info("no room")
        self.assertEqual(len(self.errors), 1)
