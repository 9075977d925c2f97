"""Datagrams that nobody sends in good faith."""
import random
import socket

from harness import PORT, ServiceTest

WORDS = [b"LogMsg", b"SetVar", b"SyncVar", b"SyncLog", b"logmsg", b"SYNCVAR", b"0", b"1", b"2", b"3",
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
            words[0] = self.random.choice(WORDS[:4])
        call = bytearray(self.random.choice([b" ", b"", b"  "]).join(words))
        for _ in range(self.random.randrange(3)):
            call[self.random.randrange(len(call))] = self.random.randrange(256)
        return bytes(call[:self.random.choice([len(call), 1434, 1435])])

    def serve_through(self, service, attack):
        """Whatever an attack does between its steps, the same child has to serve honest peers."""
        child = service.child()
        honest, other = self.peer(), self.peer()
        for _ in attack:
            service.fence(honest, insist=True)
            honest.heard()
        other.log(b"\nstill here\n")
        service.fence(honest, insist=True)
        self.assertEqual(honest.receive(), honest.cookie + b"LogMsg 1 `test` `\nstill here\n`")
        self.assertEqual(service.count("still here"), 1)
        self.assertEqual(service.child(), child)

    def test_thousands_of_garbled_datagrams(self):
        def attack(make):
            for _ in range(100):
                for _ in range(40):  # the socket's buffer holds only so much
                    sender = self.random.choice(senders)
                    sender.send((sender.cookie if self.random.random() < 0.9 else b"") + make())
                yield
                for sender in senders:
                    sender.heard()

        for make in (self.noise, self.almost_a_call):
            with self.subTest(make.__name__):
                service = self.service("debug")
                senders = [self.peer() for _ in range(3)]
                self.serve_through(service, attack(lambda: make()[:65507 - 16]))

    def test_connects_from_everywhere(self):
        def attack():
            for number in range(3000):
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
                    stranger.bind((f"127.9.{number >> 8}.{number & 255}", 20000 + number % 7))
                    stranger.sendto(b"CONN", ("127.0.0.1", PORT))
                if number % 100 == 0:
                    yield

        service = self.service()
        self.serve_through(service, attack())
        self.assertGreater(sum("Syslog.Info: srv wrote" in text for text in service.texts()), 2900)
