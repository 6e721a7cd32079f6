"""The scenes, and what runs them: scripts/machine starts it."""
import argparse
import concurrent.futures
import importlib
import os
import pathlib
import sys
import threading
import time
import traceback
from typing import Callable, NamedTuple

from lab.host import ROOT
from lab.namespace import run
from machine import image as images
from machine import page
from machine.saved import saved_state
from machine.switch import Switch

GROUPS = ("provisioning", "power", "flash", "ports", "service")
RUNS = ROOT / "build" / "machine"  # where a scene that failed leaves its files


class Scene(NamedTuple):
    name: str
    what: str
    play: Callable


class Outcome(NamedTuple):
    name: str
    seconds: float
    failure: str  # empty when the scene went well


SCENES = {}
ONLY_WITH = {"apparmor": "dhclient"}  # scenes that are about one DHCP client


def scene(name, what):
    def add(function):
        SCENES[name] = Scene(name, what, function)
        return function
    return add


def play(scene, image, saved):
    started = time.monotonic()
    switch = Switch(f"machine-{os.getpid()}-{scene.name}", image, saved, RUNS / scene.name)
    failure = ""
    try:
        scene.play(switch)
        switch.healthy()
    except Exception as error:  # whatever went wrong is the result of this scene, and others go on
        frames = [frame for frame in traceback.extract_tb(error.__traceback__) if "/scenes/" in frame.filename]
        where = f"{pathlib.Path(frames[-1].filename).name}:{frames[-1].lineno}: {frames[-1].line}\n" if frames else ""
        failure = f"{where}{type(error).__name__}: {error}"
    finally:
        switch.close(keep=bool(failure))
    return Outcome(scene.name, time.monotonic() - started, failure)


def follow(file, stop):
    """Shows what is added to a file, until it is told to stop."""
    shown = 0
    while not stop.wait(0.5):
        if file.exists():
            text = file.read_text(errors="replace")
            print(text[shown:] if len(text) >= shown else text, end="", flush=True)
            shown = len(text)


def show(outcome):
    print(f"{outcome.name:24} {'failed' if outcome.failure else 'passed':8}{outcome.seconds:6.0f} s  "
          f"{SCENES[outcome.name].what}", flush=True)
    if outcome.failure:
        print("    " + outcome.failure.replace("\n", "\n    ") + f"\n    its files are in {RUNS / outcome.name}", flush=True)


def main():
    for group in GROUPS:
        importlib.import_module(f"machine.scenes.{group}")
    parser = argparse.ArgumentParser(prog="scripts/machine", description="Boots virtual machines with the package, and "
                                     "lets them provision themselves. Without --scene, all scenes are played.")
    parser.add_argument("--list", action="store_true", help="list the scenes")
    parser.add_argument("--scene", action="append", choices=list(SCENES), metavar="NAME", default=[],
                        help="play this one and show its console; may be given more than once")
    parser.add_argument("--jobs", type=int, default=2, help="machines that run side by side (default: %(default)s)")
    parser.add_argument("--package", type=pathlib.Path, help="the Debian package, by default that of scripts/package")
    parser.add_argument("--client", choices=images.CLIENTS, default="dhclient",
                        help="the DHCP client that the machines have, and no other (default: %(default)s)")
    options = parser.parse_args()
    if options.list:
        for one in SCENES.values():
            print(f"{one.name:24} {one.what}")
        return
    package = options.package or next((ROOT / "build" / "release").glob("*.deb"))
    version = run("dpkg-deb", "-f", package, "Version").strip()
    image = images.image(package, options.client)
    saved = saved_state(image)
    wanted = [SCENES[name] for name in options.scene or SCENES if ONLY_WITH.get(name, options.client) == options.client]
    stop = threading.Event()
    if len(wanted) == 1:
        threading.Thread(target=follow, args=(RUNS / wanted[0].name / "console.log", stop)).start()
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        outcomes = []
        for done in concurrent.futures.as_completed([pool.submit(play, one, image, saved) for one in wanted]):
            outcomes.append(done.result())
            show(outcomes[-1])
            if options.client == parser.get_default("client"):
                page.write(outcomes[-1], SCENES, version)
    stop.set()
    failed = sum(1 for outcome in outcomes if outcome.failure)
    print(f"{len(outcomes) - failed} passed, {failed} failed")
    sys.exit(1 if failed else 0)
