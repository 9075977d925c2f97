"""The call channel: who is let in, and which datagrams count."""
import hashlib
import struct
import time

from harness import ServiceTest, log_call

MAX_DATAGRAM = 1450


class Channel(ServiceTest):
    def test_the_handshake_is_that_of_the_protocol(self):
        service, speaker = self.service("debug"), self.peer()
        before = int(time.time()) - 1  # the C library's time() may be some milliseconds behind
        stranger = self.peer(connect=False)
        stranger.send(b"CONN")
        nonce = stranger.receive()
        ip, port = stranger.name
        self.assertIn(nonce, [hashlib.md5(struct.pack("<I4BH", now, 1, 0, 0, 127, port)).digest()
                              for now in range(before, int(time.time()) + 1)])
        service.fence(speaker)
        self.assertEqual(service.count(f"Syslog.Info: srv wrote 16 to 0x7f000001:{port}..."), 1)

    def test_datagrams_of_1450_bytes_count_and_of_1451_do_not(self):
        service, speaker, listener = self.service(), self.peer(), self.peer()
        overhead = 16 + len(log_call(1, b"test", b"\n"))
        for size in (MAX_DATAGRAM, MAX_DATAGRAM + 1, 65507):
            text = b"x" * (size - overhead)
            speaker.log(text + b"\n")
            service.fence(speaker)
            accepted = size <= MAX_DATAGRAM
            self.assertEqual(service.count("test.Info: " + text.decode()), accepted)
            self.assertEqual([len(datagram) for datagram in listener.heard()[:-1]], [size] * accepted)
