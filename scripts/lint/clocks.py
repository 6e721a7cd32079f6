#!/usr/bin/env python3
"""Checks that nothing outside platform/kel reads a system clock or sleeps: time is injected, so that tests can be
simulated and nothing steps back when somebody sets the clock. The two short programs around the DHCP client are on
their own: they have no loop, and end themselves by an alarm."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
ALLOWED = ("platform/kel/", "programs/zerotouch-dhclient/", "programs/zerotouch-dhclient-script/")
FORBIDDEN = re.compile(r"\b(clock_gettime|gettimeofday|usleep|nanosleep|clock_nanosleep|sleep|sleep_for|sleep_until|"
                       r"system_clock|steady_clock|high_resolution_clock|timerfd_create|alarm|setitimer)\b\s*[(:]"
                       r"|[^\w.>:]time\s*\(\s*(nullptr|NULL|0|&\w+)\s*\)|std::time\s*\(")


def main():
    found = []
    for folder in ("platform", "zerotouch", "programs", "bench", "fleet", "tests"):
        for path in sorted((ROOT / folder).rglob("*")):
            name = path.relative_to(ROOT).as_posix()
            if path.suffix not in (".h", ".cc") or name.startswith(ALLOWED):
                continue
            for number, line in enumerate(path.read_text().splitlines(), 1):
                match = FORBIDDEN.search(line.split("//")[0])
                if match:
                    found.append(f"{name}:{number}: {match.group(0).strip()} outside platform/kel")
    print("\n".join(found) if found else "clocks: ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
