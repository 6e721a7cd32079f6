"""What `zerotouch rehearse` says of servers, right and wrong, and that it asks them just as a switch does."""
import contextlib
import json
import os
import subprocess

import pytest

from conftest import brought_up, ended_well
from lab.capture import Capture
from lab.host import BUILD
from lab.runs import BAD, Switch
from test_command_line import documented, keys

IDENTITY = ["--model", "LAB-SWITCH", "--serial", "LAB0001", "--mac", "02:00:00:00:00:01"]
CONFIG = "http://{server}/config"
DISCOVER, SOLICIT, INFORMATION_REQUEST = (67, 1), (547, 1), (547, 11)
INSTALLS = "a switch would be provisioned: it would install this configuration"
RUNS = "a switch would be provisioned: it would run this script"
NOT = "a switch would not be provisioned: "
NONE4 = NOT + "the only answer, of DHCPv4, is not taken: "
NONE6 = NOT + "the only answer, of DHCPv6, is not taken: "
HARDLY = "a switch would install this, but it is hardly meant as its configuration: "


@pytest.fixture(scope="module")
def lab():
    """The port of the switch is also that of the laptop: it is up, and has addresses of its own."""
    for lab in brought_up(Switch(f"zttest-{os.getpid()}-rehearse")):
        lab.add_veth(1)
        lab.serve_files()
        for name, text in (("script", "#!/bin/sh\nexit 0\n"), ("lost", "#!/usr/bin/pyhton3\n"), ("dos", "#!/bin/sh\r\n"),
                           ("empty", ""), ("login", "<!DOCTYPE html><html>")):
            (lab.www / name).write_text(text)
        yield from ended_well(lab)


def laptop(lab):
    lab.switch.ip("link", "set", "et1", "up")
    for address in ("10.0.1.50/24", "10.99.0.50/24", "2001:db8:1::50/64"):
        lab.switch.ip("address", "replace", address, "dev", "et1", *(["nodad"] if ":" in address else []))


def rehearse(lab, *words):
    """The exit code, and what was said."""
    done = subprocess.run([*lab.switch.enter(), BUILD / "bin" / "zerotouch", "rehearse", "--json", *words],
                          capture_output=True, text=True, timeout=60)
    return done.returncode, json.loads(done.stdout or done.stderr)


def stripped(payload, four):
    """Without what differs from question to question: the transaction, and for how long it was asked."""
    if four:
        return payload[:4] + bytes(6) + payload[10:]
    elapsed = payload.index(b"\0\x08\0\x02")
    return payload[:1] + bytes(3) + payload[4:elapsed + 4] + bytes(2) + payload[elapsed + 6:]


def test_it_asks_with_the_bytes_of_the_real_client(lab):
    asked = {}
    for scenario, questions in (("ra-managed", [DISCOVER, SOLICIT]), ("ra-stateless", [INFORMATION_REQUEST])):
        with contextlib.closing(Capture(lab.server, "p1")) as capture, contextlib.closing(Capture(lab.server, "p1")) as six:
            lab.begin(scenario, INETRFACESSETUP=2.5, DHCLIENTQUERY=4)
            for question in questions:
                asked[question] = (capture if question == DISCOVER else six).payload(*question)
    lab.host.stop()
    lab.stop_serving()
    laptop(lab)
    # The port's own address is in the messages too, besides that of the system.
    (lab.host.folder / "laptop.toml").write_text('[inventory]\nsystem_mac = "02:00:00:00:00:01"\n')
    for question in asked:
        with contextlib.closing(Capture(lab.server, "p1")) as capture:
            identity = [*IDENTITY[:4], "--config", lab.host.folder / "laptop.toml"]
            assert rehearse(lab, "-i", "et1", *identity, "--seconds", "1")[0] == 10
            four = question == DISCOVER
            assert stripped(capture.payload(*question), four) == stripped(asked[question], four)


