"""One run of the switch with given servers, and what has to come of it."""
import dataclasses
import shutil
import time
import typing

from interop import outcome, wire
from interop.site import BOOT_FILE, CONFIG
from lab.polling import wait_for
from lab.runs import UNTIL_ADVERTISED

CLIENTS = {"dhclient": "/sbin/dhclient", "dhcpcd": "/usr/sbin/dhcpcd"}
WAITS = {"4": {"DHCLIENTQUERY": 8}, "6": UNTIL_ADVERTISED | {"DHCLIENTQUERY": 8},
         "stateless": UNTIL_ADVERTISED | {"DHCLIENTQUERY": 3}}


@dataclasses.dataclass
class Case:
    group: str                   # "DHCPv4" and so on
    name: str
    servers: list                # in the order in which they are started; the table shows the subject
    subject: typing.Any = None   # by default the first of them
    family: str = "4"            # of the answer that is taken: "4", "6" or "stateless"
    installed: typing.Any = CONFIG  # the bytes of the startup configuration, or a function of the site that tells them
    told: dict | None = None     # the identity; by default what the first server tells that does DHCP
    releases: typing.Any = None  # the server whose log has to tell of the release; by default the first that logs them
    before: typing.Any = None    # a function of the run, called before the servers start
    then: typing.Any = None      # a function of the run, called after the boot
    check: typing.Any = None     # a function of the run, called at its end
    waits: dict = dataclasses.field(default_factory=dict)  # as runs.Switch.begin() takes them
    keys: str = ""               # lines of platform.toml
    remark: str = ""
    cannot: typing.Any = None    # a function of the site that proves that this cannot be run, and returns why

    def __post_init__(self):
        self.subject = self.subject or self.servers[0]
        dhcp = [server for server in self.servers if server.told]
        if self.told is None and dhcp:
            self.told = dhcp[0].told
        if self.releases is None and self.family != "stateless":
            self.releases = next((server for server in self.servers if can_tell_of_releases(server)), None)
            if not self.releases and not self.cannot:
                self.remark = "; ".join(filter(None, [self.remark, "no release in its log"]))

    @property
    def title(self):
        return f"{self.group}: {self.subject.name}: {self.name}"

    @property
    def clients(self):
        """The DHCP clients with which the case is played."""
        return clients_of(self.group)


def clients_of(group):
    """Which DHCP client it is makes no difference to the servers of files, and to neighbours."""
    return ["dhclient"] if group in ("Files", "LLDP") else [*CLIENTS]


def can_tell_of_releases(server):
    return server.release is not None or "released" in vars(type(server))


@dataclasses.dataclass
class Result:
    case: str
    group: str
    server: str
    version: str
    name: str
    client: str
    result: str          # passed, failed, or cannot run
    faults: list         # why it has failed, or cannot run
    remark: str
    seconds: float


class Run:
    """What the functions of a case are given."""

    def __init__(self, site, case, client, decoded):
        self.site, self.case, self.client, self.decoded = site, case, client, decoded
        self.host = site.host
        self.packets = []
        self.taken, self.address = {}, ""  # what the agent took, in the words of outcome.taken()

    def start(self, server):
        server.start(self.site, len(list((self.site.folder / "case").iterdir())))

    def wait_event(self, name, count=1, timeout=60):
        wait_for(lambda: self.host.events().count(name) >= count, name, timeout)


def play(site, case, client="dhclient", decoded=True):
    """Plays a case with that client; `decoded` is whether tshark watches it. Returns the Result."""
    start = time.monotonic()
    faults = []
    result = "passed"
    try:
        reset(site)
        if case.cannot:
            result, faults = "cannot run", [case.cannot(site)]
        else:
            faults = provision(Run(site, case, client, decoded))
    except Exception as error:  # of whatever kind: the case has failed, and the others go on
        faults = [" ".join(str(error).split())[-250:] or type(error).__name__]
    finally:
        for name in site.running():
            if name == "capture" or name[0].isdigit():
                site.processes.stop(name)
        site.host.stop()
    if faults and result == "passed":
        result = "failed"
    subject = case.subject
    return Result(case.title, case.group, subject.name, subject.version(), case.name, client, result, faults,
                  case.remark, time.monotonic() - start)


def reset(site):
    site.host.stop()
    site.reset()
    shutil.rmtree(site.folder / "case", ignore_errors=True)
    (site.folder / "case").mkdir()


def provision(run):
    """Returns what was not as it should be; what keeps a run from its end is raised."""
    site, case = run.site, run.case
    capture = wire.Capture(site)
    if case.before:
        case.before(run)
    if run.decoded:
        capture.start()
    for server in case.servers:
        run.start(server)
    site.host.config.write_text(site.host.config_text + case.keys)
    site.begin(None, client=CLIENTS[run.client], **WAITS[case.family] | case.waits)
    faults = []
    try:
        if case.then:
            case.then(run)
        wait_for(site.host.reload_requested, "the reload", 45)
        site.host.wait_state("stateShutdown")
        site.wait_quiet()
        run.taken = outcome.taken(site.events(*site.host.events()), case.family)
        run.address = run.taken.get("address", ["/"])[0].partition("/")[0]
        faults += look_at_switch(run)
    except AssertionError as error:
        faults.append(f"{str(error).splitlines()[0]}; the last event: {last_event(site)}")
    if run.decoded:
        run.packets = capture.packets()
        faults += look_at_wire(run, complete=not faults)
    for look in [look_at_release, case.check] if not faults else []:
        try:
            if look:
                look(run)
        except AssertionError as error:
            faults.append(str(error).splitlines()[0])
    return faults


def last_event(site):
    events = site.events(*site.host.events())
    return f"{events[-1]['name']}: {events[-1]['message']}" if events else "none"


def look_at_switch(run):
    site, case, faults = run.site, run.case, []
    expected = case.installed(site) if callable(case.installed) else case.installed
    installed = (site.host.flash / "startup-config").read_bytes()
    if installed != expected:
        faults.append(f"{len(installed)} bytes are installed, which are not the {len(expected)} expected ones")
    expected, found = outcome.NOTHING | (case.told or {}), outcome.identity(site)
    faults += [f"{name} is {found[name]}, not {expected[name]}" for name in expected if found[name] != expected[name]]
    return faults


def look_at_wire(run, complete):
    """`complete` is whether the run has come to its end."""
    ours = wire.of_switch(run.packets)
    faults = wire.malformed(ours)
    if not any(packet["dhcp.option.dhcp"] or packet["dhcpv6.msgtype"] for packet in ours):
        faults.append("no message of DHCP left the switch")
    if complete:
        faults += look_at_answer(run)
    return faults


def look_at_answer(run):
    """Compares what the agent took with what the answer decodes to."""
    taken, address = run.taken, run.address
    if run.case.family == "4":
        decoded = wire.answer4(run.packets, address)
    else:
        decoded = wire.answer6(run.packets)
        taken = taken | {"address": [address] if address else [], "boot file": []}  # which tshark does not show
    taken = {name: value for name, value in taken.items() if value}
    names = sorted({*taken, *decoded})
    return [f"the agent took {name} {taken.get(name)}, where tshark reads {decoded.get(name)}" for name in names
            if taken.get(name) != decoded.get(name)]


def look_at_release(run):
    if run.case.releases:
        run.case.releases.wait_released(run.address)
