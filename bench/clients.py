"""Clients that cost little beside what they measure."""

import contextlib
import json
import os
import re
import resource
import selectors
import signal
import socket
import statistics
import subprocess
import time

from service import BUILD
from waiting import wait_for


class Connection:
    """A keep-alive connection on a raw socket."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), 60)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.pending = b""

    def post(self, path, body):
        """Sends a request and returns the answer's body; raises unless it is a success."""
        head = "POST %s HTTP/1.1\r\nHost: x\r\nContent-Length: %d\r\n\r\n" % (path, len(body))
        return self._ask(path, head.encode() + body)

    def get(self, path, headers=""):
        """The like, without a body; `headers` are whole lines with their ends."""
        return self._ask(path, ("GET %s HTTP/1.1\r\nHost: x\r\n%s\r\n" % (path, headers)).encode())

    def _ask(self, path, message):
        self.socket.sendall(message)
        while b"\r\n\r\n" not in self.pending:
            self._receive()
        head, self.pending = self.pending.split(b"\r\n\r\n", 1)
        if not head.split()[1].startswith(b"2"):
            raise RuntimeError("%s: %s" % (path, head))
        length = int(re.search(rb"(?i)\ncontent-length: *(\d+)", head).group(1))
        while len(self.pending) < length:
            self._receive()
        answer, self.pending = self.pending[:length], self.pending[length:]
        return answer

    def _receive(self):
        piece = self.socket.recv(1 << 20)
        if not piece:
            raise RuntimeError("the server closed the connection")
        self.pending += piece


def milliseconds(action, times=7):
    """The median time of some calls, behind one that does not count."""
    def once():
        begin = time.monotonic()
        action()
        return (time.monotonic() - begin) * 1000

    return statistics.median([once() for _ in range(times + 1)][1:])


def question(provider, numbers):
    """The body that asks for the states of jobs."""
    return json.dumps({"Parameters": [[0, "http://x/%s/%d" % (provider, number)]
                                      for number in numbers]}).encode()


class JobClient:
    """Submits jobs of `true` to a fresh service and waits for their end."""

    BATCH = 100  # jobs in one request

    def __init__(self, port, provider):
        self.connection = Connection(port)
        self.provider = provider

    def run(self, count):
        """Seconds from the first byte of the first request until the last job is told as ended."""
        batches = self._batches(0, count)
        last = question(self.provider, [count])
        every = question(self.provider, range(1, count + 1))
        begin = time.monotonic()
        self._submit(batches, count)
        # The last one is as good as the end of all; asking for all of them is the proof.
        for asked, ended in ((last, 1), (every, count)):
            while self.connection.post("/job/updateState", asked).count(b"[200,") != ended:
                time.sleep(0.005)
        return time.monotonic() - begin

    def submit(self, begin, end):
        """Submits the jobs with these numbers, the last one excluded."""
        self._submit(self._batches(begin, end), end - begin)

    def _batches(self, begin, end):
        return [json.dumps([{"commands": ["true"], "uid": "job %d" % number}
                            for number in range(first, min(first + self.BATCH, end))]).encode()
                for first in range(begin, end, self.BATCH)]

    def _submit(self, batches, count):
        accepted = sum(self.connection.post("/job", batch).count(b"[202,") for batch in batches)
        if accepted != count:
            raise RuntimeError("%d of %d jobs accepted" % (accepted, count))


class Blockers:
    """Connections whose requests hold page threads of a server while the scope lasts."""

    def __init__(self, port, path, count):
        self.port, self.path, self.count = port, path, count
        self.sockets = []

    def __enter__(self):
        for _ in range(self.count):
            one = socket.create_connection(("127.0.0.1", self.port), 30)
            one.sendall(("GET %s HTTP/1.1\r\nHost: x\r\n\r\n" % self.path).encode())
            self.sockets.append(one)
        # Long enough for a page thread to be released for each of them.
        time.sleep(1.5)
        return self

    def any_answered(self):
        with selectors.DefaultSelector() as selector:
            for one in self.sockets:
                selector.register(one, selectors.EVENT_READ)
            return bool(selector.select(0))

    def __exit__(self, *_):
        # Each answer is taken, so that no page is left blocked for the next round.
        for one in self.sockets:
            with contextlib.suppress(OSError):
                one.recv(65536)
            one.close()


def resident_kib(pid, field="VmRSS"):
    """The memory that a process has; as RssAnon that of its own, without what it maps of files."""
    with open("/proc/%d/status" % pid, encoding="ascii") as status:
        return int(re.search(field + r":\s*(\d+) kB", status.read()).group(1))


def forget_peak(pid):
    """Lets the count of peak_kib begin anew."""
    with open("/proc/%d/clear_refs" % pid, "w", encoding="ascii") as out:
        out.write("5")


def peak_kib(pid):
    """The most memory that a process has had since forget_peak."""
    with open("/proc/%d/status" % pid, encoding="ascii") as status:
        return int(re.search(r"VmHWM:\s*(\d+) kB", status.read()).group(1))


def memory_each(pid, port, count, request):
    """KiB by which a process grows with each of `count` connections, on which a request, if there
    is one, was sent and answered."""
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit[1], limit[1]))
    descriptors = "/proc/%d/fd" % pid
    unconnected = resident_kib(pid)
    with contextlib.ExitStack() as stack:
        for _ in range(count):
            one = stack.enter_context(socket.create_connection(("127.0.0.1", port), 10))
            if request:
                one.sendall(request)
                if not one.recv(65536):
                    raise RuntimeError("no answer")
        # It has few others; those may come and go meanwhile.
        wait_for(lambda: len(os.listdir(descriptors)) >= count, "the connections", 10)
        time.sleep(0.1)
        return (resident_kib(pid) - unconnected) / count


def time_to_line(service, start):
    """Starts the service's program, and returns the seconds until it has written a whole line
    that begins so, and the line. The process is ended."""
    begin = time.monotonic()
    with subprocess.Popen([str(BUILD / service.link)] + service.arguments(),
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, cwd=service.run_folder,
                          env=service.environment(), text=True) as process:
        try:
            for line in process.stdout:
                if line.startswith(start):
                    return time.monotonic() - begin, line.rstrip("\n")
            raise RuntimeError("the program ended without this line")
        finally:
            process.send_signal(signal.SIGTERM)
            process.stdout.read()
