"""docs/troubleshooting.md is true: each of its rows is broken in a lab, and `zerotouch status` says what stands there."""
import concurrent.futures
import contextlib
import functools
import os
import queue
import re

import pytest

from conftest import ROOT, brought_up, ended_well
from lab.polling import wait_for
from lab.runs import BAD, Switch

LABS = 3
CONFIG = "http://{server}/config"


def rows():
    """What `status` says and what is to be done, by symptom."""
    lines = re.findall(r"^\| (.*) \|$", (ROOT / "docs" / "troubleshooting.md").read_text(), flags=re.M)
    cells = [line.split(" | ") for line in lines][1:]
    return {symptom: (says.strip("`"), cure) for symptom, says, _, cure in cells}


def run_script(first, rest=""):
    def begin(lab, **options):
        (lab.www / "script").write_text(f"#!{first}\n{rest}")
        lab.begin("dhcpv4", "http://{server}/script", **options)
    return begin


def begin(scenario="dhcpv4", boot_file=CONFIG, **options):
    return lambda lab: lab.begin(scenario, boot_file, **options)


def begin_with_file(name, contents):
    def start(lab):
        (lab.www / name).write_text(contents)
        lab.begin("dhcpv4", "http://{server}/" + name)
    return start


def begin_without_link(lab):
    lab.unplug(1)
    lab.begin(None)
    yield
    lab.plug(1)


def begin_without_ports(lab):
    lab.host.config.write_text(lab.host.config_text.replace('"et*"', '"swp*"'))
    lab.begin(None)
    yield
    lab.host.config.write_text(lab.host.config_text)


def begin_bridged(lab):
    lab.begin(None, DHCLIENTQUERY=0.5)
    lab.switch.ip("link", "add", "br0", "type", "bridge")
    lab.switch.ip("link", "set", "et1", "master", "br0")
    yield
    lab.switch.ip("link", "delete", "br0")


def begin_without_client(lab):
    lab.begin(None, DHCLIENTQUERY=0.5)
    for client in ("/sbin/dhclient", "/usr/sbin/dhcpcd"):
        lab.switch.run("mount", "--bind", "/dev/null", client)  # until the next boot


def begin_with_client_that_crashes(lab):
    client = lab.folder / "crashing-client"
    client.write_text("#!/bin/sh\nkill -SEGV $$\n")
    client.chmod(0o755)
    lab.begin(None, client=client, DHCLIENTQUERY=0.5)


def begin_with_full_flash(lab):
    flash = lab.host.flash
    lab.begin(flash={"startup-config": "off\n"})
    lab.switch.run("sh", "-c", f"mount -t tmpfs -o size=64k tmpfs {flash}; cat /dev/zero >{flash}/filler || true")
    lab.host.cli("enable")


def begin_and_lose_the_address(lab):
    lab.begin("dhcpv4", BAD + "404", CONFIGFETCHRETRY=2)
    lab.host.wait_state("stateRetryFetchConfig")
    lab.remove(1)
    yield
    lab.add_veth(1)
    lab.serve_files()


def begin_with_trust(text, boot_file=CONFIG):
    def start(lab):
        lab.host.config.write_text(f"{lab.host.config_text}[authenticity]\n{text.format(lab=lab.folder)}\n")
        lab.begin(boot_file=boot_file)
        yield
        lab.host.config.write_text(lab.host.config_text)
    return start


LIMITS = {"/zerotouch/config": {"maxDownloadSize": 1_000_000, "scriptExecTimeout": 1, "maxRunTime": 0}}


def only(name):
    return {"/zerotouch/config": {name: LIMITS["/zerotouch/config"][name]}}


