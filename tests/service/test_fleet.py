"""Checks with real collectors what docs/collectors.md and docs/fleet.md promise."""
import glob
import http.server
import json
import os
import re
import socket
import subprocess
import sys
import threading
import time
import unittest

import collectors
import namespace
from harness import SYSLOG_ON, SYSLOG_PORT, WITH_TOOL, ServiceTest, until

PROGRAMS = {"rsyslog": ".._.._up", "syslog-ng": "______up"}  # program to its file name for module "../../up"
FILES_EACH = 2
DEVICES = [f"127.1.{i // 250}.{1 + i % 250}" for i in range(min(1000, collectors.MOST_FILES // 2 // FILES_EACH))]
FILES = "/tmp/devices"


def lines_of(path):
    """Returns the objects of the complete lines in a file of JSON lines."""
    try:
        with open(path) as lines:
            return [json.loads(line) for line in lines if line.endswith("\n")]
    except FileNotFoundError:
        return []


@unittest.skipUnless(os.path.isdir(collectors.FOLDER), "rsyslog and syslog-ng are not unpacked (tools/collectors.sh)")
class FleetTest(ServiceTest):
    running = None

    def collector(self, *names, **options):
        """Starts a collector, after stopping an earlier one and deleting all files, and waits until it listens."""
        if self.running is not None:
            self.running.stop()
            self.clear_files()
        self.running = collectors.Collector(*names, **options)
        self.addCleanup(self.running.stop)
        self.until_listening(options.get("host", collectors.HOST))
        return self.running

    @staticmethod
    def until_listening(host=collectors.HOST):
        bound = ": %08X:0202" % int.from_bytes(socket.inet_aton(host), sys.byteorder)  # as the kernel writes it

        def listens():
            with open("/proc/net/udp") as sockets:
                return bound in sockets.read()
        until(listens, "a socket at the syslog port")

    def peer_of_a_service(self, *arguments):
        self.configure(SYSLOG_ON % collectors.HOST)
        self.service(*arguments)
        return self.peer()

    @staticmethod
    def say(device, *texts, priority=b"<134>", port=SYSLOG_PORT, to=collectors.HOST):
        """Sends datagrams as a device's service does."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as own:
            own.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            own.bind((device, port))
            for text in texts:
                own.sendto(priority + text + b"\n", (to, SYSLOG_PORT))


class Fleet(FleetTest):
    def test_every_field_arrives(self):
        for program in PROGRAMS:
            self.collector(program)
            peer = self.peer_of_a_service("debug")
            texts = ["trace", "link \"up\" \\ 100 %", "tab\there: Info: not a head", "größer"]
            for kind, text in enumerate(texts):
                peer.log(text.encode() + b"\n", kind=kind, module=b"my net.eth0")
            arrived = lambda: [line for line in lines_of("/tmp/devices.json") if line["module"] == "my net.eth0"]
            until(lambda: len(arrived()) == 4, "all four lines")
            found = arrived()
            self.assertEqual([line["severity"] for line in found], ["debug", "info", "warning", "err"])
            self.assertEqual([line["text"].replace("#011", "\t") for line in found], texts)
            self.assertEqual({(line["host"], line["facility"]) for line in found}, {("127.0.0.1", "local0")})
            self.assertRegex(found[0]["received"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d")

    def test_a_collector_on_the_same_machine_keeps_its_port(self):
        for program in PROGRAMS:
            self.collector(program, host="0.0.0.0")
            self.configure(SYSLOG_ON % "127.0.0.1")
            self.service()
            self.peer().log(b"from the service\n", module=b"net")
            self.say("127.1.0.1", b"net.Info: from a device", port=0, to="127.0.0.1")
            texts = lambda: {line["text"] for line in lines_of("/tmp/devices.json") if line["module"] == "net"}
            until(lambda: texts() == {"from the service", "from a device"}, texts)

    def test_drops_only_successful_handshakes(self):
        kept = [b"net.Info: srv wrote 16 to 0x7f000001:1...", b"Syslog.Info: srv wrote -1 to 0x7f000001:2...",
                b"Syslog.Warning: last"]
        dropped = b"Syslog.Info: srv wrote 16 to 0x7f000001:3..."
        early = b"Nov 25 02:14:10 box boot: [00:00:01.002] " + dropped

        def lines(device):
            paths = ["/tmp/devices.json", *glob.glob(f"{FILES}/{device}/*.json")]
            return [line for path in paths for line in lines_of(path) if line["host"] == device]

        for program in PROGRAMS:
            for names in ([program], [f"{program}-fleet", f"{program}-to-files"]):
                self.collector(*names)
                self.say(DEVICES[0], dropped, *([early] if len(names) == 2 else []), *kept)
                found = lambda: {f"{line['module']}.{line['text']}" for line in lines(DEVICES[0])}
                until(lambda: "Syslog.last" in found(), found)
                self.assertEqual(found(), {line.replace(b"Info: ", b"").replace(b"Warning: ", b"").decode()
                                           for line in kept}, names)
                self.peer_of_a_service().log(b"from a service\n", module=b"net")  # after a real handshake
                until(lambda: any(line["module"] == "net" for line in lines("127.0.0.1")), "its line")
                self.assertEqual([line for line in lines("127.0.0.1") if "srv wrote" in line["text"]], [], names)

    def test_each_device_and_module_gets_its_own_file(self):
        def at(device, module):
            lines = lines_of(f"{FILES}/{device}/{module}.json")
            return [(line["severity"], line["module"], line["text"]) for line in lines]

        for program, up in PROGRAMS.items():
            self.collector(f"{program}-fleet", f"{program}-to-files")
            peer = self.peer_of_a_service()
            peer.log(b"from a service\n", kind=2, module=b"net")
            for number, device in enumerate(DEVICES):
                self.say(device, b"net.Info: line %d" % number, b"app x.Info: one", b"app x.Info: two")
            self.say(DEVICES[0], b"../../up.Trace: and away", b"no head: at all", priority=b"<131>")
            self.say(DEVICES[0], b"Nov 25 02:14:10 box boot: [00:00:01.002] kernel.Warning: early", priority=b"<132>")
            self.say(DEVICES[0], b"Nov 25 02:14:10 box boot: [00:00:01.003] kernel.Trace: deep", priority=b"<131>")
            until(lambda: len(at(DEVICES[0], "kernel")) == 2 and at("127.0.0.1", "net"), "the last lines")
            for number, device in enumerate(DEVICES):
                self.assertEqual(until(lambda: at(device, "net"), device), [("info", "net", f"line {number}")])
                self.assertEqual(at(device, "app x"), [("info", "app x", "one"), ("info", "app x", "two")])
            self.assertEqual(at("127.0.0.1", "net"), [("warning", "net", "from a service")])
            self.assertEqual(at(DEVICES[0], "kernel"), [("warning", "kernel", "[00:00:01.002] early"),
                                                        ("debug", "kernel", "[00:00:01.003] deep")])
            self.assertEqual(at(DEVICES[0], "other")[0][2], "no head: at all")
            self.assertEqual(at(DEVICES[0], up), [("debug", "../../up", "and away")])


class Loki(http.server.BaseHTTPRequestHandler):
    """Accepts every request, and appends its path and body to the server's list."""

    def do_POST(self):
        self.server.posted.append((self.path, self.rfile.read(int(self.headers["Content-Length"])).decode()))
        self.send_response(204)
        self.end_headers()

    def log_message(self, *_):
        pass


class ToLoki(FleetTest):
    SAID = [("127.1.0.1", "net", 'a "quoted" \\ text'), ("127.1.0.2", "app", "größer"), ("127.1.0.3", "app", "")]

    def setUp(self):
        super().setUp()
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 3100), Loki)
        self.posted = server.posted = []
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.collector("syslog-ng-fleet", "syslog-ng-to-loki")

    def test_every_label_arrives(self):
        def entries():
            for path, body in self.posted:
                self.assertEqual(path, "/loki/api/v1/push")
                for stream in json.loads(body)["streams"]:
                    labels = stream["stream"]
                    self.assertEqual(labels["severity"], "warning")
                    for nanoseconds, text in stream["values"]:
                        self.assertLess(abs(int(nanoseconds) / 1e9 - time.time()), 60)
                        yield labels["host"], labels["module"], text

        for device, module, text in self.SAID:
            self.say(device, f"{module}.Warning: {text}".encode(), priority=b"<132>")
        until(lambda: sorted(entries()) == self.SAID, lambda: list(entries()))

    def test_the_dashboard_queries_match_the_labels(self):
        self.say(DEVICES[0], b"net.Error: no carrier", priority=b"<131>")
        until(lambda: self.posted, "a line at Loki")
        labels = json.loads(self.posted[0][1])["streams"][0]["stream"]
        with open(f"{collectors.CONFIGURATIONS}/grafana-dashboard.json") as file:
            dashboard = json.load(file)
        variables = [variable["query"]["label"] for variable in dashboard["templating"]["list"]
                     if variable["type"] == "query"]
        targets = [target for panel in dashboard["panels"] for target in panel["targets"]]
        for target in targets:
            matchers = re.findall(r'(\w+)=(~?)"([^"]*)"', target["expr"])
            self.assertEqual(len(matchers), target["expr"].count("="), target["expr"])
            for label, is_pattern, value in matchers:
                value = value.replace("$host", ".+")
                self.assertRegex(labels[label], f"^({value if is_pattern else re.escape(value)})$")
            grouped = re.findall(r"by \((\w+)\)", target["expr"])
            named = re.findall(r"{{(\w+)}}", target.get("legendFormat", ""))
            self.assertLessEqual({*variables, *grouped, *named}, set(labels))
            self.assertNotIn("|", target["expr"], "lines are plain text, so there is nothing to parse")
        self.assertEqual(len(targets), 3)


@unittest.skipUnless(os.path.exists("/etc/hosts"), "there is no /etc/hosts to put the name in")
class Late(FleetTest):
    def test_boot_lines_reach_a_collector_whose_name_resolves_late(self):
        self.collector("rsyslog-fleet", "rsyslog-to-files")
        self.configure(SYSLOG_ON % "collector.test")
        service = self.service()
        peer = self.peer()
        early = [("info", "app", "one"), ("warning", "my net", "no link: yet"), ("err", "app", "Info: three")]
        for kind, (_, module, text) in enumerate(early, 1):
            peer.log(text.encode() + b"\n", kind=kind, module=module.encode())
        service.fence(peer)

        environment = {**WITH_TOOL, "MARKER": "/tmp/marker"}
        hook = subprocess.Popen([f"{namespace.FILES}/network-up.sh", "collector.test"], env=environment,
                                stderr=subprocess.DEVNULL)
        service.wait_for("Syslog.ERROR: Cannot connect to syslog server at UDP collector.test:514", count=2)
        with open("/tmp/hosts", "w") as hosts:
            hosts.write(f"{collectors.HOST} collector.test\n")
        namespace.mount("/tmp/hosts", "/etc/hosts", None, namespace.MS_BIND)
        self.addCleanup(namespace.unmount, "/etc/hosts")
        self.assertEqual(hook.wait(20), 0)
        peer.log(b"late\n", module=b"app")
        subprocess.run(hook.args, env=environment, check=True)  # as when the network returns: must send nothing twice

        def lines():
            return [line for name in ("app", "my net") for line in lines_of(f"{FILES}/127.0.0.1/{name}.json")]
        until(lambda: len(lines()) >= 4, lambda: str(lines()))
        self.assertEqual([line["text"] for line in lines() if not line["text"].startswith("[")], ["late"])
        found = [(line["severity"], line["module"], line["text"].rpartition("] ")[2]) for line in lines()]
        self.assertEqual(sorted(found), sorted([*early, ("info", "app", "late")]))
        self.assertTrue(os.path.exists(f"{FILES}/127.0.0.1/Syslog.json"))
