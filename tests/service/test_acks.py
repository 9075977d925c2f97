"""Acknowledged calls: WithAck CLIENT NUMBER [NAME ARGUMENT...] is answered by "Ack CLIENT LAST NUMBER REFUSED"."""
from harness import ServiceTest, log_call

UNPARSABLE = b"LogMsg 1 test `open"


class Acks(ServiceTest):
    def setUp(self):
        super().setUp()
        self.running = self.service("debug")
        self.asker = self.peer()

    def ask(self, client, number, call=b"", asker=None):
        (asker or self.asker).call(b"WithAck %s %d %s" % (client, number, call))

    def ack(self, asker=None):
        """Returns the next ack as "CLIENT LAST NUMBER REFUSED". Fails on any other datagram."""
        asker = asker or self.asker
        datagram = asker.receive()
        self.assertIsNotNone(datagram, "no answer")
        self.assertEqual(datagram[:20], asker.cookie + b"Ack ")
        return datagram[20:].decode()

    def answers(self, *asked):
        """Sends each (client, number, call) after the ack of the previous one. Returns the acks."""
        answers = []
        for arguments in asked:
            self.ask(*arguments)
            answers.append(self.ack())
        return answers

    def lines(self):
        return [text for text in self.running.texts() if text.startswith("test.Info: ")]

    def test_each_number_is_run_once_and_in_order(self):
        line = lambda text: log_call(1, b"test", text + b"\n")
        self.assertEqual(self.answers((b"c", 1, line(b"one")), (b"c", 2, line(b"two")),
                                      (b"c", 2, line(b"two again")), (b"c", 1, line(b"one again")),
                                      (b"c", 0, line(b"none")), (b"c", 4, line(b"a gap")), (b"c", 3), (b"C", 3),
                                      (b"C", 0), (b"C", 1, b"logmsg 1 test 'another client\n'"),
                                      (b"c", 4, line(b"four"))),
                         ["c 1 1 0", "c 2 2 0", "c 2 2 0", "c 2 1 0", "c 2 0 0", "c 2 4 0", "c 3 3 0", "C 0 3 0",
                          "C 0 0 0", "C 1 1 0", "c 4 4 0"])
        # Calls without a number keep their place between those with one.
        for number in range(5, 25):
            self.ask(b"c", number, line(b"%d" % number))
            self.asker.call(line(b"after %d" % number))
        self.assertEqual([self.ack() for _ in range(20)], [f"c {number} {number} 0" for number in range(5, 25)])
        self.running.fence(self.asker)
        self.assertEqual(self.lines(), [f"test.Info: {text}" for text in ("one", "two", "another client", "four")]
                         + [f"test.Info: {text}{number}" for number in range(5, 25) for text in ("", "after ")]
                         + ["test.Info: "])
        self.assertEqual([text for text in self.running.texts() if "Ack" in text], [], "a line about an answer")
        self.running.kill_child()
        self.running.wait_for("Syslog.Info: Child process...", 2)
        self.asker = self.peer()
        self.assertEqual(self.answers((b"c", 25), (b"c", 1), (b"c", 2)), ["c 0 25 0", "c 1 1 0", "c 2 2 0"])

    def test_refused_calls_use_up_their_numbers_and_are_counted(self):
        self.assertEqual(self.answers((b"c", 1, b"Nonsense x"), (b"c", 2, b"LogMsg 1 test"),
                                      (b"c", 3, b"WithAck c 4 SyncVar"), (b"c", 3, b"Nonsense"), (b"c", 4, b"''"),
                                      (b"c", 5, UNPARSABLE), (b"c", 5, UNPARSABLE), (b"c", 7, UNPARSABLE),
                                      (b"c", 6, b"x " * 40), (b"c", 7, b"SyncVar"), (b"d", 2, UNPARSABLE),
                                      (b"d", 1, b"`open"), (b"d", 2, b"SyncLog `open")),
                         ["c 1 1 1", "c 2 2 2", "c 3 3 3", "c 3 3 3", "c 4 4 4", "c 5 5 5", "c 5 5 5", "c 5 7 5",
                          "c 6 6 6", "c 7 7 6", "d 0 2 0", "d 1 1 1", "d 2 2 2"])
        ip, port = self.asker.name
        said = [text.partition(" -> 0x")[0] for text in self.running.texts() if "Error(" in text]
        self.assertEqual(said[:6], [f"Syslog.Trace: ERROR: OnDispatchError(WithAck {ip}:{port},c {call})" for call in (
            "1 Nonsense x", "2 LogMsg 1 test", "3 WithAck c 4 SyncVar", "4 ''")] + [
            f"Syslog.ERROR: OnParseError(WithAck {ip}:{port},c 5 LogMsg 1 test `open)"] * 2)

    def test_answers_only_a_valid_client_and_number(self):
        longest, most_digits = b"x1" * 16, b"0" * 17 + b"1"
        calls = [b"", b"`open", b"c", b"c `1", b"c `1~`", b"`c"]
        for head in (b"c-d 1", b"\xe4 1", b"'' 1", b"'a b' 1", longest + b"x 1", b"c +1", b"c -1", b"c ''", b"c one",
                     b"c 1x", b"c 0x1", b"c ' 1'", b"c " + most_digits + b"0"):
            calls += [head, head + b" LogMsg 1 test 'never\n'", head + b" LogMsg 1 test `open"]
        for call in calls:
            self.asker.call(b"WithAck " + call)
        self.asker.call(b"wITHaCK  '%s'\t%s LogMsg 1 test 'at last\n'" % (longest, most_digits))
        self.assertEqual(self.ack(), f"{longest.decode()} 1 1 0")
        self.assertEqual(self.lines(), ["test.Info: at last"])

    def test_only_the_asker_is_answered(self):
        listener, stranger = self.peer(), self.peer(connect=False)
        strangers_first_socket, stolen = stranger.socket, b"LogMsg 1 test 'stolen\n'"
        stranger.cookie = self.asker.cookie
        self.ask(b"c", 1, stolen, asker=stranger)
        stranger.socket = None
        self.assertTrue(stranger.connect())
        stranger.cookie = bytes(16)
        self.ask(b"c", 1, stolen, asker=stranger)
        self.assertEqual(self.answers((b"c", 1), (b"c", 2)), ["c 1 1 0", "c 2 2 0"])
        self.assertEqual([listener.receive() for _ in range(2)],
                         [listener.cookie + b"WithAck c %d " % number for number in (1, 2)])
        # The same client from another socket: that socket gets the ack.
        self.ask(b"c", 3, asker=listener)
        self.assertEqual(self.ack(listener), "c 3 3 0")
        self.assertEqual(self.asker.heard(), [self.asker.cookie + b"WithAck c 3 "])
        self.assertEqual(stranger.heard(), [])
        stranger.close()
        stranger.socket = strangers_first_socket
        self.assertEqual(stranger.heard(), [])
        self.assertEqual(self.lines(), [])

    def test_calls_that_cannot_be_parsed_do_not_delay_answers(self):
        other = self.peer()
        number = 0
        for count in (6, 40) * 5:
            for _ in range(count):
                other.call(UNPARSABLE)
            for call in (UNPARSABLE, b"", UNPARSABLE):
                number += 1
                self.ask(b"c", number, call)
            self.assertEqual([self.asker.receive()[16:] for _ in range(count)], [UNPARSABLE] * count)
            refused = 2 * number // 3
            self.assertEqual([self.ack() for _ in range(3)], [f"c {run} {run} {refusals}" for run, refusals in (
                (number - 2, refused - 1), (number - 1, refused - 1), (number, refused))])

    def test_forgets_the_least_recent_client(self):
        self.assertEqual(self.answers((b"first", 1), (b"second", 1), (b"first", 7)),
                         ["first 1 1 0", "second 1 1 0", "first 1 7 0"])
        names = [b"client%d" % number for number in range(255)]
        self.assertEqual(self.answers(*[(name, 1) for name in names]), [f"{name.decode()} 1 1 0" for name in names])
        self.assertEqual(self.answers((b"second", 2), (b"first", 2), (b"second", 1), (b"client0", 2),
                                      (b"client1", 2)),
                         ["second 0 2 0", "first 2 2 0", "second 1 1 0", "client0 0 2 0", "client1 2 2 0"])
