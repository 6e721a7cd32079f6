"""Neighbours that send LLDP and all that they know besides. They run on the port itself: a bridge passes no LLDP."""
import json
import shlex

from interop.case import Case
from interop.dhcp4 import Dnsmasq
from interop.server import Server
from interop.site import BOOT_FILE
from lab.polling import wait_for


class Lldpd(Server):
    name, package, template = "lldpd", "lldpd", "lldpd.command"
    private = ("/run/lldpd",)

    def prepare(self):
        (self.folder / "run/lldpd").mkdir(parents=True)
        (self.folder / "lldpd.conf").write_text("")

    def is_ready(self):
        return (self.folder / "run/lldpd/socket").exists()


class Ladvd(Server):
    name, package, template = "ladvd", "ladvd", "ladvd.command"
    private = ("/run/ladvd",)

    def command(self, config):
        # It forbids itself to write files, its log among them.
        return ["sh", "-c", f"exec {shlex.join(super().command(config))} >/dev/null 2>&1"]

    def is_ready(self):
        return True  # a child of its own sends; that it does is what the case waits for


def cases():
    for kind in (Lldpd, Ladvd):
        server = kind()
        late = Dnsmasq("option 67", boot_file=BOOT_FILE)

        def heard(run, late=late):
            wait_for(lambda: json.loads(run.host.cli("ports", "--json"))[0]["lldpHeard"] > 0, "the port to hear LLDP", 45)
            run.start(late)

        yield Case("LLDP", "all that it can send", [server], then=heard, told=late.told, releases=late,
                   waits={"DHCLIENTQUERY": 4}, remark="it is heard before any server answers")
