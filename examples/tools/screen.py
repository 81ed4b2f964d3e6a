"""An X display without screen and graphics card, for the example tools."""

import contextlib
import os
import subprocess


@contextlib.contextmanager
def screen_in_memory(width, height):
    """Runs an Xvfb with a screen of this size, on a display number that it picks itself; gives the
    display's name. Raises OSError where it does not start."""
    read_end, write_end = os.pipe()
    try:
        server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "%dx%dx24" % (width, height),
             "-nolisten", "tcp"], pass_fds=[write_end], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    finally:
        os.close(write_end)
    try:
        with os.fdopen(read_end) as numbers:
            number = numbers.readline().strip()
        if not number:
            raise OSError("Xvfb did not start")
        yield ":" + number
    finally:
        server.terminate()
        server.wait()
