"""What the tests of the HTTP front share."""

from raw_http import Connection

KIB = 1024
MIB = 1024 * KIB
ICON = "GET /favicon.ico HTTP/1.1\r\nHost: x\r\n"
CHUNKED = "POST /job HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n"


def memory_of(service):
    """The memory in use, in KiB."""
    with open("/proc/%d/status" % service.process.pid) as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


def check_refused(port, text, codes):
    """The reply's code is one of them, it has no body, and the connection ends behind it."""
    with Connection(port) as connection:
        connection.send(text)
        reply = connection.reply()
        assert reply.code in codes, reply
        assert reply.body == b""
        # Of what else was sent nothing is answered.
        assert connection.closed()
