"""Network namespaces, as ip-netns(8) makes them."""
import json
import pathlib
import shutil
import signal
import subprocess

from lab import processes


def run(*argv):
    """Runs a program and returns its output. When it fails, raises an error with what it wrote to its standard error."""
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
        """Removes the namespace and ends the processes in it."""
        if self.exists():
            self.end_processes()
            run("ip", "netns", "del", self.name)

    def end_processes(self):
        """Ends them. Only the owner of the namespace can have started them."""
        for pid in self.pids():
            processes.end(pid, signal.SIGKILL)

    def pids(self):
        """The ids of all processes in the namespace."""
        return {int(pid) for pid in run("ip", "netns", "pids", self.name).split()}

    def enter(self):
        """The words to put before a command that is to run in the namespace."""
        return ["ip", "netns", "exec", self.name]

    def run(self, *argv):
        return run(*self.enter(), *argv)

    def ip(self, *arguments):
        return run("ip", "-n", self.name, *arguments)

    def links(self):
        """The output of `ip -details link`, by device."""
        return {link["ifname"]: link for link in json.loads(self.ip("-json", "-details", "link", "show"))}

    def ip6_setting(self, device, item, value=None):
        """Reads /proc/sys/net/ipv6/conf/DEVICE/ITEM in here, after writing `value` if there is one."""
        path = f"net/ipv6/conf/{device}/{item}"
        if value is not None:
            self.run("sysctl", "-qw", f"{path}={value}")
        return self.run("sysctl", "-n", path).strip()


class SwitchNamespace(Namespace):
    """A network namespace with a host name, an /etc, a /run, a /tmp and installed files of its own.

    A process that does nothing else holds them; every other process in the namespace joins it."""

    HOLDER = "namespace"

    def __init__(self, name, holders, folder, kept):
        """`kept` are folders of this system that stay visible, even if they lie in /run or /tmp."""
        super().__init__(name)
        self.holders = holders  # the Processes among which the holder is
        self.kept = kept
        self.etc = folder / "etc"
        self.installed = folder / "installed"

    def create(self, hostname, installed):
        """Makes the files of the switch and boots it. `installed` maps paths below /usr to the files that appear there;
        files that do not exist are left out."""
        super().create()
        self._make_etc(hostname)
        self.installed.mkdir()
        for place, file in installed.items():
            if file.exists():
                (self.installed / place).parent.mkdir(parents=True, exist_ok=True)
                (self.installed / place).symlink_to(file)
        self.boot()

    def _make_etc(self, hostname):
        shutil.copytree("/etc", self.etc, symlinks=True)
        (self.etc / "resolv.conf").unlink(missing_ok=True)  # often a link to somewhere else
        (self.etc / "rsyslog.d").mkdir(exist_ok=True)
        for name, text in (("hostname", hostname), ("resolv.conf", "# no name server is known yet"),
                           ("kvo-version", "KVO_VERSION=7.2.1"), ("arch", "x86_64")):
            (self.etc / name).write_text(text + "\n")

    def boot(self):
        """Boots the switch after halt(): it has its host name again, and /run and /tmp are empty."""
        holder = [pathlib.Path(__file__).parent / "hold_switch", self.etc, self.installed, *self.kept]
        self.holders.start(self.HOLDER, [*super().enter(), "unshare", "--uts", *holder])

    def halt(self):
        """Ends all processes of the switch."""
        self.end_processes()
        self.holders.stop(self.HOLDER)

    def enter(self):
        pid = self.holders.running(self.HOLDER)
        if pid is None:
            raise RuntimeError(f"{self.name} is not up")
        return ["nsenter", "--target", str(pid), "--net", "--uts", "--mount", "--"]
