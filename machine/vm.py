"""A virtual machine in QEMU: its power, its disks, what is plugged in, and commands that are run in it.

The machine stops in each boot before the service manager starts provisioning: boot() returns there, go() lets it go on."""
import base64
import json
import signal
import time

from lab.namespace import run
from lab.polling import wait_for
from lab.processes import Processes
from machine import hardware
from machine.lines import Closed, Lines

BOOT_LIMIT = 900  # seconds; an emulated machine on a busy system is slow
COMMAND_LIMIT = 300
SAVED = "gate"  # the name of the state that save() keeps in the disks


class Rebooted(Exception):
    """The machine has begun another boot instead of answering."""


class Failed(Exception):
    """A command in the machine has failed."""


class Machine:
    def __init__(self, image, network, folder):
        """`folder` holds the disks and what the machine writes."""
        self.image, self.network, self.folder = image, network, folder
        self.disk, self.flash = folder / "disk.qcow2", folder / "flash.qcow2"
        self.processes = Processes(folder)
        self.commands = self.qmp = self.boot_id = None
        self.number = 0
        self.events = []  # of QEMU

    # Disks.

    def new_disks(self):
        """A system that has never been booted, and an empty flash."""
        for file, backing in ((self.disk, self.image.disk), (self.flash, self.image.flash)):
            file.unlink(missing_ok=True)
            run("qemu-img", "create", "-q", "-f", "qcow2", "-F", "raw", "-b", backing, file)

    def saved_disks(self, saved):
        """The disks of another machine, as save() left them."""
        for file in (self.disk, self.flash):
            run("cp", "--sparse=always", saved / file.name, file)

    # Power.

    def power_on(self, start=(), clock="utc", flash=None):
        """Switches it on. `flash` replaces the arguments of the flash; an empty list takes it out."""
        for name in ("qmp", "commands"):
            (self.folder / name).unlink(missing_ok=True)
        flash = hardware.drive("flash", self.flash) if flash is None else flash
        argv = hardware.arguments(self.image, self.disk, flash, self.folder, self.network.devices(), start, clock)
        self.processes.start("qemu", [*self.network.server.enter(), *argv], ready=(self.folder / "commands").exists)
        self.qmp, self.commands = Lines(self.folder / "qmp"), Lines(self.folder / "commands")
        self.boot_id = None
        self.events = []
        self.qmp.receive(60)  # its greeting
        self.ask("qmp_capabilities")

    def cut_power(self):
        """Switches it off at once; what it had not written to a disk is lost."""
        self.processes.stop("qemu", signal.SIGKILL)
        for lines in (self.qmp, self.commands):
            if lines:
                lines.close()
        self.qmp = self.commands = self.boot_id = None

    def is_on(self):
        return self.processes.running("qemu") is not None

    def ask(self, command, **arguments):
        """One command of QEMU's machine protocol, and its answer."""
        self.qmp.send(json.dumps({"execute": command, "arguments": arguments}))
        while (line := self.qmp.receive(300)) is not None:
            answer = json.loads(line)
            if "event" in answer:
                self.events.append(answer["event"])
            elif "error" in answer:
                raise RuntimeError(f"{command}: {answer['error']['desc']}")
            else:
                return answer["return"]
        raise TimeoutError(f"{command}: QEMU does not answer")

    def monitor(self, line):
        text = self.ask("human-monitor-command", **{"command-line": line}).strip()
        if text:
            raise RuntimeError(f"{line}: {text}")

    def save(self, target):
        """Keeps the state of the machine, with its disks, in a folder, for saved_disks() and resume()."""
        self.monitor(f"savevm {SAVED}")
        self.cut_power()
        target.mkdir()
        for file in (self.disk, self.flash):
            run("cp", "--sparse=always", file, target / file.name)

    def resume(self):
        """Goes on from a saved state, in the place where the machine waits for go()."""
        self.power_on(["-loadvm", SAVED])
        self.boot_id = "saved"

    # What runs in it.

    def boot(self, limit=BOOT_LIMIT):
        """Waits until it has booted as far as provisioning, for the first time since it was switched on or rebooted."""
        deadline = time.monotonic() + limit
        while time.monotonic() < deadline:
            line = self._receive(5)
            if line and line.startswith("hello "):
                self.boot_id = line.split()[1]
                return self
            assert self.is_on(), "QEMU ended: " + self.processes.log("qemu").read_text()
        raise TimeoutError(f"the machine has not booted within {limit} s; the end of its console:\n{self.console_end()}")

    def go(self):
        """Lets a boot that waits go on."""
        self.run("go")
        return self

    def reboot(self, limit=BOOT_LIMIT):
        """Waits until it has rebooted by itself, and lets that boot go on."""
        return self.boot(limit).go()

    def run(self, command, limit=COMMAND_LIMIT, check=True):
        """Runs a shell command in the machine and returns its output, of both kinds."""
        code, output = self.result(command, limit)
        if check and code != 0:
            raise Failed(f"{command}: exit code {code}: {output.strip()}")
        return output

    def result(self, command, limit=COMMAND_LIMIT):
        """The exit code and the output of a shell command."""
        if self.boot_id is None:
            self.boot()
        self.number += 1
        self.commands.send(f"{self.number} {base64.b64encode(command.encode()).decode()}")
        deadline = time.monotonic() + limit
        while time.monotonic() < deadline:
            line = self._receive(deadline - time.monotonic())
            if line is None:
                break
            if line.startswith("hello "):
                self.commands.received = line.encode() + b"\n" + self.commands.received  # for boot()
                self.boot_id = None
                raise Rebooted(command)
            number, code, *output = line.split(" ")
            if number == str(self.number):
                return int(code), base64.b64decode(output[0] if output else "").decode(errors="replace")
        raise TimeoutError(f"'{command}' has not ended within {limit} s; the end of the console:\n{self.console_end()}")

    def _receive(self, seconds):
        try:
            return self.commands.receive(seconds)
        except Closed as error:
            raise RuntimeError("QEMU ended: " + self.processes.log("qemu").read_text()) from error

    def write(self, path, text):
        encoded = base64.b64encode(text.encode()).decode()
        self.run(f"mkdir -p $(dirname {path}); base64 -d >{path} <<<{encoded}")

    def wait(self, predicate, what, limit=COMMAND_LIMIT):
        return wait_for(predicate, what, limit)

    def console(self):
        file = self.folder / "console.log"
        return file.read_text(errors="replace") if file.exists() else ""

    def console_end(self, lines=25):
        return "\n".join(self.console().splitlines()[-lines:])
