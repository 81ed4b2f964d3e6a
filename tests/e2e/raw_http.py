"""HTTP by hand over a socket: requests that no client library would send."""

import socket
import time


class Reply:
    """One parsed reply; header names in lower case, a repeated one keeps its last value."""

    def __init__(self, head, body):
        lines = head.split(b"\r\n")
        self.line = lines[0].decode("latin-1")
        self.version, code, *_ = self.line.split(" ", 2)
        self.code = int(code)
        self.headers = {}
        self.names = []
        for line in lines[1:]:
            name, _, value = line.decode("latin-1").partition(":")
            self.names.append(name)
            self.headers[name.lower()] = value.strip()
        self.body = body

    def __repr__(self):
        return "%s %r %r" % (self.line, self.headers, self.body[:200])


class Connection:
    """A connection to a port of this machine; every wait has a limit."""

    def __init__(self, port, host="127.0.0.1", timeout=60.0, tls=None):
        self.socket = socket.create_connection((host, port), timeout=timeout)
        if tls:
            self.socket = tls.wrap_socket(self.socket, server_hostname="localhost")
        self.pending = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.socket.close()

    def send(self, data):
        self.socket.sendall(data.encode("latin-1") if isinstance(data, str) else data)
        return self

    def end_sending(self):
        self.socket.shutdown(socket.SHUT_WR)

    def receive(self):
        """More bytes into `pending`; false at the end of the stream."""
        try:
            data = self.socket.recv(65536)
        except ConnectionResetError:
            return False
        self.pending += data
        return bool(data)

    def reply(self, has_body=True):
        """The next reply. With `has_body` false none is read, as behind HEAD and 1xx."""
        while b"\r\n\r\n" not in self.pending:
            if not self.receive():
                raise EOFError("closed before a reply: %r" % self.pending)
        head, self.pending = self.pending.split(b"\r\n\r\n", 1)
        reply = Reply(head, b"")
        if not has_body or reply.code < 200 or reply.code in (204, 304):
            return reply
        if "content-length" not in reply.headers:
            while self.receive():
                pass
            reply.body, self.pending = self.pending, b""
            return reply
        length = int(reply.headers["content-length"])
        while len(self.pending) < length:
            if not self.receive():
                raise EOFError("closed within a body")
        reply.body, self.pending = self.pending[:length], self.pending[length:]
        return reply

    def closed(self):
        """Waits for the server to close; false if bytes come instead."""
        if self.pending:
            return False
        try:
            return self.socket.recv(1) == b""
        except ConnectionResetError:
            return True


def ask(port, text, has_body=True, **settings):
    """Sends the text on a connection of its own and returns the first reply."""
    with Connection(port, **settings) as connection:
        return connection.send(text).reply(has_body)


def request(method, target, headers=(), body="", version="1.1"):
    """The text of an ordinary request."""
    lines = ["%s %s HTTP/%s" % (method, target, version), "Host: localhost"]
    lines += ["%s: %s" % pair for pair in headers]
    if body:
        lines.append("Content-Length: %d" % len(body))
    return "\r\n".join(lines) + "\r\n\r\n" + body


def seconds_of(action):
    begin = time.monotonic()
    action()
    return time.monotonic() - begin
