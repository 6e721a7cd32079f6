"""The programs around the DHCP client: the hook that it runs, and the shim in front of it."""
import contextlib
import os
import pathlib
import signal
import subprocess

import pytest

from lab.host import BUILD, ROOT
from lab.polling import wait_for
from lab.processes import start_time

HOOK = BUILD / "bin" / "zerotouch-dhclient-script"
SHIM = BUILD / "bin" / "zerotouch-dhclient"


def test_a_hundred_hooks_at_once_all_arrive(host):
    (host.flash / "startup-config").write_text("")  # the agent leaves the records alone
    host.start()
    hooks = [subprocess.Popen([HOOK], stderr=subprocess.PIPE, text=True, env={
        "reason": "BOUND", "interface": f"et{i}", "STATEBASESOCKNAME": str(host.socket), "new_bootfile_name": f"cfg{i}",
        "new_domain_name_servers": "8.8.8.8 " * 40}) for i in range(100)]
    for hook in hooks:
        assert hook.wait(20) == 0
        assert "option domain-name-servers has 40 entries" in hook.stderr.read()
    path = "/zerotouch/dhcpStatus/intfDhcpStatus"
    wait_for(lambda: {name: record["bootFileName"] for name, record in host.get(path).items()}
             == {f"et{i}": f"cfg{i}" for i in range(100)}, "100 records")
    subprocess.run([HOOK], env={"reason": "CLEANUP", "STATEBASESOCKNAME": str(host.socket)}, check=True)
    wait_for(lambda: host.get(path) == {}, "the records to be gone")


@pytest.mark.parametrize("variables, code, complaint", [
    ({"reason": "BOUND", "interface": "et1"}, 0, "No such file or directory"),
    ({"reason": "TIMEOUT", "interface": "et1"}, 1, "No such file or directory"),
    ({"interface": "et1"}, 0, "'reason' is not set"),
    ({"reason": "BOUND", "interface": "a/b"}, 0, '"a/b" is nothing that'),
])
def test_the_hook_says_what_it_could_not_do(tmp_path, variables, code, complaint):
    result = subprocess.run([HOOK], env={"STATEBASESOCKNAME": f"{tmp_path}/none", **variables}, capture_output=True,
                            text=True, timeout=20)
    assert result.returncode == code and complaint in result.stderr


def test_the_hook_ends_though_nobody_takes_what_it_says(tmp_path):
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    with contextlib.suppress(BlockingIOError):
        while os.write(writer, b"x" * 65536):
            pass
    os.set_blocking(writer, True)
    environment = {"reason": "CLEANUP", "STATEBASESOCKNAME": f"{tmp_path}/none"}
    assert subprocess.run([HOOK], env=environment, stderr=writer, timeout=4).returncode == 0
    os.close(reader)
    os.close(writer)


@pytest.fixture
def fake(tmp_path):
    """A stand-in for the real client; tells its process id and arguments, and ends when a file appears."""
    client = tmp_path / "client"
    client.write_text('#!/bin/sh\nprintf "%s\\n" $$ "$@" >started.new; mv started.new started\n'
                      'while [ ! -e end ]; do sleep 0.02; done\nexit 7\n')
    client.chmod(0o755)
    return tmp_path


def start_shim(folder, *arguments, wrapper=()):
    process = subprocess.Popen([*wrapper, SHIM, *arguments], cwd=folder,
                               env={**os.environ, "ZEROTOUCH_REAL_DHCLIENT": str(folder / "client")})
    started = folder / "started"
    pid, *passed = wait_for(lambda: started.exists() and started.read_text(), "the client").split()
    return process, int(pid), passed


def test_the_shim_becomes_the_client_and_goes_with_its_parent(fake):
    arguments = ["-d", "--ignore-preinit", "-4", "-lf", str(fake / "leases"), "--ignore-preinit", "et1"]
    process, pid, passed = start_shim(fake, *arguments)
    assert (pid, passed) == (process.pid, ["-d", "-4", "-lf", str(fake / "leases"), "et1", "-e",
                                           f"ZEROTOUCH_LEASES={fake / 'leases'}"])
    assert (fake / "leases").read_bytes() == b""
    (fake / "end").touch()
    assert process.wait(20) == 7

    (fake / "started").unlink()
    (fake / "end").unlink()
    parent, pid, _ = start_shim(fake, wrapper=["/bin/sh", "-c", '"$@" & wait', "sh"])
    parent.kill()
    parent.wait()
    wait_for(lambda: start_time(pid) is None, "the client to follow its parent")


@pytest.mark.parametrize("finishes, how, code", [
    (True, signal.SIGTERM, 7), (False, signal.SIGTERM, 128 + signal.SIGKILL), (False, signal.SIGKILL, -signal.SIGKILL)])
