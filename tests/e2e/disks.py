"""Full disks."""

import os


def fill(path):
    """Fills the file system that holds the path to its last byte."""
    descriptor = os.open(path, os.O_CREAT | os.O_WRONLY)
    try:
        for size in (4096, 1):
            try:
                while True:
                    os.write(descriptor, b"x" * size)
            except OSError:
                continue
    finally:
        os.close(descriptor)
