"""Waiting for conditions: no test waits for a time."""

import os
import time

# Sanitizers and a busy machine make everything slower, never wrong.
PATIENCE = float(os.environ.get("OSTRAND_PATIENCE", "60"))


def wait_for(condition, what, seconds=None, step=0.01):
    """Calls `condition` until its result is true and returns that result; fails with `what`."""
    end = time.monotonic() + (PATIENCE if seconds is None else seconds)
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError("gave up waiting for " + (what() if callable(what) else what))
        time.sleep(step)
        step = min(step * 1.1, 0.05)


def stays(condition, what, seconds):
    """Checks for some time that nothing changes, where the absence of an event is the claim."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        assert condition(), what() if callable(what) else what
        time.sleep(0.02)
