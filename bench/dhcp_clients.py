"""The two DHCP clients side by side: how soon they run, how soon an answer of theirs counts, and what they take."""
import pathlib
import sys
import time

from interop.case import CLIENTS
from lab.capture import Capture
from lab.polling import wait_for
from measuring import Client, a_lab, record
from on_switch import ANSWER, REFUSED, last_time

PORTS = (1, 64)
SILENT = ["dhcp-ignore=tag:!known"]  # nobody is
GOALS = {("dhclient", 64): "at most 100"}


def descendants(pid):
    try:
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    except FileNotFoundError:
        return []
    return [process for child in map(int, children) for process in [child, *descendants(child)]]


def read(pid, file):
    try:
        return pathlib.Path(f"/proc/{pid}/{file}").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return ""


def running(pid, client):
    """How many clients a host has started, by their names: those whose parent is no process of theirs."""
    processes = {process: read(process, "comm").strip() for process in descendants(pid)}
    parents = {process: int(read(process, "stat").rpartition(")")[2].split()[1] or 0) for process in processes
               if read(process, "stat")}
    return sum(name == client and processes.get(parents.get(process)) != client for process, name in processes.items())


def start_ms(lab, client, ports, rounds=5):
    """From entering the query to the programs of both families running, told to serve all ports."""
    lab.begin("ra-managed", client=CLIENTS[client], lines=SILENT, INETRFACESSETUP=8, DHCLIENTQUERY=2, RETRY=3)
    state, times = Client(lab.host), []
    state.call("watch", "/zerotouch/sm/currentState")
    while len(times) < rounds:
        state.until("stateDhcpQuery")
        deadline = time.time() + 1
        while running(lab.host.process.pid, client) < 2 and time.time() < deadline:
            pass
        started = time.time()
        served = [len(lab.host.get(f"/zerotouch/sm/{name}")) for name in ("dhclientIntf", "dhclient6Intf")]
        if served == [ports, ports]:
            times.append((started - lab.host.get("/zerotouch/sm/stateTime")) * 1000)
        else:  # not all networks have told of DHCPv6 yet
            print(f"(a round with {served} ports is not counted)", file=sys.stderr)
    return times


def asked_ms(lab, client, ports, rounds=5):
    """From entering the query to the first question on the last port."""
    times = []
    for _ in range(rounds):
        capture = Capture(lab.server, f"p{ports}")
        lab.begin("dhcpv4", client=CLIENTS[client], lines=SILENT, DHCLIENTQUERY=60)
        _, asked = capture.message(67, 1)
        times.append((asked - lab.host.get("/zerotouch/sm/stateTime")) * 1000)
        capture.close()
    return times


def memory_kib(lab, client, ports):
    """What the clients of DHCPv4 take, shared pages in shares, while they ask on all ports."""
    lab.begin("dhcpv4", client=CLIENTS[client], lines=SILENT, DHCLIENTQUERY=60)
    lab.host.wait_state("stateDhcpQuery")
    wait_for(lambda: "DHCPDISCOVER(p%d)" % ports in lab.processes.log("dnsmasq").read_text(), "the last port to be asked on")
    lines = [line.split() for process in descendants(lab.host.process.pid)
             for line in read(process, "smaps_rollup").splitlines() if line.startswith("Pss:")]
    return sum(int(words[1]) for words in lines), len(lines)


def chosen_ms(lab, client, ports, rounds=10):
    """From the answer's leaving of the server on the last port to that port's being chosen, seen on the socket."""
    capture = Capture(lab.server, f"p{ports}")
    lab.begin(None, client=CLIENTS[client], INETRFACESSETUP=1, RETRY=0.5)
    chosen = Client(lab.host)
    chosen.call("watch", "/zerotouch/sm/choosenIntf")
    lab.serve("dhcpv4", REFUSED, ports=[ports])
    times = [(chosen.until(f"Ethernet{ports}") - last_time(capture, *ANSWER[4])) * 1000 for _ in range(rounds)]
    capture.close()
    return times


def measure():
    for ports in PORTS:
        with a_lab(ports) as lab:
            lab.serve_files()
            for client in CLIENTS:
                head = f"{client}, {ports} port{'s' * (ports > 1)}: "
                record(head + "query entered to both clients running", "ms", start_ms(lab, client, ports),
                       GOALS.get((client, ports), ""))
                record(head + "query entered to the first question on the last port", "ms", asked_ms(lab, client, ports))
                record(head + "answer on the wire to port chosen", "ms", chosen_ms(lab, client, ports))
                size, processes = memory_kib(lab, client, ports)
                record(head + f"memory of the client of DHCPv4, {processes} processes", "KiB", [size])
