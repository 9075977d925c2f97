"""The call channel: who is let in, and which datagrams count."""
import hashlib
import struct
import time

from harness import ServiceTest, log_call

MAX_DATAGRAM = 1450


class Channel(ServiceTest):
    def setUp(self):
        super().setUp()
        self.running = self.service("debug")
        self.speaker = self.peer()

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

    def test_datagrams_of_1450_bytes_count_and_of_1451_do_not(self):
        listener = self.peer()
        overhead = 16 + len(log_call(1, b"test", b"\n"))
        for size in (MAX_DATAGRAM, MAX_DATAGRAM + 1, 9000, 65507):
            text = b"x" * (size - overhead)
            self.speaker.log(text + b"\n")
            self.running.fence(self.speaker)
            accepted = size <= MAX_DATAGRAM
            self.assertEqual(self.running.count("test.Info: " + text.decode()), accepted)
            heard = listener.heard()
            self.assertEqual([len(datagram) for datagram in heard[:-1]], [size] * accepted)
            self.assertEqual({datagram[:16] for datagram in heard}, {listener.cookie})
        self.assertEqual(self.speaker.heard(), [], "an echo")
