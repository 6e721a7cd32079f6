"""What a machine consists of. Two machines with the same list are alike, so that one goes on where the other was saved."""
from typing import NamedTuple

from lab.server_side import mac

MEMORY = 512  # MiB


class Port(NamedTuple):
    number: int
    model: str

    @property
    def mac(self):
        return mac(1, self.number)


# The e1000 has a speed that can be set, the virtual ones have none.
PORTS = {"et1": Port(1, "e1000"), "et2": Port(2, "e1000"), "et3": Port(3, "virtio-net-pci"), "et4": Port(4, "virtio-net-pci")}
MODEL, SERIAL, REVISION = "VM-4", "VM0001", "02"


def drive(name, file, **options):
    """A disk of the machine, whose file is changed by the machine."""
    more = "".join(f",{key.replace('_', '-')}={value}" for key, value in options.items())
    return ["-drive", f"if=none,id={name},file={file},format=qcow2,discard=unmap{more}",
            "-device", f"virtio-blk-pci,drive={name},id=disk-{name}"]


def arguments(image, disk, flash, folder, devices, start=(), clock="utc"):
    """The command line of QEMU. `devices` maps ports to the devices of this system that they lead to; without `flash` the
    machine has none."""
    argv = ["qemu-system-x86_64", "-accel", "tcg,thread=multi,tb-size=256", "-cpu", "max,la57=off", "-smp", "2",
            "-m", str(MEMORY), "-nodefaults", "-no-user-config", "-display", "none", "-msg", "timestamp=on",
            "-rtc", f"base={clock}",
            "-smbios", f"type=1,manufacturer=Machine,product={MODEL},serial={SERIAL},version={REVISION}",
            "-kernel", image.kernel, "-initrd", image.initrd,
            "-append", "root=/dev/vda rw console=ttyS0 net.ifnames=0 quiet loglevel=4 mitigations=off nowatchdog "
                       "systemd.show_status=0 systemd.journald.forward_to_console=1 apparmor=1 security=apparmor",
            "-device", "virtio-rng-pci",
            "-chardev", f"file,id=console,path={folder}/console.log,append=on", "-serial", "chardev:console",
            "-device", "virtio-serial-pci",
            "-chardev", f"socket,id=commands,path={folder}/commands,server=on,wait=off",
            "-device", "virtserialport,chardev=commands,name=commands",
            "-qmp", f"unix:{folder}/qmp,server=on,wait=off"]
    argv += drive("root", disk)
    argv += flash or []
    for name, port in PORTS.items():
        argv += ["-netdev", f"tap,id=net-{name},ifname={devices[name]},script=no,downscript=no",
                 "-device", f"{port.model},id={name},netdev=net-{name},mac={port.mac},romfile="]
    return [*map(str, argv), *start]
