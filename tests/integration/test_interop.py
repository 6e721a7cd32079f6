"""Servers of others, one for each protocol that the other tests leave to dnsmasq, nginx and vsftpd; scripts/interop plays them
all, and looks at every packet besides."""
import os

import pytest

from conftest import brought_up
from interop.case import play
from interop.site import Site
from interop.table import CASES


@pytest.fixture(scope="module")
def site():
    yield from brought_up(Site(f"zttest-{os.getpid()}-interop"))


@pytest.mark.parametrize("title, client", [
    ("DHCPv4: isc-dhcp-server: option 121", "dhclient"),
    ("DHCPv4: isc-dhcp-server: option 121", "dhcpcd"),
    ("DHCPv6: kea-dhcp6: stateful", "dhclient"),
    ("DHCPv6: kea-dhcp6: stateful", "dhcpcd"),
    ("Files: lighttpd: chunks", "dhclient"),
    ("Files: tftpd-hpa: TFTP", "dhclient"),
])
def test_a_server_of_others_provisions_a_switch(site, title, client):
    case = next(case for case in CASES if case.title == title)
    result = play(site, case, client, decoded=False)
    assert (result.result, result.faults) == ("passed", []), site.host.output()
