#!/usr/bin/env python3
"""What whole runs cost, in a lab of their own. Needs root.

    run_figures.py BUILD_DIR [RUNS]    prints a table, and writes BUILD_DIR/run_figures.json

Provisioning takes from the event that starts a run to the request for the reload, less the waits that the timers
prescribe. Cancelling takes from before the command is started to that request.
"""
import json
import os
import pathlib
import statistics
import sys
import threading
import time

SIZE = 100_000_000
WAITS = {"INETRFACESSETUP": 0.5, "SYSIDENTITYSETUP": 0.5}
STATES = {  # in which no lease is held: the scenario, and what makes the state last
    "stateSetupInterfaces": (None, {"INETRFACESSETUP": 60}),
    "stateDhcpQuery": (None, {"DHCLIENTQUERY": 60}),
    "stateStatelessDhcpQuery": ("ra-stateless", {"INETRFACESSETUP": 2.5, "STATELESSDHCLIENTQUERY": 60}),
    "stateRetry": (None, {"RETRY": 60}),
}


class Runs:
    def __init__(self, lab, timers, wait_for):
        self.lab, self.timers, self.wait_for = lab, timers, wait_for

    def boot(self, scenario, **waits):
        self.lab.host.stop()
        for file in self.lab.host.flash.iterdir():
            file.unlink()
        self.lab.host.environment |= self.timers(0.2, **{"DHCLIENTQUERY": 0.5, "LEASERELEASE": 5} | WAITS | waits)
        if scenario:
            self.lab.serve(scenario)
        else:
            self.lab.stop_serving()
        self.lab.host.boot_again()

    def reload_time(self):
        self.wait_for(self.lab.host.reload_requested, "the reload")
        return self.lab.host.get("/system/reload/reloadTime")

    def provision_ms(self):
        self.boot("dhcpv4", DHCLIENTQUERY=15)
        end = self.reload_time()
        start = json.loads(self.lab.host.cli("events", "--json"))[0]["time"]
        return (end - start - sum(WAITS.values())) * 1000

    def cancel_ms(self, state):
        scenario, waits = STATES[state]
        self.boot(scenario, **waits)
        self.lab.host.wait_state(state)
        start = time.time()
        self.lab.host.cli("cancel")
        return (self.reload_time() - start) * 1000

    def download_kib(self):
        """The memory of the host: all samples from before the download of 100 MB to the request for the reload."""
        with open(self.lab.www / "config", "wb") as file:
            file.truncate(SIZE)
        self.boot("dhcpv4", INETRFACESSETUP=2, DHCLIENTQUERY=15)
        self.lab.switch.run("mount", "-o", "remount,size=200m", "/tmp")
        samples, ended = [], threading.Event()

        def sample():
            rollup = pathlib.Path(f"/proc/{self.lab.host.process.pid}/smaps_rollup")
            while not ended.is_set():
                fields = dict(line.split(":", 1) for line in rollup.read_text().splitlines()[1:])
                samples.append({"resident": int(fields["Rss"].split()[0]),
                                "anonymous": int(fields["Anonymous"].split()[0])})
                time.sleep(0.002)

        sampler = threading.Thread(target=sample)
        sampler.start()
        try:
            self.reload_time()
        finally:
            ended.set()
            sampler.join()
        installed = (self.lab.host.flash / "startup-config").stat().st_size
        if installed != SIZE:
            sys.exit(f"{installed} bytes were installed")
        return samples


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 15
    os.environ["ZEROTOUCH_BUILD"] = str(build)
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))
    from lab.host import timers
    from lab.polling import wait_for
    from lab.switch_lab import Lab

    lab = Lab(f"ztbench-{os.getpid()}")
    try:
        lab.up()
        lab.add_veth(1)
        lab.serve_files()
        runs = Runs(lab, timers, wait_for)
        provision = [runs.provision_ms() for _ in range(count)]
        cancel = {state: [runs.cancel_ms(state) for _ in range(3)] for state in STATES}
        memory = runs.download_kib()
    finally:
        lab.down()

    worst = max(max(times) for times in cancel.values())
    peak = {name: max(sample[name] for sample in memory) for name in ("resident", "anonymous")}
    print(f"{'Whole runs':48} {'Measured':>12}   Goal")
    print(f"{'provisioning over HTTP, less waits, median':48} {statistics.median(provision):9.0f} ms   at most 300 ms")
    print(f"{'provisioning over HTTP, less waits, worst of ' + str(count):48} {max(provision):9.0f} ms")
    print(f"{'cancel to reload request, worst of all states':48} {worst:9.0f} ms   at most 200 ms")
    print(f"{'100 MB download, resident memory at the most':48} {peak['resident']:8} KiB   at most 14336 KiB")
    print(f"{'100 MB download, anonymous memory at the most':48} {peak['anonymous']:8} KiB")
    figures = {"provision_ms": provision, "cancel_ms": cancel, "download_peak_kib": peak, "download_kib": memory}
    (build / "run_figures.json").write_text(json.dumps(figures, indent=1) + "\n")


if __name__ == "__main__":
    main()
