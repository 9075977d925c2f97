#!/usr/bin/env python3
"""Writes one line into the log service's log: python3 peer.py "link down"

Shows all that a peer has to do; the protocol is described in docs/protocol.md.
"""
import argparse
import hashlib
import os
import socket
import sys
import time

MAX_CALL = 1450 - 16  # a datagram less the cookie, in bytes
TRIES = 4
WAIT = 1.0  # seconds for the nonce to come


def quote(text):
    """One argument in back-quotes; a tilde goes before every tilde and back-quote within."""
    return b"`" + text.replace(b"~", b"~~").replace(b"`", b"~`") + b"`"


def connect(host, port):
    """Returns a socket and the nonce that the service sent to it, or ends with an error."""
    for _ in range(TRIES):
        # A new socket, so a new port, for every try: a late nonce of an earlier one cannot pass for this one's.
        peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        peer.settimeout(WAIT)
        try:
            peer.connect((host, port))
            peer.send(b"CONN")
            nonce = peer.recv(2048)
            if len(nonce) == 16:
                return peer, nonce
        except ConnectionRefusedError:
            time.sleep(WAIT)  # nobody has the port: the service may be starting
        except socket.timeout:
            pass
        peer.close()
    sys.exit(f"peer.py: nobody answers at {host}, UDP port {port}")


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
    if len(call) > MAX_CALL:
        sys.exit(f"peer.py: the line is too long: {len(call)} bytes as a call, {MAX_CALL} fit")
    try:
        peer, nonce = connect(args.host, args.port)
        cookie = hashlib.md5(nonce + os.fsencode(args.password)).digest()
        peer.send(cookie + call)  # the right cookie admits the peer; the same packet may carry a call
    except (OSError, OverflowError) as error:
        sys.exit(f"peer.py: cannot reach {args.host}, UDP port {args.port}: {error}")


if __name__ == "__main__":
    main()
