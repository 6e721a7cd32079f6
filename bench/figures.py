#!/usr/bin/env python3
"""Measures the programs of a build, those that need a network in a lab of their own.

    figures.py BUILD_DIR [PART...]    prints a table, and writes BUILD_DIR/figures.json

The parts are standing-by and signatures, which anybody can measure, on-switch, dhcp-clients, many-ports and
slow-flash.
"""
import json
import os
import pathlib
import sys


def main():
    build, parts = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]
    os.environ["ZEROTOUCH_BUILD"] = str(build)  # before the lab is imported
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
    import dhcp_clients
    import many_ports
    import measuring
    import on_switch
    import signatures
    import slow_flash
    import standing_by

    for part, needs_root in ((standing_by, False), (signatures, False), (on_switch, True), (dhcp_clients, True),
                             (many_ports, True), (slow_flash, True)):
        name = part.__name__.replace("_", "-")
        if needs_root and os.geteuid() != 0:
            print(f"{name}: only root can measure it")
        elif not parts or name in parts:
            part.measure()
    (build / "figures.json").write_text(json.dumps(measuring.recorded, indent=1) + "\n")


if __name__ == "__main__":
    main()