# For each: whom is asked; the exit code; how the verdict begins; what is to be mended, or a part of it.
SERVERS = {
    "good": ("dhcpv4", CONFIG, (), [], 0, INSTALLS, ""),
    "script": ("dhcpv4", "http://{server}/script", (), [], 0, RUNS, ""),
    "v6": ("dhcpv6", CONFIG, (), ["--v6"], 0, INSTALLS, ""),
    "stateless": ("dhcpv6-stateless", CONFIG, (), [], 0, INSTALLS, ""),
    "both": ("dhcp-both", CONFIG, (), [], 0, INSTALLS, ""),
    "tftp": ("dhcpv4-tftp", CONFIG, (), ["--v4"], 0, INSTALLS, ""),
    "file field": ("dhcpv4-bootp", CONFIG, (), ["--v4"], 0, INSTALLS, ""),
    "silent": (None, CONFIG, (), ["--seconds", "1"], 10,
               NOT + "nobody has answered on et1 within 1 s (DHCPv4, DHCPv6, stateless DHCPv6)",
               "See to the DHCP server: whether it runs"),
    "no boot file": ("dhcpv4-no-bootfile", CONFIG, (), [], 11, NONE4 + "it names no boot file",
                     "Option 67 is missing for DHCPv4 clients of this link (et1): 10.0.1.1 answers without a boot file"),
    "no boot file 6": ("ra-managed", CONFIG, (), ["--v6"], 11, NONE6 + "it names no boot file",
                       "Option 59 is missing for DHCPv6 clients of this link (et1)"),
    "no router": ("dhcpv4", CONFIG, ["dhcp-range={net6}:1000,{net6}:1fff,64,2m",
                                     'dhcp-option=option6:bootfile-url,"http://[{net6}:1]/config"'], ["--v6"], 11,
                  NONE6 + "no router advertises itself", "No router advertises itself on this link"),
    "scheme": ("dhcpv4", "HTTP://{server}/config", (), ["--v4"], 11, NOT + 'the boot file "HTTP://10.0.1.1/config"',
               "Write the URL's scheme in lower case on the DHCP server"),
    "404": ("dhcpv4", "http://{server}/nothing", (), ["--v4"], 12, NOT + "the download fails: HTTP 404 Not Found",
            "Put the file on the server, or correct the URL"),
    "refused": ("dhcpv4", "http://{server}:9/config", (), ["--v4"], 12, NOT + "the download fails: 10.0.1.1 refuses",
                "Start the file server"),
    "redirect": ("dhcpv4", BAD + "redirect", (), ["--v4"], 13, HARDLY + "HTTP 302 Found, whose body this is", "redirects"),
    "interpreter": ("dhcpv4", "http://{server}/lost", (), ["--v4"], 13,
                    NOT + "the script cannot run: its interpreter /usr/bin/pyhton3 is missing", "Correct the first line"),
    "line ends": ("dhcpv4", "http://{server}/dos", (), ["--v4"], 13,
                  NOT + "the script cannot run: its lines end as on Windows", "dos2unix"),
    "empty": ("dhcpv4", "http://{server}/empty", (), ["--v4"], 13,
              NOT + "the file is no good: the downloaded file is empty", "Write the"),
    "web page": ("dhcpv4", "http://{server}/login", (), ["--v4"], 13, HARDLY + "it is a web page", "Put the configuration"),
}


@pytest.mark.parametrize("case", SERVERS)
def test_it_says_what_is_wrong_with_the_servers(lab, case):
    scenario, boot_file, lines, words, code, verdict, cure = SERVERS[case]
    laptop(lab)
    lab.serve(scenario, boot_file, lines=lines) if scenario else lab.stop_serving()
    before = len(lab.requests())
    asked = ["--seconds", "3"] if "--seconds" not in words else []
    said_code, said = rehearse(lab, "--interface", "et1", *IDENTITY, *words, *asked)
    assert (said_code, said["verdict"][:len(verdict)]) == (code, verdict), said
    assert cure in "\n".join(said["toMend"]) and (cure or not said["toMend"])
    chosen = [offer for offer in said["asked"]["offers"] if offer["chosen"]]
    assert len(chosen) == (code in (0, 12, 13) or case == "scheme")
    assert all(offer["because"] for offer in said["asked"]["offers"] if not offer["chosen"])
    if code == 0 and said["download"]["url"].startswith("http:"):
        assert [request["X-Ostrel-Serial"] for request in lab.requests()[before:]] == ["LAB0001"]
    if case == "both":
        reasons = {offer["because"] for offer in said["asked"]["offers"]}
        assert chosen[0]["family"] == "DHCPv4" and "DHCPv4 goes first" in reasons


