"""A host that only stands by, and the programs that talk to it: the hook of the DHCP client and the command line."""
import os
import pathlib
import signal
import socket
import subprocess
import sys
import tempfile
import time

from lab.host import BUILD, Host
from lab.polling import wait_for
from measuring import memory_kib, record

IDLE = 10  # seconds
HOOK = str(BUILD / "bin" / "zerotouch-dhclient-script")
ANSWER = {
    "reason": "BOUND", "interface": "et1", "new_ip_address": "10.0.1.50", "new_subnet_mask": "255.255.255.0",
    "new_routers": "10.0.1.1", "new_domain_name_servers": "10.0.1.2 10.0.1.3", "new_interface_mtu": "1400",
    "new_rfc3442_classless_static_routes": "16 10 8 10 0 1 7 0 10 0 1 1", "new_host_name": "switch-a",
    "new_domain_name": "example.com", "new_log_servers": "10.0.1.4", "new_bootfile_name": "http://10.0.1.1/cfg"}


def system_calls(pid):
    """The system calls of an idle process; there are none when it is not woken at all."""
    strace = subprocess.Popen(["strace", "-f", "-qq", "-e", "signal=none", "-o", "/dev/stdout", "-p", str(pid)],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    time.sleep(IDLE)
    strace.send_signal(signal.SIGINT)
    # The wait during which strace arrives and leaves is interrupted by it, not by the host.
    waits = ("epoll_wait", "epoll_pwait", "restart_syscall")
    return [line for line in strace.communicate()[0].splitlines() if not any(wait in line for wait in waits)]


def run_times(runs, environment, *argv):
    """Milliseconds from the start of a program to its end."""
    times = []
    with open(os.devnull, "w", encoding="ascii") as nowhere:
        output = [(os.POSIX_SPAWN_DUP2, nowhere.fileno(), 1)]
        for _ in range(runs):
            before = time.monotonic()
            pid = os.posix_spawn(argv[0], argv, environment, file_actions=output)
            if os.waitpid(pid, 0)[1] != 0:
                sys.exit(f"failed: {' '.join(argv)}")
            times.append((time.monotonic() - before) * 1000)
    return times


def hook_peak_kib(path):
    """While it waits to be accepted: by then all of it is loaded, and its message is made."""
    listener, first = socket.socket(socket.AF_UNIX), socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen(0)
    first.connect(path)
    process = subprocess.Popen([HOOK], env={**ANSWER, "STATEBASESOCKNAME": path}, stderr=subprocess.DEVNULL)
    status = pathlib.Path(f"/proc/{process.pid}")
    wait_for(lambda: "unix_wait_for_peer" in (status / "wchan").read_text(), "the hook to wait to be accepted")
    fields = dict(line.split(":", 1) for line in (status / "status").read_text().splitlines())
    process.wait()
    return int(fields["VmHWM"].split()[0])


def measure():
    with tempfile.TemporaryDirectory() as folder:
        host = Host(pathlib.Path(folder)).prepare()
        (host.flash / "startup-config").write_text("")
        pid = host.start().process.pid
        try:
            time.sleep(0.5)
            processor = pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[0]  # the scheduler's own count
            record("disabled host: processor time, start to idle", "ms", [int(processor) / 1e6], "at most 50")
            resident, anonymous = memory_kib(pid)
            record("disabled host: resident memory", "KiB", [resident], "at most 12288")
            record("disabled host: anonymous memory", "KiB", [anonymous])
            calls = system_calls(pid)
            record(f"disabled host: system calls in {IDLE} s idle", "", [len(calls)], "none but the watchdog's")
            print("".join(f"  {line}\n" for line in calls[:10]), end="")
            environment = {"STATEBASESOCKNAME": str(host.socket)}
            times = run_times(50, environment, str(BUILD / "bin" / "zerotouch"), "status")
            record("zerotouch status: start to end", "ms", times, "at most 20")
            record("DHCP hook: start to end", "ms", run_times(300, ANSWER | environment, HOOK), "at most 10")
            record("DHCP hook: peak resident memory", "KiB", [hook_peak_kib(f"{folder}/full")], "at most 6144")
        finally:
            host.stop()