BREAKAGES = {
    "Every port is dark": begin_without_link,
    "`zerotouch ports` lists none": begin_without_ports,
    "The ports forward frames, and no DHCP request leaves": begin_bridged,
    "No DHCP request leaves the switch": begin_without_client,
    "A DHCP request leaves now and then, or none": begin_with_client_that_crashes,
    "Requests leave, the DHCP server sees none or keeps silent": begin(None, DHCLIENTQUERY=0.5),
    "The DHCP server has given an address, nothing follows": begin("dhcpv4-no-bootfile", DHCLIENTQUERY=4),
    "An address, but no download: the URL is `gopher://...`": begin(boot_file="gopher://{server}/config"),
    "An address, but no download: the URL is `HTTP://...`": begin(boot_file="HTTP://{server}/config"),
    "An address, but no download: the boot file is `config`": begin(boot_file="config"),
    "The switch asks a TFTP server for a file called `http://...`": begin(
        lines=['dhcp-option=tag:{device},option:tftp-server,"{net4}.1"']),
    "An address, but no download: [authenticity] names other schemes": begin_with_trust('schemes = ["https"]'),
    "The file server logs no request: the name": begin(boot_file="http://nowhere.example/config"),
    "The file server logs no request: the port": begin(boot_file="http://{server}:9/config"),
    "The download stands at 0 bytes": begin(boot_file=BAD + "silent", CONFIGFETCH=1),
    "The download fails at once: TLS": begin(boot_file="https://{server}:8080/config"),
    "The download fails at once: the certificate": begin_with_trust(
        'https_ca = "{lab}/expired.crt"', "https://{server}:8443/config"),
    "The file server logs 404": begin(boot_file=BAD + "404"),
    "The file server logs 403": begin(boot_file=BAD + "403"),
    "The file server logs 500": begin(boot_file=BAD + "500"),
    "The file server logs 302": begin(boot_file=BAD + "redirect"),
    "The switch comes up with a web page as its configuration": begin_with_file("login", "\n<!DOCTYPE HTML><html>"),
    "The download ends early": begin(boot_file=BAD + "half"),
    "The download is endless": begin(boot_file=BAD + "endless", values=only("maxDownloadSize")),
    "The file server logs 200, and the file is refused": begin_with_trust('signers = "{lab}/valid.crt"'),
    "The file server logs 200 and 0 bytes": begin_with_file("empty", ""),
    "The download is complete, the configuration is not there": begin_with_full_flash,
    "The script starts and fails": run_script("/bin/sh", "exit 3\n"),
    "The script never starts: its line ends": run_script("/bin/sh\r"),
    "The script never starts: its interpreter": run_script("/usr/bin/pyhton3"),
    "The script disappears": run_script("/bin/sh", "kill -KILL $$\n"),
    "The script goes on and on": functools.partial(run_script("/bin/sh", "sleep 1000\n"), values=only("scriptExecTimeout")),
    "The download failed, and is not tried again from that address": begin_and_lose_the_address,
    "The switch reboots now and then, and starts over": begin(None, DHCLIENTQUERY=0.5, values=only("maxRunTime")),
}


def broken(lab, symptom):
    """What `status` says of it, once that is what the page says, or at last."""
    says, cure = rows()[symptom]
    parts = BREAKAGES[symptom](lab)
    if parts is not None:
        next(parts)
    said = []
    try:
        wait_for(lambda: said.append(lab.host.cli("status")) or (says in said[-1] and cure in said[-1]), symptom)
    except AssertionError:
        pass
    if parts is not None:
        next(parts, None)
    return said[-1]


@pytest.fixture(scope="module")
def statuses():
    """What `status` says of each row, found in several labs side by side."""
    left = queue.SimpleQueue()
    for symptom in rows():
        if symptom in BREAKAGES:
            left.put(symptom)

    def work(number):
        found = {}
        for lab in brought_up(Switch(f"zttest-{os.getpid()}-trouble-{number}")):
            lab.add_veth(1)
            lab.serve_files()
            for _ in ended_well(lab):
                with contextlib.suppress(queue.Empty):
                    while symptom := left.get_nowait():
                        found[symptom] = broken(lab, symptom)
        return found

    if os.geteuid() != 0:
        pytest.skip("network namespaces need root")
    with concurrent.futures.ThreadPoolExecutor(LABS) as pool:
        return {symptom: said for found in pool.map(work, range(LABS)) for symptom, said in found.items()}


@pytest.mark.parametrize("symptom", rows())
def test_status_says_what_is_wrong_and_what_to_do(statuses, symptom):
    says, cure = rows()[symptom]
    said = statuses[symptom]
    assert says in said
    assert re.search(r"^What to do: +(.*)$", said, flags=re.M)[1] == cure
