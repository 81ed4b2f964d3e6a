"""Rows of well-behaved clients beside others that are slow, greedy or rude."""

import contextlib
import resource
import socket
import struct
import threading
import time

import peers
from common import service
from report import Result

ICON = "/favicon.ico"
HALF = b"GET /favicon.ico HTTP/1.1\r\nHost: x\r\nX: "
BODY = b"POST /job HTTP/1.1\r\nHost: x\r\nContent-Length: 100000\r\n\r\n"
WHOLE = b"GET /favicon.ico HTTP/1.1\r\nHost: x\r\n\r\n"


def hostile(settings):
    """What all but a hundredth of requests wait at most, beside each kind and alone."""
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit[1], limit[1]))
    seconds = settings.size(4, 2)
    kinds = (("2,000 half-sent heads", half_heads), ("200 bodies of a byte a second", slow_bodies),
             ("200 clients that read no reply", unread), ("200 requests in a packet", pipelined),
             ("connections that are opened and reset", resets))
    with service(settings, workers=0) as own:
        def late(kind):
            with kind(own.port):
                return peers.wrk_late(own.port, ICON, 8, seconds)

        results = []
        for name, kind in kinds:
            quiet, beside = [], []
            for _ in range(settings.rounds):
                quiet.append(late(contextlib.nullcontext))
                beside.append(late(kind))
            results.append(Result("until 99 %% of 8 clients are answered, beside %s; peer: alone"
                                  % name, "ms", beside, quiet, 10, at_most=True))
        return results


@contextlib.contextmanager
def connected(port, count, first):
    """Connections that have sent the same."""
    with contextlib.ExitStack() as stack:
        sockets = []
        for _ in range(count):
            one = stack.enter_context(socket.create_connection(("127.0.0.1", port), 10))
            one.sendall(first)
            sockets.append(one)
        yield sockets


@contextlib.contextmanager
def repeated(action):
    """Something that goes on in a thread while the scope lasts."""
    ended = threading.Event()

    def run():
        while not ended.is_set():
            action()

    thread = threading.Thread(target=run)
    thread.start()
    try:
        yield
    finally:
        ended.set()
        thread.join()


def half_heads(port):
    return connected(port, 2000, HALF)


@contextlib.contextmanager
def slow_bodies(port):
    with connected(port, 200, BODY) as sockets:
        def send():
            for one in sockets:
                one.sendall(b"x")
            time.sleep(1)

        with repeated(send):
            yield


@contextlib.contextmanager
def unread(port):
    """More replies than the buffers of the system hold."""
    with connected(port, 200, b"") as sockets:
        for one in sockets:
            one.setblocking(False)
            with contextlib.suppress(BlockingIOError):
                for _ in range(100):
                    one.sendall(WHOLE * 50)
        yield


@contextlib.contextmanager
def pipelined(port):
    """One client; it reads what it gets."""
    with socket.create_connection(("127.0.0.1", port), 10) as one:
        def send():
            one.sendall(WHOLE * 200)
            ends = 0
            while ends < 200:
                ends += one.recv(1 << 20).count(b"HTTP/1.1 200")

        with repeated(send):
            yield


def resets(port):
    """A thousand connections a round, each with half a request, none closed in order."""
    def send():
        for _ in range(1000):
            one = socket.create_connection(("127.0.0.1", port), 10)
            one.sendall(HALF)
            one.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            one.close()

    return repeated(send)
