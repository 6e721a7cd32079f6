"""The servers for DHCPv4."""
import re

from interop import wire
from interop.case import Case
from interop.server import Server, parts_of
from interop.site import BOOT_FILE, SECOND, SWITCH_MAC
from lab.host import ROOT

IDENTITY = {"host name": "leaf-1", "name servers": ["10.0.1.1"], "domain": "lab.example",
            "routes": ["default via 10.0.1.1"], "log hosts": ["10.0.1.1"], "mtu": 1400}
CLASSLESS = {"routes": ["192.168.77.0/24 via 10.0.1.1", "default via 10.0.1.1"]}


class Dnsmasq(Server):
    name, package, template = "dnsmasq", "dnsmasq-base", "dnsmasq.conf"
    ready = "started, version"
    release = r"DHCPRELEASE\(\S+\) {address} "
    told = IDENTITY

    def command(self, config):
        return ["dnsmasq", f"--conf-file={config}", "--keep-in-foreground", "--log-facility=-", "--pid-file=", "--port=0",
                "--user=root", "--no-ping", "--log-dhcp", f"--dhcp-leasefile={self.folder}/leases", "--bind-dynamic"]


class Kea4(Server):
    name, package, template = "kea-dhcp4", "kea-dhcp4-server", "kea-dhcp4.conf"
    ready = "DHCP4_STARTED"
    release = r"DHCP4_RELEASE .*{address}.*"
    told = IDENTITY

    def command(self, config):
        return [self.name, "-c", config]

    def environment(self):
        return {"KEA_PIDFILE_DIR": str(self.folder), "KEA_LOCKFILE_DIR": str(self.folder)}


class Isc4(Server):
    name, package, template = "isc-dhcp-server", "isc-dhcp-server", "isc-dhcpd.conf"
    ready = "Server starting service"
    release = r"DHCPRELEASE of {address} from .*\(found\)"
    told = IDENTITY

    def prepare(self):
        (self.folder / "leases").touch()

    def command(self, config):
        return ["dhcpd", "-4", "-f", "-d", "-user", "root", "-group", "root", "-cf", config, "-lf",
                self.folder / "leases", "-pf", self.folder / "pid", self.places["{device}"]]


class Udhcpd(Server):
    name, package, template = "udhcpd", "udhcpd", "udhcpd.conf"
    ready = "started"
    told = IDENTITY

    def prepare(self):
        (self.folder / "leases").touch()

    def command(self, config):
        return ["busybox", "udhcpd", "-f", "-vvv", config]

    def released(self, address):
        """The lease file, written at each change, has the lease as expired."""
        return "expired" in self.namespace.run("dumpleases", "-f", self.folder / "leases")


class Coredhcp(Server):
    name, package, template = "coredhcp", "coredhcp-server", "coredhcp.yml"
    ready = "Listen 0.0.0.0"
    told = {name: IDENTITY[name] for name in ("name servers", "routes", "mtu")}

    def command(self, config):
        return ["coredhcp", "--conf", config, "--loglevel", "debug"]


class Networkd(Server):
    name, package, template = "systemd-networkd", "systemd", "networkd.network"
    private = ("/run/systemd", "/etc/systemd/network")
    ready = "DHCPv4 server: STARTED"
    release = "DHCPv4 server: RELEASE"
    told = {name: IDENTITY[name] for name in ("name servers", "routes", "mtu", "domain", "host name", "log hosts")}

    def prepare(self):
        network = self.folder / "etc/systemd/network"
        network.mkdir(parents=True)
        (network / "lan.network").write_text(self.configuration())

    def command(self, config):
        # A /sys that is only to be read tells it not to wait for udev, which knows nothing of this namespace.
        return ["sh", "-c", "mount -o remount,ro,bind /sys && exec /usr/lib/systemd/systemd-networkd"]

    def environment(self):
        return {"SYSTEMD_LOG_LEVEL": "debug"}


