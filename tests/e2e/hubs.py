"""Stand-ins for the hub: one that keeps what it receives, and some that behave badly."""

import http.server
import socket
import struct
import threading
import time

from local_server import LocalServer
from waiting import wait_for


class RecordingHub(LocalServer):
    """Keeps each request as (method, path, headers, body, time) and answers with `code`."""

    def __init__(self, code=200, certificate=None, port=0):
        hub = self
        self.received = []

        class Handler(http.server.BaseHTTPRequestHandler):
            timeout = 30

            def do_POST(self):
                body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
                hub.received.append(
                    (self.command, self.path, dict(self.headers), body.decode(), time.monotonic()))
                self.send_response(code)
                self.send_header("Content-Length", "0")
                self.end_headers()

            def log_message(self, *arguments):
                pass

        super().__init__(Handler, certificate, port)
        self.address = "127.0.0.1:%d" % self.port

    def wait_for(self, count):
        """The bodies of the first `count` documents."""
        wait_for(lambda: len(self.received) >= count, lambda: "document %d at the hub, which has %d"
                 % (count, len(self.received)))
        return [entry[3] for entry in self.received]


class RudeHub:
    """Listens; `manner` is "silent" (takes connections, never answers), "garbage" (answers no
    HTTP), "closing" (closes at once), "resetting" (resets at once) or "waking" (never answers the first connection, takes what
    comes by the others)."""

    def __init__(self, manner):
        self.manner = manner
        self.connections = []
        self.received = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            self.connections.append(connection)
            if self.manner == "waking" and len(self.connections) > 1:
                message = b""
                while not message.endswith(b"}"):
                    message += connection.recv(65536)
                self.received.append(message)
                connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")
            if self.manner == "garbage":
                connection.sendall(b"\0\1\2 this is no HTTP \r\n\r\n" * 10)
            if self.manner == "resetting":
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            if self.manner in ("garbage", "closing", "resetting"):
                connection.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        # A blocked accept is woken by the shutdown, not by the close.
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join()
        for connection in self.connections:
            connection.close()


class MulticastReceiver:
    """Keeps the datagrams that reach a group on the loopback interface."""

    def __init__(self, group, port):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind((group, port))
        # The sender's own machine gets a copy on the interface that the datagram leaves by, and
        # which one that is depends on the routes.
        for interface in ("0.0.0.0", "127.0.0.1"):
            membership = struct.pack("4s4s", socket.inet_aton(group), socket.inet_aton(interface))
            try:
                self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)
            except OSError:
                continue

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def receive(self, seconds=60):
        self.socket.settimeout(seconds)
        return self.socket.recv(65536).decode()
