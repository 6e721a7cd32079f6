"""The real programs, started in folders of their own and, where they need a network, in a lab."""
import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from lab.host import Host, timers  # noqa: E402
from lab.switch_lab import Lab  # noqa: E402

SHORT_TIMERS = timers(0.2)


@pytest.fixture
def host(tmp_path):
    result = Host(tmp_path).prepare()
    result.environment |= SHORT_TIMERS
    yield result
    result.stop()


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
    finally:
        print(result.host.output())
        result.down()
