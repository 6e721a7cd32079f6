"""The disks that a machine boots from: Debian with the package, installed by apt, and an empty flash.

They are made once and kept. Debian's files take minutes and are made again when RECIPE changes; the disk with the package
is made again whenever the package or a file of this folder does."""
import fcntl
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from lab.namespace import run
from machine import hardware

CACHE = pathlib.Path(os.environ.get("ZEROTOUCH_MACHINE_CACHE", pathlib.Path.home() / ".cache" / "zerotouch-machine"))
GUEST = pathlib.Path(__file__).resolve().parent / "guest"
SIZE, FLASH_SIZE = "3G", "256M"

PACKAGES = ("linux-image-amd64 initramfs-tools zstd systemd-sysv systemd-timesyncd udev dbus kmod iproute2 ethtool procps "
            "e2fsprogs apparmor rsyslog libcurl4 libre2-9 libnl-route-3-200 apt ca-certificates "
            "libgcc-s1 libstdc++6").split()
CLIENTS = {"dhclient": "isc-dhcp-client", "dhcpcd": "dhcpcd-base"}  # of which an image has one
MASKED = ("apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer fstrim.timer e2scrub_all.timer e2scrub_reap.service "
          "logrotate.timer systemd-timesyncd.service getty@tty1.service serial-getty@ttyS0.service "
          "systemd-update-utmp.service systemd-update-utmp-runlevel.service systemd-logind.service systemd-user-sessions.service "
          "modprobe@.service systemd-binfmt.service dev-hugepages.mount dev-mqueue.mount sys-kernel-debug.mount "
          "sys-kernel-tracing.mount sys-fs-fuse-connections.mount proc-sys-fs-binfmt_misc.automount systemd-pcrphase.service systemd-pcrphase-sysinit.service networking.service").split()
# Only what a machine here has in it, so that the kernel unpacks it quickly.
RECIPE = r"""
sed -i 's/^MODULES=.*/MODULES=list/; s/^COMPRESS=.*/COMPRESS=lz4/' etc/initramfs-tools/initramfs.conf
printf '%s\n' virtio_pci virtio_blk virtio_console ext4 >>etc/initramfs-tools/modules
chroot . update-initramfs -u -k all
rm -rf usr/share/{doc,man,locale,info} var/lib/apt/lists/* var/cache/apt/*.deb
"""
FILES = {
    "etc/fstab": "/dev/vda / ext4 defaults 0 0\n"
                 "LABEL=flash /mnt/flash ext4 nofail,x-systemd.device-timeout=0 0 0\n",
    "etc/hostname": "switch\n",
    "etc/hosts": "127.0.0.1 localhost switch\n",
    "etc/kvo-version": "KVO_VERSION=7.2.1\n",
    "etc/arch": "x86_64\n",
    "etc/resolv.conf": "# no name server is known yet\n",
    "etc/machine-id": "0123456789abcdef0123456789abcdef\n",
}
# What the machine has and the scenes do not use.
UNUSED = "psmouse evdev joydev pcspkr i2c_piix4 sg sr_mod ata_generic ata_piix libata floppy bochs parport_pc serio_raw".split()
PLATFORM = """[ports]
devices = ["et*", "ma*", "bond*"]
names = [{ device = "et(.*)", shown = "Ethernet\\\\1" }, { device = "ma(.*)", shown = "Management\\\\1" },
         { device = "bond(.*)", shown = "Port-Channel\\\\1" }]
"""


class Image:
    """What a machine boots from. `key` tells one image from another."""

    def __init__(self, folder):
        self.folder, self.key = folder, folder.name
        self.disk, self.flash = folder / "disk.raw", folder / "flash.raw"
        self.kernel, self.initrd = folder / "vmlinuz", folder / "initrd.img"


def digest(*parts):
    return hashlib.sha256(b"\0".join(part if isinstance(part, bytes) else str(part).encode() for part in parts)).hexdigest()[:16]


