#!/usr/bin/env python3
"""A log server (RFC 3164): writes each message that comes to UDP port 514 of the namespace that it runs in.

    log_server.py
"""
import socket


def main():
    with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as server:
        server.bind(("::", 514))
        print("ready", flush=True)
        while True:
            message, sender = server.recvfrom(65536)
            print(sender[0].removeprefix("::ffff:"), message.decode(errors="replace").strip(), flush=True)


if __name__ == "__main__":
    main()
