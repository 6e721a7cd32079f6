"""What the ports of a machine lead to: devices of a namespace in which servers answer."""
from lab.server_side import HERE, ServerSide
from machine import hardware


class Network(ServerSide):
    def __init__(self, name, folder):
        super().__init__(name, folder)

    def up(self):
        self.folder.mkdir(parents=True, exist_ok=True)
        self.create_server_side()
        for number in [port.number for port in hardware.PORTS.values()]:
            self.server.ip("tuntap", "add", "mode", "tap", "name", f"p{number}")
            self.set_up_server_port(number)

    def down(self):
        self.processes.stop_all()
        self.server.delete()

    def join(self, number, members):
        """Makes the devices of these ports the ends of one link aggregation, whose device has the number."""
        self.server.ip("link", "add", f"p{number}", "type", "bridge")
        for member in members:
            self.server.ip("address", "flush", "dev", f"p{member}")
            self.server.ip("link", "set", f"p{member}", "master", f"p{number}")
        self.set_up_server_port(number)
        partner = [HERE / "lacp_partner.py", *(f"p{member}" for member in members)]
        self.processes.start("lacp-partner", [*self.server.enter(), *partner])

    def devices(self):
        """Where each port leads to."""
        return {name: f"p{port.number}" for name, port in hardware.PORTS.items()}

    def listen_to_logs(self):
        self.processes.start("log-server", [*self.server.enter(), HERE / "log_server.py"])

    def logged(self):
        """What the log server has heard."""
        return self.processes.log("log-server").read_text()

    def answered(self):
        """What the DHCP server has done."""
        return self.processes.log("dnsmasq").read_text()
