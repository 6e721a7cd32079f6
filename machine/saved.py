"""A machine that has booted as far as provisioning, kept so that scenes need not wait for that."""
import os
import shutil
import tempfile
import pathlib

from machine import image as images
from machine.network import Network
from machine.vm import Machine


def saved_state(image):
    """The folder with the disks of that machine, which hold its state; it is made when it is missing."""
    target = image.folder / f"saved-{images.digest(pathlib.Path(images.hardware.__file__).read_bytes())}"
    if target.exists():
        return target
    print("machine: booting the machine that the scenes start from", flush=True)
    with tempfile.TemporaryDirectory(dir=images.CACHE, prefix="making-") as work:
        folder = pathlib.Path(work)
        network = Network(f"machine-{os.getpid()}-save", folder / "network")
        machine = Machine(image, network, folder)
        try:
            network.up()
            machine.new_disks()
            machine.power_on()
            machine.boot()
            # What else starts at a boot has ended: only the wait itself and what comes after it are left.
            machine.wait(lambda: "running" not in machine.run("systemctl list-jobs --no-legend | grep -v commands.service || true"),
                         "the boot to end", 600)
            machine.run("sync")
            machine.save(folder / "result")
            shutil.move(folder / "result", target)
        finally:
            machine.cut_power()
            network.down()
    return target
