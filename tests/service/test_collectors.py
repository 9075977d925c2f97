"""The configurations that we give to users, under the real collectors, fed by the real service."""
import json
import os
import unittest

import collectors
from harness import SYSLOG_ON, ServiceTest, until



@unittest.skipUnless(os.path.isdir(collectors.FOLDER), "rsyslog and syslog-ng are not unpacked (tools/collectors.sh)")
class Collectors(ServiceTest):
    def collector(self, name):
        self.addCleanup(collectors.Collector(name).stop)

    def check_fields(self):
        self.configure(SYSLOG_ON % collectors.HOST)
        service = self.service("debug")
        peer = self.peer()

        def objects():
            # Asked for again until it comes: the collector may not listen yet.
            peer.log(b"up?\n", module=b"probe")
            try:
                with open("/tmp/devices.json") as lines:
                    return [json.loads(line) for line in lines if line.endswith("\n")]
            except FileNotFoundError:
                return []
        until(lambda: any(found["module"] == "probe" for found in objects()), "the collector's first line")
        texts = ["trace", "link \"up\" \\ 100 %", "tab\there: Info: not a head", "größer"]
        for kind, text in enumerate(texts):
            peer.log(text.encode() + b"\n", kind=kind, module=b"my net.eth0")
        service.fence(peer)
        found = until(lambda: len(mine := [line for line in objects() if line["module"] == "my net.eth0"]) == 4 and mine,
                      "all four lines")
        self.assertEqual([line["severity"] for line in found], ["debug", "info", "warning", "err"])
        self.assertEqual([line["text"].replace("#011", "\t") for line in found], texts)
        self.assertEqual({(line["host"], line["facility"]) for line in found}, {("127.0.0.1", "local0")})
        self.assertRegex(found[0]["received"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d")

    def test_rsyslog_gets_every_field(self):
        self.collector("rsyslog")
        self.check_fields()

    def test_syslog_ng_gets_every_field(self):
        self.collector("syslog-ng")
        self.check_fields()
