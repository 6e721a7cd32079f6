#!/usr/bin/env python3
"""Sets which link modes a TAP device reports as supported. It runs in the namespace of the device.

    link_modes.py DEVICE MODE...

A TAP device stores all link settings that it is given, also those that a driver of a real port decides itself."""
import array
import fcntl
import socket
import struct
import sys

SIOCETHTOOL = 0x8946
ETHTOOL_GLINKSETTINGS, ETHTOOL_SLINKSETTINGS = 0x4c, 0x4d
MASKS = 48         # the size of struct ethtool_link_settings; three masks follow: supported, advertised, of the partner
MASK_WORDS_AT = 15  # the offset of its link_mode_masks_nwords
LONGEST_MASK = 127  # in words: the largest value of that field

# Numbers of ETHTOOL_LINK_MODE_*_BIT, one mode for each speed.
MODES = {
    "autoneg": 6, "tp": 7, "fibre": 10,
    "1000baseT": 5, "10g": 43, "25g": 31, "40g": 24, "50g": 34, "50g-1": 54, "100g": 38, "100g-2": 59,
    "200g-4": 66, "400g-8": 73,
}


def set_supported(device, modes):
    settings = array.array("B", bytes(MASKS + 3 * 4 * LONGEST_MASK))
    address, _ = settings.buffer_info()
    request = struct.pack("16sP16x", device.encode(), address)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        def ethtool(command):
            struct.pack_into("I", settings, 0, command)
            fcntl.ioctl(control, SIOCETHTOOL, request)
        ethtool(ETHTOOL_GLINKSETTINGS)  # asks for the length of a mask; the kernel answers with a negative number
        words = -struct.unpack_from("b", settings, MASK_WORDS_AT)[0]
        struct.pack_into("b", settings, MASK_WORDS_AT, words)
        ethtool(ETHTOOL_GLINKSETTINGS)
        supported = sum(1 << MODES[mode] for mode in modes)
        settings[MASKS:MASKS + 4 * words] = array.array("B", supported.to_bytes(4 * words, sys.byteorder))
        ethtool(ETHTOOL_SLINKSETTINGS)


if __name__ == "__main__":
    set_supported(sys.argv[1], sys.argv[2:])
