"""DHCP messages as they pass a device of a namespace."""
import select
import socket
import struct
import time

from lab import cable
from lab.polling import LIMIT

ETH_P_ALL = 3
SO_TIMESTAMPNS = 35
IP, IP6, UDP = 0x0800, 0x86dd, 17


class Capture:
    def __init__(self, namespace, device):
        """Of what passes from now on."""
        with open("/proc/self/ns/net", "rb") as home:
            cable.enter(namespace.name)
            try:
                self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(ETH_P_ALL))
            finally:
                cable.join(home.fileno(), home.name)
        self.socket.bind((device, ETH_P_ALL))
        self.socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)

    def close(self):
        self.socket.close()

    def message(self, port, kind, timeout=LIMIT):
        """The options, by code, of the next message of that kind (option 53 of DHCPv4, the message type of DHCPv6) to
        a UDP port, and the time.time() at which it passed."""
        packet, protocol, when = self._packet(port, kind, timeout)
        return options_of(packet, protocol, port, kind), when

    def payload(self, port, kind, timeout=LIMIT):
        """All bytes of such a message."""
        packet, protocol, _ = self._packet(port, kind, timeout)
        return packet[(packet[0] & 15) * 4 + 8:] if protocol == IP else packet[48:]

    def _packet(self, port, kind, timeout):
        deadline = time.monotonic() + timeout
        while select.select([self.socket], [], [], max(0, deadline - time.monotonic()))[0]:
            packet, ancillary, _, sender = self.socket.recvmsg(65536, 64)
            if options_of(packet, sender[1], port, kind) is not None:
                seconds, nanoseconds = struct.unpack("qq", ancillary[0][2])
                return packet, sender[1], seconds + nanoseconds / 1e9
        raise AssertionError(f"waited {timeout} s for DHCP message {kind} to port {port}")


def options_of(packet, protocol, port, kind):
    """None when the packet is something else."""
    if protocol == IP:
        udp, is_udp = packet[(packet[0] & 15) * 4:], packet[9] == UDP
    elif protocol == IP6:
        udp, is_udp = packet[40:], packet[6] == UDP
    else:
        return None
    if not is_udp or struct.unpack("!H", udp[2:4])[0] != port:
        return None
    options = options4(udp[8 + 240:]) if protocol == IP else options6(udp[8 + 4:])
    return options if kind == (options[53][0] if protocol == IP else udp[8]) else None


def options4(text):
    options = {}
    while text and text[0] != 255:
        if text[0] == 0:
            text = text[1:]
            continue
        options[text[0]] = text[2:2 + text[1]]
        text = text[2 + text[1]:]
    return options


def options6(text):
    options = {}
    while text:
        code, length = struct.unpack("!HH", text[:4])
        options[code] = text[4:4 + length]
        text = text[4 + length:]
    return options