class Relay(Server):
    """It forwards to the machine behind, which serves as one of the others."""
    name, package, template = "isc-dhcp-relay", "isc-dhcp-relay", "isc-dhcp-relay.command"
    ready = "Sending on   Socket"


class Odd(Server):
    """A server of this project."""
    name = "odd_dhcp.py"
    ready = "ready"
    release = r"RELEASE {address}"
    told = {"routes": ["default via 10.0.1.1"]}

    def command(self, _):
        return [ROOT / "interop" / "odd_dhcp.py", self.values["mode"], "p1", "10.0.1.1", "10.0.1.100", BOOT_FILE]


# What the option 66 of a server with TFTP and each other part is called in its template, and the name that goes with it.
ANSWERS = {"option 67": BOOT_FILE, "file field": BOOT_FILE, "option 66": "config"}
PATIENT = '[dhcp]\nclient_timing = "rfc"\n'
REMARKS = {
    ("coredhcp", "option 67"): "plugin `nbp` with an HTTP URL",
    ("coredhcp", "option 66"): "plugin `nbp` with a TFTP URL; it goes into options 66 and 67",
    ("systemd-networkd", "option 67"): "by the number of the option: `SendOption=67:string:...`",
    ("kea-dhcp4", "option 121"): "Kea 2.2 wants its bytes, and a definition of the option",
}


def cases():
    return [*answers(), *on_the_way(), *several_servers(), *faults()]


def answers():
    """The ways to name a boot file, and the classless routes."""
    for kind in (Dnsmasq, Kea4, Isc4, Udhcpd, Coredhcp, Networkd):
        for part, boot_file in ANSWERS.items():
            if part in parts_of(kind.template):
                yield one(part, kind, part, boot_file=boot_file)
        if "option 121" in parts_of(kind.template):
            yield one("option 121", kind, "option 67", "option 121", told=CLASSLESS)


def one(name, kind, *parts, boot_file=BOOT_FILE, told=None, delay=0, **case):
    """A case with one server."""
    place = "second" if kind is Networkd else "first"
    server = kind(*parts, place=place, told=told, boot_file=boot_file, delay=delay)
    return Case("DHCPv4", name, [server], **{"remark": REMARKS.get((kind.name, name), "")} | case)


def on_the_way():
    """What happens to the messages between switch and server."""
    for kind in (Dnsmasq, Kea4, Isc4):
        parts = ["option 67"] + (["relay"] if kind is Isc4 else [])
        server = kind(*parts, place="behind", boot_file=BOOT_FILE)
        yield Case("DHCPv4", "behind a relay", [Relay(server=server_address(server)), server], subject=server,
                   told=IDENTITY, remark="isc-dhcp-relay; the release goes to the server by the gateway")
    yield one("answers after 8 s", Dnsmasq, "option 67", "late", delay=8, waits={"DHCLIENTQUERY": 15}, keys=PATIENT,
              remark="`dhcp-reply-delay` holds each discovery for so long, one after the other: wants "
                     '`client_timing = "rfc"`')
    yield one("answers after 3 s", Dnsmasq, "option 67", "late", delay=3, waits={"DHCLIENTQUERY": 15},
              remark="`dhcp-reply-delay`")
    yield one("answers after 8 s", Isc4, "option 67", "late", delay=8, waits={"DHCLIENTQUERY": 15}, remark="`min-secs`")
    yield one("answers after 4 s", Coredhcp, "option 67", "late", waits={"DHCLIENTQUERY": 15}, remark="plugin `sleep`")
    yield one("would commit rapidly", Dnsmasq, "option 67", "rapid commit",
              remark="`dhcp-rapid-commit`; the client does not ask for it")
    for mode, remark in (("nak-first", "the first request is refused"),
                         ("two-offers", "the second offer to each discovery is the first with a boot file")):
        yield Case("DHCPv4", mode.replace("-", " "), [Odd(mode=mode)],
                   remark=f"interop/odd_dhcp.py: {remark}", waits={"DHCLIENTQUERY": 4})
    yield Case("DHCPv4", "option 66 and a URL in option 67", [Dnsmasq("option 66", boot_file=BOOT_FILE)],
               before=lambda run: run.site.put({"http:/10.0.1.1/config": SECOND}), installed=SECOND,
               remark="by default, option 66 makes the URL of option 67 a path of TFTP")
    yield Case("DHCPv4", "option 66 and a URL in option 67", [Kea4("option 66", boot_file=BOOT_FILE)],
               before=lambda run: run.site.put({"http:/10.0.1.1/config": SECOND}), installed=SECOND,
               remark="by default, option 66 makes the URL of option 67 a path of TFTP")


