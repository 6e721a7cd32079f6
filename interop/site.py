"""A virtual switch with one port, and three machines that may serve it:

    first    10.0.1.1, behind the port; the router there, with the servers for files of the lab
    second   10.0.1.2, on the same link
    behind   10.99.0.2, one router away from it

The link is a bridge, so that each of them has a device of its own and the capture sees what the port sees."""
from lab import servers
from lab.namespace import Namespace, run
from lab.runs import Switch

CONFIG = b"hostname provisioned\r\n" + bytes(range(256)) * 300  # several blocks of TFTP, and every byte that there is
SECOND = CONFIG + b"! from the second server"
BOOT_FILE = "http://10.0.1.1/config"
PORT = "port1"  # the other end of the switch's port
SWITCH_MAC = "02:00:00:01:00:01"


class Site(Switch):
    def up(self):
        self.second, self.behind = (Namespace(f"{self.name}-{name}") for name in ("second", "behind"))
        super().up()
        try:
            self._connect_port(1)
            self._connect(self.second, "lan", "p1")
            self._connect(self.behind, "far", None)
            self.behind.ip("address", "add", "10.99.0.2/24", "dev", "far")
            self.server.ip("address", "add", "10.99.0.1/24", "dev", "far")
            self.behind.ip("route", "add", "default", "via", "10.99.0.1")
            self.server.run("sysctl", "-qw", "net.ipv4.ip_forward=1")
            # A gateway outside of the /24, and the same servers behind it.
            self.server.ip("address", "add", "10.9.9.9/32", "dev", "p1")
            self.serve_files()
            self.put({"config": CONFIG, "second": SECOND})
        except BaseException:
            self.down()
            raise

    def down(self):
        super().down()
        self.second.delete()
        self.behind.delete()

    def put(self, files):
        for name, content in files.items():
            (self.www / name).parent.mkdir(parents=True, exist_ok=True)
            (self.www / name).write_bytes(content)

    def place(self, name):
        """The namespace of that machine, and the places of a template that it fills."""
        namespace, device, server4, server6, first, last = {
            "first": (self.server, "p1", "10.0.1.1", "2001:db8:1::1", 100, 149),
            "second": (self.second, "lan", "10.0.1.2", "2001:db8:1::2", 150, 199),
            "behind": (self.behind, "far", "10.99.0.2", "", 100, 149)}[name]
        return namespace, {"{device}": device, "{server4}": server4, "{server6}": server6, "{net4}": servers.net4(1),
                           "{first4}": f"10.0.1.{first}", "{last4}": f"10.0.1.{last}", "{net6}": servers.net6(1),
                           "{first6}": f"2001:db8:1::{first}", "{last6}": f"2001:db8:1::{last}",
                           "{files}": self.www, "{lab}": self.folder, "{server}": "10.0.1.1", "{port}": PORT}

    def _connect_port(self, number):
        """Makes p1, which add_veth() leaves as the other end of the port, a bridge with that end in it."""
        self.add_veth(number)
        self.server.ip("link", "set", "p1", "down")
        self.server.ip("link", "set", "p1", "name", PORT)
        self.server.ip("address", "flush", "dev", PORT)
        self.server.ip("link", "add", "p1", "type", "bridge", "mcast_snooping", "0")
        self._join_bridge(PORT)
        self.set_up_server_port(1)

    def reset(self):
        """Undoes what a server may have done to its device."""
        self.second.ip("address", "flush", "dev", "lan", "scope", "global")
        for address in ("10.0.1.2/24", "2001:db8:1::2/64"):
            self.second.ip("address", "add", address, "dev", "lan")
        if "port2" in self.server.links():
            self.server.ip("link", "del", "port2")

    def _connect(self, namespace, device, bridge):
        """Adds a device to a new namespace whose other end, in the first one, has the same name."""
        namespace.create()
        namespace.ip6_setting("default", "dad_transmits", 0)
        run("ip", "link", "add", device, "netns", self.server.name, "type", "veth", "peer", "name", device, "netns",
            namespace.name)
        namespace.ip("link", "set", device, "up")
        self.server.ip("link", "set", device, "up")
        if bridge:
            self._join_bridge(device)

    def _join_bridge(self, device):
        self.server.ip6_setting(device, "disable_ipv6", 1)
        self.server.ip("link", "set", device, "master", "p1")
        self.server.ip("link", "set", device, "up")

    def far_ends(self):
        """The other ends of the ports of the switch."""
        return sorted({"port1", "port2"} & set(self.server.links()))

    def add_second_port(self):
        """A second port of the switch, on the same link."""
        run("ip", "link", "add", "et2", "address", "02:00:00:01:00:02", "netns", self.switch.name, "type", "veth",
            "peer", "name", "port2", "netns", self.server.name)
        self._join_bridge("port2")
