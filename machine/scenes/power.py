"""The power fails, and the switch is switched on again."""
from machine.suite import scene
from machine.switch import CONFIG, HASTY, waits

ENDLESS = "#!/bin/sh\nsleep 10000\n"
LONG = 3600
# The states that last: who answers with which boot file, and the timers that keep a run there.
STATES = {
    "stateSetupInterfaces": (None, "", {"INETRFACESSETUP": LONG}),
    "stateDhcpQuery": (None, "", {"DHCLIENTQUERY": LONG}),
    "stateStatelessDhcpQuery": ("ra-stateless", "", {"INETRFACESSETUP": 6, "DHCLIENTQUERY": 4, "STATELESSDHCLIENTQUERY": LONG}),
    "stateFetchConfig": ("dhcpv4", "http://{server}:8080/slow", {"CONFIGFETCH": LONG}),
    "stateRetryFetchConfig": ("dhcpv4", "http://{server}:8080/404", {"CONFIGFETCHRETRY": LONG}),
    "stateCopyConfigOrExecScript": ("dhcpv4", "http://{server}/script", {}),
    "stateRetry": (None, "", {"DHCLIENTQUERY": 4, "RETRY": LONG}),
}


@scene("cut-in-each-state", "the power fails in each state that lasts; the next boot provisions again")
def cut_in_each_state(switch):
    switch.serves("script", ENDLESS)
    for place, (state, (scenario, boot_file, own)) in enumerate(STATES.items()):
        environment = waits(**own)
        if place == 0:
            switch.begin(scenario, boot_file, environment=environment)
        else:
            switch.serve(scenario, boot_file)
            switch.boot_again(environment)
            assert switch.flash() == ["lost+found"], f"after {list(STATES)[place - 1]}: {switch.flash()}"
            switch.go()
        switch.wait_state(state)
        switch.cut_power()
    switch.serve()
    switch.boot_again(HASTY)
    switch.go()
    switch.wait_reload()
    switch.is_settled()


@scene("cut-while-copying", "the power fails at several moments of the copy to a slow flash; never half a file")
def cut_while_copying(switch):
    big = switch.serves("big", "".join(f"interface {number}\n" for number in range(1_000_000)))
    switch.begin(boot_file="http://{server}/big")
    for part in (0.02, 0.5, 0.95, 1):
        switch.throttle(2 << 20)
        switch.wait(lambda: switch.copied() >= part * len(big), f"{part:.0%} of the copy")
        switch.cut_power()
        switch.boot_again()
        found = switch.startup_config()
        assert found in (None, big), f"{len(found)} of {len(big)} bytes after {part:.0%}"
        switch.go()
        if found:
            break
    if not found:
        switch.wait_reload()
    switch.is_settled(big)


@scene("cut-before-the-reload", "the power fails between the request for the reload and the reload; settled at once")
def cut_before_the_reload(switch):
    switch.begin()
    switch.wait_console("ZTP_RELOAD")
    switch.cut_power()
    switch.boot_again()
    assert switch.startup_config() == CONFIG
    switch.go()
    switch.is_settled()


@scene("cut-after-a-script", "the same after a script that has written the configuration, and has not flushed it")
def cut_after_a_script(switch):
    switch.serves("script", f"#!/bin/sh\nprintf '%s' '{CONFIG}' >/mnt/flash/startup-config\n")
    switch.begin(boot_file="http://{server}/script")
    switch.wait_console("ZTP_RELOAD")
    switch.cut_power()
    switch.boot_again()
    assert switch.startup_config() == CONFIG, f"the startup configuration is {switch.startup_config()!r}"
    switch.go()
    switch.is_settled()
