"""syslogctl as its user expects it: options anywhere, a log that can be followed, what is wrong and where."""
import subprocess

from test_syslogctl import DONE, USAGE, ToolTest


class CommandLine(ToolTest):
    def test_options_are_taken_wherever_they_are(self):
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

    def test_help_is_that_of_one_command(self):
        self.assertEqual(self.run_tool("help")[0], self.run_tool("--help")[0])
        for ways in (["help", "log"], ["log", "--help"], ["-h", "log", "x"]):
            said = self.run_tool(*ways)[0]
            self.assertTrue("--level" in said and "--json" not in said, said)
        self.run_tool("help", "nothing", code=USAGE)
