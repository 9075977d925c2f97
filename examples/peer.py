#!/usr/bin/env python3
"""Writes one line into the log service's log, and makes sure that it has it: python3 peer.py "link down"

Shows all that a peer has to do; the protocol is described in docs/protocol.md.
"""
import argparse
import hashlib
import os
import random
import socket
import sys
import time

MAX_CALL = 1450 - 16  # a datagram less the cookie, in bytes
TAG = 24  # blanks and tabs behind the call, which tell it from any other
TRIES = 4
WAIT = 1.0  # seconds for an answer
# Where local ports are searched, for each socket. The service remembers every port that it ever heard of, so a
# program that is run often must not use a new one each time.
PORTS = {"mouth": range(11101, 11133), "ear": range(11133, 11165)}


def quote(text):
    """One argument in back-quotes; a tilde goes before every tilde and back-quote within."""
    return b"`" + text.replace(b"~", b"~~").replace(b"`", b"~`") + b"`"


class Peer:
    """A socket that the service knows. Raises OSError when nobody answers."""

    def __init__(self, service, password, ports):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for port in ports:
            try:
                self.socket.bind(("", port))
                break
            except OSError:
                pass  # taken
        self.socket.connect(service)
        self.socket.settimeout(WAIT)
        self.socket.send(b"CONN")
        nonce = self.socket.recv(2048)
        self.cookie = hashlib.md5(nonce + password).digest()
        self.send(b"")  # the right cookie admits us

    def send(self, text):
        self.socket.send(self.cookie + text)

    def hears(self, text):
        """Waits for a call. Everything that an admitted peer calls comes here, but what we call ourselves."""
        end = time.monotonic() + WAIT
        try:
            while time.monotonic() < end:
                if self.socket.recv(2048) == self.cookie + text:
                    return True
        except socket.timeout:
            pass
        return False

    def leave(self):
        self.socket.send(b"CONN")  # ends the admission: nothing is sent to us any more
        self.socket.close()


def write(service, password, call):
    """Tries once. False or OSError: the service may have it, but we don't know."""
    ear = Peer(service, password, PORTS["ear"])
    mouth = Peer(service, password, PORTS["mouth"])
    mouth.send(call)
    heard = ear.hears(call)
    mouth.leave()
    ear.leave()
    return heard


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

    # The log adds no line end, so the text brings its own. The tag is white space, which the service ignores.
    line = os.fsencode(args.text) + b"\n"
    call = b"LogMsg %d %s %s" % (args.type, quote(os.fsencode(args.module)), quote(line))
    call += bytes(random.choices(b" \t", k=TAG))
    if len(call) > MAX_CALL:
        sys.exit(f"peer.py: the line is too long: {len(call)} bytes as a call, {MAX_CALL} fit")
    trouble = "nothing that we send is taken: is the password right?"
    for _ in range(TRIES):
        try:
            if write((args.host, args.port), os.fsencode(args.password), call):
                return
        except ConnectionRefusedError as error:
            trouble = error
            time.sleep(WAIT)  # nobody has the port: the service may be starting
        except (OSError, OverflowError) as error:
            trouble = error
    sys.exit(f"peer.py: no receipt from {args.host}, UDP port {args.port}: {trouble}")


if __name__ == "__main__":
    main()
