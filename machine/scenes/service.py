"""The services: their confinement, restarts, hangs, memory, what is reported, and the package."""
import json

from lab import servers
from lab.server_side import COLLECTOR_PORT
from machine import hardware
from machine.suite import scene
from machine.switch import CONFIG, FLASH, NO_RELOAD

SLOW = "http://{server}:8080/slow"
CLIENT_LABEL = "tr '\\0' '\\n' </proc/$(pgrep -o dhclient)/attr/current"
RULES = "/etc/apparmor.d/local/sbin.dhclient"


def host(switch):
    return switch.unit("MainPID")


def on_its_way(switch, **options):
    """A run that stays in its download."""
    switch.begin(boot_file=SLOW, **options)
    switch.wait_state("stateFetchConfig")


@scene("apparmor", "the DHCP client is confined by its profile; without the package's rules a run gets nowhere")
def apparmor(switch):
    switch.begin(platform=NO_RELOAD, prepare=f"cp {RULES} /root/rules; : >{RULES}; apparmor_parser -rT /etc/apparmor.d/sbin.dhclient")
    switch.wait(switch.denials, "a denial")
    assert "DHCPv4" not in " ".join(switch.events("ZTP_DHCPv4_SUCCESS"))
    switch.run(f"cp /root/rules {RULES}; apparmor_parser -rT /etc/apparmor.d/sbin.dhclient; sleep 5; systemctl restart zerotouchd")
    switch.forget_denials()
    switch.wait_requested()
    assert "/sbin/dhclient (enforce)" in switch.run("cat /sys/kernel/security/apparmor/profiles").replace("/{,usr/}", "/")


@scene("restart", "systemctl restart, and a host that hangs until the watchdog bites: both times the run goes on")
def restart(switch):
    on_its_way(switch, prepare="mkdir -p /etc/systemd/system/zerotouchd.service.d; printf '[Service]\\nWatchdogSec=20\\n' "
                               ">/etc/systemd/system/zerotouchd.service.d/hasty.conf; systemctl daemon-reload")
    first = host(switch)
    switch.run("systemctl restart zerotouchd")
    switch.wait_state("stateFetchConfig")
    second = host(switch)
    assert second != first
    switch.run(f"kill -STOP {second}")
    switch.wait(lambda: switch.unit("NRestarts") == "1", "the watchdog to bite")
    assert "Watchdog timeout" in switch.journal()
    switch.serve()
    switch.wait_reload()
    switch.is_settled()


@scene("out-of-memory", "a script that takes all memory is killed, the service lives on, and the next attempt succeeds")
def out_of_memory(switch):
    switch.serves("script", "#!/bin/sh\necho takes all\ntail /dev/zero\n")
    switch.begin(boot_file="http://{server}/script")
    switch.wait_state("stateCopyConfigOrExecScript")
    before = host(switch)
    switch.serve()
    switch.wait(lambda: switch.events("ZTP_EXEC_SCRIPT_FAIL"), "the script to fail")
    assert host(switch) == before
    assert "Out of memory" in switch.run("dmesg")
    switch.wait_reload()
    switch.is_settled()


@scene("reported", "a collector hears of the whole run, and after the second boot what it has come to")
def reported(switch):
    url = f"http://{servers.net4(1)}.1:{COLLECTOR_PORT}/events"
    # The reporter of this boot has ended before it was told of a collector.
    switch.begin(ports=[1], platform=f'[reporter]\nurl = "{url}"\nspool = "{FLASH}/spool"\n',
                 prepare="systemctl start --no-block zerotouch-reporter")
    collected = switch.network.collect()
    switch.wait_reload()
    # In the place of the configuration, which is none that this system reads.
    switch.wait(lambda: switch.result("ip link set et1 up")[0] == 0, "et1")
    switch.run(f"ip address add {servers.net4(1)}.200/24 dev et1")

    def told():
        events = [json.loads(line) for line in collected.read_text().splitlines()]
        return {event["id"]: event for event in events}.values()

    switch.wait(lambda: any(event["type"] == "zerotouch.provisioned" for event in told()), "the outcome to be reported")
    numbers = sorted(int(event["sequence"]) for event in told())
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers))), f"there is a gap in {numbers}"
    assert {event["source"] for event in told()} == {hardware.SERIAL}
    kinds = [event["type"].removeprefix("zerotouch.") for event in told()]
    missing = {"ZTP_INIT", "ZTP_DHCPv4_SUCCESS", "ZTP_CONFIG_DOWNLOAD_SUCCESS", "ZTP_RELOAD"} - set(kinds)
    assert not missing and kinds.count("provisioned") == 1, f"missing: {missing}; told: {kinds}"
    outcome = next(event["data"] for event in told() if event["type"] == "zerotouch.provisioned")
    assert outcome["port"] == "Ethernet1" and outcome["url"] == f"http://{servers.net4(1)}.1/config", outcome
    assert switch.startup_config() == CONFIG and switch.unit("ActiveState", "zerotouch-reporter") == "active"


@scene("upgrade", "an upgrade of the package during a run leaves it alone")
def upgrade(switch):
    on_its_way(switch)
    before = host(switch)
    switch.run("apt-get install -y -qq /root/newer.deb")
    assert "newer" in switch.run("dpkg-query -W zerotouch")
    assert host(switch) == before and switch.get("/zerotouch/sm/currentState") == "stateFetchConfig"
    switch.serve()
    switch.run("zerotouch disable; zerotouch enable")
    switch.wait_reload()
    switch.is_settled()


@scene("removal", "removing the package during a run stops it and leaves the switch as it was found")
def removal(switch):
    def found():
        return switch.run("""for port in et1 et2 et3 et4; do ip -o address show $port scope global; done; ip route; ip -6 route
                             hostname; cat /etc/resolv.conf; ls /etc/rsyslog.d; sysctl net.ipv6.conf.et3.accept_ra""") + "".join(switch.flash())
    on_its_way(switch, prepare="for port in et1 et2 et3 et4; do ip link set $port up; done; sleep 5")
    during = found()
    switch.run("apt-get remove -y -qq zerotouch")
    switch.wait(lambda: switch.result("pgrep 'zerotouch|dhclient|dhcpcd'")[0] == 1, "the host to be gone")
    after = found()
    assert "10.0." in during and "10.0." not in after, after
    assert "\nswitch\n" in after and "no name server" in after and "zerotouch" not in after, after
    assert switch.run(f"cat {RULES}").count("zerotouch") == 0
