"""Boots a fleet and measures it from outside: the servers' logs, the reload requests, the kernel's counts, and what arrives at
the collector."""
import dataclasses
import os
import statistics
import time

from fleet import collected
from fleet.switches import Fleet
from lab import broker

REPORTING = 60  # seconds in which everybody may report after the measurement


@dataclasses.dataclass
class Result:
    """What a boot of a fleet came to. Times are in seconds since the first switch was started. None for what a simulation
    cannot tell."""
    switches: int
    provisioned: list      # the times at which switches were provisioned, in order
    started_within: float  # until the last switch was started
    gave_up_after: float   # when it was no longer waited for
    requests: int          # HTTP requests
    dhcp_messages: int     # from the switches, as far as the server logs them
    retries: int
    dhcp_processor: float  # seconds
    file_processor: float  # seconds
    memory_kib: int        # per switch, median of a sample, at its highest
    answered: list         # the times at which DHCP had brought an address and a boot file, in order, as the collector knows them
    reported: list         # what the collector knows of each switch: collected.Known

    def at(self, share):
        """When that share of the switches was provisioned; None when fewer were."""
        index = max(1, -(-self.switches * share // 1)) - 1
        return self.provisioned[int(index)] if index < len(self.provisioned) else None


def boot(count, dhcp, rate, file_bytes, settings="", patience=300.0, wrong=False):
    fleet = Fleet(f"ztfleet-{os.getpid()}", count, dhcp, rate, settings, wrong)
    try:
        fleet.up(file_bytes)
        return measured(fleet, patience)
    finally:
        fleet.down()


def measured(fleet, patience):
    before = {server: fleet.processor_seconds(server) for server in ("dhcp", "nginx")}
    start, memory = time.time(), 0
    for switch in fleet.switches:
        switch.boot()
    started_within = time.time() - start
    sample = fleet.switches[:: max(1, len(fleet.switches) // 5)]
    waiting, times = list(fleet.switches), []
    while waiting and time.time() - start < patience:
        done = [(switch, at) for switch in waiting if (at := switch.provisioned_at()) is not None]
        times += [at - start for _, at in done]
        waiting = [switch for switch in waiting if switch not in dict(done)]
        memory = max(memory, statistics.median(switch.memory_kib() for switch in sample))
        time.sleep(0.5)
    gave_up_after = time.time() - start
    provisioned = [switch for switch in fleet.switches if switch not in waiting]
    retries = sum(switch.retries() for switch in fleet.switches)
    used = {server: fleet.processor_seconds(server) - before[server] for server in before}
    table = reported(fleet, provisioned)
    return Result(switches=len(fleet.switches), provisioned=sorted(times), started_within=started_within,
                  gave_up_after=gave_up_after, requests=len(fleet.requests()),
                  dhcp_messages=len(fleet.dhcp.messages.findall(fleet.dhcp_log())), retries=retries,
                  dhcp_processor=used["dhcp"], file_processor=used["nginx"], memory_kib=int(memory),
                  answered=[at - start for at in collected.answered(broker.events(fleet.arrived))], reported=table)


def reported(fleet, provisioned):
    """Reloads the switches that are `provisioned`, and waits a while until the collector has heard of everybody
    and knows those."""
    for switch in provisioned:
        switch.shut_down()
    for switch in provisioned:
        switch.boot_provisioned()
    serials = [switch.serial for switch in fleet.switches]
    said = {switch.serial for switch in provisioned}
    until = time.time() + REPORTING
    while True:
        table = collected.table(serials, broker.events(fleet.arrived), said)
        settled = all(known.same_as_host and known.events for known in table)
        if settled or time.time() > until:
            return table
        time.sleep(0.5)
