"""Plays the agent against servers that this project did not choose, each case one run of a virtual switch."""
import argparse
import fnmatch
import os
import queue
import sys
import threading
import time

from interop import page, wire
from interop.case import CLIENTS, play
from interop.site import Site
from interop.table import CASES


WRITING = threading.Lock()
INTERRUPTED = threading.Event()


def work(number, waiting, results):
    """Plays waiting cases on a switch of its own until there are none."""
    site = Site(f"ztinterop-{os.getpid()}-{number}")
    try:
        site.up()
        wire.assert_that_faults_are_seen(site.folder)
        while True:
            place, (case, client) = waiting.get_nowait()
            result = play(site, case, client)
            if INTERRUPTED.is_set():  # which has ended its servers too
                break
            results[place] = result
            with WRITING:
                print(page.row(result), flush=True)
                page.write(result, CASES)
    except queue.Empty:
        pass
    finally:
        site.down()


def run(chosen, jobs):
    """The results of the cases with their clients, in their order; a worker that fails ends without a result for the rest."""
    waiting, results = queue.Queue(), {}
    for item in enumerate(chosen):
        waiting.put(item)
    workers = [threading.Thread(target=work, args=(number, waiting, results)) for number in range(jobs)]
    for worker in workers:
        worker.start()
    try:
        for worker in workers:
            worker.join()
    except KeyboardInterrupt:
        INTERRUPTED.set()
        while not waiting.empty():
            waiting.get()
        raise
    return [results[place] for place in sorted(results)]


def main():
    parser = argparse.ArgumentParser(prog="scripts/interop", description=__doc__)
    parser.add_argument("--case", default="", metavar="PATTERN",
                        help="play those whose line in --list has this in it; * and ? are wildcards")
    parser.add_argument("--client", default="both", choices=[*CLIENTS, "both"],
                        help="the DHCP client; by default both, where that makes a difference")
    parser.add_argument("--list", action="store_true", help="show the cases, and play none")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N",
                        help="how many switches side by side (default: %(default)s)")
    options = parser.parse_args()
    chosen = [case for case in CASES if fnmatch.fnmatch(case.title.lower(), f"*{options.case.lower()}*")]
    if not chosen:
        sys.exit(f"interop: no case is called '{options.case}'; --list shows them")
    if options.list:
        print("\n".join(case.title for case in chosen))
        return
    start = time.monotonic()
    runs = [(case, client) for case in chosen for client in case.clients if options.client in (client, "both")]
    results = run(runs, min(options.jobs, len(runs)))
    print("\n" + page.summary(results, time.monotonic() - start))
    sys.exit(0 if len(results) == len(runs) and all(result.result != "failed" for result in results) else 1)


if __name__ == "__main__":
    main()
