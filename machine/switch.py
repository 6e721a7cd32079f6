"""A switch that is a virtual machine with the package, and the network that it is provisioned from.

Scenes use it: begin() switches it on and prepares the boot, then they look at how the run goes on."""
import json
import shutil

from lab.host import timers
from machine.network import Network
from machine.vm import BOOT_LIMIT, Machine

RUN_LIMIT = 600  # seconds that a part of a run may take
LOG_SERVERS = "/etc/rsyslog.d/50-zerotouch.conf"
FLASH = "/mnt/flash"
CONFIG = "hostname provisioned\n"
JOINED = 9
# Waits that keep a scene short, and leave an emulated machine on a busy system the time for an answer.
WAITS = {"DHCLIENTQUERY": 60, "STATELESSDHCLIENTQUERY": 10, "LEASERELEASE": 30}
# Takes the place of the reload where a scene is about something else; the file tells that it was asked for.
NO_RELOAD = '[host]\nreload_command = ["touch", "/run/reload-was-requested"]\n'


def waits(**others):
    """The environment of a host with such waits, and others in their place."""
    return timers(2, **WAITS | others)


HASTY = waits()


class Switch:
    def __init__(self, name, image, saved, folder):
        """`saved` is the folder with the saved state of a machine that waits for go(); None: there is none."""
        self.saved, self.folder = saved, folder
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        self.network = Network(name, folder / "network")
        self.machine = Machine(image, self.network, folder)
        self.forgotten = []
        self.run, self.result, self.write = self.machine.run, self.machine.result, self.machine.write

    def close(self, keep):
        self.machine.cut_power()
        self.network.down()
        if not keep:
            shutil.rmtree(self.folder, ignore_errors=True)

    # The boot.

    def begin(self, scenario="dhcpv4", boot_file="http://{server}/config", cold=False, environment=HASTY, platform="",
              prepare="", ports=None, join=(), **power):
        """Boots the switch: from the saved state, or from the power switch when `cold` is set or `power` differs.

        `environment` is that of the host, `platform` comes before the image's platform.toml, and `prepare` is a shell
        command that runs before provisioning may start. Only `ports` are answered, by default all, and none without a
        scenario. The ports of `join` lead to one device, that of the port JOINED."""
        self.network.up()
        if join:
            self.network.join(JOINED, join)
        self.network.serve_files()
        self.network.listen_to_logs()
        self.serve(scenario, boot_file, ports)
        if cold or power or self.saved is None:
            self.machine.new_disks()
            self.machine.power_on(**power)
            self.machine.boot()
        else:
            self.machine.saved_disks(self.saved)
            self.machine.resume()
        self.configure(environment, platform)
        if prepare:
            self.run(prepare)
        self.run("sync")
        self.machine.go()
        return self

    def cut_power(self):
        self.machine.cut_power()

    def boot_again(self, environment=None, **power):
        """Boots it after a power cut as far as provisioning, for which go() waits."""
        self.machine.power_on(**power)
        self.machine.boot()
        if not power:
            self.wait(lambda: self.result(f"mountpoint -q {FLASH}")[0] == 0, "the flash to be mounted")
        if environment is not None:
            self.configure(environment, "")
            self.run("sync")

    def go(self):
        self.machine.go()

    def configure(self, environment, platform):
        if environment:
            lines = [f"Environment={name}={value}" for name, value in environment.items()]
            self.write("/etc/systemd/system/zerotouchd.service.d/scene.conf", "\n".join(["[Service]", *lines, ""]))
        if platform:
            path = "/etc/zerotouch/platform.toml"
            self.write(path, platform + self.run(f"cat {path}"))
        self.run("systemctl daemon-reload")

    def serve(self, scenario="dhcpv4", boot_file="http://{server}/config", ports=None):
        if scenario:
            self.network.serve(scenario, boot_file, ports)
        else:
            self.network.stop_serving()

    def serves(self, name, text):
        """Puts a file on the servers, and returns its text."""
        self.network.www.mkdir(parents=True, exist_ok=True)
        (self.network.www / name).write_text(text)
        return text

    # The run.

    def get(self, path):
        return json.loads(self.run(f"zerotouch get --json {path}"))

    def asked(self, path):
        """What the host tells about a path, or None while it does not answer."""
        code, output = self.result(f"zerotouch get --json {path}")
        return json.loads(output) if code == 0 else None

    def wait(self, predicate, what, limit=RUN_LIMIT):
        """Waits for something, and tells how far the run has come if it does not happen."""
        try:
            return self.machine.wait(predicate, what, limit)
        except AssertionError as error:
            raise AssertionError(f"{error}; the journal of the host:\n{self.journal()[-2000:]}") from error

    def wait_state(self, *states):
        return self.wait(lambda: self.asked("/zerotouch/sm/currentState") in states, " or ".join(states))

    def retries(self):
        """How often the run has started over; 0 while no host answers."""
        return self.asked("/zerotouch/sm/retryCount") or 0

    def events(self, *names):
        """The messages of the events with these names; all that there are when none is given."""
        told = json.loads(self.run("zerotouch events --json"))
        return [event["message"] for event in told if not names or event["name"] in names]

    def journal(self, *options):
        return self.run(f"journalctl --no-pager --output=cat --unit=zerotouchd {' '.join(options)}")

    def wait_requested(self):
        """Waits for the request of a reload that NO_RELOAD has made harmless."""
        self.wait(lambda: self.result("test -e /run/reload-was-requested")[0] == 0, "the request for the reload")

    def wait_console(self, text):
        """Waits until the console shows a text."""
        self.wait(lambda: text in self.machine.console(), f"'{text}' on the console")

    def wait_reload(self, limit=RUN_LIMIT + BOOT_LIMIT):
        """Waits until the switch has rebooted by itself, and lets that boot go on."""
        self.machine.reboot(limit)

    def throttle(self, bytes_a_second):
        """Makes writes to the flash slow."""
        limits = dict.fromkeys(("bps", "bps_rd", "iops", "iops_rd", "iops_wr"), 0)
        self.machine.ask("block_set_io_throttle", device="flash", bps_wr=bytes_a_second, **limits)

    def copied(self):
        """How many bytes of a startup configuration are on the flash, whole or not."""
        return int(self.run(f"cat {FLASH}/startup-config* 2>/dev/null | wc -c"))

    # How it ended.

    def startup_config(self):
        code, text = self.result(f"cat {FLASH}/startup-config")
        return text if code == 0 else None

    def flash(self):
        """The names on the flash, but for the history of the runs, which every run leaves there."""
        return sorted(name for name in self.run(f"ls -A {FLASH}").split() if not name.startswith("zerotouch-history"))

    def unit(self, item, unit="zerotouchd"):
        return self.run(f"systemctl show --value --property={item} {unit}").strip()

    def settled(self):
        """Waits until everything that starts at a boot has started."""
        self.wait(lambda: self.run("systemctl list-jobs").startswith("No jobs"), "the boot to end")

    def is_settled(self, config=CONFIG):
        """Asserts that the switch has booted with this startup configuration and does nothing else any more."""
        self.settled()
        assert self.startup_config() == config
        assert self.flash() == ["lost+found", "startup-config", "zerotouch-config"], self.flash()
        assert self.run(f"cat {FLASH}/zerotouch-config") == "", "an entry is left for a later boot"
        assert self.unit("ActiveState") == "inactive" and self.unit("ConditionResult") == "no"
        assert self.unit("Result", "zerotouch-settle") == "success" and self.unit("ActiveState", "zerotouch-settle") == "active"
        assert self.result(f"test -e {LOG_SERVERS}")[0] == 1, "the log still goes to the servers of the run"
        assert self.result("pgrep -a 'zerotouch|dhclient|dhcpcd'")[0] == 1

    def denials(self):
        """What AppArmor has refused since the switch was made, or since they were forgotten."""
        told = self.run("journalctl --no-pager --boot=all --output=cat --grep='apparmor=.DENIED' || true").splitlines()
        return [line for line in told if "apparmor" in line and line not in self.forgotten]

    def forget_denials(self):
        self.forgotten = self.denials()

    def healthy(self):
        """Asserts what holds in every scene: no rule was broken, and nothing of ours has failed."""
        assert not self.denials(), "\n".join(self.denials())
        assert "zerotouch" not in self.run("systemctl list-units --failed --no-legend")
