"""The results as a table: on the screen, and in docs/interop.md."""
import collections
import itertools
import re

from interop.case import CLIENTS, clients_of
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

What has to do with DHCP is played with both clients that can stand behind the agent ([dhcp-clients.md](dhcp-clients.md)), all
else with the first.

The configuration of every server is in [server-side/](server-side): the runs used these files.
`scripts/interop --case PATTERN` plays some of the cases and renews their rows, `--client` with one client only; `--list` names
them.
"""


def row(result):
    remark = f"  ({result.remark})" if result.remark else ""
    head = f"{result.result:10} {result.seconds:5.1f} s  {result.client:8}  {result.case}{remark}"
    return "\n".join([head, *(f"{'':20}{fault}" for fault in result.faults)])


def summary(results, seconds):
    counts = collections.Counter(result.result for result in results)
    told = ", ".join(f"{counts[name]} {name}" for name in sorted(counts))
    return f"{len(results)} cases in {seconds / 60:.0f} min: {told}"


def cell(text):
    return text.replace("|", "\\|").replace("\n", " ").replace("<", "&lt;")


def read():
    """The rows that the page has, by group, server and case: version, results by client, and remark."""
    rows, group = {}, ""
    for line in PAGE.read_text().splitlines() if PAGE.exists() else []:
        if line.startswith("## "):
            group = line[3:]
        elif re.match(r"\| (?!Server )", line):
            server, version, case, *shown, remark = (text.strip() for text in re.split(r"(?<!\\)\|", line)[1:-1])
            rows[group, server, case] = version, dict(zip(clients_of(group), shown)), remark
    return rows


def shown(result):
    text = result.result if result.result == "passed" else f"**{result.result}**"
    return cell(": ".join([text, "; ".join(result.faults)] if result.faults else [text]))


def count(cases, rows, client):
    """How many of the cases of a client ended how."""
    played = [key for key, clients in cases if client in clients]
    counts = collections.Counter(
        rows[key][1].get(client, "not run").partition(":")[0].strip("*") if key in rows else "not run" for key in played)
    return f"With {client}, of {len(played)} cases: " + ", ".join(f"{counts[name]} {name}" for name in sorted(counts)) + "."


def write(one, cases):
    """Puts a result in place of the one that the page has, and leaves out what is none of the cases any more."""
    rows = read()
    key = one.group, one.server, cell(one.name)
    rows[key] = one.version, rows.get(key, ("", {}, ""))[1] | {one.client: shown(one)}, cell(one.remark)
    known = [((case.group, case.subject.name, cell(case.name)), case.clients) for case in cases]
    lines = [HEAD, *(count(known, rows, client) for client in CLIENTS), ""]
    for group, in_group in itertools.groupby((key for key, _ in known if key in rows), key=lambda key: key[0]):
        clients = clients_of(group)
        heads = ["Server", "Version", "Case", *(clients if len(clients) > 1 else ["Result"]), "Remark"]
        lines += [f"## {group}", "", f"| {' | '.join(heads)} |", "|---" * len(heads) + "|"]
        for key in sorted(in_group, key=lambda key: key[1]):
            version, results, remark = rows[key]
            cells = [key[1], version, key[2], *(results.get(client, "not run") for client in clients), remark]
            lines.append(f"| {' | '.join(cells)} |")
        lines.append("")
    PAGE.write_text("\n".join(lines).rstrip("\n") + "\n")
