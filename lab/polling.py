"""Waiting for what other programs do."""
import time


def wait_for(predicate, what, timeout=20):
    """Polls until `predicate` gives something true, which is returned; fails naming `what` was waited for."""
    deadline = time.monotonic() + timeout
    while True:
        result = predicate()
        if result:
            return result
        assert time.monotonic() < deadline, f"waited {timeout} s for {what}"
        time.sleep(0.02)
