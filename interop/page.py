"""The results as a table: on the screen, and in docs/interop.md."""
import collections
import itertools
import re

from lab.host import ROOT

PAGE = ROOT / "docs" / "interop.md"
HEAD = """\
# Which servers it works with

`scripts/interop` wrote this page. Each row is the last run of that case, by the agent on a virtual switch: real programs and
real packets, with timers that are short. A case has passed when

- the startup configuration is what the server has, byte for byte (76,821 bytes, every value of a byte among them),
- host name, name servers, domain, routes, log servers and MTU are what the server was told to send, and nothing else is set,
- what the agent took from the answer is what tshark decodes the answer to,
- tshark finds no fault in any DHCP, DHCPv6, router solicitation, LLDP or HTTP packet of the switch,
- the server's own log tells that the lease was released, where the server logs that,
- and what the remark says holds.

The configuration of every server is in [server-side/](server-side): the runs used these files.
`scripts/interop --case PATTERN` plays some of the cases and renews their rows, `--list` names them.
"""


def row(result):
    remark = f"  ({result.remark})" if result.remark else ""
    head = f"{result.result:10} {result.seconds:5.1f} s  {result.case}{remark}"
    return "\n".join([head, *(f"{'':20}{fault}" for fault in result.faults)])


def summary(results, seconds):
    counts = collections.Counter(result.result for result in results)
    told = ", ".join(f"{counts[name]} {name}" for name in sorted(counts))
    return f"{len(results)} cases in {seconds / 60:.0f} min: {told}"


def cell(text):
    return text.replace("|", "\\|").replace("\n", " ").replace("<", "&lt;")


def read():
    """The rows that the page has, by group, server and case: version, result and remark."""
    rows, group = {}, ""
    for line in PAGE.read_text().splitlines() if PAGE.exists() else []:
        if line.startswith("## "):
            group = line[3:]
        elif re.match(r"\| (?!Server )", line):
            server, version, case, shown, remark = (text.strip() for text in re.split(r"(?<!\\)\|", line)[1:-1])
            rows[group, server, case] = version, shown, remark
    return rows


def write(one, cases):
    """Puts a result in place of the one that the page has, and leaves out what is none of the cases any more."""
    rows = read()
    shown = one.result if one.result == "passed" else f"**{one.result}**"
    remark = cell("; ".join(filter(None, [*one.faults, one.remark])))
    rows[one.group, one.server, cell(one.name)] = one.version, shown, remark
    keys = [(case.group, case.subject.name, cell(case.name)) for case in cases]
    counts = collections.Counter(rows[key][1].strip("*") if key in rows else "not run" for key in keys)
    keys = [key for key in keys if key in rows]
    lines = [HEAD, f"Of {len(cases)} cases: " + ", ".join(f"{counts[name]} {name}" for name in sorted(counts)) + ".", ""]
    for group, in_group in itertools.groupby(keys, key=lambda key: key[0]):
        lines += [f"## {group}", "", "| Server | Version | Case | Result | Remark |", "|---|---|---|---|---|"]
        for key in sorted(in_group, key=lambda key: key[1]):
            version, shown, remark = rows[key]
            lines.append(f"| {key[1]} | {version} | {key[2]} | {shown} | {remark} |")
        lines.append("")
    PAGE.write_text("\n".join(lines).rstrip("\n") + "\n")
