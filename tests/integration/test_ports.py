"""Ports of a virtual switch: what the host makes of them, and how it leaves them."""
import json
import re
import signal

from conftest import SHORT_TIMERS
from lab.host import ROOT
from lab.polling import wait_for


def ports(lab):
    """What the command line shows, by port."""
    return {port["port"]: port for port in json.loads(lab.host.cli("ports", "--json"))}


def wait_port(lab, name, **fields):
    """Waits until the port is shown with all of these fields."""
    wait_for(lambda: fields.items() <= ports(lab).get(name, {}).items(), f"{name} with {fields}")


def ip6(lab, device):
    return {item: lab.switch.ip6_setting(device, item) for item in ("disable_ipv6", "accept_ra", "accept_ra_defrtr")}


def is_up(lab, device):
    return "UP" in lab.switch.links()[device]["flags"]


def speed(lab, device):
    """As ethtool tells it: "1000Mb/s", or what is advertised when the port is to negotiate."""
    text = lab.switch.run("ethtool", device)
    if "Auto-negotiation: on" in text:
        return re.search(r"Advertised link modes: +(.*)", text)[1].strip()
    return re.search(r"Speed: (.*)", text)[1]


def speed_events(lab):
    return [event["message"].removeprefix("Setting interface speed to ")
            for event in json.loads(lab.host.cli("events", "--json")) if event["name"] == "ZTP_INTERFACE_SPEED"]


SET_UP = {"disable_ipv6": "0", "accept_ra": "2", "accept_ra_defrtr": "1"}
AS_FOUND = {"disable_ipv6": "1", "accept_ra": "0", "accept_ra_defrtr": "0"}


def test_a_bridged_port_is_left_out_until_it_leaves_the_bridge(lab):
    lab.add_veth(1)
    lab.switch.ip("link", "add", "br0", "type", "bridge")
    lab.host.start()
    wait_port(lab, "Ethernet1", registered="yes")
    lab.switch.ip("link", "set", "et1", "master", "br0")
    wait_port(lab, "Ethernet1", forwarding="bridged", registered="no, bridged")
    assert lab.host.get("/zerotouch/sm/intfStatus") == []
    lab.send_lldp(1, interval=0.1)  # it is listened to all the same
    wait_for(lambda: ports(lab)["Ethernet1"]["lldpHeard"] != 0, "LLDP on the bridged port")
    lab.switch.ip("link", "set", "et1", "nomaster")
    wait_port(lab, "Ethernet1", forwarding="routed", registered="yes")


def test_a_multi_speed_port_goes_through_its_speeds(lab):
    lab.add_tap(1, ["10g", "25g", "autoneg", "fibre"])
    lab.switch.run("ethtool", "-s", "et1", "speed", "1000", "duplex", "full", "autoneg", "off")
    lab.host.start()
    for expected in ("10000Mb/s", "25000Mb/s", "25000baseCR/Full", "1000Mb/s"):
        wait_for(lambda: speed(lab, "et1") == expected, f"the speed to be {expected}")
    assert speed_events(lab)[:5] == [f"{mode} for [Ethernet1]" for mode in (
        "default speed", "forced 10g", "forced 25g", "auto 25g", "default speed")]
    lab.switch.run(ROOT / "lab" / "link_modes.py", "et1", "40g", "fibre")  # as if another transceiver were plugged in
    lab.plug(1)
    modes = "/interface/status/ethPhy/intfStatus/Ethernet1/linkModeCapabilities"
    wait_for(lambda: [mode for mode, able in lab.host.get(modes).items() if able is True] == ["mode40G"], "40g alone")


def test_lldp_keeps_the_speed_of_a_port(lab):
    for number in (1, 2):
        lab.add_tap(number, ["10g", "25g", "40g", "autoneg", "fibre"])
        lab.plug(number)
    lab.add_veth(3)
    lab.host.environment |= SHORT_TIMERS
    lab.host.start("--trace", "ZeroTouchSm=5")
    wait_port(lab, "Ethernet3", link="up", registered="yes")
    lab.switch.ip("link", "set", "et3", "down")  # of which the socket there is told once
    wait_port(lab, "Ethernet3", link="down")
    lab.switch.ip("link", "set", "et3", "up")
    lab.send_lldp(1, interval=0.1)
    lab.send_lldp(3, interval=0.1, vlan=42)
    sender = [*lab.switch.enter(), ROOT / "lab" / "lldp_sender.py", "et2", "--interval", "0.1"]
    lab.processes.start("own-lldp", sender)  # what the switch sends itself comes from no neighbour
    wait_port(lab, "Ethernet1", link="up", keepsSpeed="hears LLDP")
    wait_port(lab, "Ethernet3", link="up", keepsSpeed="hears LLDP")
    kept, changes = speed(lab, "et1"), len(speed_events(lab))
    wait_for(lambda: len(speed_events(lab)) >= changes + 3, "three more changes of speed")
    assert {event.partition(" for ")[2] for event in speed_events(lab)[changes:]} == {"[Ethernet2]"}
    assert speed(lab, "et1") == kept
    assert ports(lab)["Ethernet2"]["lldpHeard"] == 0
    assert "Not toggling speed on [Ethernet1] because they are still receiving lldp packets" in lab.host.output()
    assert "Received 802.1Q-tagged frame with VLAN ID 42" in lab.host.output()


def state(lab):
    """All that a run changes on the ports of the next tests."""
    return {"up": is_up(lab, "et1"), "ip6": ip6(lab, "et1"), "speed": speed(lab, "et1")}


CHANGED = {"up": True, "ip6": SET_UP, "speed": "10000Mb/s"}
FOUND = {"up": False, "ip6": AS_FOUND, "speed": "1000Mb/s"}


def test_a_port_is_left_as_it_was_found(lab):
    lab.add_tap(1, ["10g", "fibre"])
    for item, value in AS_FOUND.items():
        lab.switch.ip6_setting("et1", item, value)
    lab.switch.run("ethtool", "-s", "et1", "speed", "1000", "duplex", "full", "autoneg", "off")
    assert state(lab) == FOUND
    lab.host.start()
    wait_for(lambda: state(lab) == CHANGED, "the port to be changed")
    lab.host.cli("disable")
    wait_for(lambda: state(lab) == FOUND, "the port to be as it was, since the run is disabled")
    wait_port(lab, "Ethernet1", forwarding="unconfigured", registered="no, unconfigured")

    lab.host.cli("enable")
    wait_for(lambda: state(lab) == CHANGED, "the port to be changed again")
    assert (lab.host.stop(), state(lab)) == (0, FOUND)

    lab.host.start()
    wait_for(lambda: state(lab) == CHANGED, "the port to be changed by the next host")
    lab.host.stop(signal.SIGKILL)
    assert state(lab)["up"]
    (lab.host.flash / "startup-config").write_text("hostname done\n")  # so that the next one starts no run
    lab.host.start()
    wait_for(lambda: state(lab) == FOUND, "the port to be as it was, though that host was killed")
    assert lab.host.get("/zerotouch/config/enabled") is False
