#!/usr/bin/env python3
"""Logs one line and waits until the service confirms it: python3 peer.py TEXT [PASSWORD]

This is all that a peer has to do. docs/protocol.md describes the protocol.
"""
import contextlib
import hashlib
import os
import secrets
import socket
import sys
import time

SERVICE = "127.0.0.1", 11001


def quote(text):
    """Quotes an argument in back-quotes, with a tilde before each tilde and back-quote in it."""
    return b"`" + text.replace(b"~", b"~~").replace(b"`", b"~`") + b"`"


def receive(peer, is_wanted):
    """Returns the first wanted datagram, or None after one to two seconds. Skips calls relayed from other peers."""
    end = time.monotonic() + 1
    while time.monotonic() < end:
        with contextlib.suppress(TimeoutError, ConnectionRefusedError):  # refused: the service may be starting
            datagram = peer.recv(2048)
            if is_wanted(datagram):
                return datagram
    return None


def main(text, password="mosk"):
    peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    for port in range(11101, 11133):  # the service keeps a record of every port it has seen, so use few
        with contextlib.suppress(OSError):  # the port is taken
            peer.bind(("", port))
            break
    peer.connect(SERVICE)
    peer.settimeout(1)
    client = secrets.token_hex(8).encode()
    call = b"WithAck %s 1 LogMsg 2 net %s" % (client, quote(os.fsencode(text) + b"\n"))
    for _ in range(4):  # any datagram may be lost; a repeated call is logged only once
        peer.send(b"CONN")
        nonce = receive(peer, lambda datagram: len(datagram) == 16)
        if nonce is None:
            continue
        cookie = hashlib.md5(nonce + password.encode()).digest()
        peer.send(cookie + call)
        answer = receive(peer, lambda datagram: datagram.startswith(cookie + b"Ack " + client))
        if answer is not None:
            peer.send(b"CONN")  # CONN again ends our admission, and so the relaying
            _last, _asked, refused = answer.split()[-3:]
            return "the service refused the line" if int(refused) else 0
    return "no answer: is the service running, and is the password right?"


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) in (2, 3) else __doc__)
