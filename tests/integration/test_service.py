"""The installed service under a systemd of its own: a container with this system's files, whose changes are its own."""
import os
import pathlib
import subprocess

import pytest

from lab.polling import LIMIT, wait_for
from lab.processes import Processes

# Boots no further than basic.target: what else this system runs is no business of the container.
BOOT = """
mkdir -p "$1" /run/systemd/nspawn
mount -t tmpfs tmpfs "$1"
mount -t tmpfs tmpfs /run/systemd/nspawn
cd "$1"
mkdir changes work root
mount -t overlay -o lowerdir=/,upperdir=changes,workdir=work overlay root
mkdir -p root/mnt/flash
: >root/etc/fstab
: >root/etc/machine-id
rm -f root/usr/sbin/policy-rc.d  # of a container that may stop no service
cp "$2" root/usr/zerotouch.deb
chroot root dpkg -i /usr/zerotouch.deb
exec systemd-nspawn --quiet --directory=root --machine="$3" --register=no --keep-unit --link-journal=no --private-network \\
  --console=pipe --boot systemd.unit=basic.target
"""
LOG_SERVERS = "/etc/rsyslog.d/50-zerotouch.conf"
HASTY = "[Service]\nRestartSec=0.1\nWatchdogSec=5\nExecStartPost=/bin/sh -c 'sleep 1000 &'\n"
# What configuration scripts may do, and what the unit keeps all of its processes from.
ALLOWED = ["touch /etc/own /usr/own /root/own /mnt/flash/own", "install -m 4755 /bin/true /usr/local/bin/own",
           "mount -t tmpfs tmpfs /media && umount /media", "unshare --mount --net --pid --fork true", "hostname $(hostname)",
           "sysctl -qw net.ipv4.ip_forward=1", "python3 -c 'import mmap; mmap.mmap(-1, 4096, prot=7)'", "nice -n -5 true",
           "setpriv --reuid=nobody --clear-groups --no-new-privs true", "grep -q '^NoNewPrivs:.0$' /proc/self/status",
           "grep -qF \"$(grep CapBnd /proc/1/status)\" /proc/self/status", "ulimit -n 4096"]
REFUSED = ["test $(ulimit -Hc) != 0", "chrt --fifo 1 true", "linux32 true"]
FAILED = {"ABRT": "status=6/ABRT", "KILL": "status=9/KILL", "STOP": "Watchdog timeout"}


class Machine:
    def __init__(self, folder, package):
        self.processes = Processes(folder)
        self.container = None
        self.name = f"zttest-{os.getpid()}"
        argv = ["unshare", "--mount", "sh", "-ec", BOOT, "boot", folder / "root", package, self.name]
        self.processes.start("container", argv, ready=self._is_up)

    def _is_up(self):
        pid = self.processes.running("container")
        for child in pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split():
            if pathlib.Path(f"/proc/{child}/comm").read_text() == "systemd\n":
                self.container = child
                return self.run("systemctl", "is-system-running", check=False).strip() in ("running", "degraded")
        return False

    def run(self, *argv, check=True, text=""):
        result = subprocess.run(["nsenter", "--target", self.container, "--all", *argv], text=True, input=text,
                                capture_output=True, timeout=LIMIT)
        assert not check or result.returncode == 0, result.stdout + result.stderr
        return result.stdout

    def write(self, path, text):
        self.run("mkdir", "-p", str(pathlib.Path(path).parent))
        self.run("tee", path, text=text)

    def show(self, item, unit="zerotouchd"):
        return self.run("systemctl", "show", "--value", f"--property={item}", unit).strip()

    def journal(self):
        return self.run("journalctl", "--no-pager", "--unit=zerotouchd", "--output=cat")

    def sleeps(self):
        return self.run("pgrep", "-x", "sleep", check=False).split()


@pytest.fixture(scope="module")
def machine(tmp_path_factory, package):
    if os.geteuid() != 0:
        pytest.skip("a container needs root")
    machine = Machine(tmp_path_factory.mktemp("service"), package)
    try:
        yield machine
    finally:
        machine.processes.stop("container")


