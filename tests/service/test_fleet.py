"""Many devices, one place to look: what docs/fleet.md promises, with the real collectors."""
import ctypes
import glob
import http.server
import json
import os
import socket
import subprocess
import threading
import time
import unittest

import collectors
from harness import SYSLOG_ON, SYSLOG_PORT, ServiceTest, until

DEVICES = [f"127.1.{i // 250}.{1 + i % 250}" for i in range(1000)]
FILES = "/tmp/devices"


def lines_of(path):
    """The objects of a file of JSON lines, as far as it is written."""
    try:
        with open(path) as lines:
            return [json.loads(line) for line in lines if line.endswith("\n")]
    except FileNotFoundError:
        return []


class FleetTest(ServiceTest):
    def collector(self, *names, probe=True, **options):
        """One that listens: asked until it answers with a file, but where its lines go elsewhere."""
        collector = collectors.Collector(*names, **options)
        self.addCleanup(collector.stop)
        if probe:
            until(lambda: self.say("127.0.0.1", b"probe.Info: up?") or os.path.exists(f"{FILES}/127.0.0.1/probe.json"),
                  "the collector's first line")
        return collector

    @staticmethod
    def say(device, *texts, priority=b"<134>"):
        """Sends what the service of a device would send."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
            own.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            own.bind((device, SYSLOG_PORT))
            for text in texts:
                own.sendto(priority + text + b"\n", (collectors.HOST, SYSLOG_PORT))


@unittest.skipUnless(os.path.isdir(collectors.FOLDER), "rsyslog and syslog-ng are not unpacked (tools/collectors.sh)")
class Fleet(FleetTest):
    def check_thousand_devices(self, program, up):
        self.collector(f"{program}-fleet", f"{program}-to-files")
        self.configure(SYSLOG_ON % collectors.HOST)
        service = self.service()
        peer = self.peer()
        peer.log(b"from a service\n", kind=2, module=b"net")
        for number, device in enumerate(DEVICES):
            self.say(device, b"net.Info: line %d" % number, b"app x.Info: one", b"app x.Info: two")
        self.say(DEVICES[0], b"../../up.Trace: and away", b"no head: at all", priority=b"<131>")
        self.say(DEVICES[0], b"Nov 25 02:14:10 box boot: [00:00:01.002] kernel.Warning: early", priority=b"<132>")

        def at(device, module):
            return [(line["severity"], line["module"], line["text"]) for line in lines_of(f"{FILES}/{device}/{module}.json")]
        until(lambda: at(DEVICES[0], "kernel") and at("127.0.0.1", "net"), "the last lines")
        service.fence(peer)
        for number, device in enumerate(DEVICES):
            self.assertEqual(until(lambda: at(device, "net"), device), [("info", "net", f"line {number}")])
            self.assertEqual(at(device, "app x"), [("info", "app x", "one"), ("info", "app x", "two")])
        self.assertEqual(at("127.0.0.1", "net"), [("warning", "net", "from a service")])
        self.assertEqual(at(DEVICES[0], "kernel"), [("warning", "kernel", "[00:00:01.002] early")])
        self.assertEqual(at(DEVICES[0], "other")[0][2], "no head: at all")
        self.assertEqual(at(DEVICES[0], up), [("debug", "../../up", "and away")])

    def test_rsyslog_splits_a_thousand_devices(self):
        self.check_thousand_devices("rsyslog", ".._.._up")

    def test_syslog_ng_splits_a_thousand_devices(self):
        self.check_thousand_devices("syslog-ng", "______up")
