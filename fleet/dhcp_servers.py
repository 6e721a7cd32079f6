"""The DHCP servers that a fleet may boot from."""
import json
import re

DNSMASQ = """port=0
user=root
interface=bridge
bind-interfaces
dhcp-range=10.0.16.1,10.0.255.254,255.255.0.0,12h
dhcp-option=option:bootfile-name,http://10.0.0.1/boot
dhcp-leasefile={folder}/leases
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

    def __init__(self, name, more=""):
        self.name, self.more = name, more

    def start(self, fleet):
        config = fleet.folder / "dnsmasq.conf"
        config.write_text(DNSMASQ.format(folder=fleet.folder, more=self.more))
        fleet.serve_dhcp("dnsmasq", f"--conf-file={config}", "--keep-in-foreground", "--log-facility=-", "--pid-file=",
                         ready="started, version")


class Kea:
    messages = re.compile(r"DHCP4_PACKET_RECEIVED|DHCP4_LEASE_(OFFER|ALLOC|ADVERT)")
    name = "kea"

    def start(self, fleet):
        config = fleet.folder / "kea.json"
        settings = {key: value for key, value in KEA["Dhcp4"].items() if value is not None}
        config.write_text(json.dumps({"Dhcp4": settings}))
        fleet.serve_dhcp("env", f"KEA_PIDFILE_DIR={fleet.folder}", f"KEA_LOCKFILE_DIR={fleet.folder}", "kea-dhcp4", "-c", config,
                         ready="DHCP4_STARTED")


SERVERS = {server.name: server for server in (Dnsmasq("dnsmasq-no-ping", "no-ping"), Dnsmasq("dnsmasq"), Kea())}
