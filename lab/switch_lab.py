"""A virtual switch and the servers that its ports lead to, in two network namespaces.

A port of the switch, et1, leads to the device p1 of the server side. It is one of two kinds:

    veth  a pair of devices; it has a carrier while both ends are up
    tap   two TAP devices, which can be told what speeds to support; it has a carrier while a cable joins them

What there is, is asked of the kernel every time, so that any number of commands and tests can work on one lab."""
import pathlib
import re
import shutil

from lab.host import Host
from lab.namespace import Namespace, SwitchNamespace, run
from lab.processes import Processes

HERE = pathlib.Path(__file__).resolve().parent
NAME = re.compile("[A-Za-z0-9][A-Za-z0-9-]{0,62}")
LABS = pathlib.Path("/run/zerotouch-lab")
SCENARIOS = HERE / "scenarios"

PLATFORM = """[ports]
devices = ["et*"]
names = [{ device = "et(.*)", shown = "Ethernet\\\\1" }]
[inventory]
model_name = "LAB-SWITCH"
serial_num = "LAB0001"
system_mac = "02:00:00:00:00:01"
"""


def mac(end, number):
    return f"02:00:00:{end:02x}:{number >> 8:02x}:{number & 0xff:02x}"


class Lab:
    def __init__(self, name="ztlab"):
        if not NAME.fullmatch(name):
            raise ValueError(f"'{name}' cannot be the name of a lab; letters, digits and dashes can")
        self.name = name
        self.folder = LABS / name
        self.processes = Processes(self.folder)
        self.switch = SwitchNamespace(f"{name}-switch", self.processes)
        self.server = Namespace(f"{name}-server")
        self.host = Host(self.folder / "switch", "switch", "linux", PLATFORM, self.switch.enter)

    # The lab as a whole.

    def up(self):
        """On any error, nothing is left behind."""
        if not self.is_down():
            raise RuntimeError(f"{self.name} is up already, or was not taken down")
        try:
            self.folder.mkdir(parents=True)
            self.server.create()
            # A port that is unplugged keeps its address, and has the use of it as soon as it is plugged in again.
            self.server.ip6_setting("all", "keep_addr_on_down", 1)
            self.server.ip6_setting("default", "dad_transmits", 0)
            self.switch.create("switch", self.host.folder / "etc")
            self.host.prepare()
        except BaseException:
            self.down()
            raise

    def down(self):
        """Takes everything away; nothing is wrong with a lab that is up in parts only."""
        try:
            self.host.stop()
            self.processes.stop_all()
        finally:
            self.switch.delete()
            self.server.delete()
            shutil.rmtree(self.folder, ignore_errors=True)

    def is_up(self):
        return self.processes.running(SwitchNamespace.HOLDER) is not None

    def is_down(self):
        return not (self.folder.exists() or self.switch.exists() or self.server.exists())

    def running(self):
        """The names of what runs in the background, the host aside."""
        return [name for name in self.processes.names() if name != SwitchNamespace.HOLDER]

    # Ports, by their number.

    def ports(self):
        """The numbers of those that are there."""
        return sorted(int(device[1:]) for device in self.server.links() if device[1:].isdecimal())

    def add_veth(self, number):
        """The switch's end is down, as at its boot."""
        run("ip", "link", "add", f"et{number}", "address", mac(1, number), "netns", self.switch.name, "type", "veth",
            "peer", "name", f"p{number}", "address", mac(2, number), "netns", self.server.name)
        self._set_up_server_side(number)

    def add_tap(self, number, modes=()):
        """`modes`: what it says that it supports, from link_modes.MODES. It is unplugged."""
        for namespace, device, end in ((self.switch, f"et{number}", 1), (self.server, f"p{number}", 2)):
            namespace.ip("tuntap", "add", "mode", "tap", "name", device)
            namespace.ip("link", "set", device, "address", mac(end, number))
        self.switch.run(HERE / "link_modes.py", f"et{number}", *modes)
        self._set_up_server_side(number)

    def remove(self, number):
        self.processes.stop(f"cable-{number}")
        for namespace, device in ((self.switch, f"et{number}"), (self.server, f"p{number}")):
            if device in namespace.links():
                namespace.ip("link", "del", device)

    def plug(self, number):
        if self.is_tap(number):
            self.processes.start(f"cable-{number}", [HERE / "cable.py", self.switch.name, f"et{number}",
                                                     self.server.name, f"p{number}"])
        else:
            self.server.ip("link", "set", f"p{number}", "up")

    def unplug(self, number):
        if self.is_tap(number):
            self.processes.stop(f"cable-{number}")
        else:
            self.server.ip("link", "set", f"p{number}", "down")

    def is_tap(self, number):
        link = self.server.links().get(f"p{number}")
        if link is None:
            raise RuntimeError(f"there is no port et{number}")
        return link["linkinfo"]["info_kind"] == "tun"

    def _set_up_server_side(self, number):
        self.server.ip("address", "add", f"2001:db8:{number:x}::1/64", "dev", f"p{number}", "nodad")
        self.server.ip("link", "set", f"p{number}", "up")

    # What the server side sends.

    def serve(self, scenario):
        """Runs dnsmasq on all ports with scenarios/SCENARIO.conf, in place of an earlier one."""
        self.stop_serving()
        self.processes.start("dnsmasq", [
            *self.server.enter(), "dnsmasq", f"--conf-file={SCENARIOS / scenario}.conf", "--keep-in-foreground",
            "--user=root", "--log-facility=-", "--pid-file=", f"--dhcp-leasefile={self.folder / 'leases'}"],
            ready="started, version")

    def stop_serving(self):
        self.processes.stop("dnsmasq")

    def send_lldp(self, number, interval=1.0, vlan=None):
        argv = [*self.server.enter(), HERE / "lldp_sender.py", f"p{number}", "--interval", interval]
        self.processes.start(f"lldp-{number}", argv + (["--vlan", vlan] if vlan is not None else []))

    def stop_lldp(self, number):
        self.processes.stop(f"lldp-{number}")
