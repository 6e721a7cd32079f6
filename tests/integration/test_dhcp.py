"""DHCP as a whole: the agent, a client and real servers behind the ports of a virtual switch. What the clients could do
differently is shown with both."""
import json
import os
import pathlib
import struct

import pytest

from conftest import brought_up, ended_well
from lab.capture import Capture
from lab.host import timers
from lab.polling import LIMIT, wait_for
from lab.server_side import FILE_SERVERS
from lab.switch_lab import Lab

SILENT = "http://{server}:8080/silent"  # the download goes on for as long as a test looks at it
TIMES = {"INETRFACESSETUP": 1, "DHCLIENTQUERY": 2, "STATELESSDHCLIENTQUERY": 1.5, "RETRY": 1}
NO_ANSWER = ["dhcp-ignore=tag:!known"]  # nobody is
CLIENTS = {"dhclient": "/sbin/dhclient", "dhcpcd": "/usr/sbin/dhcpcd"}
BOTH = pytest.mark.parametrize("switch", CLIENTS, indirect=True)


def name_of(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/comm").read_text()
    except OSError:  # it has ended
        return ""


def clients(lab):
    """The DHCP clients that run on the switch, and the shim in front of one that it does not become."""
    return [pid for pid in lab.switch.pids()
            if any(word in name_of(pid) for word in ("dhclient", "dhcpcd", "zerotouch-dhcli"))]


@pytest.fixture(scope="module")
def two_ports():
    for lab in brought_up(Lab(f"zttest-{os.getpid()}-dhcp")):
        lab.switch.ip6_setting("default", "dad_transmits", 0)
        for number in (1, 2):
            lab.add_veth(number)
        lab.serve_files()
        yield lab


@pytest.fixture
def switch(two_ports, request):
    """A switch that is to be booted, with ports 1 and 2, a DHCP client and servers for files. The host ends without clients,
    whatever a test did."""
    lab = two_ports
    lab.client = getattr(request, "param", "dhclient")
    lab.host.environment |= timers(0.3, **TIMES) | {"ZEROTOUCH_REAL_DHCLIENT": CLIENTS[lab.client]}
    for name in {*lab.running()} - {*FILE_SERVERS}:
        lab.stop_serving(name)
    for file in lab.host.flash.iterdir():
        file.unlink()
    if 1 not in lab.ports():
        lab.add_veth(1)
    lab.plug(1)
    yield from ended_well(lab)
    wait_for(lambda: clients(lab) == [], "the clients to end")


def dhcp(lab):
    """What the command line tells of DHCP: (client, report, boot file, chosen) by port and family."""
    return {(int(port["port"].removeprefix("Ethernet")), row["family"]):
            (row["client"], row["report"], row["bootFile"], row["chosen"])
            for port in json.loads(lab.host.cli("ports", "--json")) for row in port["dhcp"]}


def wait_dhcp(lab, rows):
    """Waits until dhcp() tells these rows, among others."""
    wait_for(lambda: rows.items() <= dhcp(lab).items(), f"{rows}")


def wait_fetching(lab):
    lab.host.wait_state("stateFetchConfig")
    wait_for(lambda: clients(lab) == [], "the clients to be stopped")


def wait_provisioned(lab):
    wait_for(lab.host.reload_requested, "the reload")
    assert (lab.host.flash / "startup-config").read_text() == "hostname provisioned\n"
    wait_for(lambda: clients(lab) == [], "the clients to end")


FIRST = "no, Ethernet2 was first"
V4, V6 = (SILENT.format(server=server) for server in ("10.0.2.1", "[2001:db8:2::1]"))
ONLY_V6 = {(1, "DHCPv4"): ("-", "-", "-", FIRST), (2, "DHCPv4"): ("-", "-", "-", "no, DHCPv6 was first")}


@BOTH
@pytest.mark.parametrize("scenario, first, expected, success", [
    ("dhcpv4", None, {(1, "DHCPv4"): ("-", "-", "-", FIRST), (2, "DHCPv4"): ("-", "BOUND", V4, "yes")},
     "ZTP_DHCPv4_SUCCESS"),
    ("dhcpv6", "ra-managed", {**ONLY_V6, (2, "DHCPv6"): ("-", "BOUND6", V6, "yes")}, "ZTP_DHCPv6_SUCCESS"),
    ("dhcpv6-stateless", "ra-stateless", {**ONLY_V6, (2, "DHCPv6"): ("-", "RENEW6", V6, "yes")},
     "ZTP_STATELESS_DHCPv6_SUCCESS"),
])
def test_the_port_that_is_answered_is_chosen_and_its_lease_given_back(switch, scenario, first, expected, success):
    if first:
        switch.serve(first, ports=[1], name="first")
    switch.serve(scenario, SILENT, ports=[2])
    switch.host.boot_again()
    wait_fetching(switch)
    assert expected.items() <= dhcp(switch).items()
    assert success in switch.host.events()
    assert switch.host.get("/zerotouch/sm/choosenIntf") == "Ethernet2"
    switch.host.cli("cancel")
    wait_for(switch.host.reload_requested, "the reload")
    wait_for(lambda: clients(switch) == [], "the release to end")
    if scenario != "dhcpv6-stateless":  # which has no lease
        assert switch.processes.log("dnsmasq").read_text().count("DHCPRELEASE(p2)") == 1
        chosen = {family: row[3] for (port, family), row in dhcp(switch).items() if port == 2}
        assert chosen.pop("DHCPv6" if first else "DHCPv4") == "yes, its lease was given back"
        assert set(chosen.values()) <= {"no, DHCPv6 was first"}


NO_BOOT_FILE = "no, the answer names no boot file"


@pytest.mark.parametrize("scenario, lines, rows, events, better", [
    ("dhcpv4-no-bootfile", [], {(2, "DHCPv4"): ("asks", "BOUND", "-", NO_BOOT_FILE)}, {"ZTP_DHCPv4_QUERY_FAIL"},
     "dhcpv4"),
    ("ra-managed", [], {(2, "DHCPv6"): ("asks", "BOUND6", "-", NO_BOOT_FILE)},
     {"ZTP_DHCPv4_QUERY_FAIL", "ZTP_DHCPv6_QUERY_FAIL"}, "dhcpv6"),
    ("ra-stateless", [], {(2, "DHCPv6"): ("-", "RENEW6", "-", NO_BOOT_FILE)},
     {"ZTP_DHCPv4_QUERY_FAIL", "ZTP_STATELESS_DHCPv6_QUERY_FAIL"}, "dhcpv6-stateless"),
    ("ra-stateless", NO_ANSWER, {(2, "DHCPv6 stateless"): ("asks", "-", "-", "no answer yet")},
     {"ZTP_DHCPv4_QUERY_FAIL", "ZTP_STATELESS_DHCPv6_QUERY_FAIL"}, "dhcpv6-stateless"),
])
def test_queries_without_a_boot_file_go_round_until_there_is_one(switch, scenario, lines, rows, events, better):
    switch.serve(scenario, ports=[2], lines=lines)
    switch.host.boot_again()
    wait_dhcp(switch, rows)
    wait_for(lambda: events <= set(switch.host.events()), f"{events}")
    told = {name for name in switch.host.events() if name.endswith(("_FAIL", "_SUCCESS"))}
    assert told == events
    switch.serve(better, ports=[2])
    wait_provisioned(switch)


@pytest.mark.parametrize("lose, scenario", [("unplug", "dhcpv4"), ("remove", "dhcpv6")])
def test_a_query_goes_on_without_a_port_that_is_lost(switch, lose, scenario):
    for number in (1, 2):
        switch.serve(scenario, ports=[number], name=f"server{number}", lines=NO_ANSWER)
    switch.host.boot_again()
    family = "DHCPv6" if scenario == "dhcpv6" else "DHCPv4"
    wait_dhcp(switch, {(number, family): ("asks", "-", "-", "no answer yet") for number in (1, 2)})
    getattr(switch, lose)(1)
    switch.serve(scenario, SILENT, ports=[2], name="server2")
    wait_fetching(switch)
    assert switch.host.get("/zerotouch/sm/choosenIntf") == "Ethernet2"


def test_a_quick_server_that_is_wrong_does_not_keep_the_switch_from_a_right_one(switch):
    """Its port waits for the others in the attempts that follow its failure, and is asked all the same."""
    switch.host.config.write_text(switch.host.config_text + '[dhcp]\nafter_failure = "others first"\n')
    switch.serve("dhcpv4", "http://{server}/missing", ports=[1], name="wrong")
    switch.serve("dhcpv4", ports=[2], lines=NO_ANSWER)
    switch.host.boot_again()
    reason = "the download has failed too often: HTTP 404 Not Found"
    wait_dhcp(switch, {(1, "DHCPv4"): ("asks", "BOUND", "http://10.0.1.1/missing", f"not yet, waits for others: {reason}")})
    switch.serve("dhcpv4", ports=[2], lines=["dhcp-reply-delay=1"])
    wait_provisioned(switch)
    switch.host.config.write_text(switch.host.config_text)


@pytest.mark.parametrize("quicker, switch", [("before", "dhclient"), ("with", "dhclient"), ("with", "dhcpcd")],
                         indirect=["switch"])
def test_a_server_without_a_boot_file_does_not_hide_another(switch, quicker):
    """Whether the other one comes later, or is there from the start and slower."""
    switch.serve("dhcpv4-no-bootfile", ports=[2])
    if quicker == "before":
        switch.host.boot_again()
        wait_dhcp(switch, {(2, "DHCPv4"): ("asks", "BOUND", "-", NO_BOOT_FILE)})
    switch.server.ip("address", "replace", "10.99.0.1/24", "dev", "p2")
    switch.serve("dhcpv4-slower", ports=[2], name="slower")
    if quicker == "with":
        switch.host.boot_again()
    wait_provisioned(switch)
    assert "DHCPREQUEST(p2) 10.99.0." in switch.processes.log("slower").read_text()


@pytest.mark.parametrize("routes, file", [
    (["dhcp-option=option:classless-static-route,10.99.0.1/32,0.0.0.0,0.0.0.0/0,10.99.0.1"], "http://10.99.0.1/config"),
    ([], "http://192.168.99.1/config")])
def test_an_address_without_a_network_gets_to_what_is_on_the_link_and_behind_it(switch, routes, file):
    for address in ("10.99.0.1/24", "192.168.99.1/32"):
        switch.server.ip("address", "replace", address, "dev", "p2")
    switch.serve("dhcpv4-no-bootfile", ports=[2], lines=[
        "dhcp-option=option:netmask,255.255.255.255", f'dhcp-option=option:bootfile-name,"{file}"', *routes])
    switch.host.boot_again()
    wait_provisioned(switch)


@pytest.mark.parametrize("scenario, switch", [("dhcpv4", "dhclient"), ("dhcpv6", "dhclient"), ("dhcpv6", "dhcpcd")],
                         indirect=["switch"])
def test_a_link_that_comes_up_during_a_query_is_asked_in_that_query(switch, scenario):
    switch.host.environment |= timers(0.3, **TIMES | {"DHCLIENTQUERY": LIMIT})
    switch.serve(scenario, ports=[1], lines=NO_ANSWER, name="silent")
    switch.serve(scenario, ports=[2])
    switch.unplug(2)
    switch.host.boot_again()
    wait_dhcp(switch, {(1, "DHCPv6" if scenario == "dhcpv6" else "DHCPv4"): ("asks", "-", "-", "no answer yet")})
    switch.plug(2)
    wait_provisioned(switch)
    assert "ZTP_RETRY" not in switch.host.events()


@BOTH
def test_leases_of_other_ports_and_of_the_other_family_are_given_back(switch):
    """Port 1 is answered in both families, without a boot file, and port 2 in both with one: either wins there."""
    switch.host.environment |= timers(0.3, **TIMES | {"DHCLIENTQUERY": LIMIT})
    switch.serve("dhcpv4-no-bootfile", ports=[1], name="first4")
    switch.serve("ra-managed", ports=[1], name="first6")
    switch.unplug(2)
    switch.serve("dhcp-both", ports=[2], lines=["dhcp-reply-delay=1"])
    switch.host.boot_again()
    wait_dhcp(switch, {(1, "DHCPv4"): ("asks", "BOUND", "-", NO_BOOT_FILE), (1, "DHCPv6"): ("asks", "BOUND6", "-", NO_BOOT_FILE)})
    switch.plug(2)
    wait_provisioned(switch)
    logs = [switch.processes.log(name) for name in ("first4", "first6", "dnsmasq")]
    for log, message in zip(logs, ("DHCPRELEASE(p1) 10.0.1.", "DHCPRELEASE(p1)", "DHCPRELEASE(p2)")):
        wait_for(lambda: message in log.read_text(), f"{message} in {log}")


@BOTH
def test_messages_carry_who_asks(switch):
    """dhcpcd 9 cannot send the vendor options of DHCPv6, and asks for options of DHCPv4 in an order of its own."""
    identity = b"Ostrel;LAB-SWITCH;LAB0001"
    told = len(identity).to_bytes(2, "big") + identity
    vendor = {"dhclient": (17, bytes.fromhex("00007ed9 0001") + told),
              "dhcpcd": (16, bytes.fromhex("00007ed9") + told)}
    wanted4 = [1, 67, 66, 121, 33, 3, 26, 6, 15, 12, 7]
    first4 = {"dhclient": [], "dhcpcd": [1, 3, 33]}[switch.client]
    for number, scenario in ((1, "ra-managed"), (2, "ra-stateless")):
        switch.serve(scenario, ports=[number], name=f"server{number}", lines=NO_ANSWER)
    captures = [Capture(switch.server, f"p{number}") for number in (1, 2)]
    switch.host.boot_again()
    discover, _ = captures[0].message(67, 1)
    assert discover == {53: bytes([1]), 60: identity, 61: bytes.fromhex("020000000001"),
                        55: bytes(first4 + [code for code in wanted4 if code not in first4])}
    for capture, kind in zip(captures, (1, 11)):
        options, _ = capture.message(547, kind)
        code, value = vendor[switch.client]
        assert (options[1], options[code]) == (bytes.fromhex("00030001 020000000001"), value)
        assert [*struct.unpack("!6H", options[6])] == [59, 23, 24, 82, 83, 32]
        capture.close()
