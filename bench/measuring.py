"""What all figures share: the table, a lab, a client of the host's socket, and what the kernel tells of a process."""
import contextlib
import json
import os
import pathlib
import socket
import statistics
import time

from lab.runs import Switch

recorded = {}


def record(what, unit, values, goal=""):
    """A line of the table, with the median and the worst if there are several values."""
    recorded[what] = {"unit": unit, "values": values, "goal": goal}
    shown = f"{statistics.median(values):.4g}"
    if len(values) > 1:
        what += f", median / worst of {len(values)}"
        shown += f" / {max(values):.4g}"
    print(f"{what:78} {shown:>15} {unit:4}  {goal}", flush=True)


@contextlib.contextmanager
def a_lab(ports):
    """A virtual switch with so many ports."""
    lab = Switch(f"ztbench-{os.getpid()}")
    lab.up()
    try:
        lab.switch.ip6_setting("default", "dad_transmits", 0)
        for number in range(1, ports + 1):
            lab.add_veth(number)
        yield lab
    finally:
        lab.down()


class Client:
    def __init__(self, host):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(str(host.socket))
        self.socket.settimeout(60)
        self.lines = self.socket.makefile("r")

    def call(self, method, path):
        request = {"jsonrpc": "2.0", "id": 1, "method": method, "params": {"path": path}}
        self.socket.sendall(json.dumps(request).encode() + b"\n")
        return json.loads(self.lines.readline())["result"]

    def until(self, value):
        """The time.time() at which it was told that what it watches has this value."""
        while json.loads(self.lines.readline()).get("params", {}).get("value") != value:
            pass
        return time.time()


def memory_kib(pid):
    """The resident and the anonymous memory of a process."""
    lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]
    fields = dict(line.split(":", 1) for line in lines)
    return [int(fields[name].split()[0]) for name in ("Rss", "Anonymous")]
