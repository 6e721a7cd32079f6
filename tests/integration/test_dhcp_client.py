"""The programs around the DHCP client: the hook that it runs, and the shim in front of it."""
import contextlib
import fcntl
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


CONFIG = '''
# A template, and what the agent adds.
timeout 1; retry 1;
option rfc3442-classless-static-routes code 121 = array of unsigned integer 8;
option dhcp6.bootfile-url code 59 = text;  # known already
request subnet-mask, log-servers;
request {request};
send dhcp-client-identifier 02:00:00:00:00:01;
send vendor-class-identifier "a;\\"\\\\\\001";
send dhcp6.vendor-opts 00:00:7e:d9:00:01:00:02:61:3b:00:05:00:02:62:62;
reject 10.0.0.9;
interface "et2" {{ reject 10.0.0.8; }}
'''
STATEMENTS = {
    "-4": ["noipv6", "nooption 57,116,145", *(f"nooption {code}" for code in (1, 3, 28, 33, 51, 58, 59)),
           "define 67 request array byte o67", "define 121 request array byte o121", "clientid 02:00:00:00:00:01",
           "vendorclassid 61:3b:22:5c:01", "blacklist 10.0.0.9", "interface et2", "blacklist 10.0.0.8"],
    "-6": ["noipv4", "duid 00:03:00:01:02:00:00:00:00:01", "ia_na", "define6 59 request array byte o59",
           "define6 23 request array byte o23", r'vendclass 32473 "\x61\x3b"', r'vendclass 32473 "\x62\x62"']}
STATEMENTS["-S"] = [line.replace("ia_na", "inform6") for line in STATEMENTS["-6"]]
ALONE = 2 ** 5 | 2 ** 6 | 2 ** 7 | 2 ** 10 | 2 ** 13 | 2 ** 18  # what dhcpcd keeps of root's capabilities


@pytest.mark.parametrize("family, request_, more", [
    ("-4", "bootfile-name,\n  rfc3442-classless-static-routes, odd", "-4"),
    ("-6", "dhcp6.bootfile-url, dhcp6.name-servers", "-6"),
    ("-S", "dhcp6.bootfile-url, dhcp6.name-servers", "-6")])
def test_dhcpcd_asks_for_the_same_in_a_room_of_its_own(tmp_path, family, request_, more):
    """A stand-in for dhcpcd has an answer on et1. The shim says that et2 has none, and takes dhcpcd with it."""
    leases, config = tmp_path / "leases", tmp_path / "config"
    (tmp_path / "hook").write_text(f'#!/bin/sh\necho "$reason $interface $SYSNAME $ZEROTOUCH_LEASES" >>{tmp_path}/said\n')
    (tmp_path / "dhcpcd").write_text(
        '#!/bin/sh\necho \'lease {\n  interface "et1";\' >>leases\nls -A /proc/sys /run/dhcpcd >rooms\n'
        f'printf "%s\\n" "$@" >{tmp_path}/started.new\nmv {tmp_path}/started.new {tmp_path}/started\nsleep infinity &\nwait\n')
    for name in ("hook", "dhcpcd"):
        (tmp_path / name).chmod(0o755)
    config.write_text(CONFIG.format(request=request_))
    kind = {"-4": ["-4"], "-6": ["-6"], "-S": ["-6", "-S"]}[family]
    shim = subprocess.Popen(
        [SHIM, "-d", "-q", "--ignore-preinit", "-sf", tmp_path / "hook", "-e", "SYSNAME=sw 1", *kind, "-cf", config, "-lf",
         leases, "-pf", tmp_path / "pid", "et1", "et2"], cwd=tmp_path, stderr=subprocess.PIPE, text=True,
        env={**os.environ, "ZEROTOUCH_REAL_DHCLIENT": str(tmp_path / "dhcpcd")})
    passed = wait_for(lambda: (tmp_path / "started").exists() and (tmp_path / "started").read_text(), "dhcpcd").splitlines()
    assert passed == ["-B", "-M", "-q", more, "-f", f"{leases}.dhcpcd", *(["-1"] if family == "-S" else []),
                      "-e", "SYSNAME=sw 1", "-e", f"ZEROTOUCH_LEASES={leases}", "-e", "ZEROTOUCH_CLIENT=dhcpcd", "et1", "et2"]
    written = pathlib.Path(f"{leases}.dhcpcd").read_text().splitlines()
    assert written[0] == "noconfigure" and written[-len(STATEMENTS[family]):] == STATEMENTS[family]
    assert written[-len(STATEMENTS[family]) - 1] == f"script {tmp_path}/hook"
    assert (tmp_path / "pid").read_text() == f"{shim.pid}\n"
    assert (tmp_path / "rooms").read_text() == "/proc/sys:\n\n/run/dhcpcd:\n"
    if family == "-4":
        wait_for(lambda: (tmp_path / "said").exists() and (tmp_path / "said").read_text(), "the report of et2")
        assert (tmp_path / "said").read_text() == f"FAIL et2 sw 1 {leases}\n"
    inside = wait_for(lambda: len(descendants(shim.pid)) == 3 and descendants(shim.pid), "what dhcpcd has started")
    state = pathlib.Path(f"/proc/{inside[-1]}/status").read_text()
    assert f"CapEff:\t{ALONE:016x}\n" in state and "NoNewPrivs:\t1\n" in state
    shim.kill()
    complaint = "zerotouch-dhclient: dhcpcd is not asked for 'odd', whose code is not known\n"
    assert shim.communicate()[1] == complaint * (family == "-4")
    wait_for(lambda: not any(start_time(process) for process in inside), "dhcpcd and all that it started to end")


def test_a_release_for_dhcpcd_waits_for_the_query_and_is_not_stopped(tmp_path):
    leases, said = tmp_path / "leases", tmp_path / "said"
    (tmp_path / "hook").write_text(f'#!/bin/sh\necho "$reason $interface $ZEROTOUCH_CLIENT" >{said}\n')
    (tmp_path / "dhcpcd").write_text("#!/bin/sh\n")
    for name in ("hook", "dhcpcd"):
        (tmp_path / name).chmod(0o755)
    with open(f"{leases}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # as a query does that is about to end
        shim = subprocess.Popen([SHIM, "-4", "-sf", tmp_path / "hook", "-lf", leases, "-r", "et1"],
                                env={**os.environ, "ZEROTOUCH_REAL_DHCLIENT": str(tmp_path / "dhcpcd")})
        wait_for(lambda: is_blocked(shim.pid), "the release to wait")
        shim.terminate()
        assert not said.exists()
    assert shim.wait(LIMIT) == 0 and said.read_text() == "RELEASE et1 dhcpcd\n"


def is_blocked(pid):
    """Whether a process waits for a lock."""
    return any(line.split()[1] == "->" and int(line.split()[5]) == pid
               for line in pathlib.Path("/proc/locks").read_text().splitlines())


def descendants(pid):
    try:
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    except OSError:  # it has ended
        children = []
    return [process for child in map(int, children) for process in [child, *descendants(child)]]


def test_without_a_client_the_shim_names_what_it_tried(tmp_path):
    (tmp_path / "self").symlink_to(SHIM)
    for client in (tmp_path / "none", tmp_path / "self"):
        result = subprocess.run([SHIM, "-4"], env={"ZEROTOUCH_REAL_DHCLIENT": str(client)}, capture_output=True,
                                text=True, timeout=LIMIT)
        assert result.returncode == 127
        assert result.stderr == f"zerotouch-dhclient: no DHCP client found (tried {client})\n"
