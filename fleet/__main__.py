"""The command line of scripts/fleet."""
import argparse
import dataclasses
import json
import pathlib

from fleet import collected, picture, settings, simulation
from fleet.boots import boot
from fleet.dhcp_servers import SERVERS

HEADINGS = ("switches", "answered", "provisioned", "first", "half", "last", "retries", "HTTP", "DHCP", "dhcp cpu", "http cpu",
            "memory")


def row(result):
    def seconds(value):
        return "-" if value is None else f"{value:.1f} s"
    memory = "-" if result.memory_kib is None else f"{result.memory_kib / 1024:.1f} MiB"
    answered = result.answered[-1] if result.answered else None
    return (result.switches, seconds(answered), len(result.provisioned), seconds(result.at(0)), seconds(result.at(0.5)),
            seconds(result.at(1)), result.retries, f"{result.requests / result.switches:.1f}", f"{result.dhcp_messages / result.switches:.1f}",
            seconds(result.dhcp_processor), seconds(result.file_processor), memory)


def main():
    parser = argparse.ArgumentParser(
        prog="scripts/fleet", description="Boots many virtual switches at once, with default timers, and measures them. Answered is "
        "when DHCP had answered the last of them; HTTP and DHCP are requests and messages per switch; cpu is the processor time of a "
        "server; memory is that of a switch's processes. Then follows what an MQTT broker has heard from the reporter of each switch.")
    parser.add_argument("--switches", default="1,10,50,100,200", help="how many at once; several numbers, one run each")
    parser.add_argument("--dhcp", choices=SERVERS, default="dnsmasq-no-ping", help="the DHCP server; of simulated "
                        "ones, only dnsmasq takes its time")
    parser.add_argument("--rate", default="1gbit", help="of the link of the servers, as tc(8) takes it")
    parser.add_argument("--file-mib", type=int, default=20, help="the size of the boot file")
    parser.add_argument("--settings", help="a file with more lines for each switch's platform.toml")
    parser.add_argument("--pacing", action="store_true", help="each switch has [pacing] as it is recommended")
    parser.add_argument("--recommended", action="store_true", help="each switch has all that the packaged platform.toml recommends "
                        "where many start together")
    parser.add_argument("--wrong-server", action="store_true", help="each switch has another port, to a DHCP server that answers "
                        "at once and names a missing file")
    parser.add_argument("--every-switch", action="store_true", help="print what the collector knows of the provisioned ones too")
    parser.add_argument("--simulated", action="store_true", help="simulate the switches and both servers: thousands of them")
    parser.add_argument("--leases-per-second", type=float, default=0, help="with --simulated: how many new addresses the DHCP "
                        "server finds, one after the other; by default what --dhcp says")
    parser.add_argument("--patience", type=float, default=300, help="seconds after which a run is ended")
    parser.add_argument("--json", help="a file to which all figures go")
    parser.add_argument("--svg", help="a file for a picture of the switches that are provisioned over time")
    arguments = parser.parse_args()

    lines = settings.chosen(arguments.settings, arguments.pacing, arguments.recommended)
    print(("%9s" + "%12s" * 11) % HEADINGS, flush=True)
    results = []
    for count in map(int, arguments.switches.split(",")):
        if arguments.simulated:
            results.append(simulation.boot(count, arguments.dhcp, arguments.leases_per_second, arguments.rate,
                                           arguments.file_mib << 20, lines, arguments.patience))
        else:
            results.append(boot(count, SERVERS[arguments.dhcp], arguments.rate, arguments.file_mib << 20, lines,
                                arguments.patience, arguments.wrong_server))
        print(("%9s" + "%12s" * 11) % row(results[-1]), flush=True)
        if results[-1].reported:
            print("\n".join(collected.lines(results[-1].reported, arguments.every_switch)), flush=True)
    if arguments.json:
        pathlib.Path(arguments.json).write_text(json.dumps([dataclasses.asdict(result) for result in results], indent=1) + "\n")
    if arguments.svg:
        curves = {f"{result.switches} switches": (result.switches, result.provisioned) for result in results}
        pathlib.Path(arguments.svg).write_text(picture.svg(curves))


main()
