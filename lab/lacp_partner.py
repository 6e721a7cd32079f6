#!/usr/bin/env python3
"""The other end of a link aggregation (IEEE 802.1AX): speaks LACP on devices of the namespace that it runs in.

    lacp_partner.py DEVICE...
"""
import select
import socket
import struct
import sys
import time

SLOW_PROTOCOLS = bytes.fromhex("0180c2000002")
ETHERTYPE_SLOW = 0x8809
SYSTEM, KEY = bytes.fromhex("020000030001"), 9
ACTIVE = 0x3f  # active, with the short time-out, aggregated, in sync, collecting and distributing
ACTOR = slice(18, 33)  # in a frame: priority and address of the system, key, priority and number of the port, state
NOBODY = bytes(15)


def frame(mac, port, partner):
    actor = struct.pack("!H6sHHHB", 1, SYSTEM, KEY, 1, port, ACTIVE)
    body = struct.pack("!BB", 1, 1) + b"\x01\x14" + actor + bytes(3) + b"\x02\x14" + partner + bytes(3)
    body += b"\x03\x10" + bytes(14) + b"\0\0" + bytes(50)
    return SLOW_PROTOCOLS + mac + struct.pack("!H", ETHERTYPE_SLOW) + body


def main():
    partners = {}  # the last that the other end told of itself, by socket
    ports = {}
    for number, device in enumerate(sys.argv[1:], 1):
        end = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETHERTYPE_SLOW))
        end.bind((device, ETHERTYPE_SLOW))
        ports[end], partners[end] = number, NOBODY
    print("ready", flush=True)
    due = time.monotonic()
    while True:
        for end in select.select(list(ports), [], [], max(0, due - time.monotonic()))[0]:
            try:
                heard, sender = end.recvfrom(2048)
            except OSError:  # the device is off
                continue
            if sender[2] != socket.PACKET_OUTGOING and len(heard) > ACTOR.stop and heard[14] == 1:
                partners[end] = heard[ACTOR]
        if time.monotonic() >= due:
            due = time.monotonic() + 1
            for end, number in ports.items():
                try:
                    end.send(frame(end.getsockname()[4], number, partners[end]))
                except OSError:
                    pass


if __name__ == "__main__":
    main()
