"""The lab as a person uses it."""
import os
import pathlib
import subprocess

import pytest

from lab.host import BUILD, ROOT
from lab.namespace import run
from lab.polling import wait_for
from lab.switch_lab import LABS

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="network namespaces need root")
NAME = f"zttest-{os.getpid()}-cli"


def lab(verb, *arguments, code=0):
    result = subprocess.run([ROOT / "lab" / "lab", verb, "--name", NAME, *arguments], capture_output=True, text=True,
                            timeout=60, stdin=subprocess.DEVNULL)
    assert result.returncode == code, result.stdout + result.stderr
    return result.stdout if code == 0 else result.stderr


@pytest.fixture
def cleaned():
    yield
    if (LABS / NAME).exists():
        lab("down")


def test_a_lab_comes_up_is_played_with_and_goes_away(cleaned):
    lab("up", "--veth", "1", "--tap", "1")
    assert "is up already" in lab("up", code=1)
    lab("host", "--timers", "0.2", "start", "--arguments=--trace ZeroTouchSm=5")
    lab("plug", "et2")
    lab("lldp", "et2")
    lab("files")
    lab("serve", "ra-managed")
    lab("signal", "nginx", "KILL")
    assert "is running already" in lab("host", "start", code=1)
    assert lab("status").splitlines()[-1] == "running: host, bad-server, cable-2, dnsmasq, lldp-2, names-and-tftp, vsftpd"
    assert "Ethernet1" in lab("shell", "switch", "zerotouch", "ports")
    assert lab("shell", "switch", "sh", "-c", "hostname; hostname changed; echo changed >/etc/changed; hostname") == (
        "switch\nchanged\n")
    assert os.uname().nodename != "changed" and not pathlib.Path("/etc/changed").exists()
    lab("host", "stop")
    lab("files", "stop")
    assert lab("status").splitlines()[-1] == "running: cable-2, dnsmasq, lldp-2"
    lab("remove", "et2")
    lab("unplug", "et1")
    assert "  et1 down       veth  down       p1" in lab("status")
    lab("down")
    assert "there is no lab" in lab("down", code=1)
    assert NAME not in run("ip", "netns", "list") and NAME not in lab("list") and not (LABS / NAME).exists()


def test_a_reboot_leaves_what_lasts(cleaned):
    lab("up", "--veth", "1", "--tap", "0")
    lab("host", "start")
    outside = [pathlib.Path(folder, "made-on-the-switch") for folder in ("/run", "/tmp")]
    pid = lab("shell", "switch", "sh", "-c", f"""set -e
        touch {outside[0]} {outside[1]} "$FILESYSTEM_ROOT/flash/kept"
        hostname changed
        ip address add 10.0.1.2/24 dev et1
        sleep 1000 </dev/null >/dev/null 2>&1 & echo $!""").strip()
    assert pathlib.Path("/proc", pid).exists() and not any(file.exists() for file in outside)
    lab("host", "boot-again")
    assert lab("shell", "switch", "sh", "-c", """
        hostname; ls /run /tmp | grep made; ip -4 address show dev et1; ls "$FILESYSTEM_ROOT/flash"
        cat /etc/arch; readlink /usr/bin/zerotouch""").splitlines() == [
            "switch", "kept", "x86_64", str(BUILD / "bin" / "zerotouch")]
    wait_for(lambda: not pathlib.Path("/proc", pid).exists(), "the process to be gone")


def test_what_a_person_gets_wrong_is_named(cleaned):
    assert f"{NAME} is not up" in lab("status", code=1)
    assert "'../etc' cannot be the name of a lab" in lab("down", "--name", "../etc", code=1)
    assert "nowhere" in lab("serve", "nowhere", code=2)
    assert "eth1" in lab("plug", "eth1", code=2)
    lab("up", "--veth", "0", "--tap", "0")
    assert "nginx does not run" in lab("signal", "nginx", "STOP", code=1)
    assert "bad option" in lab("serve", "dhcpv4", "--line", "no-such-option", code=1)
    assert "et9" in lab("plug", "et9", code=1)
    assert "p9" in lab("lldp", "et9", code=1)
