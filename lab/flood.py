#!/usr/bin/env python3
"""Floods the host's socket with clients. A quarter of them is of each kind:

    readers request the whole tree again and again, and read the answers
    deaf    request the whole tree all the time, and never read
    silent  watch the whole tree, and never read
    foul    send lines that are no requests, and read the errors

A client that the host cuts off connects again.

    flood.py SOCKET CLIENTS
"""
import json
import select
import socket
import sys


def request(method):
    return json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": {"path": "/"}}).encode() + b"\n"


KINDS = {  # what they send, whether over and over, and whether they read
    "readers": (request("get"), True, True),
    "deaf": (request("get") * 50, True, False),
    "silent": (request("watch"), False, False),
    "foul": (b"\xff" * 1000 + b"\n[]\n{}\n", True, True),
}


class Client:
    def __init__(self, path, kind):
        self.message, self.again, self.reads = KINDS[kind]
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.socket.setblocking(False)
        self.rest = self.message

    def wanted(self):
        return (select.POLLOUT if self.rest else 0) | (select.POLLIN if self.reads else 0)

    def act(self, events):
        """Raises OSError when the host has cut the client off."""
        if events & select.POLLIN and self.reads and not self.socket.recv(1 << 16):
            raise ConnectionResetError
        if events & select.POLLOUT:
            self.rest = self.rest[self.socket.send(self.rest):]
            self.rest = self.rest or (self.message if self.again else b"")
        elif events & (select.POLLHUP | select.POLLERR):
            raise ConnectionResetError


def main():
    try:
        path, count = sys.argv[1], int(sys.argv[2])
    except (IndexError, ValueError):
        sys.exit(__doc__.strip())
    poll, clients = select.poll(), {}

    def connect(kind):
        client = Client(path, kind)
        clients[client.socket.fileno()] = client, kind
        poll.register(client.socket, client.wanted())

    for number in range(count):
        connect(list(KINDS)[number % len(KINDS)])
    print("ready", flush=True)
    while True:
        for descriptor, events in poll.poll():
            client, kind = clients[descriptor]
            try:
                client.act(events)
                poll.modify(descriptor, client.wanted())
            except BlockingIOError:
                pass
            except OSError:
                poll.unregister(descriptor)
                del clients[descriptor]
                client.socket.close()
                connect(kind)


if __name__ == "__main__":
    main()
