"""A fleet: many virtual switches with one port each, on one bridge with the servers that they boot from and the collector that
they report to. Each may have a second port, first in the order, that leads to a DHCP server which names a missing file."""
import json
import pathlib
import shutil
import subprocess

from fleet.dhcp_servers import WRONG
from lab import broker, servers
from lab.host import BUILD, ROOT, Host
from lab.namespace import Namespace, SwitchNamespace, run
from lab.processes import Processes
from lab.switch_lab import INSTALLED, LABS

HERE = pathlib.Path(__file__).resolve().parent
SERVER, WRONG_SERVER = "10.0.0.1", "10.1.0.1"
COPIED = ("alternatives", "group", "host.conf", "hosts", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "nsswitch.conf",
          "passwd", "protocols", "services", "ssl")  # of this system's /etc: what programs on a switch read

PLATFORM = """[ports]
devices = ["et*"]
names = [{{ device = "et(.*)", shown = "Ethernet\\\\1" }}]
[inventory]
model_name = "FLEET-SWITCH"
serial_num = "{serial}"
system_mac = "{mac}"
[reporter]
url = "mqtt://{server}/{topic}"
{settings}
"""


class LeanNamespace(SwitchNamespace):
    """One with little in its /etc, since there are hundreds."""

    def _make_etc(self, hostname):
        self.etc.mkdir()
        for name in COPIED:
            run("cp", "-a", f"/etc/{name}", self.etc)
        for name, text in (("hostname", hostname), ("resolv.conf", ""), ("kvo-version", "KVO_VERSION=7.2.1"),
                           ("arch", "x86_64")):
            (self.etc / name).write_text(text + "\n")
        (self.etc / "rsyslog.d").mkdir()


class Switch:
    def __init__(self, fleet, number, settings):
        self.number, self.serial = number, f"FLEET{number:05}"
        self.mac = f"02:00:01:00:{number >> 8:02x}:{number & 0xff:02x}"
        self.port = "et2" if fleet.wrong else "et1"  # that leads to the right server
        self.folder = fleet.folder / self.serial
        self.processes = Processes(self.folder)
        self.namespace = LeanNamespace(f"{fleet.name}-{number}", self.processes, self.folder, [fleet.folder, ROOT, BUILD])
        platform = PLATFORM.format(serial=self.serial, mac=self.mac, server=SERVER, topic=broker.TOPIC, settings=settings)
        self.host = Host(self.folder, None, "linux", platform, self.namespace.enter)
        self.host.environment["ZEROTOUCH_DHCLIENT"] = "/usr/bin/zerotouch-dhclient"
        self.programs = {}

    def create(self, server):
        self.folder.mkdir()
        self.namespace.create(self.serial.lower(), INSTALLED)
        self.host.prepare()
        self._add_port(server, self.port, self.mac, f"p{self.number}", "bridge")
        if self.port != "et1":
            self._add_port(server, "et1", self.mac.replace("01:00", "01:01", 1), f"w{self.number}", "wrong")

    def _add_port(self, server, device, mac, peer, bridge):
        run("ip", "link", "add", device, "address", mac, "netns", self.namespace.name, "type", "veth",
            "peer", "name", peer, "netns", server.name)
        server.ip("link", "set", peer, "master", bridge, "up")

    def _start(self, name, command):
        """Starts a program, and does not wait until it is ready."""
        with open(self.processes.log(name), "ab") as log:
            self.programs[name] = subprocess.Popen(
                [str(word) for word in command], env={"PATH": "/usr/sbin:/usr/bin", **self.host.environment},
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)

    def boot(self):
        """Starts the host and the reporter, as a switch without a startup configuration does."""
        self._start("host", self.host.command())
        self._start_reporter()

    def _start_reporter(self):
        self._start("reporter", [*self.namespace.enter(), BUILD / "bin" / "zerotouch-reporter", "--config", self.host.config])

    def shut_down(self):
        """Tells both to end, as the system does before a reload, and does not wait for it."""
        for program in self.programs.values():
            program.terminate()

    def boot_provisioned(self):
        """What is below /run is lost. There is a startup configuration, which sets the network up; so no host runs."""
        for program in self.programs.values():
            program.wait()
        self.programs.clear()
        for folder in (self.host.run_directory, self.host.reporter_directory):
            shutil.rmtree(folder, ignore_errors=True)
        address = f"10.0.{1 + (self.number >> 8)}.{self.number & 0xff}/16"  # outside of what DHCP gives
        self.namespace.ip("address", "replace", address, "dev", self.port)
        self.namespace.ip("link", "set", self.port, "up")
        self._start_reporter()

    def provisioned_at(self):
        """The time.time() at which it asked for the reload after a run that succeeded; None before."""
        record = self.host.reload_records["host"]
        if not record.exists() or not (self.host.flash / "startup-config").exists():
            return None
        return record.stat().st_mtime

    def retries(self):
        """How often the switch started over, as its host says."""
        return json.loads(self.host.cli("get", "/zerotouch/sm/retryCount", "--json"))

    def memory_kib(self):
        """The proportional share of memory of all processes of the switch, without the one that holds its namespaces."""
        total = 0
        for pid in self.namespace.pids() - {self.processes.running(SwitchNamespace.HOLDER)}:
            try:
                text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
            except OSError:  # it has just ended
                continue
            total += int(text.split("\nPss:")[1].split()[0])
        return total

    def delete(self):
        for program in self.programs.values():
            program.kill()
            program.wait()
        self.processes.stop_all()
        self.namespace.delete()


