"""The agent host and its command line, as an operator meets them."""
import signal
import socket
import subprocess

import pytest

from lab.polling import wait_for

READY = {"/entityMib/status": {"systemMacAddr": "02:00:00:00:00:01", "root": {"initStatus": "initialized"}}}


def test_a_run_starts_when_the_inventory_becomes_ready(host):
    host.start("--open-tree", initial_values={"/entityMib/status": {"root": {"initStatus": "uninitialized"}}})
    assert host.get("/zerotouch/sm/currentState") == "stateInit"
    assert host.events() == []
    host.cli("set", "/entityMib/status/root/initStatus", "initialized")
    wait_for(lambda: host.get("/zerotouch/sm/retryCount") >= 2, "two retries")
    assert host.events()[:3] == ["ZTP_INIT", "ZTP_RETRY", "ZTP_RETRY"]
    assert "ZTP_INIT: No startup-config found, starting Zero Touch Provisioning" in host.output()
    assert host.get("/zerotouch/status/enabled") is True


def test_an_operator_disables_enables_and_cancels(host):
    host.start(initial_values=READY)
    host.wait_state("stateRetry")
    host.cli("disable")
    host.wait_state("stateInit")
    assert "not enabled" in host.cli("cancel", code=1)
    host.cli("enable")
    wait_for(lambda: host.get("/zerotouch/sm/currentState") != "stateInit", "a new run")
    host.cli("cancel")
    host.wait_state("stateShutdown")
    assert host.events()[-2:] == ["ZTP_CANCEL", "ZTP_RELOAD"]
    assert host.get("/system/reload/reason") == "ZTP RELOAD"
    assert (host.flash / "zerotouch-config").read_text() == "DISABLE=NextReload\n"
    assert "stateShutdown" in host.cli("status") or "reload" in host.cli("status")


@pytest.mark.parametrize("socket_elsewhere", [False, True])
def test_a_cancelled_system_stays_off_for_one_boot(host, socket_elsewhere):
    if socket_elsewhere:  # then nothing but the mark lies in the run directory
        host.socket = host.folder / "statebase.sock"
        host.config.write_text(host.config.read_text() + f'[socket]\npath = "{host.socket}"\n')
    (host.flash / "zerotouch-config").write_text("KEEP=me\nDISABLE=NextReload\n")
    for _ in range(2):  # the second host of the same boot finds the entry consumed, and stays off all the same
        host.start(initial_values=READY)
        assert "provisioning is off" in host.output()
        assert host.get("/zerotouch/config/enabled") is False
        host.stop()
        assert (host.flash / "zerotouch-config").read_text() == "KEEP=me\n"
    (host.run_directory / "disabled-for-this-boot").unlink()  # what a reboot does
    host.start(initial_values=READY)
    assert host.get("/zerotouch/config/enabled") is True


def test_a_startup_configuration_keeps_provisioning_off(host):
    (host.flash / "startup-config").write_text("hostname done\n")
    host.start(initial_values=READY)
    assert host.get("/zerotouch/config/enabled") is False
    assert host.get("/zerotouch/sm/currentState") == "stateInit"
    assert host.stop() == 0
    assert not host.socket.exists()


@pytest.mark.parametrize("document, where, reason", [
    ('{"/entityMib/status": {"root": {"initStatus": "done"}}}', 1, "initialized"),
    ('{\n "/zerotouch/config": {\n  "enabeld": true\n }\n}', 3, "enabeld"),
    ('{\n "/nowhere": {}\n}', 2, "/nowhere"),
    ('{\n "/zerotouch/config": {\n', 3, ""),
])
def test_bad_initial_values_stop_the_host_with_file_line_and_reason(host, document, where, reason):
    path = host.folder / "bad.json"
    path.write_text(document)
    result = subprocess.run(host.command("--initial-values", str(path)), capture_output=True, text=True, timeout=20)
    assert result.returncode == 2
    assert f"{path}:{where}: " in result.stderr and reason in result.stderr
    assert not host.run_directory.exists()


@pytest.mark.parametrize("text, where, reason", [
    ("[system]\nnmae = 'x'\n", 2, "unknown key 'nmae' in [system] (known: cell_type, name)"),
    ("[sytem]\n", 1, "unknown section [sytem]"),
    ("[provisioning]\n\nmax_run_time = 'forever'\n", 3, 'expected seconds (a number from 0 on) or "unlimited"'),
    ("[host]\nreload_command = []\n", 2, 'expected a program and its arguments, as ["/sbin/reboot"]'),
    ("[logging]\nreload_command = ['A=b']\n", 2, "a program cannot have '=' in its name"),
    ("[provisioning]\nscript_exec_timeout = -1\n", 2, "expected seconds"),
    ("[provisioning]\nmax_download_size = 0\n", 2, "expected bytes (a whole number from 1 to 4294967295)"),
    ("[socket]\ngroup = 'no such group'\n", 2, "there is no group 'no such group'"),
    ("[dhcp]\nclient = 'dhclient'\n", 2, "'dhclient' is no absolute path of a program"),
    ("[system\n", 1, ""),
])
def test_a_bad_platform_file_stops_the_host_with_file_line_and_reason(host, text, where, reason):
    host.config.write_text(text)
    result = subprocess.run(host.command(), capture_output=True, text=True, timeout=20)
    assert result.returncode == 2
    assert f"{host.config}:{where}: " in result.stderr and reason in result.stderr


def test_a_second_host_says_which_process_holds_the_socket(host):
    host.start(initial_values=READY)
    second = subprocess.run(host.command(), capture_output=True, text=True, timeout=20)
    assert second.returncode == 1
    assert str(host.process.pid) in second.stderr and str(host.socket) in second.stderr
    assert host.get("/zerotouch/config/enabled") is True
    pid = host.process.pid
    host.stop(signal.SIGKILL)  # leaves its socket behind, which the next one replaces
    assert host.socket.exists()
    host.start(initial_values=READY)
    assert host.process.pid != pid


def test_the_command_line_names_what_is_wrong(host):
    assert str(host.socket) in host.cli("status", code=3)
    host.start(initial_values=READY)
    assert "frobnicate" in host.cli("frobnicate", code=2)
    assert "/zerotouch/nowhere" in host.cli("get", "/zerotouch/nowhere", code=1)
    assert "/zerotouch/config/maxRunTime" in host.cli("set", "/zerotouch/config/maxRunTime", "soon", code=1)
    assert "/system/reload" in host.cli("set", "/system/reload/reason", "mine", code=1)
    host.cli("set", "/zerotouch/config/maxRunTime", "unlimited")
    host.cli("set", "/zerotouch/config/scriptExecTimeout", "60")
    assert host.get("/zerotouch/config") == {"enabled": True, "cancelled": False, "scriptExecTimeout": 60,
                                             "maxDownloadSize": 268435456, "maxRunTime": "unlimited"}


def test_garbage_on_the_socket_harms_nobody(host):
    host.start(initial_values=READY)
    silent = []
    for message in (b"\0\xff garbage\n", b"{" * 70000, b'{"jsonrpc":"2.0","id":1,"method":"get"', b"[]\n" * 5000):
        client = socket.socket(socket.AF_UNIX)
        client.connect(str(host.socket))
        client.settimeout(20)
        try:
            client.sendall(message)
        except (BrokenPipeError, ConnectionResetError):
            pass
        silent.append(client)  # never read from
    assert host.get("/zerotouch/config/enabled") is True
    for client in silent:
        client.close()
    assert host.process.poll() is None
