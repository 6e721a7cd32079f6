"""The DHCP servers that a fleet may boot from."""
import json
import re

DNSMASQ = """port=0
user=root
interface={bridge}
bind-interfaces
dhcp-range={net}.16.1,{net}.255.254,255.255.0.0,12h
dhcp-option=option:bootfile-name,http://{net}.0.1/{file}
dhcp-leasefile={folder}/{bridge}.leases
dhcp-lease-max=100000
{more}
"""
KEA = {"Dhcp4": {
    "interfaces-config": {"interfaces": ["bridge"]},
    "lease-database": {"type": "memfile", "persist": False},
    "valid-lifetime": 43200,
    "control-socket": None,
    "subnet4": [{"id": 1, "subnet": "10.0.0.0/16", "pools": [{"pool": "10.0.16.1-10.0.255.254"}],
                 "option-data": [{"name": "boot-file-name", "data": "http://10.0.0.1/boot"}]}],
    "loggers": [{"name": "kea-dhcp4", "severity": "INFO", "output_options": [{"output": "stdout"}]}]}}


class Dnsmasq:
    """As Debian ships it, it looks for 3 s whether a new address is in use; `no-ping` turns that off."""
    messages = re.compile(r"DHCP(DISCOVER|REQUEST)\(")

    def __init__(self, name, more="", bridge="bridge", net="10.0", file="boot"):
        """Serves `net`, the first two bytes of its addresses, on `bridge`; its answers name `file`."""
        self.name, self.more, self.bridge, self.net, self.file = name, more, bridge, net, file

    def start(self, fleet, process="dhcp"):
        config = fleet.folder / f"{process}.conf"
        config.write_text(DNSMASQ.format(folder=fleet.folder, **vars(self)))
        fleet.processes.start(process, [*fleet.server.enter(), "dnsmasq", f"--conf-file={config}", "--keep-in-foreground",
                                        "--log-facility=-", "--pid-file="], ready="started, version")


class Kea:
    messages = re.compile(r"DHCP4_PACKET_RECEIVED|DHCP4_LEASE_(OFFER|ALLOC|ADVERT)")
    name = "kea"

    def start(self, fleet):
        config = fleet.folder / "kea.json"
        settings = {key: value for key, value in KEA["Dhcp4"].items() if value is not None}
        config.write_text(json.dumps({"Dhcp4": settings}))
        fleet.processes.start("dhcp", [*fleet.server.enter(), "env", f"KEA_PIDFILE_DIR={fleet.folder}",
                                       f"KEA_LOCKFILE_DIR={fleet.folder}", "kea-dhcp4", "-c", config], ready="DHCP4_STARTED")


SLOWER = Dnsmasq("dnsmasq-slower", "no-ping\ndhcp-reply-delay=1")  # answers a second later
SERVERS = {server.name: server for server in (Dnsmasq("dnsmasq-no-ping", "no-ping"), Dnsmasq("dnsmasq"), SLOWER, Kea())}
# Answers at once, on a network of its own, and names a file that is not there.
WRONG = Dnsmasq("wrong", "no-ping", "wrong", "10.1", "missing")
