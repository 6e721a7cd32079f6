"""The real programs, started in folders of their own and, where they need a network, in a lab."""
import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from lab.host import ROOT, Host, timers  # noqa: E402
from lab.runs import Switch  # noqa: E402
from lab.switch_lab import Lab  # noqa: E402

SHORT_TIMERS = timers(0.2)


def ends_well(host):
    """A host that still runs has to end on request, without leaks; one that ended by itself has crashed."""
    assert host.stop() in (0, None), host.output()


@pytest.fixture
def host(tmp_path):
    result = Host(tmp_path).prepare()
    result.environment |= SHORT_TIMERS
    yield result
    ends_well(result)


def brought_up(lab):
    """Brings a lab up, for a fixture to yield from, and takes it down afterwards."""
    if os.geteuid() != 0:
        pytest.skip("network namespaces need root")
    try:
        lab.up()
        yield lab
    finally:
        lab.down()


def ended_well(lab):
    """A lab that is up, for a fixture to yield from; afterwards, prints what its programs wrote and ends its host."""
    try:
        yield lab
    finally:
        for log in sorted(lab.folder.rglob("*.log")):
            print(f"== {log}\n{log.read_text()[-20000:]}")
    ends_well(lab.host)


@pytest.fixture(scope="session")
def package():
    found = sorted((ROOT / "build" / "release").glob("zerotouch_*.deb"))
    if not found:
        pytest.skip("there is no package; scripts/package makes it")
    return found[-1]


@pytest.fixture
def lab():
    """A switch without ports and its server side, in namespaces that go away with the test."""
    for lab in brought_up(Lab(f"zttest-{os.getpid()}")):
        lab.host.environment |= timers(0.05)
        yield from ended_well(lab)


@pytest.fixture(scope="module")
def switch_lab():
    """A switch with one port and all servers for files behind it, for the runs of a whole module."""
    for lab in brought_up(Switch(f"zttest-{os.getpid()}-run")):
        lab.add_veth(1)
        lab.serve_files()
        yield lab
