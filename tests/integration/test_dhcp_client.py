"""The programs around the DHCP client: the hook that it runs, and the shim in front of it."""
import contextlib
import os
import pathlib
import signal
import socket
import subprocess

import pytest

from lab.host import BUILD
from lab.polling import LIMIT, wait_for
from lab.processes import start_time

HOOK = BUILD / "bin" / "zerotouch-dhclient-script"
SHIM = BUILD / "bin" / "zerotouch-dhclient"


@pytest.mark.parametrize("reason, code", [("BOUND", 0), ("TIMEOUT", 1)])
def test_the_hook_says_that_there_is_no_host(tmp_path, reason, code):
    environment = {"STATEBASESOCKNAME": f"{tmp_path}/none", "reason": reason, "interface": "et1"}
    result = subprocess.run([HOOK], env=environment, capture_output=True, text=True, timeout=LIMIT)
    assert result.returncode == code and "No such file or directory" in result.stderr


def test_the_hook_tries_again_until_there_is_a_host(tmp_path):
    environment = {"STATEBASESOCKNAME": f"{tmp_path}/socket", "reason": "BOUND", "interface": "et1"}
    hook = subprocess.Popen([HOOK], env=environment, stderr=subprocess.PIPE, text=True)
    wait_for(lambda: pathlib.Path(f"/proc/{hook.pid}/stat").read_text().split(")")[1].split()[0] == "S", "a first failure")
    with socket.socket(socket.AF_UNIX) as host:
        host.bind(environment["STATEBASESOCKNAME"])
        host.listen()
        host.settimeout(LIMIT)
        with host.accept()[0].makefile() as message:
            assert '"/zerotouch/dhcpStatus/intfDhcpStatus/et1"' in message.read()
    assert hook.communicate(timeout=LIMIT) == (None, "") and hook.returncode == 0


def test_the_hook_ends_though_nobody_takes_what_it_says(tmp_path):
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    with contextlib.suppress(BlockingIOError):
        while os.write(writer, b"x" * 65536):
            pass
    os.set_blocking(writer, True)
    environment = {"reason": "CLEANUP", "STATEBASESOCKNAME": f"{tmp_path}/none"}
    assert subprocess.run([HOOK], env=environment, stderr=writer, timeout=LIMIT).returncode == 0
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


@pytest.mark.parametrize("family, more, kept", [
    ("-4", [], ""), ("-6", ["-D", "LL"], "default-duid 0:3:0:1:02:00:00:00:00:01;\n")])
def test_the_shim_becomes_the_client_and_goes_with_its_parent(fake, family, more, kept):
    leases, config = fake / "leases", fake / "config"
    leases.write_text("lease { of an earlier attempt }\n" + 'default-duid "with a time";\n' * len(more))
    config.write_text("send dhcp-client-identifier 02:00:00:00:00:01;\n")
    arguments = ["-d", "--ignore-preinit", family, "-cf", str(config), "-lf", str(leases), "--ignore-preinit", "et1"]
    process, pid, passed = start_shim(fake, *arguments)
    assert (pid, passed) == (process.pid, ["-d", family, "-cf", str(config), "-lf", str(leases), "et1", *more, "-e",
                                           f"ZEROTOUCH_LEASES={leases}"])
    assert leases.read_text() == kept
    (fake / "end").touch()
    assert process.wait(LIMIT) == 7

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
    assert process.wait(LIMIT) == code
    wait_for(lambda: start_time(pid) is None, "the client to be gone")


@pytest.mark.parametrize("reported", [True, False])
def test_the_next_client_waits_for_a_late_release_and_its_report_but_not_for_ever(fake, reported):
    (fake / "client").write_text(
        '#!/bin/sh\ncase " $* " in\n*" -r "*)\n'
        '  echo release >log\n  (while [ ! -e reported ]; do sleep 0.02; done; echo report >>log) &\n'
        '  exec sleep infinity ;;\nesac\necho query >>log\n')
    environment = {**os.environ, "ZEROTOUCH_REAL_DHCLIENT": str(fake / "client")}
    command, log = [SHIM, "-6", "-lf", str(fake / "leases"), "et1"], fake / "log"
    release = subprocess.Popen([*command, "-r"], cwd=fake, env=environment)
    wait_for(log.exists, "the release")
    release.terminate()
    query = subprocess.Popen(command, cwd=fake, env=environment, stderr=subprocess.PIPE, text=True)
    assert release.wait(LIMIT) == 128 + signal.SIGKILL
    assert log.read_text() == "release\n"
    if reported:
        (fake / "reported").touch()
    complaint = "" if reported else f"zerotouch-dhclient: lease file {fake / 'leases'}: a release of it does not end\n"
    assert query.communicate(timeout=LIMIT) == (None, complaint)
    assert log.read_text() == "release\n" + "report\n" * reported + "query\n"
    (fake / "reported").touch()


def test_servers_without_a_boot_file_are_passed_over_once_and_with_those_that_follow_them(fake):
    """Each step: what the hook notes of a query, and what the configuration of the next one adds."""
    (fake / "config").write_text("template\n")
    (fake / "client").write_text('#!/bin/sh\nwhile [ "$1" != -cf ]; do shift; done\ncat "$2" >seen\n')
    reject = 'interface "et1" {{ reject {}; }}\n'.format
    steps = [("", ""), ("et1 10.0.0.1\net2 10.0.0.9\n", reject("10.0.0.1")),
             ("et1 10.0.0.2\n", reject("10.0.0.1") + reject("10.0.0.2")), ("", ""), ("et1 }\n", ""),
             ("".join(f"et1 10.0.0.{i}\n" for i in range(17)), "")]
    for noted, added in steps:
        with open(fake / "leases.nameless", "a") as file:
            file.write(noted)
        subprocess.run([SHIM, "-4", "-cf", "config", "-lf", "leases", "et1"], cwd=fake, check=True, timeout=LIMIT,
                       env={**os.environ, "ZEROTOUCH_REAL_DHCLIENT": str(fake / "client")})
        assert (fake / "seen").read_text() == "template\n" + added


def test_without_a_client_the_shim_names_what_it_tried(tmp_path):
    (tmp_path / "self").symlink_to(SHIM)
    for client in (tmp_path / "none", tmp_path / "self"):
        result = subprocess.run([SHIM, "-4"], env={"ZEROTOUCH_REAL_DHCLIENT": str(client)}, capture_output=True,
                                text=True, timeout=LIMIT)
        assert result.returncode == 127
        assert result.stderr == f"zerotouch-dhclient: no DHCP client found (tried {client})\n"
