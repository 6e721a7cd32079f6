"""The agent host and its command line, as an operator meets them."""
import json
import os
import re
import signal
import subprocess

import pytest

from lab.host import BUILD, timers
from lab.polling import wait_for

READY = {"/entityMib/status": {"systemMacAddr": "02:00:00:00:00:01", "root": {"initStatus": "initialized"}}}


@pytest.mark.parametrize("socket_elsewhere", [False, True])
def test_a_cancelled_system_stays_off_for_one_boot(host, socket_elsewhere):
    if socket_elsewhere:  # then nothing but the mark lies in the run directory
        host.socket = host.folder / "statebase.sock"
        host.config.write_text(host.config.read_text() + f'[socket]\npath = "{host.socket}"\n')
    (host.flash / "zerotouch-config").write_text("KEEP=me\nDISABLE=NextReload\n")
    for _ in range(2):  # the second host of the same boot finds the entry consumed, and stays off all the same
        host.start(initial_values=READY)
        assert "provisioning is off" in host.output()
        assert host.events() == ["ZTP_CANCEL", "PROVISIONING_OFF"]
        assert host.get("/zerotouch/config/enabled") is False
        host.stop()
        assert (host.flash / "zerotouch-config").read_text() == "KEEP=me\n"
    (host.run_directory / "disabled-for-this-boot").unlink()  # what a reboot does
    host.start(initial_values=READY)
    assert host.get("/zerotouch/config/enabled") is True


def test_a_cancel_that_was_noted_while_disabled_does_not_keep_cancel_from_cancelling(host):
    host.start(initial_values=READY)
    watch = subprocess.Popen([BUILD / "bin" / "zerotouch", "--socket", host.socket, "watch", "--until", "stateShutdown"],
                             stdout=subprocess.PIPE, text=True)
    seen = [watch.stdout.readline()]
    assert host.cli("disable") == "Provisioning is disabled; it is at rest (stateInit).\n"
    for attribute in ("cancelled", "enabled"):
        host.cli("set", f"/zerotouch/config/{attribute}", "true")
    wait_for(lambda: host.get("/zerotouch/sm/currentState") != "stateInit", "a run")
    assert host.cli("cancel") == "Provisioning is cancelled, and the system reloads without it; it is reloading (stateShutdown).\n"
    for verb in ("enable", "disable", "cancel"):
        assert "the run has ended" in host.cli(verb, code=1)
    seen += watch.communicate(timeout=60)[0].splitlines(keepends=True)
    states = json.loads(host.cli("report", "--json"))["states"]
    assert [re.sub(r"^.*\((state\w+)\)", r"\1", line) for line in seen] == [f"{state['state']}: {state['reason']}\n" for state in states][-len(seen):]
    assert len(seen) > 3, "no state was missed, however short it was"


def test_scripts_wait_for_an_outcome(host):
    host.start(initial_values=READY)
    assert "there are no ports" in host.cli("status", "--wait=failed")
    assert "for 0 s in vain" in host.cli("status", "--wait", "--timeout", "0.1", code=5)
    host.cli("disable")
    host.cli("status", "--wait", code=9)
    host.cli("enable")
    host.cli("set", "/zerotouch/config/maxRunTime", "0")
    assert "out of time, reloading (stateShutdown)" in host.cli("status", "--wait=stateShutdown", "--timeout", "60")
    host.cli("status", "--wait", code=7)


@pytest.mark.parametrize("variable", ["ZEROTOUCH_DHCLIENT", "ZEROTOUCH_REAL_DHCLIENT"])
def test_a_client_that_cannot_be_executed_is_said_before_anything_is_touched(host, variable):
    for arguments in ((), ("--check",)):
        result = subprocess.run(host.command(*arguments), env={**os.environ, variable: "/etc"}, capture_output=True, text=True,
                                timeout=60)
        assert (result.returncode, result.stderr) == (
            2, f"zerotouchd: {variable}: the DHCP client '/etc' is no program that can be executed\n")
    assert not host.run_directory.exists()


def test_a_system_without_a_dhcp_client_is_told_of_at_the_start(host, monkeypatch):
    hidden = ["unshare", "-m", "sh", "-c", 'mount -t tmpfs none /usr/sbin && exec "$@"', "sh"]
    monkeypatch.setattr(host, "enter", lambda: hidden)
    assert "no DHCP client is installed: neither /sbin/dhclient nor /usr/sbin/dhclient nor /usr/sbin/dhcpcd\n" in host.start().output()


