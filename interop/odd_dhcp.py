#!/usr/bin/env python3
"""A DHCPv4 server that does what no server of Debian can be told to do. It gives out one address.

    odd_dhcp.py MODE DEVICE SERVER CLIENT BOOT_FILE

    nak-first   the first request is refused, and the ones after it are not
    two-offers  each discovery gets two offers; only the second of them, and what is requested then, names the boot file
"""
import socket
import sys

DISCOVER, OFFER, REQUEST, ACK, NAK, RELEASE = 1, 2, 3, 5, 6, 7


def options_of(message):
    result, rest = {}, message[240:]
    while rest and rest[0] != 255:
        if rest[0] == 0:
            rest = rest[1:]
            continue
        result[rest[0]] = rest[2:2 + rest[1]]
        rest = rest[2 + rest[1]:]
    return result


def answer(message, kind, server, client, boot_file):
    options = {53: bytes([kind]), 54: server}
    if kind != NAK:
        options |= {51: (3600).to_bytes(4, "big"), 1: bytes([255, 255, 255, 0]), 3: server}
        if boot_file:
            options[67] = boot_file
    yours = bytes(4) if kind == NAK else client
    text = b"".join(bytes([code, len(value)]) + value for code, value in options.items())
    head = b"\2" + message[1:8] + bytes(8) + yours + bytes(8) + message[28:44] + bytes(192) + message[236:240]
    return head + text + b"\xff"


def main():
    try:
        mode, device, server, client, boot_file = sys.argv[1:]
        server, client, boot_file = socket.inet_aton(server), socket.inet_aton(client), boot_file.encode()
    except ValueError:
        sys.exit(__doc__.strip())
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as link:
        link.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        link.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, device.encode())
        link.bind(("", 67))
        print("ready", flush=True)
        refused = mode != "nak-first"
        while True:
            message = link.recv(65536)
            kind = options_of(message).get(53, b"\0")[0]
            answers = []
            if kind == DISCOVER:
                answers = [(OFFER, b""), (OFFER, boot_file)] if mode == "two-offers" else [(OFFER, boot_file)]
            elif kind == REQUEST:
                answers = [(ACK, boot_file) if refused else (NAK, b"")]
                refused = True
            elif kind == RELEASE:
                print("RELEASE", socket.inet_ntoa(message[12:16]), flush=True)
            for answered, file in answers:
                print("sends", answered, flush=True)
                link.sendto(answer(message, answered, server, client, file), ("255.255.255.255", 68))


if __name__ == "__main__":
    main()
