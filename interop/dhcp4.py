"""The servers for DHCPv4."""
from interop.case import Case
from interop.server import Server, parts_of
from interop.site import BOOT_FILE

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
        return "received RELEASE" in self.log() or "expired" in self.namespace.run("dumpleases", "-f", self.folder / "leases")


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


# What the option 66 of a server with TFTP and each other part is called in its template, and the name that goes with it.
ANSWERS = {"option 67": BOOT_FILE, "file field": BOOT_FILE, "option 66": "config"}
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


def one(name, kind, *parts, boot_file=BOOT_FILE, told=None, place="first", **case):
    """A case with one server."""
    place = "second" if kind is Networkd else place
    server = kind(*parts, place=place, told=told, boot_file=boot_file)
    return Case("DHCPv4", name, [server], remark=REMARKS.get((kind.name, name), ""), **case)


def on_the_way():
    return []


def several_servers():
    return []


def faults():
    return []
