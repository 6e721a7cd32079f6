"""From power-on to the second boot."""
import json
import time

from lab.host import BUILD, ROOT
from lab.namespace import run
from machine import hardware
from machine.suite import scene
from machine.switch import CONFIG, waits


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


@scene("script", "a script writes the configuration; reload, settled boot")
def script(switch):
    switch.serves("script", f"#!/bin/sh\nset -e\ntest \"$ZTP_EXEC_SCRIPT\" = 1\nprintf '%s' '{CONFIG}' >/mnt/flash/startup-config\n")
    switch.begin(boot_file="http://{server}/script")
    switch.wait_reload()
    switch.is_settled()


@scene("ipv6-only", "a network without IPv4: DHCPv6, and a configuration over HTTP and IPv6")
def ipv6_only(switch):
    switch.begin("dhcpv6", prepare="sysctl -qw net.ipv6.conf.default.accept_dad=1")
    switch.wait_reload()
    switch.is_settled()
    request = switch.network.requests()[-1]
    assert request["uri"] == "/config" and ":" in request["client"]


@scene("signed", "a stranger's boot file is refused; one that is signed for this switch is believed")
def signed(switch):
    for arguments in (["ca", "ours"], ["signer", "signer", "ours"], ["ca", "theirs"], ["signer", "stranger", "theirs"]):
        run(ROOT / "lab" / "authority", switch.folder, *arguments)

    def serve(signer):
        switch.serves("config", CONFIG)
        run(BUILD / "bin" / "zerotouch", "sign", "--certificate", switch.folder / f"{signer}.pem", "--key",
            switch.folder / f"{signer}.key", "--serial", hardware.SERIAL, switch.network.www / "config", "-o",
            switch.network.www / "config")

    serve("stranger")
    signers = (switch.folder / "ours.pem").read_text()
    switch.begin(platform='[authenticity]\nsigners = "/etc/zerotouch/signers.pem"\nbind = "serial"\n',
                 prepare=f"date -s @{int(time.time())}; cat >/etc/zerotouch/signers.pem <<'EOF'\n{signers}EOF\n"
                         "zerotouchd --check | grep 'signers.pem:1: CN=ours, expires'")
    refusal = "Error: the file is signed by somebody who may not sign boot files: CN=stranger"
    switch.wait_console(refusal)
    assert switch.startup_config() is None
    serve("signer")
    switch.wait_reload()
    switch.is_settled()
    assert json.loads(switch.run("zerotouch history --json"))[-1]["signer"] == "CN=signer"


@scene("clock", "the clock begins in 1970 and is set during the run")
def clock(switch):
    switch.begin(None, environment=waits(DHCLIENTQUERY=10), prepare="date -s '1970-01-02 00:00:20'")
    switch.wait_state("stateDhcpQuery")
    assert switch.run("date +%Y").strip() == "1970"
    switch.run("date -s '2030-06-01 12:00:00'")
    switch.wait(lambda: switch.retries() >= 1, "a retry")
    switch.run("date -s '2029-06-01 12:00:00'")
    switch.serve()
    switch.wait_reload()
    switch.is_settled()
