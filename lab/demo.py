"""A virtual switch that provisions itself, for people to watch. scripts/demo builds what it needs and runs it."""
import argparse
import json
import sys
import time

from lab.host import BUILD, ROOT, timers
from lab.namespace import run
from lab.polling import wait_for
from lab.switch_lab import Lab

CONFIG = "hostname leaf-1\ninterface Ethernet1\n  description provisioned by the demo\n"
SCRIPT = """#!/bin/sh
echo "installing a configuration by hand"
echo "hostname set-by-script" >"$FILESYSTEM_ROOT/flash/startup-config"
"""
SHORT = timers(1, INETRFACESSETUP=4, DHCLIENTQUERY=6)  # long enough for router advertisements and answers
TRUST = """[authenticity]
signers = "{folder}/authority/authority.pem"
bind = "serial"
"""
FAILURES = 2  # the requests that a failing server refuses


def say(text):
    print(f"\n== {text}", flush=True)


class Timeline:
    """The host's events and states in the order of time, each printed once, with the time since the start."""

    def __init__(self, host):
        self.host = host
        self.start = time.time()
        self.shown = {"states": 0, "events": 0}

    def print(self, text, since=None):
        print(f"{max(0, (since or time.time()) - self.start):7.1f} s  {text}", flush=True)

    def follow(self):
        """Prints the new events and states, and returns the names of all events so far."""
        report = json.loads(self.host.cli("report", "--json"))
        new = [(state["time"], f"  now in {state['state']}: {state['reason']}")
               for state in report["states"][self.shown["states"]:]]
        new += [(event["time"], f"{event['name']}: {event['message']}") for event in report["events"][self.shown["events"]:]]
        for since, text in sorted(new, key=lambda line: line[0]):
            self.print(text, since)
        self.shown = {kind: len(report[kind]) for kind in self.shown}
        return [event["name"] for event in report["events"]]


def provision(lab, options, boot_file):
    """Boots, and follows the run to its reload request. Returns whether that came in time."""
    say("first boot: no startup configuration on flash")
    lab.host.start()
    timeline = Timeline(lab.host)
    deadline = time.time() + (600 if options.default_timers else 90)
    while time.time() < deadline:
        events = timeline.follow()
        if not options.repaired and events.count("ZTP_CONFIG_DOWNLOAD_FAIL") >= FAILURES:
            timeline.print("  (the server gets the file that it did not have)")
            options.repaired = True
            write(lab, boot_file, options)
        if lab.host.reload_requested():
            timeline.follow()
            return True
        time.sleep(0.1)
    return False


def write(lab, boot_file, options, signer="signer"):
    boot_file.write_text(SCRIPT if options.script else CONFIG)
    if options.signed:
        sign(lab, boot_file, signer)


def trust(lab):
    """Makes an authority that the switch believes, with a signer, and a stranger."""
    folder = lab.folder / "authority"
    folder.mkdir()
    for arguments in (["ca", "authority"], ["signer", "signer", "authority"], ["ca", "strangers"],
                      ["signer", "stranger", "strangers"]):
        run(ROOT / "lab" / "authority", folder, *arguments)
    lab.host.config.write_text(lab.host.config_text + TRUST.format(folder=lab.folder))
    say("who may sign boot files, as the switch is told")
    print(TRUST.format(folder=lab.folder), end="", flush=True)
    print(run(BUILD / "bin" / "zerotouchd", "--check", "--config", lab.host.config), end="", flush=True)


def sign(lab, boot_file, signer):
    folder = lab.folder / "authority"
    run(BUILD / "bin" / "zerotouch", "sign", "--certificate", folder / f"{signer}.pem", "--key", folder / f"{signer}.key",
        "--serial", "LAB0001", boot_file, "-o", boot_file)


def show_outcome(lab):
    def indented(text):
        print("".join(f"    {line}\n" for line in text.splitlines() if line.strip()), end="")

    say("what the switch was given for the time of the run")
    for argv in (["hostname"], ["ip", "-brief", "address", "show", "dev", "et1"], ["ip", "route"], ["cat", "/etc/resolv.conf"]):
        print(f"  {' '.join(argv)}")
        indented(lab.switch.run(*argv))
    say("the installed startup configuration, and the settings file for the next boot")
    for file in ("startup-config", "zerotouch-config"):
        print(f"  flash/{file}")
        indented((lab.host.flash / file).read_text())
    say("the reload that was asked for")
    indented("\n".join(lab.host.reload_requested()))


def second_boot(lab):
    """Returns whether provisioning stays off."""
    say("second boot")
    lab.host.boot_again()
    wait_for(lambda: lab.host.get("/zerotouch/config/enabled") is False, "provisioning to be off")
    print(lab.host.output() + "\n" + lab.host.cli("status"), end="")
    return lab.host.get("/zerotouch/sm/currentState") == "stateInit"


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/demo", description=__doc__.splitlines()[0])
    scheme = parser.add_mutually_exclusive_group()
    for name in ("tftp", "ftp", "http", "https"):
        scheme.add_argument(f"--{name}", dest="scheme", action="store_const", const=name,
                            help=f"download over {name.upper()}" + (" (the default)" if name == "http" else ""))
    family = parser.add_mutually_exclusive_group()
    for name, scenario, text in (("v4", "dhcpv4", "DHCPv4 (the default)"), ("v6", "dhcpv6", "DHCPv6"),
                                 ("stateless", "dhcpv6-stateless", "router advertisements and stateless DHCPv6")):
        family.add_argument(f"--{name}", dest="scenario", action="store_const", const=scenario, help=f"answer by {text}")
    parser.add_argument("--script", action="store_true", help="serve a configuration script instead of a configuration")
    parser.add_argument("--fail", action="store_true", help="have the server fail twice before it works")
    parser.add_argument("--signed", action="store_true",
                        help="believe signed files only; one of a stranger is served before the right one")
    parser.add_argument("--default-timers", action="store_true", help="wait as long as a switch does")
    parser.set_defaults(scheme="http", scenario="dhcpv4")
    return parser.parse_args()


def main():
    options = arguments()
    lab = Lab("demo")
    say(f"lab: a switch with two ports; behind et1 a server, {options.scenario}, {options.scheme.upper()}")
    try:
        lab.up()
    except RuntimeError as error:
        sys.exit(f"demo: {error} (lab/lab down --name demo)")
    try:
        for number in (1, 2):
            lab.add_veth(number)
        lab.serve_files()
        boot_file = lab.www / "boot"
        options.repaired = not (options.fail or options.signed)
        if options.signed:
            trust(lab)
        if options.signed and not options.fail:
            write(lab, boot_file, options, "stranger")
        elif options.repaired:
            write(lab, boot_file, options)
        lab.serve(options.scenario, boot_file=f"{options.scheme}://{{server}}/{boot_file.name}", ports=[1])
        if not options.default_timers:
            lab.host.environment |= SHORT
        if not provision(lab, options, boot_file):
            print(lab.host.cli("status") + "\n" + lab.host.cli("ports"))
            sys.exit("demo: FAILED, the switch was not provisioned in time")
        show_outcome(lab)
        if not second_boot(lab):
            sys.exit("demo: FAILED, provisioning is on again")
        say("done: the switch was provisioned")
    finally:
        lab.down()


if __name__ == "__main__":
    try:
        main()
    except (RuntimeError, AssertionError, TimeoutError, OSError) as problem:
        sys.exit(f"demo: {problem}")
    except KeyboardInterrupt:
        sys.exit("demo: interrupted")
