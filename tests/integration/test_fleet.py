"""What scripts/fleet says of a fleet: from what has arrived at the collector, whatever the hosts say."""
import os

import pytest

from fleet import boots, collected
from fleet.dhcp_servers import SERVERS
from fleet.switches import Fleet
from lab.host import timers
from lab.polling import wait_for


def test_the_table_is_what_the_collector_knows(monkeypatch):
    if os.geteuid() != 0:
        pytest.skip("network namespaces need root")
    monkeypatch.setattr(boots, "REPORTING", 3)
    fleet = Fleet(f"zttest-{os.getpid()}-fleet", 4, SERVERS["dnsmasq-no-ping"], "1gbit", wrong=True)
    good, wrong, mute, unplugged = fleet.switches
    try:
        fleet.up(1 << 20)
        for switch in fleet.switches:
            switch.host.environment |= timers(0.2, INETRFACESSETUP=2, DHCLIENTQUERY=20, STATELESSDHCLIENTQUERY=20)
        for peer in ("w1", "p2", "w3", "p4", "w4"):  # the port to the one server, or to the other, or both
            fleet.server.ip("link", "set", peer, "down")
        for switch in fleet.switches:
            switch.boot()
        provisioned = [good, mute]
        wait_for(lambda: all(switch.provisioned_at() for switch in provisioned), "two to be provisioned")
        wait_for(wrong.retries, "a failed attempt")
        monkeypatch.setattr(mute, "boot_provisioned", lambda: None)
        table = boots.reported(fleet, provisioned)
        assert [(known.serial, known.verdict, known.same_as_host) for known in table] == [
            (good.serial, "provisioned", True), (wrong.serial, "failing", True), (mute.serial, "under way", False),
            (unplugged.serial, "never reported", True)]
        summary, failing, differing, silent = collected.lines(table)
        assert summary == ("  at the collector: 1 provisioned, 1 failing, 1 under way, 1 never reported; "
                           "the hosts of 1 say otherwise")
        assert "Failed to download the startup-config from http://10.1.0.1/missing" in failing
        assert differing.endswith("DIFFERS: its host says otherwise") and silent.split() == [
            unplugged.serial, "never", "reported", "-", "0", "events"]
    finally:
        fleet.down()
