"""What a run made of the switch, in the words in which a server is told what to send."""
import re

# Of a switch that was told nothing. Addresses are compared with what the capture shows.
NOTHING = {"host name": "switch", "name servers": [], "domain": "", "routes": [], "log hosts": [], "mtu": 1500}

# How the event of an answer names things.
IN_EVENT = {"Mtu": "mtu", "Ip Address": "address", "Hostname": "host name", "Nameserver": "name servers",
            "Logserver": "log hosts", "Domain": "domain", "Boot File": "boot file", "Gateway": "gateways"}


def identity(site):
    """What is set on the switch."""
    found = site.found()
    device = site.host.get("/zerotouch/sm/choosenIntf").replace("Ethernet", "et")
    return {"host name": found["host name"], "mtu": site.switch.links()[device]["mtu"],
            "name servers": re.findall(r"^nameserver (\S+)", found["resolver"], re.M),
            "domain": " ".join(re.findall(r"^search (.+)", found["resolver"], re.M)),
            "log hosts": re.findall(r'target="([^"]+)"', "".join(found["log"])),
            "routes": sorted(map(route, (line for line in found["routes"] if "proto 142" in line)), key=by_length)}


def route(line):
    """The part of a line of `ip route` that says where to and through whom."""
    return re.match(r"\S+(?: via \S+| dev \S+)", line)[0]


def by_length(line):
    return line.startswith("default"), line


SUCCESS = {"4": "ZTP_DHCPv4_SUCCESS", "6": "ZTP_DHCPv6_SUCCESS", "stateless": "ZTP_STATELESS_DHCPv6_SUCCESS"}


def taken(events, family):
    """The last answer of DHCP that named a boot file, as its event tells it. It has to be of that family."""
    answers = [event for event in events if event["name"] in SUCCESS.values()]
    assert answers, "no answer was taken"
    assert answers[-1]["name"] == SUCCESS[family], f"the answer taken is that of {answers[-1]['name']}"
    result = {}
    for field in re.search(r"\[ (.*) \]", answers[-1]["message"], re.S)[1].split("; "):
        name, _, value = field.partition(": ")
        if name == "Route":
            result.setdefault("routes", []).append(re.sub(r"key=(\S+), hop=(\S+)", r"\1 via \2", value))
        else:
            result.setdefault(IN_EVENT[name], []).append(value)
    return {name: sorted(values) for name, values in result.items()}
