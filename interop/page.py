"""The results as a table: on the screen, and in docs/interop.md."""
import collections
import itertools

from lab.host import ROOT

PAGE = ROOT / "docs" / "interop.md"
HEAD = """\
# Which servers it works with

`scripts/interop` wrote this page. Each row is one run of the agent on a virtual switch: real programs and real packets, with
timers that are short. A case has passed when

- the startup configuration is what the server has, byte for byte (76,821 bytes, every value of a byte among them),
- host name, name servers, domain, routes, log servers and MTU are what the server was told to send, and nothing else is set,
- what the agent took from the answer is what tshark decodes the answer to,
- tshark finds no fault in any DHCP, DHCPv6, router solicitation, LLDP or HTTP packet of the switch,
- the server's own log tells that the lease was released, where the server logs that,
- and what the remark says holds.

The configuration of every server is in [server-side/](server-side): the runs used these files.
`scripts/interop --case PATTERN` plays some of the cases, `--list` names them.
"""


def row(result):
    head = f"{result.result:10} {result.seconds:5.1f} s  {result.case}" + (f"  ({result.remark})" if result.remark else "")
    return "\n".join([head, *(f"{'':20}{fault}" for fault in result.faults)])


def summary(results, seconds):
    counts = collections.Counter(result.result for result in results)
    told = ", ".join(f"{counts[name]} {name}" for name in sorted(counts))
    return f"{len(results)} cases in {seconds / 60:.0f} min: {told}"


def cell(text):
    return text.replace("|", "\\|").replace("\n", " ").replace("<", "&lt;")


def write(results, seconds):
    lines = [HEAD, f"{summary(results, seconds)}.", ""]
    for group, rows in itertools.groupby(results, key=lambda result: result.group):
        lines += [f"## {group}", "", "| Server | Version | Case | Result | Remark |", "|---|---|---|---|---|"]
        for one in sorted(rows, key=lambda result: result.server):
            shown = one.result if one.result == "passed" else f"**{one.result}**"
            remark = cell("; ".join(filter(None, [*one.faults, one.remark])))
            lines.append(f"| {one.server} | {one.version} | {cell(one.name)} | {shown} | {remark} |")
        lines.append("")
    PAGE.write_text("\n".join(lines).rstrip("\n") + "\n")
