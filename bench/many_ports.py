"""What it takes to have many ports."""
import os
import socket
import struct
import subprocess
import threading
import time

from lab import cable
from lab.polling import LIMIT, wait_for
from measuring import Client, a_lab, memory_kib, record

STARTED = 128
PORTS = 1024


def ready_ms(lab, rounds=10):
    """From the start of the host to its saying that it is ready."""
    times = []
    for _ in range(rounds):
        started = time.monotonic()
        host = subprocess.Popen(lab.host.command(), env={**os.environ, **lab.host.environment}, text=True,
                                stderr=subprocess.PIPE)
        next(line for line in host.stderr if "ready on" in line)
        times.append((time.monotonic() - started) * 1000)
        host.terminate()
        host.communicate()
    return times


def resident_kib(lab, ports):
    """With so many ports set up and their packet sockets open, once that stays the same for a second."""
    lab.begin(None, INETRFACESSETUP=3600)
    wait_for(lambda: len(lab.host.get("/zerotouch/sm/intfStatus")) == ports, f"{ports} ports", 120)
    sizes = [0]
    while sizes.count(sizes[-1]) < 10:
        sizes = [*sizes[-9:], memory_kib(lab.host.process.pid)[0]]
        time.sleep(0.1)
    return sizes[-1]


def under_flood(lab, seconds=3):
    """The answer times of the socket while one port receives LLDP frames as fast as they can be sent, and their rate."""
    def sent():
        return int(lab.server.run("cat", "/sys/class/net/p0/statistics/tx_packets"))

    client, times = Client(lab.host), []
    before, start = sent(), time.monotonic()
    lab.send_lldp(0, interval=0)
    while time.monotonic() < start + seconds:
        asked = time.monotonic()
        client.call("get", "/zerotouch/config/enabled")
        times.append((time.monotonic() - asked) * 1000)
        time.sleep(0.005)
    rate = (sent() - before) / (time.monotonic() - start)
    lab.stop_lldp(0)
    return times, rate


class Carrier:
    """What the kernel tells by netlink of the carrier of a device in the switch's namespace."""
    RTMGRP_LINK, RTM_NEWLINK, IFF_LOWER_UP = 1, 16, 1 << 16

    def __init__(self, namespace, device):
        self.index = namespace.links()[device]["ifindex"]
        with open("/proc/self/ns/net", "rb") as home:
            cable.enter(namespace.name)
            try:
                self.socket = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
            finally:
                cable.join(home.fileno(), home.name)
        self.socket.bind((0, self.RTMGRP_LINK))
        self.socket.settimeout(LIMIT)

    def until(self, up):
        """The time.time() at which it was told that the device has a carrier, or has none."""
        while True:
            message = self.socket.recv(65536)
            kind, index, flags = struct.unpack_from("=4xH14xiI", message)
            if (kind, index, bool(flags & self.IFF_LOWER_UP)) == (self.RTM_NEWLINK, self.index, up):
                return time.time()


def carrier_ms(lab, rounds=24):
    """Of each change of the carrier: from before the command that makes it at the other end to the kernel's message, and
    from there to the change seen on the host's socket.

    The kernel tells of one change of a link per second at most, so the changes are further apart than that."""
    client, kernel = Client(lab.host), Carrier(lab.switch, "et0")
    client.call("watch", "/interface/status/ethPhy/intfStatus/Ethernet0/linkStatus")
    told, seen, ours = [], [], []
    listener = threading.Thread(target=lambda: [told.append(kernel.until(n % 2 == 1)) for n in range(rounds)])
    listener.start()
    for number in range(rounds):
        time.sleep(1.2)
        change = "up" if number % 2 else "down"
        before = time.time()
        lab.server.ip("link", "set", "p0", change)
        end = client.until(change)
        wait_for(lambda: len(told) > number, "the kernel's message")
        seen.append((told[number] - before) * 1000)
        ours.append((end - told[number]) * 1000)
    listener.join()
    return seen, ours


def measure():
    with a_lab(STARTED) as lab:
        record(f"{STARTED} ports: start of the host to ready", "ms", ready_ms(lab), "at most 100")
    with a_lab(0) as lab:
        without = resident_kib(lab, 0)
        lab.add_veth(0)
        lab.switch.run("sh", "-ec", f"seq {PORTS - 1} | sed 's/.*/link add et& type veth peer name far&/' | ip -batch -")
        per_port = (resident_kib(lab, PORTS) - without) / PORTS
        record(f"{PORTS} ports: memory per port, agent and adapter", "KiB", [per_port], "at most 8")
        answers, rate = under_flood(lab)
        record("LLDP flood on one port: frames per second", "", [rate], "100000")
        record("LLDP flood on one port: answer on the socket meanwhile", "ms", answers)
        kernel, ours = carrier_ms(lab)
        record("carrier change to the kernel's message, with ip", "ms", kernel)
        record("the kernel's message of a carrier change to entity", "ms", ours, "at most 10")