class Fleet:
    """`dhcp` names the DHCP server, one of dhcp_servers.SERVERS; `rate` is that of the link of the servers, as tc(8) takes it;
    `settings` are more lines of platform.toml; with `wrong`, the switches have that port to a server that names a missing
    file."""

    def __init__(self, name, count, dhcp, rate, settings="", wrong=False):
        self.name = name
        self.folder = LABS / name
        self.processes = Processes(self.folder)
        self.server = Namespace(f"{name}-server")
        self.dhcp, self.rate, self.wrong = dhcp, rate, wrong
        self.www = self.folder / "www"
        self.arrived = None  # the file of the collector
        self.switches = [Switch(self, number, settings) for number in range(1, count + 1)]

    def up(self, file_bytes):
        self.www.mkdir(parents=True)
        with open(self.www / "boot", "wb") as file:
            file.truncate(file_bytes)
        self.server.create()
        for bridge, address in (("bridge", SERVER), ("wrong", WRONG_SERVER)):
            self.server.ip("link", "add", bridge, "type", "bridge")
            self.server.ip("address", "add", f"{address}/16", "dev", bridge)
            self.server.ip("link", "set", bridge, "up")
        self.server.run("tc", "qdisc", "add", "dev", "bridge", "root", "tbf", "rate", self.rate, "burst", "512kb", "latency",
                        "50ms")
        servers.make_certificates(self.folder)
        text = (servers.TEMPLATES / "nginx.conf").read_text()
        (self.folder / "nginx.conf").write_text(servers.fill_in(text, {"{folder}": self.folder}))
        enter = self.server.enter()
        self.processes.start("nginx", [*enter, "nginx", "-e", "stderr", "-c", self.folder / "nginx.conf"],
                             ready=lambda: self.server.run("ss", "-Hltn", "sport = :80") != "")
        self.arrived = broker.start(self.processes, enter, SERVER)
        for switch in self.switches:
            switch.create(self.server)
        self.dhcp.start(self)
        if self.wrong:
            WRONG.start(self, "wrong")

    def dhcp_log(self):
        return self.processes.log("dhcp").read_text(errors="replace")

    def requests(self):
        return servers.requests(self.folder / "requests.log")

    def processor_seconds(self, name):
        """What a server has used so far."""
        fields = pathlib.Path(f"/proc/{self.processes.running(name)}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / 100

    def down(self):
        for switch in self.switches:
            if switch.folder.exists():
                switch.delete()
        self.processes.stop_all()
        self.server.delete()
        shutil.rmtree(self.folder, ignore_errors=True)
