"""Boots a fleet under simulated time: the same agent, and a model of its servers (fleet/Simulation.cc)."""
import dataclasses
import json
import re
import subprocess
import tomllib

from fleet.boots import Result
from lab.host import BUILD

UNITS = {"bit": 1, "kbit": 1e3, "mbit": 1e6, "gbit": 1e9}
STARTED_WITHIN = 1.0
# dnsmasq looks for 3 s whether a new address is in use, and at six of them at most in 30 s.
DHCP = {"dnsmasq": {"leases_per_second": 1 / 3, "looks": 6}}
WITHOUT_EFFECT = ("download.redirects", "download.require_length", "dhcp.after_failure", "dhcp.offers")  # one server of each kind


@dataclasses.dataclass
class Simulated(Result):
    lost_answers: int        # of the DHCP server, which came when the query had ended
    given_up: int            # downloads
    downloads_at_once: int   # at the most
    bytes_sent: float        # by the file server, for nothing or not
    runs: int                # that were played


def bytes_per_second(rate):
    found = re.fullmatch(r"([0-9.]+)([kmg]?bit)", rate.lower())
    if not found:
        raise SystemExit(f"{rate}: a simulated link takes a number of bit, kbit, mbit or gbit")
    return float(found[1]) * UNITS[found[2]] / 8


def number(value):
    """A setting as the simulation takes it: of words, the first is 0, as it is by default."""
    return ("brisk", "rfc").index(value) if isinstance(value, str) else float(value)


def boot(count, dhcp, leases_per_second, rate, file_bytes, settings, patience):
    """`leases_per_second`, if it is not 0, counts instead of what is known of `dhcp`."""
    server = {"leases_per_second": leases_per_second} if leases_per_second else DHCP.get(dhcp, {})
    words = {"switches": count, "bytes_per_second": bytes_per_second(rate), "file_bytes": file_bytes, "patience": patience}
    words |= server
    for section, keys in tomllib.loads(settings).items():
        named = {f"{section}.{key}": value for key, value in keys.items()}
        words |= {name: number(value) for name, value in named.items() if name not in WITHOUT_EFFECT}
    program = BUILD / "bin" / "fleet_simulation"
    if not program.exists():
        raise SystemExit(f"{program} is not there: build with BUILD_BENCHMARKS on")
    done = subprocess.run([program, *(f"{name}={value!r}" for name, value in words.items())],
                          stdout=subprocess.PIPE, text=True)
    if done.returncode != 0:
        raise SystemExit(done.returncode)
    told = json.loads(done.stdout)
    complete = len(told["provisioned"]) == count
    return Simulated(
        switches=count, provisioned=told["provisioned"], started_within=STARTED_WITHIN,
        gave_up_after=told["provisioned"][-1] if complete else patience, requests=told["downloads"],
        dhcp_messages=told["messages"], retries=told["queries"] - count, dhcp_processor=None, file_processor=None,
        memory_kib=None, answered=[], reported=[], lost_answers=told["lost_answers"], given_up=told["given_up"],
        downloads_at_once=told["downloads_at_once"], bytes_sent=told["bytes_sent"], runs=told["replays"])
