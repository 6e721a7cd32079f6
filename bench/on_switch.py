"""Whole runs of a switch with one port, their DHCP and their downloads."""
import json
import statistics
import time

from lab.capture import Capture
from lab.polling import wait_for
from measuring import Client, a_lab, memory_kib, record

SIZE = 100_000_000
REFUSED = "http://{server}:8081/"  # ends the attempt, and the next one begins
ANSWER = {4: (68, 5), 6: (546, 7)}  # port and kind of message
NO_LEASE = ("stateSetupInterfaces", "stateDhcpQuery", "stateStatelessDhcpQuery", "stateRetry")


def reload_time(lab):
    wait_for(lab.host.reload_requested, "the reload", 60)
    return lab.host.get("/system/reload/reloadTime")


def provision_ms(lab):
    """From the event that starts a run to the request for the reload, less the waits that the timers prescribe."""
    lab.begin("dhcpv4", INETRFACESSETUP=0.5, SYSIDENTITYSETUP=0.5, DHCLIENTQUERY=15)
    end = reload_time(lab)
    start = json.loads(lab.host.cli("events", "--json"))[0]["time"]
    return (end - start - 2 * 0.5) * 1000


def cancel_ms(lab, state):
    """From before the command is started to the request for the reload."""
    lab.begin_in(state)
    start = time.time()
    lab.host.cli("cancel")
    return (reload_time(lab) - start) * 1000


def begin_download(lab, place):
    lab.begin("dhcpv4", f"{place}/large", INETRFACESSETUP=0.5, SYSIDENTITYSETUP=0.5, DHCLIENTQUERY=15)
    lab.switch.run("mount", "-o", "remount,size=200m", "/tmp")


def download_kib(lab):
    """The memory of the host, looked at from before a large download until it is installed."""
    begin_download(lab, "http://{server}")
    samples = []
    wait_for(lambda: samples.append(memory_kib(lab.host.process.pid)) or lab.host.reload_requested(), "the reload", 60)
    assert (lab.host.flash / "startup-config").stat().st_size == SIZE
    return (max(kind) for kind in zip(*samples))


def by_hand(lab, place):
    """What the agent does with a download, as commands: it is fetched, copied to the flash, and flushed to the disk with
    its new name."""
    flash = lab.host.flash
    return (f"curl --silent --insecure --fail --output /tmp/large {place.format(server='10.0.1.1')}/large && "
            f"cp /tmp/large {flash}/large.new && sync {flash}/large.new && mv {flash}/large.new {flash}/large && sync {flash}")


def fetch_ratio(lab, place, rounds=5):
    """The agent's time for the download, from event to event, against the wall time of the commands that do the same in
    the same places, as medians. They take turns, so that other load on the machine meets both alike."""
    commands, agent = [], []
    for _ in range(rounds):
        begin_download(lab, place)
        reload_time(lab)
        begin, end = lab.events("ZTP_CONFIG_DOWNLOAD", "ZTP_CONFIG_DOWNLOAD_SUCCESS")
        agent.append(end["time"] - begin["time"])
        lab.switch.run("rm", "/tmp/zt-download")
        timed = f"TIMEFORMAT=%R; {{ time {{ {by_hand(lab, place)}; }}; }} 2>&1"
        commands.append(float(lab.switch.run("bash", "-c", timed)))
    return statistics.median(agent) / statistics.median(commands)


def last_time(capture, port, kind):
    """The time of the last such message so far; earlier ones may have acknowledged a release."""
    result = None
    try:
        while True:
            result = capture.message(port, kind, timeout=0)[1]
    except AssertionError:
        return result


def answer_ms(lab, family):
    """From the answer's leaving of the server to the port's being chosen, as a client of the socket sees it."""
    capture = Capture(lab.server, "p1")
    lab.begin(f"dhcpv{family}", REFUSED, INETRFACESSETUP=1, RETRY=0.5)
    client = Client(lab.host)
    client.call("watch", "/zerotouch/sm/choosenIntf")
    times = [(client.until("Ethernet1") - last_time(capture, *ANSWER[family])) * 1000 for _ in range(20)]
    capture.close()
    return times


def measure():
    with a_lab(1) as lab:
        lab.serve_files()
        with open(lab.www / "large", "wb") as file:
            file.truncate(SIZE)
        record("provisioning over HTTP, less waits", "ms", [provision_ms(lab) for _ in range(15)], "at most 300")
        record("cancel to reload request, in states without a lease", "ms",
               [cancel_ms(lab, state) for state in NO_LEASE for _ in range(3)], "at most 200")
        for family in ANSWER:
            record(f"DHCPv{family} answer leaves the server to port chosen", "ms", answer_ms(lab, family), "at most 50")
        resident, anonymous = download_kib(lab)
        record("100 MB download: resident memory, at the most", "KiB", [resident], "at most 14336")
        record("100 MB download: anonymous memory, at the most", "KiB", [anonymous])
        for place in ("http://{server}", "http://boot.example", "https://{server}", "https://boot.example"):
            record(f"100 MB from {place.format(server='10.0.1.1')}, against curl, cp and sync", "x", [fetch_ratio(lab, place)],
                   "at most 1.25")
