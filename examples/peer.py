#!/usr/bin/env python3
"""Writes one line into the log service's log and makes sure that it got there: python3 peer.py "link down"

All that a peer has to do; the protocol is described in docs/protocol.md."""
import argparse
import contextlib
import hashlib
import os
import socket
import sys
import time

LOCAL_PORTS = range(11101, 11133)  # few: the service keeps a record of each port for ever
TRIES, WAIT = 4, 1.0  # WAIT: seconds for an answer


def quote(text):
    """One argument in back-quotes; a tilde goes before every tilde and back-quote within."""
    return b"`" + text.replace(b"~", b"~~").replace(b"`", b"~`") + b"`"


def receive(peer, is_wanted, trouble):
    """The next datagram that is wanted. Others come, too: whatever the service's other peers call."""
    end = time.monotonic() + WAIT
    while time.monotonic() < end:
        with contextlib.suppress(socket.timeout, ConnectionRefusedError):  # refused: the service may be starting
            got = peer.recv(2048)
            if is_wanted(got):
                return got
    raise OSError(trouble)


def ask(peer, password, client, call):
    """Makes the client's call number 1; false: refused. OSError: ask again, the service runs a number only once."""
    peer.send(b"CONN")
    nonce = receive(peer, lambda got: len(got) == 16, "nobody answers")
    cookie = hashlib.md5(nonce + password).digest()
    peer.send(cookie + b"WithAck %s 1 %s" % (client, call))  # the right cookie admits us
    ack = cookie + b"Ack %s 1 1 " % client  # then the number of refused calls
    trouble = "no acknowledgement: the password is wrong, or the line too long"
    return receive(peer, lambda got: got.startswith(ack), trouble) == ack + b"0"


def main():
    parser = argparse.ArgumentParser(description="Write one line into the log service's log.")
    parser.add_argument("text")
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=11001)
    parser.add_argument("--password", default="mosk")
    parser.add_argument("--module", default="net")
    parser.add_argument("--type", type=int, choices=range(4), default=2, help="0 trace, 1 info, 2 warning, 3 error")
    args = parser.parse_args()
    text, module, password = map(os.fsencode, (args.text, args.module, args.password))
    call = b"LogMsg %d %s %s" % (args.type, quote(module), quote(text + b"\n"))  # the log adds no line end
    client = os.urandom(16).hex().encode()  # no other client has this name

    peer = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    peer.settimeout(WAIT)
    for port in LOCAL_PORTS:
        with contextlib.suppress(OSError):  # taken
            peer.bind(("", port))
            break
    for _ in range(TRIES):
        try:
            peer.connect((args.host, args.port))
            trouble = None if ask(peer, password, client, call) else "the service refused the call"
            break
        except (OSError, OverflowError) as error:
            trouble = error
    with contextlib.suppress(OSError):
        peer.send(b"CONN")  # ends the admission: nothing is sent to us any more
    sys.exit(trouble and f"peer.py: {args.host}, UDP port {args.port}: {trouble}")


if __name__ == "__main__":
    main()
