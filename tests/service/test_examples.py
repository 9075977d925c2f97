"""The programs that people copy from."""
import os
import subprocess
import sys
import threading

import namespace
from harness import WITH_TOOL, ServiceTest

PROGRAMS = [[sys.executable, os.path.join(namespace.FILES, "peer.py")],
            *([os.path.join(namespace.FILES, name)] for name in ("log_c", "log_cpp", "log.sh", "wire.sh"))]
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

    def test_the_shell_shows_the_answer_among_what_others_call(self):
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

    def test_the_peer_says_that_its_password_is_wrong(self):
        self.service()
        run = subprocess.run([*PROGRAMS[0], LINE, "other"], capture_output=True, text=True)
        self.assertIn("password", run.stderr)
        self.assertEqual(run.returncode, 1)

    def test_each_says_that_nobody_is_there(self):
        for program in [self.start_program(program) for program in PROGRAMS]:
            with self.subTest(program.args[-2]):
                self.assertNotEqual(program.communicate()[0], "")
                self.assertNotEqual(program.returncode, 0)
