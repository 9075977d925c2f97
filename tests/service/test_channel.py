"""The call channel: who is let in, who hears what, and which datagrams count."""
import hashlib
import struct
import time

from harness import ServiceTest, log_call

MAX_DATAGRAM = 1450


def product(address):
    ip = struct.unpack(">I", bytes(map(int, address[0].split("."))))[0]
    return ip * address[1] % (1 << 32)


def address_of_same_product(address):
    """Another loopback address with a port such that address times port is the same in 32 bits."""
    for port in range(20001, 60001, 2):
        ip = product(address) * pow(port, -1, 1 << 32) % (1 << 32)
        if ip >> 24 == 127 and port != address[1]:
            return ".".join(map(str, struct.pack(">I", ip))), port
    raise AssertionError("no such address")


class Channel(ServiceTest):
    def setUp(self):
        super().setUp()
        self.running = self.service("debug")
        self.speaker = self.peer()

    def relayed(self, *listeners):
        """Sends a call and returns whether each listener hears it; nobody hears what he should not."""
        self.running.fence(self.speaker)
        for peer in (self.speaker, *listeners):
            peer.heard()
        self.speaker.call(b"Any thing")
        self.running.fence(self.speaker)
        self.assertEqual(self.speaker.heard(), [], "an echo")
        results = []
        for listener in listeners:
            heard = listener.heard()
            self.assertIn([datagram[16:] for datagram in heard][:1], [[], [b"Any thing"]])
            self.assertLessEqual({datagram[:16] for datagram in heard}, {listener.cookie})
            results.append(bool(heard))
        return results

    def test_handshake(self):
        before = int(time.time()) - 1  # the C library's time() may be some milliseconds behind
        stranger = self.peer(connect=False)
        stranger.send(b"CONN")
        nonce = stranger.receive()
        ip, port = stranger.name
        self.assertIn(nonce, [hashlib.md5(struct.pack("<I4BH", now, 1, 0, 0, 127, port)).digest()
                              for now in range(before, int(time.time()) + 1)])
        cookie = hashlib.md5(nonce + b"mosk").digest()
        self.running.fence(self.speaker)
        for line in (f"Trace: srv nonce: {nonce.hex(' ')}", f"Trace: cookie: {cookie.hex(' ')}",
                     f"Info: srv wrote 16 to 0x7f000001:{port}..."):
            self.assertEqual(self.running.count("Syslog." + line), 1, line)

    def test_only_connect_is_answered(self):
        stranger = self.peer(connect=False)
        self.running.fence(self.speaker)
        before = len(self.running.texts())
        for datagram in (b"conn", b"CON", b"CONN\0", b"CONN" * 4, b"CONN" * 5, b"", b"LogMsg 1 a b"):
            stranger.send(datagram)
        # What an admitted peer may do, a stranger may not, even with a cookie that is somebody's.
        stranger.send(self.speaker.cookie)
        stranger.send(self.speaker.cookie + log_call(1, b"test", b"stolen\n"))
        self.running.fence(self.speaker)
        self.assertEqual(stranger.heard(), [])
        self.assertEqual(self.running.texts()[before:], ["test.Info: ", "fence 2"])

    def test_admission_begins_with_the_cookie_and_ends_with_a_connect(self):
        known, bare, busy = self.peer(connect=False), self.peer(), self.peer(connect=False)
        known.connect()
        busy.connect()
        busy.call(b"Any thing")
        self.assertEqual(self.relayed(known, bare, busy), [False, True, True])
        known.send(known.cookie)
        old = busy.cookie
        busy.send(b"CONN")
        busy.cookie = hashlib.md5(busy.receive() + b"mosk").digest()
        self.assertEqual(self.relayed(known, bare, busy), [True, True, False])
        if busy.cookie != old:  # the same when that took less than a second
            busy.send(old)
            self.assertEqual(self.relayed(known, bare, busy), [True, True, False])
        busy.send(busy.cookie)
        self.assertEqual(self.relayed(known, bare, busy), [True, True, True])

    def test_wrong_cookie_is_logged_and_changes_nothing(self):
        listener = self.peer()
        wrong = bytes(range(0xF8, 0x108 - 8)) + bytes(8)
        listener.send(wrong)
        listener.send(wrong + log_call(1, b"test", b"forged\n"))
        self.assertEqual(self.relayed(listener), [True])
        joined = "\n".join(self.running.texts())
        self.assertNotIn("forged", joined)
        # The first line has no end of its own: the next one completes it.
        complaints = joined.split("Syslog.ERROR: Cookies do not match:")[1:]
        self.assertEqual(len(complaints), 2)
        for complaint in complaints:
            self.assertRegex(complaint,
                             rf"^\[.*\] Syslog\.Trace: expected cookie: {listener.cookie.hex(' ')}\n"
                             rf"Syslog\.Trace: received cookie: {wrong.hex(' ')}\n")

    def test_datagrams_of_1450_bytes_count_and_of_1451_do_not(self):
        listener = self.peer()
        overhead = 16 + len(log_call(1, b"test", b"\n"))
        for size in (MAX_DATAGRAM, MAX_DATAGRAM + 1, 9000, 65507):
            with self.subTest(size=size):
                text = b"%d " % size
                text += b"x" * (size - overhead - len(text))
                self.speaker.log(text + b"\n")
                self.running.fence(self.speaker)
                heard = listener.heard()
                accepted = size <= MAX_DATAGRAM
                self.assertEqual(self.running.count("test.Info: " + text.decode()), accepted)
                self.assertEqual(len(heard), 1 + accepted)
                self.assertEqual(len(heard[0]) == size, accepted)

    def test_endpoints_of_one_product_are_one_peer(self):
        first = self.peer()
        second = self.peer(*address_of_same_product(first.name), connect=False)
        self.assertNotEqual(first.name, second.name)
        first_address_cookie = first.cookie
        second.connect()
        first.log(b"by the first\n")
        second.log(b"by the second\n")
        self.running.fence(self.speaker)
        self.assertEqual(self.running.count("test.Info: by the first"), 0)
        self.assertEqual(self.running.count("test.Info: by the second"), 1)
        self.assertNotEqual(first_address_cookie, second.cookie)
        # One record: relays go to where it was made, with the cookie that was made last.
        first.cookie = second.cookie
        self.assertEqual(self.relayed(first, second), [True, False])
