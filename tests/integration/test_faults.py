"""Runs to which something happens: the host is killed, servers fall silent, ports go and come back, disks are full."""
import pathlib
import signal

import pytest

from conftest import ended_well
from lab.host import timers
from lab.polling import wait_for
from lab.runs import FOUND, STATES

CONFIG = "hostname provisioned\n"
DONE = {"startup-config": CONFIG, "zerotouch-config": "DISABLE=NextReload\n"}
SET_UP = FOUND | {"up": True, "ip6": ["0", "2"]}  # for a query


@pytest.fixture
def lab(switch_lab):
    yield from ended_well(switch_lab)


def kill_and_start(lab):
    lab.host.stop(signal.SIGKILL)
    lab.host.start()


@pytest.mark.parametrize("state", [state for state in STATES if state != "stateShutdown"])
def test_after_a_host_that_was_killed_in_any_state_the_next_one_completes_the_run(lab, state):
    lab.begin_in(state)
    running = lab.children()
    lab.serve("dhcpv4", "http://{server}/whose-name")
    (lab.www / "whose-name").write_text('#!/bin/sh\necho "$SYSNAME" >"$FILESYSTEM_ROOT/flash/name"\n')
    lab.host.environment |= timers(0.2, INETRFACESSETUP=1.5, DHCLIENTQUERY=5, LEASERELEASE=5)
    kill_and_start(lab)
    wait_for(lambda: lab.found() == SET_UP, "what the killed host applied to be gone")
    assert lab.host.get("/zerotouch/sm/currentState") == "stateSetupInterfaces"
    assert not lab.children() & running
    lab.wait_reload()
    assert lab.flash() == {"name": "switch\n", "zerotouch-config": DONE["zerotouch-config"]}


def test_after_a_host_that_was_killed_in_shutdown_the_next_one_sees_to_the_reload(lab):
    lab.begin_in("stateShutdown")
    applied = lab.found()
    for requests in (1, 2):  # before the first, while a lease is released, and after it
        kill_and_start(lab)
        wait_for(lambda: len(lab.host.reload_requested()) == requests, "the reload")
        lab.wait_quiet()
        assert lab.host.get("/zerotouch/config/enabled") is False
        assert (lab.found(), lab.flash()) == (applied, DONE)
    lab.host.boot_again()
    assert (lab.flash(), lab.host.reload_requested()) == ({"startup-config": CONFIG}, [])