def test_a_host_that_ends_badly_is_started_again_and_takes_its_children_along(machine):
    assert machine.show("ActiveState") == "inactive"  # since it was installed
    machine.write("/run/systemd/system/zerotouchd.service.d/hasty.conf", HASTY)
    machine.run("systemctl", "daemon-reload")
    machine.run("systemctl", "start", "zerotouchd")
    for how, reason in FAILED.items():
        host, children = machine.show("MainPID"), machine.sleeps()
        assert len(children) == 1
        machine.run("kill", f"-{how}", host)
        wait_for(lambda: machine.show("MainPID") not in ("0", host) and machine.show("ActiveState") == "active", how)
        wait_for(lambda: len(machine.sleeps()) == 1 and machine.sleeps() != children, "the child to be another")
        assert reason in machine.journal()


def trying(commands):
    return "".join(f"({command}) >&2 && echo done || echo refused\n" for command in commands)


def test_a_script_may_do_what_root_may_but_for_what_none_misses(machine):
    assert machine.run("sh", "-c", trying(REFUSED)).split() == ["done"] * len(REFUSED), "outside of the service"
    machine.write("/run/script", trying(ALLOWED + REFUSED))
    machine.write("/run/systemd/system/zerotouchd.service.d/script.conf",
                  "[Service]\nExecStartPost=/bin/sh -c 'sh /run/script >/run/outcome'\n")
    machine.run("systemctl", "daemon-reload")
    machine.run("systemctl", "restart", "zerotouchd")
    outcome = machine.run("cat", "/run/outcome").split()
    assert outcome == ["done"] * len(ALLOWED) + ["refused"] * len(REFUSED), machine.journal()


def test_a_mistake_in_the_configuration_stops_it_with_the_reason(machine):
    machine.write("/etc/zerotouch/platform.toml", "[nonsense]\n")
    machine.run("systemctl", "restart", "zerotouchd", check=False)
    assert (machine.show("ActiveState"), machine.show("ExecMainStatus")) == ("failed", "2")
    assert "/etc/zerotouch/platform.toml:1: unknown section [nonsense]" in machine.journal()
    machine.write("/etc/zerotouch/platform.toml", "")
    machine.run("systemctl", "start", "zerotouchd")


def test_a_switch_that_has_its_configuration_runs_no_host_but_forgets_the_last_run(machine):
    machine.run("systemctl", "stop", "zerotouchd")
    machine.run("rm", "-rf", "/run/zerotouch")  # as after a boot
    machine.write("/mnt/flash/startup-config", "hostname done\n")
    machine.write("/mnt/flash/zerotouch-config", "DISABLE=NextReload\nKEEP=me\n")
    machine.write(LOG_SERVERS, "# Written by zerotouchd, which also removes this file.\n")
    machine.run("systemctl", "start", "zerotouchd", "zerotouch-settle")
    machine.run("test", "!", "-e", LOG_SERVERS)
    # The mark that it leaves names the namespace in which the next host looks for it.
    assert machine.run("readlink", "/proc/1/ns/uts").strip() in machine.run("cat", "/run/zerotouch/disabled-for-this-boot")
    assert machine.show("ConditionResult") == "no" and machine.show("ActiveState") == "inactive"
    assert machine.run("cat", "/mnt/flash/zerotouch-config") == "KEEP=me\n"
    machine.run("systemctl", "start", "zerotouchd")  # a host has been here since the boot, and may have been killed
    assert machine.show("ActiveState") == "active"


def test_an_upgrade_leaves_a_run_alone_and_a_purge_ends_it(machine):
    machine.run("systemctl", "start", "zerotouchd")
    host = machine.show("MainPID")
    machine.run("dpkg", "-i", "/usr/zerotouch.deb")
    assert machine.show("MainPID") == host
    machine.run("dpkg", "--purge", "zerotouch")
    assert "stopping: Terminated" in machine.journal().splitlines()
    assert machine.run("pgrep", "-x", "zerotouchd", check=False) == ""
    assert machine.show("LoadState") == "not-found"
