"""Runs to which something happens: the host is killed, servers fall silent, ports go and come back, disks are full."""
import signal
import subprocess

import pytest

from conftest import ended_well
from lab.endurance import flood, grown, ports, retries
from lab.host import timers
from lab.polling import wait_for
from lab.runs import FOUND, STATES

CONFIG = "hostname provisioned\n"
DONE = {"startup-config": CONFIG, "zerotouch-config": "DISABLE=NextReload\n"}
SET_UP = FOUND | {"up": True, "ip6": ["0", "2"]}  # for a query


@pytest.fixture
def lab(switch_lab):
    yield from ended_well(switch_lab)


def kill_and_start(lab):
    lab.host.stop(signal.SIGKILL)
    lab.host.start()


@pytest.mark.parametrize("state", [state for state in STATES if state != "stateShutdown"])
def test_after_a_host_that_was_killed_in_any_state_the_next_one_completes_the_run(lab, state):
    lab.begin_in(state)
    running = lab.children()
    (lab.www / "whose-name").write_text('#!/bin/sh\necho "$SYSNAME" >"$FILESYSTEM_ROOT/flash/name"\n')
    lab.host.environment |= timers(0.2, DHCLIENTQUERY=5, LEASERELEASE=20)
    lab.stop_serving()
    kill_and_start(lab)
    wait_for(lambda: lab.found() == SET_UP, "what the killed host applied to be gone")
    assert "ZTP_INIT" in lab.host.events()
    assert not lab.children() & running
    lab.serve("dhcpv4", "http://{server}/whose-name")
    lab.wait_reload()
    assert lab.flash() == {"name": "switch\n", "zerotouch-config": DONE["zerotouch-config"]}


def test_after_a_host_that_was_killed_in_shutdown_the_next_one_sees_to_the_reload(lab):
    lab.begin_in("stateShutdown")
    applied = lab.found()
    bystander = subprocess.Popen(["sleep", "1000"])  # has the number of a process that the host started
    with open(lab.host.run_directory / "children", "a", encoding="ascii") as children:
        children.write(f"{bystander.pid} 1\n")
    for requests in (1, 2):  # before the first, while a lease is released, and after it
        kill_and_start(lab)
        wait_for(lambda: len(lab.host.reload_requested()) == requests, "the reload")
        lab.wait_quiet()
        assert lab.host.get("/zerotouch/config/enabled") is False
        assert (lab.found(), lab.flash(), bystander.poll()) == (applied, DONE, None)
    bystander.kill()
    bystander.wait()
    assert (lab.host.stop(), lab.found()) == (0, applied)
    lab.host.boot_again()
    assert (lab.flash(), lab.host.reload_requested()) == ({"startup-config": CONFIG, "zerotouch-config": ""}, [])


UNHURRIED = 12  # seconds that what is due after one may take on a busy machine; any other limit is longer
DOWNLOAD = "ZTP_CONFIG_DOWNLOAD", "ZTP_CONFIG_DOWNLOAD_TIMEOUT"


@pytest.mark.parametrize("server, boot_file, begin, end", [
    ("dnsmasq", "http://{server}/config", "ZTP_DHCPv4_QUERY", "ZTP_DHCPv4_QUERY_FAIL"),
    ("nginx", "http://{server}/config", *DOWNLOAD),
    ("vsftpd", "ftp://{server}/config", *DOWNLOAD),
    ("names-and-tftp", "tftp://{server}/config", *DOWNLOAD),
    ("names-and-tftp", "http://boot.example/config", *DOWNLOAD),
])
def test_a_server_that_falls_silent_is_given_up_in_time_and_asked_again(lab, server, boot_file, begin, end):
    lab.begin(None, DHCLIENTQUERY=1, CONFIGFETCH=1)
    lab.serve("dhcpv4", boot_file)
    lab.processes.send(server, signal.SIGSTOP)
    try:
        seen = len(lab.events(end))
        ended = wait_for(lambda: lab.events(end)[seen:], end)[0]["time"]
    finally:
        lab.processes.send(server, signal.SIGCONT)
    assert 1 <= ended - max(event["time"] for event in lab.events(begin) if event["time"] < ended) < UNHURRIED
    lab.wait_reload()
    assert lab.flash() == DONE


@pytest.mark.parametrize("state", STATES)
def test_a_run_survives_that_its_port_goes_and_comes_back(lab, state):
    def known():
        return list(lab.host.get("/interface/status/ethPhy/intfStatus"))

    short = {name: 1 for name, value in STATES[state].items() if value == 60}
    lab.begin_in(state, CONFIGFETCH=1, **short)
    lab.remove(1)
    wait_for(lambda: known() == [], "the host to see that the port is gone")
    lab.add_veth(1)
    lab.serve("dhcpv4")
    wait_for(lambda: known() == ["Ethernet1"], "the host to see the port again")
    lab.switch.run("touch", "/tmp/go")
    lab.wait_reload()
    assert lab.flash() == DONE


