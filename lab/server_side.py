"""The servers that the ports of a switch lead to, in a network namespace.

A port leads to a device p1, p2 and so on; its number says which addresses the servers have there. Whose the other end is
(a port of a virtual switch in a namespace, or of a virtual machine) is no matter here."""
import pathlib

from lab import broker, servers
from lab.namespace import Namespace
from lab.processes import Processes

HERE = pathlib.Path(__file__).resolve().parent
COLLECTOR_PORT = 8088
FILE_SERVERS = ("nginx", "vsftpd", "names-and-tftp", "bad-server")


def mac(end, number):
    return f"02:00:00:{end:02x}:{number >> 8:02x}:{number & 0xff:02x}"


class ServerSide:
    def __init__(self, namespace, folder):
        """`folder` is where the servers have their files, and exists once they are started."""
        self.folder = folder
        self.processes = Processes(folder)
        self.server = Namespace(namespace)
        self.www = folder / "www"  # the files that are served

    def create_server_side(self):
        self.server.create()
        # A port that is unplugged keeps its address, and has the use of it as soon as it is plugged in again.
        self.server.ip6_setting("all", "keep_addr_on_down", 1)
        self.server.ip6_setting("default", "dad_transmits", 0)
        self.server.ip("link", "add", "stable", "up", "type", "veth", "peer", "name", "stable-peer")
        self.server.ip("link", "set", "stable-peer", "up")
        self.server.ip("address", "add", "2001:db8::1", "dev", "stable", "nodad")

    def ports(self):
        """The numbers of the ports."""
        return sorted(int(device[1:]) for device in self.server.links() if device[1:].isdecimal())

    def set_up_server_port(self, number):
        """Gives the device of a port its addresses, and switches it on."""
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

    def collect(self):
        """Takes the events of reporters on COLLECTOR_PORT of all addresses; returns the file that gets them, one on a line."""
        events = self.folder / "events.jsonl"
        self.processes.start("collector", [*self.server.enter(), HERE / "collector.py", "0.0.0.0", COLLECTOR_PORT, events])
        return events

    def collect_from_broker(self):
        """The same with nothing of ours: what is posted to mqtt://ADDRESS/zerotouch is in the file that this returns."""
        return broker.start(self.processes, self.server.enter(), "0.0.0.0")

    def stop_collecting(self):
        self.processes.stop("collector")
        broker.stop(self.processes)

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