def server_address(server):
    return {"first": "10.0.1.1", "second": "10.0.1.2", "behind": "10.99.0.2"}[server.place]


def several_servers():
    second = {"place": "second", "boot_file": BOOT_FILE.replace("config", "second")}
    first = Dnsmasq("option 67", "late", delay=3, boot_file=BOOT_FILE)
    quick = Kea4("option 67", **second)
    yield Case("DHCPv4", "two servers that name different files", [first, quick], subject=quick, installed=SECOND,
               releases=quick, waits={"DHCLIENTQUERY": 15}, remark="the first answer wins; dnsmasq answers 3 s later")


def faults():
    """Cases in which the answer is right, and not the first or not of the usual form."""
    late = Kea4("option 67", place="second", boot_file=BOOT_FILE)

    def joins(run):
        run.wait_event("ZTP_DHCPv4_QUERY_FAIL")
        run.start(late)

    yield Case("DHCPv4", "joins one without a boot file", [Dnsmasq("authoritative")], subject=late, then=joins,
               releases=late, waits={"DHCLIENTQUERY": 4}, told=IDENTITY,
               remark="dnsmasq without a boot file answers from the beginning on")
    for kind, other in ((Kea4, Dnsmasq), (Isc4, Dnsmasq)):
        quick, right = other(), kind("option 67", place="second", boot_file=BOOT_FILE)
        yield Case("DHCPv4", "slower than one without a boot file", [quick, right], subject=right, told=IDENTITY,
                   releases=right, waits={"DHCLIENTQUERY": 4}, remark="dnsmasq without a boot file answers at once")
    slow = Dnsmasq("option 67", "late", delay=1, place="second", boot_file=BOOT_FILE)
    yield Case("DHCPv4", "a second slower than one without a boot file", [Kea4(), slow], subject=slow, told=IDENTITY,
               releases=slow, waits={"DHCLIENTQUERY": 4}, remark="Kea without a boot file answers at once")
    on_link = {"routes": ["10.9.9.9 dev et1", "default via 10.9.9.9"]}
    yield one("on-link route and an address with /32", Dnsmasq, "option 67", "on-link route", told=on_link,
              waits={"DHCLIENTQUERY": 4})
    # The client asks its last port first; a port whose answer comes after the choice has no lease to give back.
    server = Dnsmasq("two ports", "boot file for one port", boot_file=BOOT_FILE, mac=SWITCH_MAC)
    yield Case("DHCPv4", "two ports on its link", [server], before=lambda run: run.site.add_second_port(),
               check=every_lease_is_released, waits={"DHCLIENTQUERY": 4},
               remark="also the lease of the port that was not chosen is released")
    yield Case("DHCPv4", "HTTP names its agent", [Dnsmasq("option 67", boot_file=BOOT_FILE)], check=agent_is_named)


def every_lease_is_released(run):
    log = run.case.subject.log()
    given, released = (set(re.findall(rf"{word}\(\S+\) (\S+) ", log)) for word in ("DHCPACK", "DHCPRELEASE"))
    assert given == released, f"{given} were leased and {released} released"


def agent_is_named(run):
    agents = {agent for packet in wire.of_switch(run.packets) for agent in packet["http.user_agent"]}
    assert len(agents) == 1 and re.fullmatch(r"zerotouch/\d\S*", *agents), f"the User-Agent is {agents or 'not sent'}"
