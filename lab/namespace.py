"""Network namespaces, as ip-netns(8) makes them."""
import json
import pathlib
import shutil
import signal
import subprocess

from lab import processes
from lab.polling import wait_for


def run(*argv):
    """Runs a program to its end; its output. What it complains of is the text of the error raised when it fails."""
    result = subprocess.run([str(word) for word in argv], capture_output=True, text=True, stdin=subprocess.DEVNULL)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(str(word) for word in argv)}: {(result.stderr or result.stdout).strip()}")
    return result.stdout


class Namespace:
    def __init__(self, name):
        self.name = name

    def exists(self):
        return pathlib.Path("/run/netns", self.name).exists()

    def create(self):
        run("ip", "netns", "add", self.name)
        self.ip("link", "set", "lo", "up")

    def delete(self):
        """Ends what still runs in here, which can only have been started by its owner, and removes it."""
        if not self.exists():
            return
        for pid in run("ip", "netns", "pids", self.name).split():
            processes.end(int(pid), signal.SIGKILL)
        run("ip", "netns", "del", self.name)

    def enter(self):
        """The words before a command that is to run in here."""
        return ["ip", "netns", "exec", self.name]

    def run(self, *argv):
        return run(*self.enter(), *argv)

    def ip(self, *arguments):
        return run("ip", "-n", self.name, *arguments)

    def links(self):
        """What `ip -details link` tells, by device."""
        return {link["ifname"]: link for link in json.loads(self.ip("-json", "-details", "link", "show"))}

    def ip6_setting(self, device, item, value=None):
        """Reads /proc/sys/net/ipv6/conf/DEVICE/ITEM in here, after writing `value` if there is one."""
        path = f"net/ipv6/conf/{device}/{item}"
        if value is not None:
            self.run("sysctl", "-qw", f"{path}={value}")
        return self.run("sysctl", "-n", path).strip()


class SwitchNamespace(Namespace):
    """One with a host name and an /etc of its own, which files can be replaced in as on a real system.

    A process that does nothing holds these two; everything else that runs in here joins it."""

    HOLDER = "namespace"

    def __init__(self, name, holders):
        super().__init__(name)
        self.holders = holders  # the Processes among which the holder is

    def create(self, hostname, etc):
        """`etc` is the folder for a copy of this system's /etc."""
        super().create()
        shutil.copytree("/etc", etc, symlinks=True)
        (etc / "hostname").write_text(hostname + "\n")
        holder = ('set -e; echo "$1" >/proc/sys/kernel/hostname; mount --bind "$2" /etc; echo ready; '
                  'exec sleep infinity')
        argv = super().enter() + ["unshare", "--uts", "sh", "-c", holder, "sh", hostname, etc]
        process = self.holders.start(self.HOLDER, argv)
        log = self.holders.log(self.HOLDER)
        wait_for(lambda: process.poll() is not None or "ready" in log.read_text(), "the switch's namespace")
        if process.poll() is not None:
            raise RuntimeError(f"the switch's namespace: {log.read_text().strip()}")

    def enter(self):
        pid = self.holders.running(self.HOLDER)
        if pid is None:
            raise RuntimeError(f"{self.name} is not up")
        return ["nsenter", "--target", str(pid), "--net", "--uts", "--mount", "--"]