def image(package, client="dhclient"):
    """The image with that Debian package and that DHCP client. The one before it is kept, since its machines may still run; older ones go."""
    CACHE.mkdir(parents=True, exist_ok=True)
    with open(CACHE / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        own = sorted(file for file in GUEST.iterdir() if file.is_file())
        base = debian(client)
        key = digest(base.name, package.read_bytes(), pathlib.Path(__file__).read_bytes(), *(file.read_bytes() for file in own),
                     repr(hardware.PORTS))
        folder = CACHE / f"image-{key}"
        if not folder.exists():
            for old in sorted(CACHE.glob("image-*"), key=lambda folder: folder.stat().st_mtime)[:-1]:
                shutil.rmtree(old)
            with tempfile.TemporaryDirectory(dir=CACHE, prefix="making-") as work:
                make(base, package, pathlib.Path(work))
                (pathlib.Path(work) / "result").rename(folder)
        return Image(folder)


def debian(client):
    """Debian's files, as one archive."""
    packages = [*PACKAGES, CLIENTS[client]]
    kind = "debian" if client == "dhclient" else f"{client}-debian"
    archive = CACHE / f"{kind}-{digest(' '.join(packages), RECIPE)}.tar"
    if not archive.exists():
        print("machine: fetching Debian, which takes minutes the first time", flush=True)
        with tempfile.TemporaryDirectory(dir=CACHE, prefix="making-") as work:
            recipe = pathlib.Path(work) / "recipe"
            recipe.write_text(f"#!/bin/bash\nset -e\ncd \"$1\"\n{RECIPE}")
            recipe.chmod(0o755)
            made = pathlib.Path(work) / "debian.tar"
            run("mmdebstrap", "--variant=minbase", "--include=" + ",".join(packages), f"--customize-hook={recipe}",
                "bookworm", made, "http://deb.debian.org/debian")
            for old in CACHE.glob(f"{kind}-*.tar"):
                old.unlink()
            made.rename(archive)
    return archive


def make(base, package, work):
    root, result = work / "root", work / "result"
    for folder in (root, result):
        folder.mkdir()
    run("tar", "-xf", base, "-C", root)
    run("mkdir", "-p", root / "mnt" / "flash")
    for name, text in FILES.items():
        file = root / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.unlink(missing_ok=True)
        file.write_text(text)
    (root / "etc" / "modprobe.d" / "unused.conf").write_text("".join(f"blacklist {module}\n" for module in UNUSED))
    for name, port in hardware.PORTS.items():  # ports have the names of a switch, by their addresses
        link = f"[Match]\nPermanentMACAddress={port.mac}\n[Link]\nName={name}\n"
        (root / "etc" / "systemd" / "network").mkdir(parents=True, exist_ok=True)
        (root / "etc" / "systemd" / "network" / f"10-{name}.link").write_text(link)
    shutil.copy(GUEST / "commands", root / "usr" / "local" / "sbin" / "commands")
    shutil.copy(GUEST / "commands.service", root / "etc" / "systemd" / "system" / "commands.service")
    shutil.copy(package, root / "root" / "zerotouch.deb")
    newer(package, work / "newer", root / "root" / "newer.deb")
    in_root(root, "apt-get", "install", "-y", "-qq", "--no-install-recommends", "/root/zerotouch.deb")
    in_root(root, "systemctl", "enable", "--quiet", "commands.service")
    in_root(root, "systemctl", "mask", "--quiet", *MASKED)
    platform = root / "etc" / "zerotouch" / "platform.toml"
    platform.write_text(PLATFORM)
    shutil.copy(next((root / "boot").glob("vmlinuz-*")), result / "vmlinuz")
    shutil.copy(next((root / "boot").glob("initrd.img-*")), result / "initrd.img")
    file_system(result / "disk.raw", SIZE, "-d", root)
    file_system(result / "flash.raw", FLASH_SIZE, "-L", "flash")


def newer(package, folder, result):
    """The same package with a higher version, for an upgrade."""
    run("dpkg-deb", "--raw-extract", package, folder)
    control = folder / "DEBIAN" / "control"
    control.write_text(re.sub(r"(?m)^Version: .*", r"\g<0>+newer", control.read_text()))
    run("dpkg-deb", "--root-owner-group", "--build", folder, result)


def in_root(root, *argv):
    """Runs a program of the image, as a part of its installation: no service is started."""
    policy = root / "usr" / "sbin" / "policy-rc.d"
    policy.write_text("#!/bin/sh\nexit 101\n")
    policy.chmod(0o755)
    environment = {"PATH": os.environ["PATH"], "DEBIAN_FRONTEND": "noninteractive", "LC_ALL": "C"}
    result = subprocess.run(["chroot", root, *argv], env=environment, capture_output=True, text=True, stdin=subprocess.DEVNULL)
    policy.unlink()
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(argv)}: {result.stdout}{result.stderr}")


def file_system(path, size, *options):
    run("truncate", "-s", size, path)
    run("mke2fs", "-q", "-t", "ext4", *options, path)
