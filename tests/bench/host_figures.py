#!/usr/bin/env python3
"""What a disabled agent host costs: processor time from start to idle, memory, and wake-ups while idle.

    host_figures.py BUILD_DIR [SECONDS]    prints a table, and writes BUILD_DIR/host_figures.json
"""
import json
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

from disabled_host import disabled_host


def processor_ms(pid):
    """Time on a processor so far, from the scheduler's own count."""
    return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[0]) / 1e6


def memory_kib(pid):
    rollup = dict(line.split(":", 1) for line in
                  pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:])
    return {name: int(rollup[key].split()[0]) for name, key in (("resident", "Rss"), ("anonymous", "Anonymous"))}


def wakeups(pid, seconds):
    """System calls that the idle process makes; none means that it was not woken at all."""
    strace = subprocess.Popen(["strace", "-f", "-qq", "-e", "signal=none", "-o", "/dev/stdout", "-p", str(pid)],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    time.sleep(seconds)
    strace.send_signal(signal.SIGINT)
    lines = strace.communicate()[0].splitlines()
    # The wait during which strace arrives and leaves is interrupted by it, not by the host.
    return [line for line in lines if "epoll_wait" not in line and "restart_syscall" not in line
            and "epoll_pwait" not in line]


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 10
    with tempfile.TemporaryDirectory() as folder:
        host = disabled_host(build, folder)
        try:
            time.sleep(0.5)
            figures = {"start_to_idle_ms": round(processor_ms(host.process.pid), 2), **memory_kib(host.process.pid)}
            woken = wakeups(host.process.pid, seconds)
            figures |= {"idle_seconds": seconds, "system_calls_while_idle": len(woken)}
        finally:
            host.stop()
    print(f"{'Disabled host':32} {'Measured':>12}   Goal")
    print(f"{'processor time, start to idle':32} {figures['start_to_idle_ms']:9} ms   at most 50 ms")
    print(f"{'resident memory':32} {figures['resident']:8} KiB   at most 12288 KiB")
    print(f"{'anonymous memory':32} {figures['anonymous']:8} KiB")
    print(f"{'system calls in ' + str(seconds) + ' s idle':32} {len(woken):12}   none (but the watchdog's)")
    print("".join(f"  {line}\n" for line in woken[:10]), end="")
    (build / "host_figures.json").write_text(json.dumps(figures, indent=1) + "\n")


if __name__ == "__main__":
    main()