NO_ROOM = {  # where, and what is said of it
    "/tmp": "ZTP_CONFIG_DOWNLOAD_FAIL: Failed to download the startup-config from http://10.0.1.1/config. Error: "
            "cannot write /tmp/zt-download: No space left on device",
    "/run": "DHCP_CONFIG_NOT_WRITTEN: No room for the DHCP client's configuration /var/run/zerotouch-dhclient.conf",
    "{flash}": "DOWNLOAD_NOT_USABLE: The download cannot be used: cannot write {flash}/kept: No space left on device",
}


@pytest.mark.parametrize("place", NO_ROOM)
def test_a_full_disk_is_complained_of_and_costs_nothing_but_time(lab, place):
    flash, aborts = lab.host.flash, "flash" in place
    lab.begin(None, flash={"startup-config": "off\n", "zerotouch-config": "SAVE_FILE=/kept\n"}, DHCLIENTQUERY=1)
    complaint, place = NO_ROOM[place].format(flash=flash), place.format(flash=flash)
    lab.switch.run("sh", "-c", f"mount -t tmpfs tmpfs {flash} && echo SAVE_FILE=/kept >{flash}/zerotouch-config; "
                   f"echo old >{flash}/kept; mount -o remount,size=1m {place}; cat /dev/zero >{place}/filler || true")
    if place != "/run":  # else the answer would come to a query that asks for little
        lab.serve("dhcpv4")
    lab.host.cli("enable")
    wait_for(lambda: complaint in lab.host.output(), complaint)
    if aborts:
        wait_for(lambda: lab.host.process.poll() is not None, "the host to end")
        assert lab.host.stop() == -signal.SIGABRT
    assert lab.switch.run("cat", f"{flash}/kept") == "old\n"
    lab.switch.run("rm", f"{place}/filler")
    if aborts:  # as whoever watches over the host does
        lab.host.start()
    lab.serve("dhcpv4")
    lab.wait_reload()
    assert lab.switch.run("cat", f"{flash}/kept", f"{flash}/zerotouch-config") == (
        CONFIG + DONE["zerotouch-config"] + "SAVE_FILE=/kept\n")
    assert lab.found()["mtu"] == 1400  # all was asked for


def test_a_flooded_socket_holds_up_neither_the_run_nor_an_operator(lab, monkeypatch):
    no_quarantine = {"ASAN_OPTIONS": "quarantine_size_mb=1"}  # of what was freed: the sanitizer would keep 256 MB
    monkeypatch.setattr(lab.host, "environment", lab.host.environment | no_quarantine)
    took, rows = flood(lab)
    assert max(took) < UNHURRIED
    assert max(row["resident"] for row in rows) < rows[0]["resident"] + 100_000
    assert lab.flash() == DONE


DAY = 86400


def test_a_clock_that_is_set_forth_and_back_changes_no_wait(lab, monkeypatch):
    monkeypatch.setattr(lab.host, "environment", lab.host.environment | lab.clock_environment())
    (lab.www / "script").write_text('#!/bin/sh\ndate +%s >"$FILESYSTEM_ROOT/flash/date"\n')
    lab.begin(None, INETRFACESSETUP=1, DHCLIENTQUERY=1, RETRY=1)
    for state, days in (("stateSetupInterfaces", 1), ("stateDhcpQuery", -1), ("stateRetry", 1), ("stateDhcpQuery", -1)):
        lab.host.wait_state(state)
        lab.shift_clock(days * DAY)
    lab.serve("dhcpv4", "http://{server}/script")
    lab.wait_reload()
    times = [event["time"] for event in lab.events("ZTP_INIT", "ZTP_DHCPv4_QUERY", "ZTP_RETRY")]
    waits = [after - before for before, after in zip(times, times[1:])]
    assert [wait for wait in waits if not 1 <= wait < UNHURRIED] == []
    assert -1.5 * DAY < int(lab.flash()["date"]) - times[0] < -0.5 * DAY  # it was set


def test_retries_and_ports_that_come_and_go_leave_nothing_behind(lab):
    silent, useless, count = retries(lab, 6, 2, wait=0.2)
    assert count >= 6
    there, gone = ports(lab, 1, 24)
    for rows in silent + useless, there, gone[1:]:  # a port's configuration stays, for when it comes back
        assert grown(rows, resident=50_000) == {}
