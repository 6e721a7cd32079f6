"""The examples of docs/server-side.md, as they stand there."""
import json
import os
import re
import subprocess
import textwrap

import pytest

from conftest import SHORT_TIMERS, brought_up, ended_well
from lab.host import BUILD
from lab.polling import wait_for
from lab.switch_lab import ROOT, Lab

DOCUMENT = (ROOT / "docs/server-side.md").read_text()
HTTP = "daemon off; user root; pid {folder}/pid; error_log stderr; events {{}} http {{ access_log off; {body} }}"


def example(name, **places):
    """The indented block that says that it is the file `name`."""
    for block in re.findall(r"(?:^    .*\n|^\n)+", DOCUMENT, re.M):
        if re.search(rf"(#|//) {name}$", block, re.M):
            text = textwrap.dedent(block).strip() + "\n"
            for place, value in places.items():
                text = text.replace(place, value)
            return text
    raise LookupError(name)


@pytest.fixture(scope="module")
def switch_lab():
    for lab in brought_up(Lab(f"zttest-{os.getpid()}-server")):
        lab.add_veth(1)
        lab.www.mkdir()
        (lab.www / "configs").mkdir()
        (lab.www / "bootstrap.sh").write_text(example("/srv/provisioning/bootstrap.sh"))
        body = example("/etc/nginx/conf.d/provisioning.conf").replace("/srv/provisioning", str(lab.www))
        (lab.folder / "nginx.conf").write_text(HTTP.format(folder=lab.folder, body=body))
        lab.processes.start("nginx", [*lab.server.enter(), "nginx", "-e", "stderr", "-c", lab.folder / "nginx.conf"],
                            ready=lambda: lab.server.run("ss", "-Hltn", "sport = :80") != "")
        yield lab


@pytest.fixture
def lab(switch_lab):
    yield from ended_well(switch_lab)


def dnsmasq(lab):
    config = lab.folder / "dnsmasq.conf"
    config.write_text(example("/etc/dnsmasq.d/provisioning.conf", eth0="p1"))
    return ["dnsmasq", f"--conf-file={config}", "--keep-in-foreground", "--log-facility=-", "--pid-file=", "--port=0",
            f"--dhcp-leasefile={lab.folder}/leases", "--user=root"]


def kea(lab):
    config = lab.folder / "kea.json"
    text = example("/etc/kea/kea-dhcp4.conf", eth0="p1")
    config.write_text(text.replace('"memfile"', f'"memfile", "name": "{lab.folder}/kea.leases"'))
    return ["env", f"KEA_PIDFILE_DIR={lab.folder}", f"KEA_LOCKFILE_DIR={lab.folder}", "kea-dhcp4", "-c", config]


def rehearsed(lab):
    """The exit code of a rehearsal from a laptop on the same link, and what it takes the boot file for."""
    for words in (["link", "set", "et1", "up"], ["address", "replace", "10.0.1.50/24", "dev", "et1"]):
        lab.switch.ip(*words)
    done = subprocess.run([*lab.switch.enter(), BUILD / "bin" / "zerotouch", "rehearse", "--json", "-i", "et1", "--v4",
                           "--serial", "LAB0001", "--model", "SW", "--mac", "02:00:00:00:00:09"],
                          capture_output=True, text=True, timeout=60)
    lab.switch.ip("address", "flush", "dev", "et1")
    return done.returncode, json.loads(done.stdout)["download"]["kind"]


@pytest.mark.parametrize("server, ready, serial, installed", [
    (dnsmasq, "started, version", "LAB0001", "hostname by-serial\n"),
    (kea, "DHCP4_STARTED", "OTHER", "hostname switch\n"),
])
def test_the_examples_provision_a_switch(lab, server, ready, serial, installed):
    (lab.www / "configs" / serial).write_text("hostname by-serial\n")
    for file in lab.host.flash.iterdir():
        file.unlink()
    lab.host.environment |= SHORT_TIMERS | {"ZEROTOUCH_DHCLIENTQUERY_TIMER_TIMEOUT": "10",
                                            "ZEROTOUCH_DHCLIENTQUERY_TIMER_INTERVAL": "10"}
    lab.processes.start("dhcp", [*lab.server.enter(), *server(lab)], ready=ready)
    try:
        assert rehearsed(lab) == (0, "script" if serial == "OTHER" else "configuration")
        lab.host.boot_again()
        wait_for(lab.host.reload_requested, "the reload")
        assert (lab.host.flash / "startup-config").read_text() == installed
    finally:
        lab.processes.stop("dhcp")
        (lab.www / "configs" / serial).unlink()