def test_the_first_event_of_a_host_tells_how_the_last_one_ended(host):
    host.start(initial_values=READY)
    for count, (how, end) in enumerate([(signal.SIGKILL, "was killed, by somebody or for want of memory"),
                                        (signal.SIGABRT, "crashed (SIGABRT)")], 2):
        host.stop(how)
        host.start(initial_values=READY)
        first = json.loads(host.cli("events", "--json"))[0]
        assert (first["name"], first["message"]) == (
            "HOST_RESTARTED", f"The host was started {count} times in this boot; the last one {end}")
    host.stop()
    host.start(initial_values=READY)
    assert host.get("/log/history/lastHostEnd") == "was stopped (Terminated)" and "HOST_RESTARTED" not in host.events()


def test_the_flash_remembers_runs_over_reboots(host):
    host.environment |= timers(0.2, INETRFACESSETUP=60)  # so that the run waits for its cancel, however busy the machine is
    memory = host.flash / "zerotouch-history"
    for damage in (None, b"", b"{", b"\0" * 100, b'{"runs": 7}', b'{"runs": [7, "x"]}', b"[" * 100000, b" " * 2000000):
        memory.unlink(missing_ok=True)
        if damage is not None:
            memory.write_bytes(damage)
            host.cli("history", code=0 if b"[7" in damage else 1)
        assert "no host is running" in host.cli("status", code=3)
    for run in (1, 2):
        host.boot_again(initial_values=READY)
        wait_for(lambda: host.get("/zerotouch/sm/currentState") != "stateInit", "a run")
        host.cli("cancel")
        wait_for(memory.exists, "the file")
        host.stop()
        assert memory.stat().st_mode & 0o777 == 0o600
        runs = json.loads(host.cli("history", "--json"))
        assert [(old["provisioned"], old["outcome"], old["attempts"]) for old in runs] == [
            (False, "an operator has cancelled provisioning", 1)] * run
        (host.flash / "zerotouch-config").unlink()  # which would keep the next run from beginning
    assert "has not provisioned the switch" in subprocess.run(
        [BUILD / "bin" / "zerotouch", "--socket", host.socket, "status"], capture_output=True, text=True, timeout=60,
        env=os.environ | host.environment).stdout
    report = json.loads(host.cli("report", "--json"))
    assert [state["state"] for state in report["states"]][-1] == "stateShutdown" and report["status"]["sm"]["reloadRequested"]
    assert host.events()[-1] == "ZTP_RELOAD"


INITIAL = "--initial-values"


@pytest.mark.parametrize("option, text, where, reason", [
    (INITIAL, '{\n "/zerotouch/config": {\n  "enabeld": true\n }\n}', 3, "enabeld"),
    (INITIAL, '{\n "/zerotouch/config": {\n', 3, ""),
    ("--config", "[system]\nnmae = 'x'\n", 2, "unknown key 'nmae' in [system] (known: cell_type, name)"),
    ("--config", "[provisioning]\n\nmax_run_time = 'forever'\n", 3,
     'expected seconds (a number from 0 on) or "unlimited"'),
    ("--config", "[host]\nreload_command = []\n", 2, 'expected a program and its arguments, as ["/sbin/reboot"]'),
    ("--config", "[logging]\nreload_command = ['A=b']\n", 2, "a program cannot have '=' in its name"),
    ("--config", "[provisioning]\nmax_download_size = 0\n", 2, "expected bytes (a whole number from 1 to 4294967295)"),
    ("--config", "[socket]\ngroup = 'no such group'\n", 2, "there is no group 'no such group'"),
    ("--config", "[dhcp]\nclient = 'dhclient'\n", 2, "'dhclient' is no absolute path of a program"),
])
def test_a_bad_file_stops_the_host_with_file_line_and_reason(host, option, text, where, reason):
    path = host.config if option == "--config" else host.folder / "bad.json"
    path.write_text(text)
    result = subprocess.run(host.command(*([option, path] if option == INITIAL else [])), capture_output=True, text=True,
                            timeout=60)
    assert result.returncode == 2
    assert f"{path}:{where}: " in result.stderr and reason in result.stderr
    assert not host.run_directory.exists()
