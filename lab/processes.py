"""Programs that go on running in the background, each under a name.

Their process ids are kept in files, so that a later run of the command line finds what an earlier one started. The
file holds the time at which the process started too, so that nobody else is ever taken for it."""
import os
import pathlib
import select
import signal
import subprocess

from lab.polling import LIMIT, wait_for


def start_time(pid):
    """When a process started, in clock ticks since the boot; None when it does not run, or has ended and is not reaped."""
    try:
        fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    except OSError:
        return None
    return None if fields[0] in "ZX" else int(fields[19])


class Processes:
    def __init__(self, folder):
        self.folder = folder
        self.children = {}  # those that this process started, which it has to reap

    def start(self, name, argv, environment=None, ready="ready"):
        """Starts a program whose output goes to NAME.log, and returns when it is ready: when `ready`, if that is a
        function, says so, else when it has written that text."""
        if self.running(name) is not None:
            raise RuntimeError(f"{name} is running already")
        with open(self.log(name), "wb") as log:
            process = subprocess.Popen([str(word) for word in argv], env={**os.environ, **(environment or {})},
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        self.children[name] = process
        self._pid_file(name).write_text(f"{process.pid} {start_time(process.pid)}\n")
        is_ready = ready if callable(ready) else lambda: ready in self.log(name).read_text(errors="replace")
        wait_for(lambda: process.poll() is not None or is_ready(), f"{name} to be ready")
        if process.poll() is not None:
            self.stop(name)
            raise RuntimeError(f"{name} ended: {self.log(name).read_text().strip()}")
        return process

    def log(self, name):
        return self.folder / f"{name}.log"

    def names(self):
        return sorted(name for name in (file.stem for file in self.folder.glob("*.pid")) if self.running(name))

    def died(self):
        """Those that have ended though nobody has stopped them."""
        return sorted(name for name in (file.stem for file in self.folder.glob("*.pid")) if self.running(name) is None)

    def is_silent(self, name):
        """Whether the program was made to stand still (SIGSTOP)."""
        return pathlib.Path(f"/proc/{self.running(name)}/stat").read_text().rpartition(")")[2].split()[0] == "T"

    def running(self, name):
        """The process id of the program, or None when it does not run."""
        try:
            pid, since = self._pid_file(name).read_text().split()
        except FileNotFoundError:
            return None
        return int(pid) if since == str(start_time(int(pid))) else None

    def send(self, name, number):
        """Sends a signal to a program and all that it started: SIGSTOP makes a server silent, SIGCONT answer again."""
        pid = self.running(name)
        if pid is None:
            raise RuntimeError(f"{name} does not run")
        os.killpg(pid, number)

    def stop(self, name, how=signal.SIGTERM, timeout=LIMIT):
        """Ends a program and waits for its end. Returns its exit code if this process has started it, else None."""
        pid = self.running(name)
        if pid is not None:
            end(pid, how, timeout)
        self._pid_file(name).unlink(missing_ok=True)
        child = self.children.pop(name, None)
        return child.wait() if child else None

    def stop_all(self):
        for name in self.names():
            self.stop(name)

    def _pid_file(self, name):
        return self.folder / f"{name}.pid"


def end(pid, how=signal.SIGTERM, timeout=LIMIT):
    """Ends any process and waits for its end; one that does not end in time is killed, and that is an error."""
    try:
        process = os.pidfd_open(pid)
    except ProcessLookupError:
        return
    try:
        signal.pidfd_send_signal(process, how)
        signal.pidfd_send_signal(process, signal.SIGCONT)  # one that was stopped would not notice
        if not select.select([process], [], [], timeout)[0]:
            signal.pidfd_send_signal(process, signal.SIGKILL)
            select.select([process], [], [], timeout)
            raise TimeoutError(f"process {pid} did not end within {timeout} s of {signal.Signals(how).name}")
    except ProcessLookupError:
        pass
    finally:
        os.close(process)
