"""Whole runs of a virtual switch, from its boot to the request for the reload."""
import json
import pathlib

from lab.host import timers
from lab.polling import wait_for
from lab.switch_lab import Lab

BAD = "http://{server}:8080/"
WAITS = {"INETRFACESSETUP": 0.2, "DHCLIENTQUERY": 20, "STATELESSDHCLIENTQUERY": 20, "CONFIGFETCHRETRY": 0.1,
         "LEASERELEASE": 20}
UNTIL_ADVERTISED = {"INETRFACESSETUP": 2.5, "DHCLIENTQUERY": 1}

# What Switch.found() returns for a switch that has just booted.
FOUND = {"addresses": [], "up": False, "mtu": 1500, "routes": [], "host name": "switch", "ip6": ["0", "1"],
         "resolver": "# no name server is known yet\n", "log": []}

SCRIPT = "#!/bin/sh\nsetsid sleep 1000 &\nuntil [ -e /tmp/go ]; do sleep 0.1; done\nexit 1\n"
STATES = {  # the states that last, and how a run comes to stay in each
    "stateSetupInterfaces": {"scenario": None, "INETRFACESSETUP": 60},
    "stateDhcpQuery": {"scenario": None, "DHCLIENTQUERY": 60},
    "stateStatelessDhcpQuery": {"scenario": "ra-stateless", **UNTIL_ADVERTISED, "STATELESSDHCLIENTQUERY": 60},
    "stateSetupSystemIdentity": {"boot_file": "config", "SYSIDENTITYSETUP": 60},
    "stateFetchConfig": {"boot_file": BAD + "slow"},
    "stateRetryFetchConfig": {"boot_file": BAD + "404", "CONFIGFETCHRETRY": 60},
    "stateCopyConfigOrExecScript": {"boot_file": "http://{server}/script"},
    "stateRetry": {"scenario": None, "DHCLIENTQUERY": 0.2, "RETRY": 60},
    "stateShutdown": {"client": pathlib.Path(__file__).parent / "keeps_leases", "LEASERELEASE": 60},
}


class Switch(Lab):
    """A switch for many runs. Each run boots it with an empty flash, or with the files that `flash` names."""

    def begin(self, scenario="dhcpv4", boot_file="http://{server}/config", flash={}, lines=(), values=None, client="",
              tick=0.1, **waits):
        """`client` is the DHCP client, by default the stock one; `tick` is the interval at which a download is looked at."""
        self.host.stop()
        (self.switch.etc / "resolv.conf").write_text(FOUND["resolver"])
        for file in self.host.flash.iterdir():
            file.unlink()
        for name, text in flash.items():
            (self.host.flash / name).write_text(text)
        kept = {name: value for name, value in self.host.environment.items() if "_TIMER_" not in name}
        self.host.environment = kept | timers(0.2, **WAITS | waits) | {
            "ZEROTOUCH_CONFIGFETCH_TIMER_INTERVAL": str(tick), "ZEROTOUCH_REAL_DHCLIENT": str(client)}
        self.serve(scenario, boot_file, lines=lines) if scenario else self.stop_serving()
        self.host.boot_again(initial_values=values)

    def begin_in(self, state, **options):
        """Begins a run that comes to `state` and stays there. `options` are those of begin()."""
        (self.www / "script").write_text(SCRIPT)
        self.begin(**STATES[state] | options)
        self.host.wait_state(state)

    def events(self, *names):
        return [event for event in json.loads(self.host.cli("events", "--json")) if event["name"] in names]

    def messages(self, *names):
        return [event["message"] for event in self.events(*names)]

    def wait_reload(self):
        """Waits for the reload request, and until the run has left no process and no connection behind."""
        wait_for(self.host.reload_requested, "the reload")
        self.host.wait_state("stateShutdown")
        self.wait_quiet()
        assert [line.split(" ", 2)[2] for line in self.host.reload_requested()] == ["ZTP RELOAD"]
        assert self.host.events()[-1] == "ZTP_RELOAD"

    def wait_quiet(self):
        wait_for(lambda: not self.children(), "the children of the run to be gone")
        # A resolver that waits for a silent name server is ignored; it ends by itself.
        wait_for(lambda: "users" not in self.switch.run("ss", "-Hntup"), "the connections of the run to be gone")

    def children(self):
        """The processes on the switch, except for the host and the process that holds the namespaces."""
        return self.switch.pids() - {self.host.processes.running("host"), self.processes.running(self.switch.HOLDER)}

    def flash(self):
        """The files on the flash, without the one in which the host remembers its runs."""
        return {file.name: file.read_text() for file in self.host.flash.iterdir() if file.name != "zerotouch-history"}

    def found(self):
        """Everything that a run may change on the switch, except for the flash."""
        def routes(family):  # those to neighbours follow from the addresses
            return [line.strip() for line in self.switch.ip(family, "route").splitlines() if "kernel" not in line]
        link = self.switch.links()["et1"]
        addresses = self.switch.ip("-o", "address", "show", "dev", "et1", "scope", "global").splitlines()
        return {"addresses": [line.split()[3] for line in addresses],
                "up": "UP" in link["flags"], "mtu": link["mtu"], "routes": routes("-4") + routes("-6"),
                "host name": self.switch.run("hostname").strip(),
                "resolver": (self.switch.etc / "resolv.conf").read_text(),
                "log": [file.read_text() for file in sorted((self.switch.etc / "rsyslog.d").glob("*zerotouch*"))],
                "ip6": [self.switch.ip6_setting("et1", item) for item in ("disable_ipv6", "accept_ra")]}
