"""Ports of every kind, and ports that go and come."""
from machine import hardware
from machine.suite import scene
from machine.switch import JOINED, NO_RELOAD, waits

# Two ports in one bond. A bond sees the loss of a link at the latest after 100 ms.
BOND = ("modprobe bonding max_bonds=0; ip link add bond1 type bond mode {mode} miimon 100 {options}; "
        "for port in et1 et2; do ip link set $port down; ip link set $port master bond1; done; ip link set bond1 up")
MANY_RETRIES = waits(INETRFACESSETUP=3, DHCLIENTQUERY=20)


def port_line(switch, name):
    """What `zerotouch ports` shows of a port."""
    told = switch.run("zerotouch ports")
    return next((line for line in told.splitlines() if line.startswith(f"{name} ")), told)


@scene("bond-802.3ad", "the answer comes over a bond that has agreed with its partner (LACP)")
def bond_lacp(switch):
    switch.begin(join=(1, 2), ports=[JOINED], environment=MANY_RETRIES, platform=NO_RELOAD,
                 prepare=BOND.format(mode="802.3ad", options="lacp_rate fast"))
    switch.wait_requested()
    assert "02:00:00:03:00:01" in switch.run("cat /proc/net/bonding/bond1"), "there is no partner"
    assert "Port-Channel1" in switch.events("ZTP_DHCPv4_SUCCESS")[-1]
    assert switch.startup_config()
    assert switch.run("cat /sys/class/net/bond1/bonding/slaves").split() == ["et1", "et2"]


@scene("bond-active-backup", "the same over a bond whose active port loses its link during the run")
def bond_backup(switch):
    switch.begin(None, join=(1, 2), environment=MANY_RETRIES, platform=NO_RELOAD,
                 prepare=BOND.format(mode="active-backup", options="primary et1"))
    switch.wait_state("stateDhcpQuery")
    switch.machine.ask("set_link", name="et1", up=False)
    switch.serve(ports=[JOINED])
    switch.wait_requested()
    assert "Currently Active Slave: et2" in switch.run("cat /proc/net/bonding/bond1")
    assert "Port-Channel1" in switch.events("ZTP_DHCPv4_SUCCESS")[-1]


@scene("vlan-and-bridge", "a port with a VLAN device on it is provisioned; the one in a bridge is left alone")
def vlan_and_bridge(switch):
    switch.begin(ports=[1, 3], platform=NO_RELOAD, prepare="""
        modprobe 8021q; ip link add link et3 name et3.100 type vlan id 100; ip link set et3 up; ip link set et3.100 up
        modprobe bridge; ip link add br0 type bridge; ip link set et1 master br0; ip link set et1 up; ip link set br0 up""")
    switch.wait_requested()
    assert "Ethernet3" in switch.events("ZTP_DHCPv4_SUCCESS")[-1]
    assert "et1" in switch.run("ip -br link show master br0")
    assert not switch.run("ip -br address show dev et1 scope global").split()[2:], "the port of the bridge has an address"
    assert "100" in switch.run("ip -d link show et3.100") and "UP" in switch.run("ip -br link show et3.100")
    assert list(switch.get("/interface/status/vlan/intfStatus")) == ["Ethernet3.100"]
    assert "no, bridged" in port_line(switch, "Ethernet1")
    switch.run("ip link del et3.100")
    switch.wait(lambda: not switch.get("/interface/status/vlan/intfStatus"), "the VLAN device to be forgotten")


@scene("vrf", "a port of a VRF, whose routes are in a table of their own, is left alone; another port is provisioned")
def vrf(switch):
    switch.begin(ports=[3, 4], platform=NO_RELOAD, prepare="""
        modprobe vrf; ip link add blue type vrf table 100; ip link set blue up; ip link set et4 master blue; ip link set et4 up""")
    switch.wait_requested()
    assert "Ethernet3" in switch.events("ZTP_DHCPv4_SUCCESS")[-1]
    assert not switch.run("ip -br -4 address show dev et4").split()[2:], "the port of the VRF has an address"
    assert "no, bridged" in port_line(switch, "Ethernet4")


@scene("renamed-and-unplugged", "a port is renamed, another is pulled out during its download and put back")
def renamed_and_unplugged(switch):
    switch.begin(boot_file="http://{server}:8080/slow", ports=[1], platform=NO_RELOAD, environment=MANY_RETRIES)
    switch.wait_state("stateFetchConfig")
    switch.machine.ask("device_del", id="et1")
    switch.wait(lambda: switch.result("ip link show et1")[0] != 0, "et1 to be gone")
    switch.run("ip link set et3 down; ip link set et3 name et9; ip link set et9 up")
    switch.wait(lambda: "Ethernet9" in switch.get("/interface/status/ethPhy/intfStatus"), "the new name")
    assert "Ethernet1" not in switch.get("/interface/status/ethPhy/intfStatus")
    switch.serve(ports=[3])
    switch.wait_requested()
    assert "Ethernet9" in switch.events("ZTP_DHCPv4_SUCCESS")[-1]
    port = hardware.PORTS["et1"]
    switch.machine.ask("device_add", driver=port.model, id="et1", netdev="net-et1", mac=port.mac, romfile="")
    switch.wait(lambda: "Ethernet1" in switch.get("/interface/status/ethPhy/intfStatus"), "et1 to be back")


@scene("speeds", "ports that negotiate over copper keep their speed over retries, also one that was set during the run")
def speeds(switch):
    def settings(port):
        told = switch.run(f"ethtool {port}")
        return [line.strip() for line in told.splitlines() if "Speed:" in line or "Auto-negotiation:" in line]
    switch.begin(None, platform=NO_RELOAD, environment=waits(DHCLIENTQUERY=8))
    switch.wait_state("stateDhcpQuery")
    assert settings("et1") == settings("et2") == ["Speed: 1000Mb/s", "Auto-negotiation: on"]
    switch.run("ethtool -s et2 speed 100 duplex full autoneg off")
    # On every sixth attempt the speeds of ports without a link or a neighbour would be changed.
    switch.machine.ask("set_link", name="et1", up=False)
    switch.wait(lambda: switch.retries() >= 7, "seven retries")
    switch.machine.ask("set_link", name="et1", up=True)
    switch.serve(ports=[2])
    switch.wait_requested()
    switch.wait(lambda: settings("et1") == ["Speed: 1000Mb/s", "Auto-negotiation: on"], "et1 to have its link again")
    assert settings("et2") == ["Speed: 100Mb/s", "Auto-negotiation: off"]
