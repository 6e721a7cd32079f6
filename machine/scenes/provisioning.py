"""From power-on to the second boot."""
from machine import hardware
from machine.suite import scene


@scene("configuration", "power-on, DHCPv4, a configuration over HTTP, reload, settled boot; default timers")
def configuration(switch):
    switch.begin(cold=True, environment={})
    switch.wait_reload()
    switch.is_settled()
    request = switch.network.requests()[-1]
    assert request["uri"] == "/config" and request["status"] == "200"
    assert (request["X-Ostrel-ModelName"], request["X-Ostrel-Serial"], request["X-Ostrel-HardwareVersion"]) == (
        hardware.MODEL, hardware.SERIAL, hardware.REVISION)
    assert request["X-Ostrel-SystemMAC"] == hardware.PORTS["et1"].mac
    assert "DHCPRELEASE" in switch.network.answered(), "the lease was not given back"
    assert switch.run("hostname").strip() == "switch"
    # rsyslog told the log server what happened, under the name that DHCP gave the switch.
    assert "leaf-1 zerotouchd" in switch.network.logged() and "ZTP_CONFIG_DOWNLOAD_SUCCESS" in switch.network.logged()
