"""The servers for DHCPv6."""
from interop import wire
from interop.advertisements import Bird, Frr, Radvd
from interop.case import Case
from interop.dhcp4 import IDENTITY, Dnsmasq, Isc4, Kea4
from interop.server import Server
from interop.site import SECOND

BOOT_FILE = "http://[2001:db8:1::1]/config"
IDENTITY6 = {"name servers": ["2001:db8:1::1"], "domain": "lab.example"}
DUID = "00:03:00:01:02:00:00:00:00:01"  # by the system's MAC address, and nothing that changes with a boot
SOLICIT, INFORMATION_REQUEST = "1", "11"


class Kea6(Kea4):
    name, package, template = "kea-dhcp6", "kea-dhcp6-server", "kea-dhcp6.conf"
    ready = "DHCP6_STARTED"
    private = ("/var/lib/kea",)  # where it keeps its DUID
    release = r"DHCP6_RELEASE_NA .*{address}"
    told = IDENTITY6


class Isc6(Isc4):
    name, template = "isc-dhcp-server -6", "isc-dhcpd6.conf"
    release = r"[Rr]eleases? address {address}"
    told = IDENTITY6

    def command(self, config):
        return ["-6" if word == "-4" else word for word in super().command(config)]


class Dnsmasq6(Dnsmasq):
    name, template = "dnsmasq -6", "dnsmasq-dhcpv6.conf"
    release = rf"DHCPRELEASE\(\S+\) {DUID}"
    told = IDENTITY6


class Dibbler(Server):
    name, package, template = "dibbler", "dibbler-server", "dibbler-server.conf"
    ready = "Accepting connections|bound to|Server begins operation"
    release = "Received RELEASE"
    private = ("/etc/dibbler", "/var/lib/dibbler", "/var/log/dibbler")
    told = IDENTITY6

    def prepare(self):
        (self.folder / "etc/dibbler").mkdir(parents=True)
        (self.folder / "etc/dibbler/server.conf").write_text(self.configuration())

    def command(self, config):
        return ["dibbler-server", "run"]


class Wide(Server):
    name, package, template = "wide-dhcpv6", "wide-dhcpv6-server", "dhcp6s.conf"
    port = "udp 547"

    def command(self, config):
        return ["dhcp6s", "-f", "-D", "-P", self.folder / "pid", "-c", config, self.places["{device}"]]


def cases():
    return [*stateful(), *stateless(), *faults(), *both_families()]


def managed(*servers, **options):
    """A router that sends everybody to DHCPv6, after the servers."""
    return [*servers, Radvd("managed", **options)]


def stateful():
    kea = {"boot_file": BOOT_FILE, "duid": DUID}
    for server in (Kea6("boot file", **kea), Isc6(boot_file=BOOT_FILE), Dibbler("stateful", boot_file=BOOT_FILE)):
        yield Case("DHCPv6", "stateful", managed(server), family="6")
    yield Case("DHCPv6", "stateful", [Dnsmasq6("stateful", boot_file=BOOT_FILE)], family="6")
    yield Case("DHCPv6", "stateful", managed(Wide()), family="6", cannot=has_no_boot_file)
    yield Case("DHCPv6", "would commit rapidly", managed(Kea6("boot file", "rapid commit", **kea)), family="6")
    yield Case("DHCPv6", "reserved by DUID", managed(Kea6("boot file", "reservation", **kea)), family="6",
               check=has_reserved_address, remark="the DUID is 00:03:00:01 and the system's MAC address, at each boot")
    yield Case("DHCPv6", "is asked for what RFC 8415 demands", managed(Kea6("boot file", **kea)), family="6",
               check=asks_for({SOLICIT: {"82"}}), remark="option 82 in the solicitation")


def stateless():
    kea = {"boot_file": BOOT_FILE, "duid": DUID}
    for server in (Kea6("boot file", **kea), Isc6(boot_file=BOOT_FILE), Dibbler("stateless", boot_file=BOOT_FILE)):
        yield Case("DHCPv6", "stateless", [server, Radvd("other")], family="stateless")
    yield Case("DHCPv6", "stateless", [Dnsmasq6("stateless", boot_file=BOOT_FILE)], family="stateless")
    yield Case("DHCPv6", "stateless: is asked for what RFC 8415 demands", [Kea6("boot file", **kea), Radvd("other")],
               family="stateless", check=asks_for({INFORMATION_REQUEST: {"32", "83"}}),
               remark="options 32 and 83, and DUID-LL")


def asks_for(wanted):
    """A check that the first message of a kind requests these options and has the DUID-LL of the system."""
    def check(run):
        for kind, codes in wanted.items():
            message = next(packet for packet in wire.of_switch(run.packets) if packet["dhcpv6.msgtype"] == [kind])
            missing = codes - set(message["dhcpv6.requested_option_code"])
            assert not missing, f"options {sorted(missing)} are not requested"
            duid = message["dhcpv6.duid.bytes"][0]
            assert duid.replace(":", "") == DUID.replace(":", ""), f"the DUID is {duid}"
    return check


def has_reserved_address(run):
    assert run.address == "2001:db8:1::42", f"the address is {run.address}"


def has_no_boot_file(site):
    """Proves by the server's own word that its configuration cannot name a boot file."""
    server = Wide()
    server.configuration = lambda: 'option bootfile-url "http://example/";\n' + Server.configuration(server)
    try:
        server.start(site)
    except RuntimeError as error:
        assert "syntax error" in str(error), f"it failed for another reason: {error}"
        return "it cannot name a boot file: `option bootfile-url` is a syntax error to it"
    server.stop()
    raise AssertionError("it took an option for a boot file; the case can be played")


def faults():
    """Links whose routers say things that are less common."""
    def kea():
        return Kea6("boot file", boot_file=BOOT_FILE, duid=DUID)
    for kind in (Radvd, Bird, Frr):
        for flag, family in (("managed", "6"), ("other", "stateless")):
            yield Case("Router advertisements", flag, [kea(), router := kind(flag)], subject=router, family=family)
        yield Case("Router advertisements", "managed, of a router with lifetime 0",
                   [kea(), router := kind("managed", "no gateway")], subject=router, family="6")
    for first, second in ((Radvd, Bird), (Bird, Radvd)):
        servers = [kea(), router := first("managed"), second(place="second")]
        yield Case("Router advertisements", f"managed, beside a {second.name} that says nothing", servers, subject=router,
                   family="6", remark="both advertise every 3 to 4 s")


def both_families():
    for kind, kind6 in ((Dnsmasq, Kea6), (Kea4, Kea6), (Isc4, Isc6)):
        first = kind("option 67", boot_file="http://10.0.1.1/second")
        parts = ["boot file"] if kind6 is Kea6 else []
        servers = [first, *managed(kind6(*parts, boot_file=BOOT_FILE, duid=DUID))]
        yield Case("Both families", f"a boot file in each, and {kind6.name}", servers, installed=SECOND, told=IDENTITY,
                   waits={"INETRFACESETUP": 2.5}, remark="DHCPv4 wins")
