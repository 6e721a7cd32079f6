"""A flash that cannot take the configuration."""
from machine import hardware
from machine.suite import scene
from machine.switch import FLASH, waits

IMPATIENT = waits(DHCLIENTQUERY=30, CONFIGFETCHRETRY=1)


@scene("flash-full", "a full flash: every attempt fails and says why; with room again, the run completes")
def flash_full(switch):
    big = switch.serves("big", "".join(f"interface {number}\n" for number in range(100_000)))
    switch.begin(boot_file="http://{server}/big", environment=IMPATIENT,
                 prepare=f"dd if=/dev/zero of={FLASH}/filler bs=64K 2>/dev/null; sync; df {FLASH}")
    switch.wait(lambda: switch.retries() >= 2, "two retries")
    assert any("No space" in message or "bytes" in message for message in switch.events("DOWNLOAD_NOT_USABLE"))
    assert switch.flash() == ["filler", "lost+found"]
    switch.run(f"rm {FLASH}/filler")
    switch.wait_reload()
    switch.is_settled(big)


@scene("flash-read-only", "a write-protected flash: every attempt fails and says why; provisioned once it can be written")
def flash_read_only(switch):
    switch.begin(environment=IMPATIENT, flash=hardware.drive("flash", switch.machine.flash, readonly="on"))
    switch.wait(lambda: switch.retries() >= 1, "a retry")
    assert any("Read-only file system" in message for message in switch.events("DOWNLOAD_NOT_USABLE"))
    switch.cut_power()
    switch.boot_again()
    assert switch.flash() == ["lost+found"]
    switch.go()
    switch.wait_reload()
    switch.is_settled()


@scene("flash-missing", "without a flash nothing is started, and the service says so; with it, the next boot provisions")
def flash_missing(switch):
    # A machine waits for its flash for as long as it takes, so that a busy system has no influence; here it does not.
    switch.begin(prepare="systemctl mask --runtime zerotouchd; sed -i s/device-timeout=0/device-timeout=10/ /etc/fstab")
    switch.cut_power()
    switch.boot_again(flash=[])
    switch.go()
    switch.settled()
    assert switch.unit("ActiveState") != "active" and switch.unit("MainPID") == "0"
    assert "Dependency failed for zerotouchd.service" in switch.run("journalctl --no-pager --boot --output=cat")
    switch.run("sed -i s/device-timeout=10/device-timeout=0/ /etc/fstab; sync")
    switch.cut_power()
    switch.boot_again()
    switch.go()
    switch.wait_reload()
    switch.is_settled()
