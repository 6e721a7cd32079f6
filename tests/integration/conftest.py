"""The real programs, started in folders of their own and, where they need a network, in a lab."""
import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from lab.host import Host, timers  # noqa: E402
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


@pytest.fixture
def lab():
    """A switch without ports and its server side, in namespaces that go away with the test."""
    if os.geteuid() != 0:
        pytest.skip("network namespaces need root")
    result = Lab(f"zttest-{os.getpid()}")
    try:
        result.up()
        result.host.environment |= SHORT_TIMERS
        yield result
        ends_well(result.host)
    finally:
        for log in sorted(result.folder.rglob("*.log")):
            print(f"== {log}\n{log.read_text()}")
        result.down()
