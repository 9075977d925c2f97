#!/usr/bin/env python3
"""Writes one line into the log service's log, and ends when it is there: python3 peer.py "link down"

Shows all that a peer has to do; the protocol is described in docs/protocol.md.
"""
import argparse
import hashlib
import os
import secrets
import socket
import sys
import time

MAX_CALL = 1450 - 16  # a datagram less the cookie, in bytes
TRIES = 4
WAIT = 1.0  # seconds for a nonce
ANSWER_WAITS = 0.2, 0.5, 1.0  # seconds for an answer; then the call is sent again, or another try made
# Local ports to choose from. The service remembers every port that it ever heard of, so a program that is run often
# must not use a new one each time.
PORTS = range(11101, 11133)


def quote(text):
    """One argument in back-quotes; a tilde goes before every tilde and back-quote within."""
    return b"`" + text.replace(b"~", b"~~").replace(b"`", b"~`") + b"`"


class Peer:
    """A socket that the service knows. Raises OSError when no nonce comes."""

    def __init__(self, service, password):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for port in PORTS:
            try:
                self.socket.bind(("", port))
                break
            except OSError:
                pass  # taken
        self.socket.connect(service)
        self.socket.settimeout(WAIT)
        self.socket.send(b"CONN")
        nonce = b""
        while len(nonce) != 16:  # first may come what was relayed to an earlier user of the port
            nonce = self.socket.recv(2048)
        self.cookie = hashlib.md5(nonce + password).digest()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.send(b"CONN")  # ends the admission: nothing is sent to us any more
        self.socket.close()

    def ask(self, client, call, seconds):
        """Sends the client's first call. Returns the answer's three numbers, or None if none comes in time."""
        self.socket.send(self.cookie + b"WithAck %s 1 %s" % (client, call))  # the right cookie admits us, too
        ours = self.cookie + b"Ack %s " % client
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self.socket.settimeout(left)
            try:
                datagram = self.socket.recv(2048)
            except socket.timeout:
                break
            # We hear what all other peers call, too.
            if datagram.startswith(ours):
                return [int(number) for number in datagram[len(ours):].split()]
        return None


def write(service, password, client, call):
    """Joins and asks until there is an answer, with the same client and number: the service runs it once."""
    with Peer(service, password) as peer:
        for seconds in ANSWER_WAITS:
            answer = peer.ask(client, call, seconds)
            if answer:
                return answer
    return None


def main():
    parser = argparse.ArgumentParser(description="Write one line into the log service's log.")
    parser.add_argument("text")
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=11001)
    parser.add_argument("--password", default="mosk")
    parser.add_argument("--type", type=int, choices=range(4), default=2,
                        help="0 trace, 1 info, 2 warning (default), 3 error")
    parser.add_argument("--module", default="net", help="default: net")
    args = parser.parse_args()

    # The log adds no line end, so the text brings its own.
    line = os.fsencode(args.text) + b"\n"
    call = b"LogMsg %d %s %s" % (args.type, quote(os.fsencode(args.module)), quote(line))
    client = secrets.token_hex(8).encode()
    most = MAX_CALL - len(b"WithAck %s 1 " % client)
    if len(call) > most:
        sys.exit(f"peer.py: the line is too long: {len(call)} bytes as a call, {most} fit")
    trouble = "nonces come, but no answers: is the password right?"
    for _ in range(TRIES):
        try:
            answer = write((args.host, args.port), os.fsencode(args.password), client, call)
            if answer:
                _last, _asked, refused = answer
                sys.exit("peer.py: the service refused the call" if refused else 0)
        except ConnectionRefusedError as error:
            trouble = error
            time.sleep(WAIT)  # the port is free: the service may be starting
        except (OSError, OverflowError) as error:
            trouble = error
    sys.exit(f"peer.py: not confirmed by {args.host}, UDP port {args.port}: {trouble}")


if __name__ == "__main__":
    main()
