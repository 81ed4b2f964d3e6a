"""Free ports: three in a row, as a service uses the one below and the one above its own."""

import errno
import itertools
import os
import random
import socket

# Below the range from which the system takes the ports of outgoing connections. Test runners that
# work side by side take theirs from parts of their own: a port that one holds free on purpose would
# look free to the other.
_RUNNERS = int(os.environ.get("PYTEST_XDIST_WORKER_COUNT", "1"))
_SHARE = (32000 - 11000) // _RUNNERS
LOWEST = 11000 + _SHARE * int(os.environ.get("PYTEST_XDIST_WORKER", "gw0")[2:])
HIGHEST = LOWEST + _SHARE - 2
_random = random.Random(os.getpid() * 7919)
_given = set()


def is_free(port):
    for family, host in ((socket.AF_INET, "0.0.0.0"), (socket.AF_INET6, "::")):
        try:
            with socket.socket(family, socket.SOCK_STREAM) as probe:
                # As a server does it: what a closed connection leaves behind does not count.
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                if family == socket.AF_INET6:
                    probe.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
                probe.bind((host, port))
        except OSError as error:
            if error.errno not in (errno.EAFNOSUPPORT, errno.EADDRNOTAVAIL):
                return False
    return True


def free_port():
    """The middle one of three neighbouring ports that are free and were not given before."""
    for _ in itertools.repeat(None, 500):
        port = _random.randrange(LOWEST, HIGHEST)
        trio = {port - 1, port, port + 1}
        if trio & _given or not all(map(is_free, trio)):
            continue
        _given.update(trio)
        return port
    raise RuntimeError("no free ports")


def closed_port():
    """A port on which nobody listens: its trio is given away to no service."""
    return free_port()
