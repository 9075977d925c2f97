"""Datagrams that no one sends in good faith."""
import random

from harness import ServiceTest

WORDS = [b"LogMsg", b"SetVar", b"SyncVar", b"SyncLog", b"WithAck", b"logmsg", b"SYNCVAR", b"0", b"1", b"2", b"3",
         b"-9223372036854775809", b"184467440737095516160", b"1e999", b"%s%n%1000000d", b"=", b"\xff",
         b"remotelog_type", b"'SysLog server'", b"`tick`", b'"double"', b"'a~'b'", b"`open", b"'~", b"''",
         b"\0", b"[]", b"\n", b"\r\t\v\f", b"~~~~", b" " * 40, b"x" * 300, b"a " * 31, b"a " * 32, b"a " * 33]


class Hostile(ServiceTest):
    def setUp(self):
        super().setUp()
        self.random = random.Random(20251)

    def noise(self):
        length = self.random.choice([self.random.randrange(1501), self.random.randrange(20), 9000, 65507])
        return self.random.randbytes(length)

    def almost_a_call(self):
        words = self.random.choices(WORDS, k=self.random.randrange(1, 8))
        if self.random.random() < 0.5:
            words[0] = self.random.choice(WORDS[:5])
        call = bytearray(self.random.choice([b" ", b"", b"  "]).join(words))
        for _ in range(self.random.randrange(3)):
            call[self.random.randrange(len(call))] = self.random.randrange(256)
        return bytes(call[:self.random.choice([len(call), 1434, 1435])])

    def test_thousands_of_garbled_datagrams_do_not_end_the_child(self):
        for make in (self.noise, self.almost_a_call):
            with self.subTest(make.__name__):
                service = self.service("debug")
                child = service.child()
                honest, *senders = [self.peer() for _ in range(4)]
                for _ in range(100):
                    for _ in range(40):  # the socket's buffer holds only so much
                        sender = self.random.choice(senders)
                        cookie = sender.cookie if self.random.random() < 0.9 else b""
                        sender.send(cookie + make()[:65507 - 16])
                    service.fence(honest, insist=True)
                    for peer in (honest, *senders):
                        peer.heard()
                self.peer().log(b"\nstill here\n")
                service.fence(honest, insist=True)
                self.assertEqual(honest.receive(), honest.cookie + b"LogMsg 1 `test` `\nstill here\n`")
                self.assertEqual(service.count("still here"), 1)
                self.assertEqual(service.child(), child)
