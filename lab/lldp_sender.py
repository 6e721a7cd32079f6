#!/usr/bin/env python3
"""Sends LLDP frames (IEEE 802.1AB) out of a device of the namespace that it runs in.

    lldp_sender.py DEVICE [--interval SECONDS] [--vlan ID]
"""
import argparse
import errno
import socket
import struct
import sys
import time

NEAREST_BRIDGE = bytes.fromhex("0180c200000e")
ETHERTYPE_LLDP = 0x88cc
ETHERTYPE_VLAN = 0x8100


def tlv(kind, value):
    return struct.pack("!H", kind << 9 | len(value)) + value


def frame(mac, device, vlan=None):
    tag = struct.pack("!HH", ETHERTYPE_VLAN, vlan) if vlan is not None else b""
    chassis_id = tlv(1, b"\x04" + mac)            # a MAC address
    port_id = tlv(2, b"\x05" + device.encode())   # the name of an interface
    time_to_live = tlv(3, struct.pack("!H", 120))
    end = tlv(0, b"")
    head = NEAREST_BRIDGE + mac + tag + struct.pack("!H", ETHERTYPE_LLDP)
    return (head + chassis_id + port_id + time_to_live + end).ljust(60, b"\0")


def main():
    parser = argparse.ArgumentParser(description="Sends LLDP frames out of a device.")
    parser.add_argument("device")
    parser.add_argument("--interval", type=float, default=30, help="seconds between frames, 0 for as many as can be")
    parser.add_argument("--vlan", type=int, help="send them tagged with this VLAN ID")
    options = parser.parse_args()
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sender:
        try:
            sender.bind((options.device, 0))
        except OSError as error:
            sys.exit(f"{options.device}: {error.strerror}")
        print("ready", flush=True)
        message = frame(sender.getsockname()[4], options.device, options.vlan)
        while True:
            try:
                sender.send(message)
            except OSError as error:
                if error.errno not in (errno.ENETDOWN, errno.ENOBUFS):  # the port may be unplugged for a while
                    raise
            if options.interval > 0:
                time.sleep(options.interval)


if __name__ == "__main__":
    main()
