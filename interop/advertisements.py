"""The programs of routers that advertise a link, and say whether DHCPv6 is to be asked there."""
from interop.server import Server

AUTONOMOUS = {True: "on", False: "off"}


class Advertiser(Server):
    def __init__(self, *parts, **options):
        """`parts` are of "managed", "other" and "no gateway"."""
        autonomous = "managed" not in parts
        super().__init__(*parts, **{"autonomous": AUTONOMOUS[autonomous]} | options)


class Radvd(Advertiser):
    name, package, template = "radvd", "radvd", "radvd.conf"
    ready = "version .* started"

    def command(self, config):
        config.chmod(0o644)
        return ["radvd", "--nodaemon", "--logmethod", "stderr", "--debug", "1", "--pidfile", self.folder / "pid",
                "--config", config]


class Bird(Advertiser):
    name, package, template = "bird", "bird2", "bird.conf"
    ready = "Started"

    def command(self, config):
        return ["bird", "-f", "-d", "-c", config, "-s", self.folder / "control", "-P", self.folder / "pid"]


class Frr(Advertiser):
    name, package, template = "frr", "frr", "frr.conf"

    def prepare(self):
        self.folder.chmod(0o777)  # it runs as a user of its own

    def command(self, config):
        return ["/usr/lib/frr/zebra", "-f", config, "-i", self.folder / "pid", "-z",
                self.folder / "zserv", "--vty_socket", self.folder, "--log", "stdout"]

    def is_ready(self):
        return (self.folder / "zserv").exists()
