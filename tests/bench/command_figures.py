#!/usr/bin/env python3
"""How long a person waits for the command line: time from start to end against a running host.

    command_figures.py BUILD_DIR    prints a table, and writes BUILD_DIR/command_figures.json
"""
import json
import os
import pathlib
import statistics
import sys
import tempfile
import time

from disabled_host import disabled_host

RUNS = 50
VERBS = ("status", "ports", "events", "report")
GOAL = {"status": "at most 20 ms"}


def run_times(program, verb, environment, nowhere):
    times = []
    for _ in range(RUNS):
        before = time.monotonic()
        pid = os.posix_spawn(program, [program, verb], environment, file_actions=[(os.POSIX_SPAWN_DUP2, nowhere, 1)])
        if os.waitpid(pid, 0)[1] != 0:
            sys.exit(f"zerotouch {verb} failed")
        times.append((time.monotonic() - before) * 1000)
    return times


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    program = str(build / "bin" / "zerotouch")
    figures = {"runs": RUNS}
    print(f"{'Command line':32} {'Median':>9}    {'Worst':>9}      Goal")
    with tempfile.TemporaryDirectory() as folder, open(os.devnull, "w", encoding="ascii") as nowhere:
        host = disabled_host(build, folder)
        try:
            for verb in VERBS:
                times = run_times(program, verb, {"STATEBASESOCKNAME": str(host.socket)}, nowhere.fileno())
                figures[verb] = {"median_ms": round(statistics.median(times), 2), "worst_ms": round(max(times), 2)}
                print(f"{'zerotouch ' + verb:32} {figures[verb]['median_ms']:9} ms {figures[verb]['worst_ms']:9} ms   "
                      f"{GOAL.get(verb, '')}")
        finally:
            host.stop()
    (build / "command_figures.json").write_text(json.dumps(figures, indent=1) + "\n")


if __name__ == "__main__":
    main()