def test_of_two_servers_the_quicker_is_taken_unless_it_names_no_boot_file_or_does_not_count(lab):
    laptop(lab)
    lab.server.ip("address", "replace", "10.99.0.1/24", "dev", "p1")
    for scenario, url, reason in (("dhcpv4", "http://10.0.1.1/config", "another server was quicker"),
                                  ("dhcpv4-no-bootfile", "http://10.99.0.1/config", "it names no boot file")):
        lab.serve(scenario)
        lab.serve("dhcpv4-slower", name="slower")
        code, said = rehearse(lab, "-i", "et1", *IDENTITY, "--v4", "--seconds", "4")
        offers = said["asked"]["offers"]
        assert [offer["url"] for offer in offers if offer["chosen"]] == [url] and len(offers) == 2, said
        assert [offer["because"] for offer in offers if not offer["chosen"]] == [reason], said
        assert bool(said["toMend"]) == (scenario == "dhcpv4-no-bootfile") and code == 0
    config = lab.host.folder / "counts.toml"
    config.write_text('[dhcp]\nservers = ["10.9.9.9"]\n')
    code, said = rehearse(lab, "-i", "et1", *IDENTITY, "--v4", "--seconds", "3", "--config", config)
    reasons = [offer["because"] for offer in said["asked"]["offers"]]
    assert code == 11 and "10.99.0.1 is none of the servers that count" in reasons
    lab.stop_serving("slower")


def test_only_a_boot_file_and_what_it_says_is_documented(lab):
    laptop(lab)
    lab.serve("dhcpv4", "http://{server}/script")
    config = lab.host.folder / "signers.toml"
    config.write_text(f'[authenticity]\nsigners = "{lab.folder}/valid.crt"\n')
    code, said = rehearse(lab, "-i", "et1", *IDENTITY, "--v4", "--seconds", "1")
    assert code == 0 and keys(said) <= documented()["rehearse"] | {"toMend[]"}
    assert documented()["rehearse"] - keys(said) <= {"toMend[]", "asked.routers[].address", "asked.routers[].managed",
                                                     "asked.offers[].notUsed[]"}
    lab.switch.ip("address", "flush", "dev", "et1", "scope", "global")
    code, said = rehearse(lab, "-i", "et1", *IDENTITY, "--v4", "--seconds", "1")
    assert code == 12 and said["toMend"][0].startswith("This machine has no IPv4 address on et1: give it one")
    laptop(lab)
    url = ["--url", "http://10.0.1.1/script"]
    code, said = rehearse(lab, *url, *IDENTITY)
    assert code == 0 and said["asked"] is None and said["download"]["firstLine"] == "#!/bin/sh"
    code, said = rehearse(lab, *url, "--config", config)
    assert code == 13 and said["download"]["refused"] == "the file is not signed"
    assert rehearse(lab, "--url", "gopher://10.0.1.1/x")[0] == 1
    before = lab.switch.ip("-d", "address", "show", "et1")
    assert rehearse(lab, "-i", "et1", "--serial", "x", "--seconds", "1")[1]["identity"] == {
        "model": "LAB-SWITCH", "revision": "", "serial": "x", "mac": "02:00:00:00:00:01"}  # of this machine
    elsewhere = f"mount -t tmpfs none /etc/zerotouch && exec {BUILD}/bin/zerotouch rehearse -i et1 --serial x"
    done = subprocess.run([*lab.switch.enter(), "unshare", "--mount", "sh", "-c", elsewhere], capture_output=True, text=True)
    assert done.returncode == 2 and "rehearse: say which switch to play, with --model;" in done.stderr
    assert rehearse(lab, "-i", "nothing", *IDENTITY) == (1, {"error": {"message": "there is no network device 'nothing'"}})
    assert lab.switch.ip("-d", "address", "show", "et1") == before
    nobody = [*lab.switch.enter(), "setpriv", "--reuid=65534", "--clear-groups", "--bounding-set=-all", "--inh-caps=-all"]
    done = subprocess.run([*nobody, BUILD / "bin" / "zerotouch", "rehearse", "-i", "et1", *IDENTITY], capture_output=True,
                          text=True)
    assert done.returncode == 4 and "needs root or CAP_NET_RAW" in done.stderr
