"""Waiting for what other programs do."""
import time

LIMIT = 60  # seconds that anything may take, on a machine that is busy with other things


def wait_for(predicate, what, timeout=LIMIT):
    """Polls until `predicate` gives something true, which is returned; fails naming `what` was waited for."""
    deadline = time.monotonic() + timeout
    while True:
        result = predicate()
        if result:
            return result
        assert time.monotonic() < deadline, f"waited {timeout} s for {what}"
        time.sleep(0.02)
