#!/usr/bin/env python3
"""A cable between two TAP devices that exist: both have a carrier for as long as this runs.

    cable.py NAMESPACE DEVICE NAMESPACE DEVICE
"""
import ctypes
import errno
import fcntl
import os
import select
import struct
import sys

CLONE_NEWNET = 0x40000000
TUNSETIFF = 0x400454ca
IFF_TAP, IFF_NO_PI = 0x0002, 0x1000
LONGEST_FRAME = 65536 + 18


def enter(namespace):
    descriptor = os.open(f"/run/netns/{namespace}", os.O_RDONLY | os.O_CLOEXEC)
    join(descriptor, namespace)
    os.close(descriptor)


def join(descriptor, name):
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.setns(descriptor, CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), name)


def plug_in(namespace, device):
    enter(namespace)
    descriptor = os.open("/dev/net/tun", os.O_RDWR | os.O_CLOEXEC)
    fcntl.ioctl(descriptor, TUNSETIFF, struct.pack("16sH22x", device.encode(), IFF_TAP | IFF_NO_PI))
    return descriptor


def main():
    near, far = plug_in(*sys.argv[1:3]), plug_in(*sys.argv[3:5])
    print("ready", flush=True)
    other_end = {near: far, far: near}
    while True:
        for end in select.select([near, far], [], [])[0]:
            frame = os.read(end, LONGEST_FRAME)  # fails once the device is removed, which ends the cable
            try:
                os.write(other_end[end], frame)
            except OSError as error:
                if error.errno != errno.EIO:  # a device that is down takes no frames
                    raise


if __name__ == "__main__":
    main()