def test_a_release_outlasts_a_request_to_stop_but_not_for_ever(fake, finishes, how, code):
    process, pid, passed = start_shim(fake, "-4", "-r", "et1")
    assert pid != process.pid and passed == ["-4", "-r", "et1", "-e", "ZEROTOUCH_LEASES="]
    process.send_signal(how)
    if finishes:
        (fake / "end").touch()
    assert process.wait(20) == code
    wait_for(lambda: start_time(pid) is None, "the client to be gone")


def test_without_a_client_the_shim_names_what_it_tried(tmp_path):
    (tmp_path / "self").symlink_to(SHIM)
    for client in (tmp_path / "none", tmp_path / "self"):
        result = subprocess.run([SHIM, "-4"], env={"ZEROTOUCH_REAL_DHCLIENT": str(client)}, capture_output=True,
                                text=True, timeout=20)
        assert result.returncode == 127
        assert result.stderr == f"zerotouch-dhclient: no DHCP client found (tried {client})\n"


def client_command(lab, folder, family):
    """What the agent runs, with its generated file as it is on the second attempt of a boot."""
    suffix, identity = {"4": ("", 'vendor-class-identifier "Ostrel;MDL;SN1"'),
                        "6": ("6", "dhcp6.vendor-opts 00:00:fd:e8:00:01:00:06:4f:73:74:72:65:6c")}[family]
    template = (ROOT / "share" / f"zerotouch-dhclient{suffix}.conf").read_text()
    files = {name: str(folder / f"client{suffix}-{name}") for name in ("conf", "leases", "pid")}
    pathlib.Path(files["conf"]).write_text(
        (template + f"send dhcp-client-identifier 02:00:00:00:00:01;\nsend {identity};\n") * 2)
    return [*lab.switch.enter(), str(SHIM), "-d", "--ignore-preinit", "-sf", str(HOOK), "-e", "SYSNAME=sy", "-e",
            f"STATEBASESOCKNAME={lab.host.socket}", f"-{family}", "-cf", files["conf"], "-lf", files["leases"], "-pf",
            files["pid"]]


ANSWERS = {
    "intfDhcpStatus": {
        "reason": "BOUND", "bootFileName": "http://10.0.1.1/cfg?a=1&b='2'", "addrWithMask": "10.0.1.50/24", "mtu": 1400,
        "staticRoute": {"0": {"prefix": "10.8.0.0/16", "nextHop": "10.0.1.7"}}, "gateway": {"0": "10.0.1.1"},
        "hostname": "switch-a", "nameServer": {"0": "10.0.1.2", "1": "10.0.1.3"}, "domainName": "example.com",
        "serverName": "tftp.example.com", "loggingHost": {"10.0.1.4": {"host": "10.0.1.4", "port": 514}}},
    "intfDhcp6Status": {
        "reason": "BOUND6", "bootFileName": "http://[2001:db8:1::1]/cfg?a=1&b='2'",
        "addrWithMask": "2001:db8:1::50/128", "mtu": 0, "staticRoute": {}, "gateway": {}, "hostname": "", "nameServer": {"0": "2001:db8:1::2"},
        "domainName": "example.com", "serverName": "", "loggingHost": {}},
}


def test_a_real_answer_is_recorded_and_released(lab):
    lab.add_veth(1)
    lab.switch.ip6_setting("et1", "accept_dad", 0)
    lab.switch.ip("link", "set", "et1", "up")
    lab.serve("answers")
    (lab.host.flash / "startup-config").write_text("")
    lab.host.start()
    for family, collection in (("4", "intfDhcpStatus"), ("6", "intfDhcp6Status")):
        path, log = f"/zerotouch/dhcpStatus/{collection}", lab.folder / "client.log"
        command = client_command(lab, lab.folder, family)
        with open(log, "w") as output:
            client = subprocess.Popen([*command, "et1"], stderr=output)
        try:
            wait_for(lambda: lab.host.get(path) == {"et1": ANSWERS[collection]}, f"the answer of DHCPv{family}")
        finally:
            client.terminate()
            client.wait(20)
        assert ".conf line" not in log.read_text()  # what the client would complain of
        if family == "4":  # it leaves by the address that it gives back
            lab.switch.ip("address", "add", "10.0.1.50/24", "dev", "et1")
        released = subprocess.run([*command, "-r", "et1"], timeout=20)
        assert released.returncode == 0
        wait_for(lambda: lab.host.get(path) == {}, "the record to go")
    assert lab.processes.log("dnsmasq").read_text().count("DHCPRELEASE(p1)") == 2

    stateless = subprocess.run([*client_command(lab, lab.folder, "6"), "-S", "et1"], timeout=20)
    assert stateless.returncode == 0
    wait_for(lambda: lab.host.get("/zerotouch/dhcpStatus/intfDhcp6Status")
             == {"et1": {**ANSWERS["intfDhcp6Status"], "reason": "RENEW6", "addrWithMask": "0.0.0.0/0"}}, "the answer")
