"""The lab as a person uses it."""
import os
import pathlib
import subprocess

import pytest

from lab.host import ROOT
from lab.namespace import run
from lab.polling import LIMIT, wait_for
from lab.switch_lab import LABS

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="network namespaces need root")
NAME = f"zttest-{os.getpid()}-cli"


def lab(verb, *arguments, code=0):
    result = subprocess.run([ROOT / "lab" / "lab", verb, "--name", NAME, *arguments], capture_output=True, text=True,
                            timeout=LIMIT, stdin=subprocess.DEVNULL)
    assert result.returncode == code, result.stdout + result.stderr
    return result.stdout if code == 0 else result.stderr


@pytest.fixture
def cleaned():
    yield
    if (LABS / NAME).exists():
        lab("down")


def test_a_lab_comes_up_is_played_with_says_what_is_wrong_and_goes_away(cleaned):
    assert f"{NAME} is not up" in lab("status", code=1)
    lab("up", "--veth", "1", "--tap", "1")
    for said, code, *words in (
            ("'../etc' cannot be the name of a lab", 1, "down", "--name", "../etc"), ("nowhere", 2, "serve", "nowhere"),
            ("eth1", 2, "plug", "eth1"), ("nginx does not run", 1, "signal", "nginx", "STOP"), ("et9", 1, "plug", "et9"),
            ("bad option", 1, "serve", "dhcpv4", "--line", "no-such-option"), ("p9", 1, "lldp", "et9"),
            ("is up already", 1, "up")):
        assert said in lab(*words, code=code)
    lab("host", "--timers", "0.2", "start", "--arguments=--trace ZeroTouchSm=5")
    lab("plug", "et2")
    lab("lldp", "et2")
    lab("files")
    lab("serve", "ra-managed")
    lab("signal", "nginx", "KILL")
    assert "is running already" in lab("host", "start", code=1)
    running = "running: host, bad-server, cable-2, dnsmasq, lldp-2, names-and-tftp, vsftpd"
    wait_for(lambda: lab("status").splitlines()[-2] == running, "the end of nginx")
    assert lab("status").splitlines()[-1].startswith("died: nginx; its output is in ")
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
