"""The programs beside ours: nginx, the web server alone, and the load generator."""

import contextlib
import dataclasses
import os
import re
import shutil
import signal
import socket
import subprocess
import time

from ports import free_port
from waiting import wait_for

_NGINX = """
worker_processes 2;
daemon off;
error_log {folder}/error.log;
pid {folder}/pid;
events {{ worker_connections 8192; }}
http {{
    access_log off;
    sendfile on;
    keepalive_requests 1000000000;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{
        listen 127.0.0.1:{port};
        root {root};
        location = /accepted {{ return 202; }}
    }}
}}
"""

_WRK_FAULTS = re.compile(r"Socket errors: (.*)|Non-2xx or 3xx responses: (.*)")


def answers(port):
    with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), 1):
        return True
    return False


@contextlib.contextmanager
def running(command, port=None, **keys):
    """A process in a group of its own, which is ended as a whole at the end of the scope. With a
    port, the scope begins when it answers there."""
    process = subprocess.Popen(command, start_new_session=True, **keys)
    try:
        if port:
            wait_for(lambda: process.poll() is not None or answers(port), "port %d" % port)
            if process.poll() is not None:
                raise RuntimeError("%s ended at once" % command[0])
        yield process
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGTERM)
        try:
            process.wait(20)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()


@contextlib.contextmanager
def nginx(folder, root):
    """Two nginx workers that serve `root`, and 202 at /accepted; gives the port."""
    folder.mkdir()
    port = free_port()
    settings = folder / "nginx.conf"
    settings.write_text(_NGINX.format(folder=folder, port=port, root=root))
    # Workers that give up their rights could not read a folder of the user's own.
    if os.geteuid() == 0:
        settings.write_text("user root;" + settings.read_text())
    program = shutil.which("nginx", path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
    with running([program, "-p", str(folder), "-e", str(folder / "error.log"), "-c",
                  str(settings)], port):
        yield port


@contextlib.contextmanager
def front(build, threads):
    """The web server alone, with pages of its own; gives the port."""
    port = free_port()
    with running([str(build / "bench" / "front_bench"), str(port), str(threads)], port,
                 stdin=subprocess.PIPE, stdout=subprocess.DEVNULL):
        yield port


def head_of(port, path):
    """Status and length that a server announces for a path."""
    with socket.create_connection(("127.0.0.1", port), 5) as connection:
        connection.sendall(("GET %s HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n"
                            % path).encode())
        head = b""
        while b"\r\n\r\n" not in head:
            piece = connection.recv(65536)
            if not piece:
                raise RuntimeError("no answer for %s" % path)
            head += piece
    text = head.decode("latin-1")
    length = re.search(r"(?i)^content-length: *(\d+)", text, re.MULTILINE)
    return int(text.split()[1]), int(length.group(1)) if length else None


def wrk(port, path, connections, seconds):
    """Requests a second over keep-alive connections. Raises where an answer was no success."""
    url = "http://127.0.0.1:%d%s" % (port, path)
    threads = min(connections, 2)
    done = subprocess.run(["wrk", "-t%d" % threads, "-c%d" % connections, "-d%ds" % seconds,
                           "--timeout", "60s", url],
                          stdout=subprocess.PIPE, check=True, text=True)
    fault = _WRK_FAULTS.search(done.stdout)
    if fault:
        raise RuntimeError("%s: %s" % (url, fault.group(0)))
    return float(re.search(r"Requests/sec: *([\d.]+)", done.stdout).group(1))


@dataclasses.dataclass
class Load:
    """What wrk saw."""

    rate: float  # requests a second
    middle: float  # ms until the answer, of half of them
    late: float  # of all but a hundredth


def wrk_script(port, script, connections, seconds, first=0):
    """Load by a script over keep-alive connections; the script's threads are numbered from `first`
    on. Raises where an answer was no success."""
    return _measured(connections, seconds, ["-s", str(script)], "http://127.0.0.1:%d" % port,
                     ["--", str(first)])


def wrk_late(port, path, connections, seconds):
    """ms until the answer of all but a hundredth of requests."""
    return _measured(connections, seconds, [], "http://127.0.0.1:%d%s" % (port, path), []).late


def _measured(connections, seconds, options, url, words):
    done = subprocess.run(["wrk", "-t2", "-c%d" % connections, "-d%ds" % seconds, "--latency",
                           *options, url, *words], stdout=subprocess.PIPE, check=True, text=True)
    fault = _WRK_FAULTS.search(done.stdout)
    if fault:
        raise RuntimeError("%s: %s" % (url, fault.group(0)))

    def percentile(name):
        value, unit = re.search(r"^ +%s%% +([\d.]+)(us|ms|s)$" % name, done.stdout,
                                re.MULTILINE).groups()
        return float(value) * {"us": 0.001, "ms": 1, "s": 1000}[unit]

    rate = float(re.search(r"Requests/sec: *([\d.]+)", done.stdout).group(1))
    return Load(rate, percentile(50), percentile(99))


def settle():
    """Lets the disk finish what earlier rounds left to it."""
    os.sync()
    time.sleep(0.2)
