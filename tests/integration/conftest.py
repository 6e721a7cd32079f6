"""The real programs, started in folders of their own."""
import contextlib
import json
import os
import pathlib
import signal
import subprocess
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("ZEROTOUCH_BUILD", ROOT / "build" / "debug"))

# Every timer's time-outs, shortened so that a run takes seconds.
SHORT_TIMERS = {
    f"ZEROTOUCH_{name}_TIMER_{which}": value
    for name, value in {"INETRFACESSETUP": "0.2", "DHCLIENTQUERY": "0.2", "RETRY": "0.2"}.items()
    for which in ("INTERVAL", "TIMEOUT")
}


def wait_for(predicate, what, timeout=20):
    """Polls until `predicate` gives something true, which is returned; fails naming `what` was waited for."""
    deadline = time.monotonic() + timeout
    while True:
        result = predicate()
        if result:
            return result
        assert time.monotonic() < deadline, f"waited {timeout} s for {what}"
        time.sleep(0.02)


class Host:
    """One zerotouchd with its flash, its run directory and the command line that talks to it."""

    def __init__(self, folder):
        self.folder = folder
        self.flash = folder / "root" / "flash"
        self.flash.mkdir(parents=True)
        self.run_directory = folder / "run"
        self.socket = self.run_directory / "statebase.sock"
        self.config = folder / "platform.toml"
        self.config.write_text(f'[system]\nname = "sw1"\n[host]\nrun_directory = "{self.run_directory}"\n'
                               f'library = "{BUILD}/lib/libZeroTouch.so"\nadapter = "none"\n')
        self.log = folder / "host.log"
        self.environment = {"FILESYSTEM_ROOT": str(folder / "root"), **SHORT_TIMERS}
        self.process = None

    def command(self, *arguments):
        return [str(BUILD / "bin" / "zerotouchd"), "--config", str(self.config), *arguments]

    def start(self, *arguments, initial_values=None):
        if initial_values is not None:
            path = self.folder / "initial.json"
            path.write_text(json.dumps(initial_values))
            arguments += ("--initial-values", str(path))
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(self.command(*arguments), env={**os.environ, **self.environment},
                                            stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        wait_for(lambda: self.process.poll() is not None or "ready on" in self.output(), "the host to be ready")
        assert self.process.poll() is None, self.output()
        return self

    def output(self):
        return self.log.read_text() if self.log.exists() else ""

    def stop(self, how=signal.SIGTERM):
        if self.process is None:
            return None
        process, self.process = self.process, None
        if process.poll() is None:
            process.send_signal(how)
        try:
            code = process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            raise
        self.log.rename(self.log.with_suffix(f".{process.pid}"))
        return code

    def cli(self, *arguments, code=0):
        """Runs the command line; its standard output, or its standard error when it is to fail with `code`."""
        result = subprocess.run([str(BUILD / "bin" / "zerotouch"), "--socket", str(self.socket), *arguments],
                                capture_output=True, text=True, timeout=20, stdin=subprocess.DEVNULL)
        assert result.returncode == code, result.stdout + result.stderr
        return result.stdout if code == 0 else result.stderr

    def get(self, path):
        return json.loads(self.cli("get", path, "--json"))

    def events(self):
        return [event["name"] for event in json.loads(self.cli("events", "--json"))]

    def wait_state(self, state):
        wait_for(lambda: self.get("/zerotouch/sm/currentState") == state, state)


@pytest.fixture
def host(tmp_path):
    result = Host(tmp_path)
    yield result
    with contextlib.suppress(ProcessLookupError):
        result.stop()
