#!/usr/bin/env python3
"""Checks who includes whom.

The agent sees entities only, so that it runs unchanged on any platform that mounts them; nothing includes a program;
each outside library is used by the rooms that it is meant for.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# What a room may include of the project, besides itself.
ROOMS = {
    "platform/kel": [],
    "platform/model": ["platform/kel"],
    "platform/statebase": ["platform/kel", "platform/model"],
    "platform/linux": ["platform/kel", "platform/model"],
    "zerotouch": ["platform/kel", "platform/model"],
    "programs": ["platform", "zerotouch"],
    "bench": ["platform", "zerotouch"],
    "fleet": ["platform", "zerotouch", "tests"],
    "tests": ["platform", "zerotouch", "programs"],
}

# Outside libraries, and the rooms that may include them.
LIBRARIES = {
    r"systemd/": ["platform/kel", "programs", "tests"],
    r"nlohmann/": ["platform/statebase", "programs", "fleet", "tests"],
    r"netlink/|re2/": ["platform/linux", "tests"],
    r"linux/|net/|netinet/|netpacket/": ["platform/linux", "platform/model", "tests"],
    r"curl/": ["zerotouch/fetch", "programs/zerotouch-reporter", "tests"],
    r"openssl/": ["zerotouch/trust"],
    r"toml\+\+/|CLI/": ["programs"],
    r"gtest/|gmock/": ["tests"],
    r"benchmark/": ["bench"],
}


def within(path, folders):
    return any(path == folder or path.startswith(folder + "/") for folder in folders)


def problems(path):
    name = path.relative_to(ROOT).as_posix()
    room = next((room for room in ROOMS if within(name, [room])), None)
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = re.match(r'\s*#\s*include\s+(["<])([^">]+)[">]', line)
        if not match or room is None:
            continue
        own, header = match.group(1) == '"', match.group(2)
        if own and not within(header, [room, *ROOMS[room]]):
            yield f"{name}:{number}: {room} may not include {header}"
        if not own:
            for pattern, rooms in LIBRARIES.items():
                if re.match(pattern, header) and not within(name, rooms):
                    yield f"{name}:{number}: {header} belongs to {', '.join(rooms)}"


def main():
    found = [problem for folder in ("platform", "zerotouch", "programs", "bench", "fleet", "tests")
             for path in sorted((ROOT / folder).rglob("*")) if path.suffix in (".h", ".cc")
             for problem in problems(path)]
    print("\n".join(found) if found else "includes: ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
