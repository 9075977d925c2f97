"""Runs the real rsyslog and syslog-ng, unpacked by tools/collectors.sh, with the configurations in examples/."""
import os
import resource
import subprocess

import namespace

FOLDER = os.path.join(namespace.FILES, "collectors")
CONFIGURATIONS = os.path.join(namespace.FILES, "examples", "collectors")
HOST = "127.0.0.2"  # datagrams to it reach the collector, not the service's socket on 0.0.0.0:514
MOST_FILES = resource.getrlimit(resource.RLIMIT_NOFILE)[1]


def configuration(*names, host=HOST, **changes):
    """Returns the joined text of the configurations, changed to keep files in /tmp and to listen only at host.

    changes: further replacements, old word to new. The old words must exist.
    """
    text = ""
    for name in names:
        with open(f"{CONFIGURATIONS}/{name}.conf") as file:
            text += file.read()
    text = text.replace("disk-buffer(", 'disk-buffer(dir("/tmp/own") ')
    text = text.replace("/var/log/", "/tmp/").replace("/var/spool/rsyslog", "/tmp/own")
    text = text.replace('port="514"', f'address="{host}" port="514"').replace("port(514)", f'ip("{host}") port(514)')
    for old, new in changes.items():
        assert old in text, f"{names} have no {old}"
        text = text.replace(old, new)
    return text


class Collector:
    """A collector that runs until stop(). names: its configurations. The first decides which program runs."""

    def __init__(self, *names, files="/tmp/own", **options):
        os.makedirs(files, exist_ok=True)
        self.errors = f"{files}/errors"
        with open(f"{files}/conf", "w") as file:
            file.write(configuration(*names, **options))
        if names[0].startswith("rsyslog"):
            self.command = [f"{FOLDER}/rsyslogd", "-n", "-i", f"{files}/pid", "-f", f"{files}/conf"]
        else:
            self.command = [f"{FOLDER}/syslog-ng", "-F", "--no-caps", "-R", f"{files}/persist", "-p", f"{files}/pid",
                            "-c", f"{files}/control", "-f", f"{files}/conf"]
        self.start()

    def start(self):
        with open(self.errors, "a") as errors:
            self.process = subprocess.Popen(self.command, stdout=errors, stderr=errors, preexec_fn=lambda:
                                            resource.setrlimit(resource.RLIMIT_NOFILE, (MOST_FILES, MOST_FILES)))

    def stop(self):
        self.process.terminate()
        self.process.wait()
