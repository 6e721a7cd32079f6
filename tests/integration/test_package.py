"""The Debian package that scripts/package has made, on a switch of the lab that has nothing of ours."""
import os
import platform
import re
import subprocess

import pytest

from conftest import brought_up, ended_well
from lab.host import ROOT, Host, timers
from lab.polling import LIMIT, wait_for
from lab.switch_lab import PLATFORM, Lab

UNITS = ["zerotouchd.service", "zerotouch-settle.service", "zerotouch-reporter.service"]
CLIENT_PROFILE = "/etc/apparmor.d/sbin.dhclient"
OWN_RULES = "# an operator's own\n"
# Where branches may lead to. Debian's start files lack them, so no file has the note that says so of all of it.
ENDBR64 = b"\xf3\x0f\x1e\xfa"
# What dpkg remembers of a package that is gone, caches that are made anew, and a mark that systemctl leaves.
BOOKKEEPING = ("/var/lib/dpkg", "/var/log", "/var/cache", "/etc/ld.so.cache", "/run/systemd")


class InstalledHost(Host):
    """The programs where the package has put them, with its defaults but for what a reload does."""

    def prepare(self):
        self.flash.mkdir(parents=True)

    def configure(self):
        self.config.write_text(f'[host]\n{self._reload_command("host")}[logging]\n{self._reload_command("logging")}{PLATFORM}')

    def command(self, *arguments):
        return [*self.enter(), "/usr/sbin/zerotouchd", *arguments]

    def cli(self, *arguments):
        return subprocess.run([*self.enter(), "/usr/bin/zerotouch", *arguments], capture_output=True, text=True, timeout=LIMIT,
                              stdin=subprocess.DEVNULL, check=True).stdout


class PackageLab(Lab):
    def __init__(self, name):
        super().__init__(name, installed={})
        self.host = InstalledHost(self.folder / "switch", enter=self.switch.enter)
        self.host.environment = {"FILESYSTEM_ROOT": str(self.folder / "switch" / "root"),
                                 **timers(0.2, DHCLIENTQUERY=10, LEASERELEASE=5, CONFIGFETCH=30),
                                 "ZEROTOUCH_CONFIGFETCH_TIMER_INTERVAL": "0.1"}

    def files(self):
        """All that is there besides the flash, with the size of files."""
        found = self.switch.run("find", "/etc", "/usr", "/var", "/run", "-xdev", "-type", "d", "-printf", "%p\n", "-o",
                                "-printf", "%p %s\n")
        return {line for line in found.splitlines() if not line.startswith(BOOKKEEPING)}

    def client_rules(self):
        """The profile of the DHCP client, with all that it includes; fails when it makes no sense."""
        self.switch.run("apparmor_parser", "--skip-kernel-load", "--skip-cache", CLIENT_PROFILE)
        return self.switch.run("apparmor_parser", "--preprocess", CLIENT_PROFILE)


@pytest.fixture
def lab():
    for lab in brought_up(PackageLab(f"zttest-{os.getpid()}-package")):
        lab.add_veth(1)
        lab.serve_files()
        lab.serve("dhcpv4")
        yield from ended_well(lab)


def test_the_package_provisions_a_switch_and_leaves_nothing_behind(lab, package):
    run = lab.switch.run
    (lab.switch.etc / "apparmor.d" / "local" / "sbin.dhclient").write_text(OWN_RULES)
    before = lab.files()

    run("dpkg", "-i", package)
    assert run("systemctl", "is-enabled", *UNITS).split() == ["enabled"] * len(UNITS)
    # The ports of the lab have no hardware behind them, which the file as it is installed asks for.
    check = run("sh", "-c", "zerotouchd --check || [ $? = 1 ]")
    assert check.startswith("/etc/zerotouch/platform.toml: ok\n"), check
    run("systemd-analyze", "verify", *UNITS)
    assert "zerotouch-dhclient-script Uxr" in lab.client_rules()
    library = run("sh", "-c", "stat -c %s /usr/lib/*/zerotouch/libZeroTouch.so")
    assert int(library) <= 1 << 20, "the agent is to fit into 1 MB"

    lab.host.configure()
    lab.host.start()
    wait_for(lab.host.reload_requested, "the reload")
    assert (lab.host.flash / "startup-config").read_text() == "hostname provisioned\n"
    lab.host.wait_state("stateShutdown")
    lab.host.stop()

    log_servers = lab.switch.etc / "rsyslog.d" / "50-zerotouch.conf"
    guard = lab.host.flash / "zerotouch-config"
    assert log_servers.exists() and "DISABLE" in guard.read_text()
    run("env", f"FILESYSTEM_ROOT={lab.host.flash.parent}", "zerotouchd", "--settle")
    assert not log_servers.exists() and "DISABLE" not in guard.read_text()

    run("dpkg", "--purge", "zerotouch")
    changed = {line.split()[0] for line in lab.files() ^ before}
    assert changed == {"/etc/resolv.conf"}  # which is given for good when the system is to reload
    assert "zerotouch" not in lab.client_rules()
    assert sorted(file.name for file in lab.host.flash.iterdir()) == [
        "startup-config", "zerotouch-config", "zerotouch-history"]


def elf(option, file):
    return subprocess.run(["readelf", "--wide", option, file], capture_output=True, text=True, check=True).stdout


def runpath(file):
    """The folders in which the loader looks for libraries first."""
    found = re.search(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", elf("--dynamic", file))
    return found.group(1) if found else ""


def test_programs_and_libraries_are_hardened(package, tmp_path):
    subprocess.run(["dpkg-deb", "--extract", package, tmp_path], check=True)
    files = [file for file in tmp_path.rglob("*") if file.is_file() and file.read_bytes()[:4] == b"\x7fELF"]
    assert len(files) == 9
    for file in files:
        symbols, segments = elf("--dyn-syms", file), elf("--segments", file)
        faults = {
            "stack protector": "__stack_chk_fail" not in symbols,
            "assertions of the C++ library": "__glibcxx_assert_fail" not in symbols,
            "position-independent": " DYN " not in elf("--file-header", file),
            "relocations read-only": "GNU_RELRO" not in segments,
            "bound at the start": not re.search(r"FLAGS\).*BIND_NOW", elf("--dynamic", file)),
            "stack not executable": not re.search(r"GNU_STACK .* RW  ", segments),
            "branches checked": platform.machine() == "x86_64" and file.read_bytes().count(ENDBR64) < 10,
            "libraries": not re.fullmatch(r"\$ORIGIN/\.\./lib:/usr/lib/[^/:]+/zerotouch", runpath(file)),
        }
        assert [what for what, wrong in faults.items() if wrong] == [], file
    # Few programs call a function of the C library that has a checked variant.
    assert any(re.search(r" __\w+_chk\b", elf("--dyn-syms", file)) for file in files)

    installed = {file.name: runpath(file) for file in files}
    built = {file.name: runpath(file) for folder in ("bin", "lib") for file in (ROOT / "build" / "release" / folder).iterdir()
             if file.name in installed}
    assert built == installed, "of the programs in the build tree"
