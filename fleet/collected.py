"""The table of a fleet from what has arrived at the collector. The hosts are asked only whether they say the same."""
import dataclasses
import datetime

WARNING = 4  # severities up to this one tell of failures
DONE = {"zerotouch.provisioned": "provisioned", "zerotouch.failed": "failed"}


@dataclasses.dataclass
class Known:
    """What is known of a switch."""
    serial: str
    verdict: str        # provisioned, failed (its run has ended), failing, under way, never reported
    attempt: int        # as far as it was told; 0 for none
    cause: str          # why it has failed, the last time; "" when it has not
    events: int         # that have arrived
    same_as_host: bool  # whether its host, too, says that it is provisioned, or that it is not

    def row(self):
        told = "" if self.same_as_host else "  DIFFERS: its host says otherwise"
        attempt = f"attempt {self.attempt}" if self.attempt else "-"
        return f"  {self.serial:12} {self.verdict:15} {attempt:11} {self.events:4} events  {self.cause}{told}".rstrip()


def known(serial, events, provisioned):
    """`events` are those of the switch, in their order; `provisioned` is what its host says."""
    outcomes = [event for event in events if event["type"] in DONE]
    failures = [event for event in events if event["data"].get("severity", WARNING + 1) <= WARNING]
    last = (outcomes or failures or events or [None])[-1]
    if last is None:
        return Known(serial, "never reported", 0, "", 0, not provisioned)
    verdict = DONE[last["type"]] if outcomes else "failing" if failures else "under way"
    cause = "" if verdict in ("provisioned", "under way") else last["data"]["message"]
    return Known(serial, verdict, last["data"].get("attempt") or 0, cause, len(events),
                 (verdict == "provisioned") == provisioned)


def table(serials, events, provisioned):
    """What is known of each switch that should be there. `events` are those that arrived, by source; `provisioned` are the
    serial numbers of those whose hosts say so."""
    return [known(serial, events.get(serial, []), serial in provisioned) for serial in serials]


def answered(events):
    """When each switch that told it got an answer of a DHCP server that it could use, the last time; in order, since 1970."""
    last = {source: event for source, all_of_it in events.items() for event in all_of_it if event["type"].endswith("_SUCCESS")
            and "DHCP" in event["type"]}
    return sorted(datetime.datetime.fromisoformat(event["time"]).timestamp() for event in last.values())


def lines(switches, every=False):
    """The table as text: how many of each kind, then those that are not provisioned or whose host says otherwise, or all."""
    counts = {}
    for switch in switches:
        counts[switch.verdict] = counts.get(switch.verdict, 0) + 1
    differing = sum(not switch.same_as_host for switch in switches)
    summary = ", ".join(f"{count} {verdict}" for verdict, count in counts.items())
    said = f"the hosts of {differing} say otherwise" if differing else "the hosts say the same"
    return [f"  at the collector: {summary}; {said}",
            *(switch.row() for switch in switches if every or switch.verdict != "provisioned" or not switch.same_as_host)]
