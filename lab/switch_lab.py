"""A virtual switch and the servers that its ports lead to, in two network namespaces.

A port of the switch, et1, leads to the device p1 of the server side. It is one of two kinds:

    veth  a pair of devices; it has a carrier while both ends are up
    tap   two TAP devices, which can be told what speeds to support; it has a carrier while a cable joins them

The lab keeps no record of its ports: it reads them from the kernel every time, so that several commands and tests can
work on one lab."""
import pathlib
import re
import shutil

from lab.host import BUILD, ROOT, Host
from lab.namespace import SwitchNamespace, run
from lab.server_side import HERE, ServerSide, mac

NAME = re.compile("[A-Za-z0-9][A-Za-z0-9-]{0,62}")
LABS = pathlib.Path("/run/zerotouch-lab")

# The files that a real system has installed, by their paths below /usr.
INSTALLED = {f"bin/{program}": BUILD / "bin" / program
             for program in ("zerotouch", "zerotouch-dhclient-script", "zerotouch-dhclient")}
INSTALLED |= {f"share/ZeroTouch/{template}": ROOT / "share" / template
              for template in ("zerotouch-dhclient.conf", "zerotouch-dhclient6.conf")}
DHCLIENT = "bin/zerotouch-dhclient"

AT_BOOT = ("disable_ipv6", "accept_ra", "accept_ra_defrtr")  # settings that a boot resets to those of a new device

PLATFORM = """[ports]
devices = ["et*"]
names = [{ device = "et(.*)", shown = "Ethernet\\\\1" }]
[inventory]
model_name = "LAB-SWITCH"
serial_num = "LAB0001"
system_mac = "02:00:00:00:00:01"
"""


class Lab(ServerSide):
    def __init__(self, name="ztlab", installed=INSTALLED):
        """`installed` maps paths below /usr of the switch to files. When it is empty, a package can be installed on the
        switch, which lasts until the reboot."""
        if not NAME.fullmatch(name):
            raise ValueError(f"'{name}' cannot be the name of a lab; letters, digits and dashes can")
        super().__init__(f"{name}-server", LABS / name)
        self.name = name
        self.installed = installed
        self.switch = SwitchNamespace(f"{name}-switch", self.processes, self.folder / "switch",
                                      [self.folder, ROOT, BUILD])
        self.host = Host(self.folder / "switch", None, "linux", PLATFORM, self.switch.enter, self._reboot_switch)
        if DHCLIENT in installed and installed[DHCLIENT].exists():
            self.host.environment["ZEROTOUCH_DHCLIENT"] = f"/usr/{DHCLIENT}"

    # The lab as a whole.

    def up(self):
        """Makes the lab. When that fails, nothing is left behind."""
        if not self.is_down():
            raise RuntimeError(f"{self.name} is up already, or was not taken down")
        try:
            self.folder.mkdir(parents=True)
            self.create_server_side()
            self.switch.create("switch", self.installed)
            self.host.prepare()
        except BaseException:
            self.down()
            raise

    def down(self):
        """Removes the lab, also one of which only parts are up."""
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

    def _reboot_switch(self):
        self.switch.halt()
        self.switch.boot()
        for device in (f"et{number}" for number in self.ports()):
            self.switch.ip("link", "set", device, "down", "nomaster", "mtu", "1500")
            self.switch.ip("address", "flush", "dev", device)
            for item in AT_BOOT:
                self.switch.ip6_setting(device, item, self.switch.ip6_setting("default", item))

    def running(self):
        """The names of the programs that run in the background, without the host."""
        return [name for name in self.processes.names() if name != SwitchNamespace.HOLDER]

    # Ports, by their number.

    def add_veth(self, number):
        """Adds a veth port. The end on the switch is down, as at a boot."""
        run("ip", "link", "add", f"et{number}", "address", mac(1, number), "netns", self.switch.name, "type", "veth",
            "peer", "name", f"p{number}", "address", mac(2, number), "netns", self.server.name)
        self.set_up_server_port(number)

    def add_tap(self, number, modes=()):
        """Adds a TAP port without a cable. `modes` are the link modes that it reports as supported, from link_modes.MODES."""
        for namespace, device, end in ((self.switch, f"et{number}", 1), (self.server, f"p{number}", 2)):
            namespace.ip("tuntap", "add", "mode", "tap", "name", device)
            namespace.ip("link", "set", device, "address", mac(end, number))
        self.switch.run(HERE / "link_modes.py", f"et{number}", *modes)
        self.set_up_server_port(number)

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

    # The clock and the clients of the host.

    def clock_environment(self):
        """The environment of a host whose wall clock shift_clock() sets, together with that of its children."""
        library, shift = self.folder / "clock_shift.so", self.folder / "clock-shift"
        run("cc", "-shared", "-fPIC", "-o", library, HERE / "clock_shift.c")
        shift.write_text("0")
        sanitizer = re.search(r"(\S*libasan\S*) \(", run("ldd", BUILD / "bin" / "zerotouchd"))  # has to come first
        preloaded = [sanitizer[1]] if sanitizer else []
        return {"LD_PRELOAD": ":".join([*preloaded, str(library)]), "CLOCK_SHIFT": str(shift),
                "ASAN_OPTIONS": "detect_leaks=0"}

    def shift_clock(self, seconds):
        """Sets that clock ahead of the clock of this machine by so many seconds."""
        (self.folder / "clock-shift").write_text(str(seconds))

    def flood(self, clients):
        """Floods the socket of the host with that many clients, until the program "flood" is stopped."""
        self.processes.start("flood", [HERE / "flood.py", self.host.socket, clients])
