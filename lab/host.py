"""One zerotouchd with its flash, its run directory and the command line that talks to it."""
import json
import os
import pathlib
import shutil
import signal
import subprocess

from lab.polling import LIMIT, wait_for
from lab.processes import Processes

ROOT = pathlib.Path(__file__).resolve().parents[1]


def program(build):
    return build / "bin" / "zerotouchd"


def find_build():
    """The build that ZEROTOUCH_BUILD names, or else the one that was made last."""
    if named := os.environ.get("ZEROTOUCH_BUILD"):
        return pathlib.Path(named).resolve()
    builds = [folder for folder in (ROOT / "build").glob("*") if program(folder).exists()]
    return max(builds, key=lambda folder: program(folder).stat().st_mtime, default=ROOT / "build" / "debug").resolve()


BUILD = find_build()


def require_build():
    if not program(BUILD).exists():
        raise RuntimeError(f"build first: there is no {program(BUILD)} (scripts/demo builds build/release, scripts/test "
                           "build/debug; ZEROTOUCH_BUILD names another build)")


# The timers that fire once, and those that tick while a step goes on. timers() leaves the time-outs of the latter alone.
ONE_SHOT = ("INETRFACESSETUP", "DHCLIENTQUERY", "CONFIGFETCHRETRY", "RETRY", "LEASERELEASE", "STARTUPFILESYNC_WAIT")
TICKING = ("STATELESSDHCLIENTQUERY", "SYSIDENTITYSETUP")


def timers(seconds, **others):
    """The environment that shortens the waits of a run, so that a run takes seconds. `others` gives further timers their
    times, as in DHCLIENTQUERY=4."""
    times = {name: seconds for name in ONE_SHOT + TICKING} | others
    result = {f"ZEROTOUCH_{name}_TIMER_INTERVAL": str(time) for name, time in times.items()}
    return result | {f"ZEROTOUCH_{name}_TIMER_TIMEOUT": str(time) for name, time in times.items() if name not in TICKING}


class Host:
    def __init__(self, folder, name="sw1", adapter="none", sections="", enter=list, reboot=lambda: None):
        """`name` (None: the host name), `adapter` and `sections` go into platform.toml; `enter` gives the words before
        a command that is to run where the host does; `reboot` does to the system around it what a reboot does. What an
        earlier object for the same folder started goes on under this one."""
        self.folder = folder
        self.enter = enter
        self.reboot = reboot
        # A reload of the system or of its log is noted here, and nothing else happens: it must not be this machine's.
        self.reload_records = {"host": folder / "reload", "logging": folder / "log-reload"}
        self.flash = folder / "root" / "flash"
        self.run_directory = folder / "run"
        self.reporter_directory = folder / "run-reporter"
        self.socket = self.run_directory / "statebase.sock"
        self.config = folder / "etc" / "zerotouch" / "platform.toml"
        system = f'[system]\nname = "{name}"\n' if name else ""
        self.config_text = (f'{system}[host]\nrun_directory = "{self.run_directory}"\n'
                            f'library = "{BUILD}/lib/libZeroTouch.so"\nadapter = "{adapter}"\n'
                            f'{self._reload_command("host")}[logging]\n{self._reload_command("logging")}{sections}')
        self.environment = {"FILESYSTEM_ROOT": str(folder / "root"), "STATEBASESOCKNAME": str(self.socket)}
        self.processes = Processes(folder)
        self.log = self.processes.log("host")
        self.process = None

    def _reload_command(self, which):
        command = [str(ROOT / "lab" / "reload_recorder"), str(self.reload_records[which])]
        return f"reload_command = {json.dumps(command)}\n"

    def prepare(self):
        """Makes the files of a system that has never run."""
        self.flash.mkdir(parents=True)
        self.config.parent.mkdir(parents=True, exist_ok=True)
        self.config.write_text(self.config_text)
        return self

    def command(self, *arguments):
        return [*self.enter(), str(BUILD / "bin" / "zerotouchd"), "--config", str(self.config), *arguments]

    def start(self, *arguments, initial_values=None):
        if initial_values is not None:
            path = self.folder / "initial.json"
            path.write_text(json.dumps(initial_values))
            arguments += ("--initial-values", str(path))
        self.process = self.processes.start("host", self.command(*arguments), self.environment, ready="ready on")
        return self

    def start_reporter(self, enter=list):
        command = [*enter(), BUILD / "bin" / "zerotouch-reporter", "--config", self.config]
        return self.processes.start("reporter", command, self.environment,
                                    ready=(self.reporter_directory / "status.json").exists)

    def stop_reporter(self, how=signal.SIGTERM):
        return self.processes.stop("reporter", how)

    def output(self):
        """The output of the host that was started last."""
        return self.log.read_text() if self.log.exists() else ""

    def stop(self, how=signal.SIGTERM):
        """Its exit code, or None when this object did not start it or it does not run."""
        self.process = None
        return self.processes.stop("host", how)

    def reload_requested(self, which="host"):
        """The requests since the boot, a line with time and reason each; `which` may be "logging"."""
        record = self.reload_records[which]
        return record.read_text().splitlines() if record.exists() else []

    def boot_again(self, *arguments, initial_values=None):
        """Reboots the system: what is on flash and in /etc stays."""
        code = self.stop()
        assert code in (0, None), self.output()
        for record in self.reload_records.values():
            record.unlink(missing_ok=True)
        for folder in (self.run_directory, self.reporter_directory):
            shutil.rmtree(folder, ignore_errors=True)
        self.reboot()
        return self.start(*arguments, initial_values=initial_values)

    def cli(self, *arguments, code=0, output=None):
        """Runs the command line; its standard output, or its standard error when it is to fail with `code`; or that which
        `output` names."""
        result = subprocess.run([str(BUILD / "bin" / "zerotouch"), "--socket", str(self.socket), *arguments],
                                capture_output=True, text=True, timeout=LIMIT, stdin=subprocess.DEVNULL,
                                env=os.environ | {"FILESYSTEM_ROOT": self.environment["FILESYSTEM_ROOT"]})
        assert result.returncode == code, result.stdout + result.stderr
        return getattr(result, output or ("stdout" if code == 0 else "stderr"))

    def get(self, path):
        return json.loads(self.cli("get", path, "--json"))

    def events(self):
        return [event["name"] for event in json.loads(self.cli("events", "--json"))]

    def wait_state(self, state):
        wait_for(lambda: self.get("/zerotouch/sm/currentState") == state, state)
