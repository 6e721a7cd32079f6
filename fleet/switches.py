"""A fleet: many virtual switches with one port each, on one bridge with the servers that they boot from."""
import json
import pathlib
import shutil
import subprocess

from lab import servers
from lab.host import BUILD, ROOT, Host
from lab.namespace import Namespace, SwitchNamespace, run
from lab.processes import Processes
from lab.switch_lab import INSTALLED, LABS

HERE = pathlib.Path(__file__).resolve().parent
SERVER = "10.0.0.1"
COPIED = ("alternatives", "group", "host.conf", "hosts", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "nsswitch.conf",
          "passwd", "protocols", "services", "ssl")  # of this system's /etc: what programs on a switch read

PLATFORM = """[ports]
devices = ["et*"]
names = [{{ device = "et(.*)", shown = "Ethernet\\\\1" }}]
[inventory]
model_name = "FLEET-SWITCH"
serial_num = "{serial}"
system_mac = "{mac}"
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
        self.folder = fleet.folder / self.serial
        self.processes = Processes(self.folder)
        self.namespace = LeanNamespace(f"{fleet.name}-{number}", self.processes, self.folder, [fleet.folder, ROOT, BUILD])
        platform = PLATFORM.format(serial=self.serial, mac=self.mac, settings=settings)
        self.host = Host(self.folder, None, "linux", platform, self.namespace.enter)
        self.host.environment["ZEROTOUCH_DHCLIENT"] = "/usr/bin/zerotouch-dhclient"
        self.process = None

    def create(self, server):
        self.folder.mkdir()
        self.namespace.create(self.serial.lower(), INSTALLED)
        self.host.prepare()
        run("ip", "link", "add", "et1", "address", self.mac, "netns", self.namespace.name, "type", "veth",
            "peer", "name", f"p{self.number}", "netns", server.name)
        server.ip("link", "set", f"p{self.number}", "master", "bridge", "up")

    def boot(self):
        """Starts the host, and does not wait until it is ready."""
        with open(self.host.log, "wb") as log:
            self.process = subprocess.Popen(self.host.command(), env={"PATH": "/usr/sbin:/usr/bin", **self.host.environment},
                                            stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)

    def provisioned_at(self):
        """The time.time() at which it asked for the reload after a run that succeeded; None before."""
        record = self.host.reload_records["host"]
        if not record.exists() or not (self.host.flash / "startup-config").exists():
            return None
        return record.stat().st_mtime

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
        if self.process is not None:
            self.process.kill()
            self.process.wait()
        self.processes.stop_all()
        self.namespace.delete()


class Fleet:
    """`dhcp` names the DHCP server, one of dhcp_servers.SERVERS; `rate` is that of the link of the servers, as tc(8) takes it;
    `settings` are more lines of platform.toml."""

    def __init__(self, name, count, dhcp, rate, settings=""):
        self.name = name
        self.folder = LABS / name
        self.processes = Processes(self.folder)
        self.server = Namespace(f"{name}-server")
        self.dhcp, self.rate = dhcp, rate
        self.www = self.folder / "www"
        self.switches = [Switch(self, number, settings) for number in range(1, count + 1)]

    def up(self, file_bytes):
        self.www.mkdir(parents=True)
        with open(self.www / "boot", "wb") as file:
            file.truncate(file_bytes)
        self.server.create()
        self.server.ip("link", "add", "bridge", "type", "bridge")
        self.server.ip("address", "add", f"{SERVER}/16", "dev", "bridge")
        self.server.ip("link", "set", "bridge", "up")
        self.server.run("tc", "qdisc", "add", "dev", "bridge", "root", "tbf", "rate", self.rate, "burst", "512kb", "latency",
                        "50ms")
        servers.make_certificates(self.folder)
        text = (servers.TEMPLATES / "nginx.conf").read_text()
        (self.folder / "nginx.conf").write_text(servers.fill_in(text, {"{folder}": self.folder}))
        enter = self.server.enter()
        self.processes.start("nginx", [*enter, "nginx", "-e", "stderr", "-c", self.folder / "nginx.conf"],
                             ready=lambda: self.server.run("ss", "-Hltn", "sport = :80") != "")
        for switch in self.switches:
            switch.create(self.server)
        self.dhcp.start(self)

    def serve_dhcp(self, program, *arguments, ready):
        self.processes.start("dhcp", [*self.server.enter(), program, *arguments], ready=ready)

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


def retries(switch):
    """How often the switch started over, as its host says."""
    return json.loads(switch.host.cli("get", "/zerotouch/sm/retryCount", "--json"))
