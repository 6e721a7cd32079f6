"""The servers of the lab, as clients on the switch meet them."""
import signal
import subprocess

import pytest

from lab.polling import wait_for

CONFIG = """
option classless-static-routes code 121 = array of unsigned integer 8;
option log-servers code 7 = array of ip-address;
option dhcp6.bootfile-url code 59 = text;
also request bootfile-name, tftp-server-name, classless-static-routes, log-servers, interface-mtu, dhcp6.bootfile-url;
"""
SCRIPT = """#!/bin/sh
env >"/tmp/answer-$interface"
case $reason in
  PREINIT*) ip link set "$interface" up ;;
  BOUND) ip address add "$new_ip_address/24" dev "$interface" ;;
esac
"""


def ask(lab, device, *options):
    """Runs the stock client once; what it was told."""
    config, script = lab.folder / "dhclient.conf", lab.folder / "dhclient-script"
    config.write_text(CONFIG)
    script.write_text(SCRIPT)
    script.chmod(0o755)
    lab.switch.ip6_setting(device, "dad_transmits", 0)
    lab.switch.ip("link", "set", device, "up")
    wait_for(lambda: "fe80::" in lab.switch.ip("address", "show", "dev", device, "-tentative"), "a link-local address")
    lab.switch.run("dhclient", *options, "-1", "-cf", config, "-sf", script, "-lf", f"/run/{device}.leases", "-pf",
                   f"/run/{device}.pid", device)
    answer = lab.switch.run("cat", f"/tmp/answer-{device}")
    return dict(line.split("=", 1) for line in answer.splitlines() if "=" in line)


@pytest.mark.parametrize("scenario, options, expected", [
    ("dhcpv4", ["-4"], {
        "new_bootfile_name": "x://10.0.2.1/a, b", "new_routers": "10.0.2.1", "new_domain_name_servers": "10.0.2.1",
        "new_log_servers": "10.0.2.1", "new_interface_mtu": "1400", "new_domain_name": "lab.example",
        "new_host_name": "leaf-1", "new_classless_static_routes": "24 192 168 77 10 0 2 1 0 10 0 2 1"}),
    ("dhcpv4-bootp", ["-4"], {"new_filename": "x://10.0.2.1/a, b", "new_bootfile_name": None}),
    ("dhcpv4-no-bootfile", ["-4"], {"new_routers": "10.0.2.1", "new_filename": None, "new_bootfile_name": None}),
    ("dhcpv4-tftp", ["-4"], {"new_tftp_server_name": "10.0.2.1", "new_bootfile_name": "config"}),
    ("dhcp-both", ["-4"], {"new_bootfile_name": "x://10.0.2.1/a, b"}),
    ("dhcp-both", ["-6"], {"new_dhcp6_bootfile_url": "x://[2001:db8:2::1]/a, b"}),
    ("dhcpv6", ["-6"], {"new_dhcp6_bootfile_url": "x://[2001:db8:2::1]/a, b",
                        "new_dhcp6_name_servers": "2001:db8:2::1"}),
    ("dhcpv6-stateless", ["-6", "-S"], {"new_dhcp6_bootfile_url": "x://[2001:db8:2::1]/a, b",
                                        "new_ip6_address": None}),
])
def test_a_client_is_told_what_the_scenario_says(lab, scenario, options, expected):
    lab.add_veth(1)
    lab.add_veth(2)
    lab.serve(scenario, 'x://{server}/a, b')
    answer = ask(lab, "et2", *options)
    assert {name: answer.get(name) for name in expected} == expected
    if "-S" not in options:
        assert answer.get("new_ip_address", answer.get("new_ip6_address")).startswith(("10.0.2.", "2001:db8:2::1"))
        lab.switch.run("dhclient", options[0], "-r", "-sf", lab.folder / "dhclient-script", "-lf", "/run/et2.leases",
                       "-pf", "/run/et2.pid", "et2")
        wait_for(lambda: "DHCPRELEASE(p2)" in lab.processes.log("dnsmasq").read_text(), "the release")


def test_two_servers_share_the_ports(lab):
    for number, name in ((1, "first"), (2, "second")):
        lab.add_veth(number)
        lab.serve("dhcpv4", name, ports=[number], name=name, lines=['dhcp-option=option:domain-name,"other.example"'])
    for number, name in ((1, "first"), (2, "second")):
        answer = ask(lab, f"et{number}", "-4")
        assert (answer["new_bootfile_name"], answer["new_domain_name"]) == (name, "other.example")


@pytest.fixture
def files(lab):
    lab.add_veth(1)
    lab.serve_files()
    lab.switch.ip("link", "set", "et1", "up")
    for address in ("10.0.1.2/24", "2001:db8:1::2/64"):
        lab.switch.ip("address", "add", address, "dev", "et1", *(["nodad"] if ":" in address else []))
    lab.switch.run("sh", "-c", "echo nameserver 10.0.1.1 >/etc/resolv.conf")
    return lab


def curl(lab, url, *options):
    return subprocess.run([*lab.switch.enter(), "curl", "-gks", *options, url], capture_output=True, timeout=20)


def test_a_file_is_the_same_over_every_protocol(files):
    content = bytes(range(256)) * 300
    (files.www / "image").write_bytes(content)
    for host in ("10.0.1.1", "[2001:db8:1::1]", "boot.example"):
        for scheme, port in (("http", ""), ("https", ""), ("https", ":8443"), ("ftp", ""), ("tftp", "")):
            assert curl(files, f"{scheme}://{host}{port}/image").stdout == content, f"{scheme} {host}"
    with_header = curl(files, "http://10.0.1.1/nothing", "-H", "X-Ostrel-Serial: a\"b")
    assert with_header.returncode == 0
    request = files.requests()[-1]
    assert (request["uri"], request["status"], request["X-Ostrel-Serial"]) == ("/nothing", "404", 'a"b')
    assert "certificate has expired" in subprocess.run(
        [*files.switch.enter(), "curl", "-sS", "--cacert", files.folder / "expired.crt", "https://boot.example:8443/"],
        capture_output=True, text=True, timeout=20).stderr


def test_servers_misbehave_as_asked(files):
    answers = {path: curl(files, f"http://10.0.1.1:8080/{path}", "-m", "0.7", "-o", "/dev/null", "-w", "%{http_code}")
               for path in ("reset", "silent", "half-header", "half", "wrong-length", "slow", "endless", "empty",
                            "redirect", "404", "500")}
    assert {path: (answer.returncode, answer.stdout.decode()) for path, answer in answers.items()} == {
        "reset": (56, "000"), "silent": (28, "000"), "half-header": (0, "200"), "half": (18, "200"),
        "wrong-length": (18, "200"), "slow": (28, "200"), "endless": (28, "200"), "empty": (0, "200"),
        "redirect": (0, "302"), "404": (0, "404"), "500": (0, "500")}
    files.processes.send("nginx", signal.SIGSTOP)
    assert curl(files, "http://10.0.1.1/config", "-m", "0.5").returncode == 28
    files.processes.send("nginx", signal.SIGCONT)
    assert curl(files, "http://10.0.1.1/config").stdout == b"hostname provisioned\n"
