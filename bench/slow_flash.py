"""A large startup configuration onto a slow flash, and the signs of life that the watchdog gets meanwhile."""
import os
import pathlib
import socket
import time

from lab.namespace import run
from measuring import a_lab, record

SIZE = 256 << 20
RATE = 4 << 20  # bytes a second that the flash takes: written at once, this would last for 64 s
SOURCE = pathlib.Path(__file__).resolve().parents[1] / "lab" / "slow_flash.c"


def signs_of_life(notified, lab):
    """When the watchdog got one while the copy went on, and then when the copy was complete."""
    copy, times = lab.host.flash / "startup-config.zerotouch-new", []
    while not lab.host.reload_requested():
        try:
            said = notified.recv(4096)
        except TimeoutError:
            continue
        if b"WATCHDOG=1" in said and copy.exists():
            times.append(time.monotonic())
    return times + [time.monotonic()]


def measure():
    with a_lab(1) as lab, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notified:
        lab.serve_files()
        with open(lab.www / "large", "wb") as file:
            file.truncate(SIZE)
        library = lab.folder / "slow_flash.so"
        run("cc", "-shared", "-fPIC", "-o", library, SOURCE)
        notified.bind(str(lab.folder / "notify"))
        notified.settimeout(0.2)
        lab.host.environment |= {
            "LD_PRELOAD": str(library), "SLOW_FLASH": str(lab.host.flash), "SLOW_FLASH_RATE": str(RATE),
            "NOTIFY_SOCKET": str(lab.folder / "notify"), "WATCHDOG_USEC": "120000000"}
        lab.begin("dhcpv4", "http://{server}/large", INETRFACESSETUP=0.5, SYSIDENTITYSETUP=0.5, DHCLIENTQUERY=15)
        lab.switch.run("mount", "-o", f"remount,size={SIZE + (16 << 20)}", "/tmp")
        times = signs_of_life(notified, lab)
        assert os.stat(lab.host.flash / "startup-config").st_size == SIZE
        record("256 MiB onto a flash of 4 MiB/s", "s", [times[-1] - times[0]])
        record("longest time without a sign of life meanwhile", "s",
               [max(after - before for before, after in zip(times, times[1:]))], "at most 30")
