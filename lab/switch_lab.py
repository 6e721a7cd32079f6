"""A virtual switch and the servers that its ports lead to, in two network namespaces.

A port of the switch, et1, leads to the device p1 of the server side. It is one of two kinds:

    veth  a pair of devices; it has a carrier while both ends are up
    tap   two TAP devices, which can be told what speeds to support; it has a carrier while a cable joins them

The lab keeps no record of its ports: it reads them from the kernel every time, so that several commands and tests can
work on one lab."""
import pathlib
import re
import shutil

from lab import servers
from lab.host import BUILD, ROOT, Host
from lab.namespace import Namespace, SwitchNamespace, run
from lab.processes import Processes

HERE = pathlib.Path(__file__).resolve().parent
NAME = re.compile("[A-Za-z0-9][A-Za-z0-9-]{0,62}")
LABS = pathlib.Path("/run/zerotouch-lab")

# The files that a real system has installed, by their paths below /usr.
INSTALLED = {f"bin/{program}": BUILD / "bin" / program
             for program in ("zerotouch", "zerotouch-dhclient-script", "zerotouch-dhclient")}
INSTALLED |= {f"share/ZeroTouch/{template}": ROOT / "share" / template
              for template in ("zerotouch-dhclient.conf", "zerotouch-dhclient6.conf")}
DHCLIENT = "bin/zerotouch-dhclient"

FILE_SERVERS = ("nginx", "vsftpd", "names-and-tftp", "bad-server")
AT_BOOT = ("disable_ipv6", "accept_ra", "accept_ra_defrtr")  # settings that a boot resets to those of a new device

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
    def __init__(self, name="ztlab", installed=INSTALLED):
        """`installed` maps paths below /usr of the switch to files. When it is empty, a package can be installed on the
        switch, which lasts until the reboot."""
        if not NAME.fullmatch(name):
            raise ValueError(f"'{name}' cannot be the name of a lab; letters, digits and dashes can")
        self.name = name
        self.installed = installed
        self.folder = LABS / name
        self.processes = Processes(self.folder)
        self.switch = SwitchNamespace(f"{name}-switch", self.processes, self.folder / "switch",
                                      [self.folder, ROOT, BUILD])
        self.www = self.folder / "www"  # the files that are served
        self.server = Namespace(f"{name}-server")
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
            self.server.create()
            # A port that is unplugged keeps its address, and has the use of it as soon as it is plugged in again.
            self.server.ip6_setting("all", "keep_addr_on_down", 1)
            self.server.ip6_setting("default", "dad_transmits", 0)
            self.server.ip("link", "add", "stable", "up", "type", "veth", "peer", "name", "stable-peer")
            self.server.ip("link", "set", "stable-peer", "up")
            self.server.ip("address", "add", "2001:db8::1", "dev", "stable", "nodad")
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

    def ports(self):
        """The numbers of the ports."""
        return sorted(int(device[1:]) for device in self.server.links() if device[1:].isdecimal())

    def add_veth(self, number):
        """Adds a veth port. The end on the switch is down, as at a boot."""
        run("ip", "link", "add", f"et{number}", "address", mac(1, number), "netns", self.switch.name, "type", "veth",
            "peer", "name", f"p{number}", "address", mac(2, number), "netns", self.server.name)
        self._set_up_server_side(number)

    def add_tap(self, number, modes=()):
        """Adds a TAP port without a cable. `modes` are the link modes that it reports as supported, from link_modes.MODES."""
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
        for address in (f"{servers.net4(number)}.1/24", f"{servers.net6(number)}:1/64"):
            self.server.ip("address", "add", address, "dev", f"p{number}", *(["nodad"] if ":" in address else []))
        self.server.ip("link", "set", f"p{number}", "up")

    # What the server side answers and sends.

    def serve(self, scenario, boot_file="http://{server}/config", ports=None, name="dnsmasq", lines=()):
        """Runs dnsmasq with scenarios/SCENARIO.conf and `lines` after it, in place of an earlier one with that name.

        It serves the ports with the given numbers, by default all that there are now. Each answer names `boot_file`,
        in which "{server}" stands for the server's address behind the port. `lines` may have the places of a scenario
        in them, and override what it says. Bytes that are no text are "\\udc80" to "\\udcff"; none is zero."""
        self.stop_serving(name)
        parts = [file.read_text() for file in (servers.TEMPLATES / "dhcp.conf", servers.SCENARIOS / f"{scenario}.conf")]
        self._start_dnsmasq(name, "\n".join([*parts, *lines]), ports, boot_file)

    def stop_serving(self, name="dnsmasq"):
        self.processes.stop(name)

    def serve_files(self):
        """Serves the files in self.www over HTTP, HTTPS, FTP and TFTP, by address and by the name boot.example, on the
        ports that there are now, and runs bad_server.py on ports 8080, 2121 and 2122; all this in place of what ran before."""
        self.stop_serving_files()
        self.www.mkdir(exist_ok=True)
        if not (self.www / "config").exists():
            (self.www / "config").write_text("hostname provisioned\n")
        (self.folder / "empty").mkdir(exist_ok=True)
        servers.make_certificates(self.folder)
        self._start_dnsmasq("names-and-tftp", (servers.TEMPLATES / "dnsmasq.conf").read_text())
        enter = self.server.enter()
        self.processes.start("nginx", [*enter, "nginx", "-e", "stderr", "-c", self._configure("nginx")],
                             ready=lambda: self._listens(80))
        self.processes.start("vsftpd", [*enter, "vsftpd", self._configure("vsftpd")], ready=lambda: self._listens(21))
        self.processes.start("bad-server", [*enter, HERE / "bad_server.py", 8080, 2121])

    def stop_serving_files(self):
        for name in FILE_SERVERS:
            self.processes.stop(name)

    def requests(self):
        """The requests that nginx has answered, each a dictionary with server, client, uri, status, and the X-Ostrel-
        headers, which are empty when they were not sent."""
        return servers.requests(self.folder / "requests.log")

    def _start_dnsmasq(self, name, text, ports=None, boot_file=""):
        text = servers.fill_in(text, {"{folder}": self.folder, "{leases}": self.folder / f"{name}.leases"})
        config = self.folder / f"{name}.conf"
        text = servers.expand(text, self.ports() if ports is None else ports, boot_file)
        config.write_text(text, errors="surrogateescape")
        self.processes.start(name, [*self.server.enter(), "dnsmasq", f"--conf-file={config}", "--keep-in-foreground",
                                    "--log-facility=-", "--pid-file="], ready="started, version")

    def _configure(self, name):
        text = (servers.TEMPLATES / f"{name}.conf").read_text()
        config = self.folder / f"{name}.conf"
        config.write_text(servers.fill_in(text, {"{folder}": self.folder}))
        return config

    def _listens(self, port):
        return self.server.run("ss", "-Hltn", f"sport = :{port}") != ""

    def send_lldp(self, number, interval=1.0, vlan=None):
        argv = [*self.server.enter(), HERE / "lldp_sender.py", f"p{number}", "--interval", interval]
        self.processes.start(f"lldp-{number}", argv + (["--vlan", vlan] if vlan is not None else []))

    def stop_lldp(self, number):
        self.processes.stop(f"lldp-{number}")

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
