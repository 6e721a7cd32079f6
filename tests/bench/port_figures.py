#!/usr/bin/env python3
"""What ports cost a running host, on real veth ports in network namespaces of its own. Needs root.

    port_figures.py BUILD_DIR    prints a table, and writes BUILD_DIR/port_figures.json
"""
import json
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile
import time

SWITCH, PEER = f"zt-bench-{os.getpid()}-switch", f"zt-bench-{os.getpid()}-peer"
PORTS = 1024


def ip(*arguments, batch=None):
    subprocess.run(["ip", *arguments], input=batch, text=True, check=True)


class Client:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.lines = self.socket.makefile("r")

    def send(self, method, path):
        request = {"jsonrpc": "2.0", "id": 1, "method": method, "params": {"path": path}}
        self.socket.sendall(json.dumps(request).encode() + b"\n")

    def receive(self):
        return json.loads(self.lines.readline())

    def call(self, method, path):
        self.send(method, path)
        return self.receive()["result"]


def start_host(build, folder):
    config = pathlib.Path(folder, "platform.toml")
    config.write_text(f'[host]\nrun_directory = "{folder}/run"\nlibrary = "{build}/lib/libZeroTouch.so"\n'
                      'reload_command = ["true"]\n[ports]\ndevices = ["et*"]\n[inventory]\nmodel_name = "BENCH"\n')
    pathlib.Path(folder, "root", "flash").mkdir(parents=True, exist_ok=True)
    host = subprocess.Popen(["ip", "netns", "exec", SWITCH, build / "bin" / "zerotouchd", "--config", config], text=True,
                            stderr=subprocess.PIPE, env={**os.environ, "FILESYSTEM_ROOT": f"{folder}/root"})
    for line in host.stderr:
        if "ready on" in line:
            return host, Client(f"{folder}/run/statebase.sock")
    sys.exit("the host did not start")


def stop(host):
    host.terminate()
    host.stderr.close()
    host.wait()


def resident_kib(pid):
    rollup = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]
    return int(dict(line.split(":", 1) for line in rollup)["Rss"].split()[0])


def wait_for(predicate, seconds=120):
    deadline = time.monotonic() + seconds
    while not predicate():
        if time.monotonic() > deadline:
            sys.exit("waited in vain")
        time.sleep(0.1)


def memory_per_port(build):
    """Resident memory with all ports set up and their packet sockets open, less that without ports."""
    resident = []
    for ports in (0, PORTS):
        ip("-batch", "-", batch="".join(
            f"link add et{i} netns {SWITCH} type veth peer name p{i} netns {PEER}\n" for i in range(ports)))
        with tempfile.TemporaryDirectory() as folder:
            host, client = start_host(build, folder)
            wait_for(lambda: len(client.call("list", "/zerotouch/sm/intfStatus")) == ports)
            wait_for(lambda: resident_kib(host.pid) == (time.sleep(1), resident_kib(host.pid))[1])
            resident.append(resident_kib(host.pid))
            stop(host)
    return (resident[1] - resident[0]) / PORTS


def carrier_ms(client):
    """From the request that changes the peer's carrier to the change seen on the socket: what a client would see.

    The kernel tells of one change of a link per second at most, so the changes are further apart than that."""
    times = []
    client.call("watch", "/interface/status/ethPhy/intfStatus/et0/linkStatus")
    for up in [False, True] * 6:
        time.sleep(1.2)
        before = time.monotonic()
        ip("-n", PEER, "link", "set", "p0", "up" if up else "down")
        while client.receive()["params"]["value"] != ("up" if up else "down"):
            pass
        times.append((time.monotonic() - before) * 1000)
    return times


FLOOD = """
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
s.bind(("p0", 0))
frame = bytes.fromhex("0180c200000e02000000000188cc").ljust(60, b"\\0")
end, sent = time.monotonic() + 3, 0
while time.monotonic() < end:
    for _ in range(1000):
        try:
            s.send(frame)
            sent += 1
        except OSError:
            pass
print(sent // 3)
"""


def under_flood(path):
    """Answer times of the socket while one port receives LLDP frames as fast as they can be sent."""
    client = Client(path)
    flood = subprocess.Popen(["ip", "netns", "exec", PEER, sys.executable, "-c", FLOOD], stdout=subprocess.PIPE, text=True)
    times = []
    while flood.poll() is None:
        before = time.monotonic()
        client.call("get", "/zerotouch/config/enabled")
        times.append((time.monotonic() - before) * 1000)
        time.sleep(0.005)
    return int(flood.stdout.read()), times


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    ip("netns", "add", SWITCH)
    ip("netns", "add", PEER)
    try:
        per_port = memory_per_port(build)
        with tempfile.TemporaryDirectory() as folder:
            ip("-n", PEER, "link", "set", "p0", "up")
            host, client = start_host(build, folder)
            wait_for(lambda: client.call("get", "/interface/status/ethPhy/intfStatus/et0/linkStatus") == "up")
            rate, answers = under_flood(f"{folder}/run/statebase.sock")
            carrier = carrier_ms(client)
            stop(host)
    finally:
        ip("netns", "del", SWITCH)
        ip("netns", "del", PEER)
    figures = {"ports": PORTS, "memory_per_port_kib": round(per_port, 2),
               "carrier_ms": {"median": round(statistics.median(carrier), 2), "worst": round(max(carrier), 2)},
               "flood": {"frames_per_second": rate, "answer_ms_median": round(statistics.median(answers), 2),
                         "answer_ms_worst": round(max(answers), 2)}}
    print(f"{str(PORTS) + ' veth ports':44} {'Measured':>12}   Goal")
    print(f"{'memory per port, agent and adapter':44} {per_port:8.1f} KiB   at most 8 KiB")
    print(f"{'carrier change to entity (with ip), median':44} {figures['carrier_ms']['median']:9} ms   at most 10 ms")
    print(f"{'carrier change to entity (with ip), worst':44} {figures['carrier_ms']['worst']:9} ms")
    print(f"{'LLDP flood on one port, frames per second':44} {rate:12}   100000")
    print(f"{'answer on the socket meanwhile, median':44} {figures['flood']['answer_ms_median']:9} ms")
    print(f"{'answer on the socket meanwhile, worst':44} {figures['flood']['answer_ms_worst']:9} ms")
    (build / "port_figures.json").write_text(json.dumps(figures, indent=1) + "\n")


if __name__ == "__main__":
    main()
