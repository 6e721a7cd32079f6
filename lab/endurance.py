"""Shows that a host does not grow while a run without a network is retried, and while ports come and go.
scripts/endurance builds what it needs and runs it."""
import argparse
import json
import os
import pathlib
import sys
import time

from lab.host import ONE_SHOT, TICKING
from lab.polling import wait_for
from lab.runs import BAD, Switch

# By how much a later row may exceed the first one: the host keeps the last thousand events, and a child that happens to run
# has one or two descriptors.
SLACK = {"resident": 1024, "files": 64, "descriptors": 3, "children": 1}


def footprint(lab):
    """What the host takes now: resident memory, descriptors, children, and its files on the switch (in KiB)."""
    process = pathlib.Path("/proc", str(lab.host.process.pid))
    status = dict(line.split(":", 1) for line in (process / "status").read_text().splitlines())
    files = lab.switch.run("sh", "-c", "df --output=used /run /tmp | tail -n +2").split()
    return {"resident": int(status["VmRSS"].split()[0]), "descriptors": len(list((process / "fd").iterdir())),
            "children": len((process / "task" / process.name / "children").read_text().split()),
            "files": sum(int(used) for used in files)}


def most(lab, seconds):
    """The highest value of each that was seen within `seconds`."""
    result, end = footprint(lab), time.monotonic() + seconds
    while time.monotonic() < end:
        time.sleep(0.2)
        now = footprint(lab)
        result = {name: max(result[name], now[name]) for name in result}
    return result


def grown(rows, **slack):
    """The values of which the last row has more than the first one and the slack, as pairs of both rows."""
    slack = SLACK | slack
    return {name: (rows[0][name], rows[-1][name]) for name in rows[0]
            if rows[-1][name] > rows[0][name] + slack.get(name, 0)}


def retries(lab, seconds, parts, wait=1.0):
    """A run without a network, whose timers take `wait`. For half of the time nobody answers, then a server names a file
    that does not exist; at last there is a network, and the run has to complete. Returns the rows of both halves, one
    for each of `parts` equal parts, and the number of retries."""
    lab.begin(None, **{name: wait for name in ONE_SHOT + TICKING} | {"CONFIGFETCHRETRY": wait / 5})
    wait_for(lambda: lab.host.get("/zerotouch/sm/retryCount") >= 2, "two retries")
    silent = [most(lab, seconds / 2 / parts) for _ in range(parts)]
    lab.serve("dhcpv4", BAD + "404")
    wait_for(lambda: lab.events("ZTP_CONFIG_DOWNLOAD_FAIL")[3:], "a download to fail")
    lab.host.wait_state("stateRetry")
    useless = [most(lab, seconds / 2 / parts) for _ in range(parts)]
    count = lab.host.get("/zerotouch/sm/retryCount")
    lab.serve("dhcpv4")
    lab.wait_reload()
    return silent, useless, count


def ports(lab, seconds, count=64):
    """Adds that many ports and removes them, over and over. Rows of each time that all were there, and that they were
    gone; with the number of times that the state tree names a port."""
    add, remove = "ip link add et$i type veth peer name far$i", "ip link del et$i"

    def for_each(command):
        lab.switch.run("sh", "-ec", f"for i in $(seq 2 {count + 1}); do {command}; done")

    def row(number):
        for records in ("/interface/status/ethPhy/intfStatus", "/zerotouch/sm/phyIntfStatus"):
            wait_for(lambda: len(lab.host.get(records)) == number, f"{number} ports in {records}")
        sockets = number + others
        wait_for(lambda: footprint(lab)["descriptors"] == sockets, f"{sockets} descriptors")
        tree = {name: part for name, part in lab.host.get("/").items() if name != "log"}
        return footprint(lab) | {"named": json.dumps(tree).count("Ethernet")}

    lab.begin(None, INETRFACESSETUP=seconds + 3600)
    wait_for(lambda: lab.host.get("/zerotouch/sm/phyIntfStatus").get("Ethernet1", {}).get("intfPamSm"), "Ethernet1")
    readings = []

    def is_steady():  # Nobody who has asked for something is still connected.
        readings.append(footprint(lab)["descriptors"])
        return len(set(readings[-20:])) == 1 and len(readings) >= 20

    wait_for(is_steady, "a steady number of descriptors")
    others = readings[-1] - 1
    there, gone, end = [], [row(1)], time.monotonic() + seconds
    while time.monotonic() < end or len(gone) < 3:
        for_each(add)
        there.append(row(count + 1))
        for_each(remove)
        for_each(f"{add}; {remove}")  # gone before anybody looks at them, or while they are set up
        gone.append(row(1))
    return there, gone


def flood(lab, clients=200):
    """A run that first finds no network and then one, while so many clients bother the host: the times that `status`
    takes meanwhile, and rows from before and from then."""
    def status():
        start = time.monotonic()
        lab.host.cli("status")
        took.append(time.monotonic() - start)
        rows.append(footprint(lab))
        return took

    lab.begin(None, DHCLIENTQUERY=1)
    took, rows = [], [footprint(lab)]
    lab.flood(clients)
    try:
        wait_for(lambda: status() and lab.host.get("/zerotouch/sm/retryCount") >= 2, "two retries")
        lab.serve("dhcpv4")
        wait_for(lambda: status() and lab.host.reload_requested(), "the reload")
    finally:
        lab.processes.stop("flood")
    lab.wait_reload()
    return took, rows


def show(title, rows):
    print(title)
    for name in rows[0]:
        print(f"  {name:12}", *(f"{row[name]:7}" for row in rows))
    more = grown(rows[1:])
    for name, (first, last) in more.items():
        print(f"  FAILED: {name} grew from {first} to {last}")
    return not more


def main():
    parser = argparse.ArgumentParser(prog="scripts/endurance", description=__doc__.splitlines()[0])
    parser.add_argument("--retries", type=float, default=600, help="seconds without a network (default: %(default)s)")
    parser.add_argument("--ports", type=float, default=60, help="seconds with ports that change (default: %(default)s)")
    options = parser.parse_args()
    lab = Switch(f"ztendurance-{os.getpid()}")
    try:
        lab.up()
        lab.add_veth(1)
        lab.serve_files()
        parts = max(3, round(options.retries / 120))
        silent, useless, count = retries(lab, options.retries, parts)
        there, gone = ports(lab, options.ports)
        took, flooded = flood(lab)
    finally:
        lab.down()
    each = f"the most in each {options.retries / 2 / parts:.0f} s, sizes in KiB"
    print(f"{count} retries, and then the run completed")
    print(f"A run completed with 200 clients, `status` took at the most {max(took) * 1000:.0f} ms, resident memory "
          f"went from {flooded[0]['resident']} to {max(row['resident'] for row in flooded)} KiB")
    good = [show(f"Nobody answers: {each}", silent), show(f"The answer is of no use: {each}", useless),
            show(f"64 ports, {len(there)} times: the first five and the last five times that they were there",
                 there[:5] + there[-5:]),
            show("The same when they were gone", gone[:5] + gone[-5:])]
    sys.exit(0 if all(good) else 1)


if __name__ == "__main__":
    main()
