"""The HTTP front by raw sockets: bodies and the limits of what is taken."""

import contextlib
import socket

import pytest

from raw_http import Connection, ask, request
from front import CHUNKED, KIB, MIB, check_refused, memory_of

JOB = '{"resource":"m.obj","reply":"uri"}'


def chunks(text, size):
    pieces = [text[start:start + size] for start in range(0, len(text), size)]
    return "".join("%x\r\n%s\r\n" % (len(piece), piece) for piece in pieces)


@pytest.mark.parametrize("body", [
    chunks(JOB, 1000) + "0\r\n\r\n", chunks(JOB, 1) + "0\r\n\r\n",
    chunks(JOB, 7) + "0\r\nTrailer: x\r\nHost: y\r\n\r\n",
    "%X;name=value;other=\"q\"\r\n%s\r\n0;last\r\n\r\n" % (len(JOB), JOB),
    "0000%x\r\n%s\r\n000\r\n\r\n" % (len(JOB), JOB),
])
def test_chunked_body(service, body):
    with Connection(service.port) as connection:
        connection.send(CHUNKED + body + request("GET", "/favicon.ico"))
        assert connection.reply().body.decode() == service.uri(1)
        # What stands behind the body is the next request.
        assert connection.reply().code == 200


def test_chunked_body_in_pieces(service):
    with Connection(service.port) as connection:
        for letter in CHUNKED + chunks(JOB, 5) + "0\r\n\r\n":
            connection.send(letter)
        assert connection.reply().body.decode() == service.uri(1)


def test_trailers_are_no_headers(service):
    body = chunks(JOB, 1000) + "0\r\nOrigin: trailer\r\n\r\n"
    reply = ask(service.port, CHUNKED + body)
    assert reply.headers["access-control-allow-origin"] == "*"


@pytest.mark.parametrize("body", [
    "x\r\n", "-1\r\nx", "+1\r\nx\r\n0\r\n\r\n", "0x1\r\nx\r\n0\r\n\r\n", " 1\r\nx\r\n0\r\n\r\n",
    "\r\n", "1\r\nxx\r\n0\r\n\r\n", "1\r\nx0\r\n\r\n", "FFFFFFFFFFFFFFFFF\r\n",
    "FFFFFFFFFFFFFFFF\r\n", "1\nx\n0\n\n", "1 1\r\nx\r\n0\r\n\r\n",
])
def test_malformed_chunks(shared, body):
    check_refused(shared.port, CHUNKED + body, {400, 413})


def test_chunk_size_line_without_end(shared):
    with Connection(shared.port) as connection:
        with contextlib.suppress(ConnectionError):
            connection.send(CHUNKED + "1;" + "x" * 200000)
        assert connection.reply().code in (400, 413, 431)
        assert connection.closed()


def test_expect(service):
    head = "POST /job HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: %d\r\n\r\n"
    with Connection(service.port) as connection:
        connection.send(head % len(JOB))
        assert connection.reply().code == 100
        connection.send(JOB)
        assert connection.reply().code == 202
        # A body that is there already was not waited for.
        connection.send(head % len(JOB) + JOB)
        assert connection.reply().code == 202
        connection.send(CHUNKED.replace("Transfer", "Expect: 100-Continue\r\nTransfer"))
        assert connection.reply().code == 100
        connection.send(chunks(JOB, 10) + "0\r\n\r\n")
        assert connection.reply().code == 202


def test_expect_of_too_much(shared):
    """Refused by the announced length, and nothing is invited."""
    check_refused(shared.port, "POST /job HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\n"
                  "Content-Length: %d\r\n\r\n" % (64 * MIB + 1), {413})


def test_expect_of_http_1_0(service):
    text = ("POST /job HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: %d\r\n\r\n"
            % len(JOB))
    with Connection(service.port) as connection:
        connection.send(text + JOB)
        assert connection.reply().code == 202


def test_post_without_a_length_has_no_body(shared):
    assert ask(shared.port, "POST /job HTTP/1.1\r\nHost: x\r\n\r\n").code == 400


# Limits.

def test_head_of_the_largest_size(port):
    for size, code in ((60 * KIB, 200), (70 * KIB, 431)):
        for headers in ([("X", "y" * size)], [("X%d" % n, "y" * 1000) for n in range(size // 1010)]):
            with Connection(port) as connection:
                connection.send(request("GET", "/favicon.ico", headers))
                reply = connection.reply()
                assert reply.code == code
                if code == 431:
                    assert connection.closed()


def test_target_beyond_the_largest_head(port):
    with Connection(port) as connection:
        connection.send("GET /" + "x" * (80 * KIB))
        assert connection.reply().code == 431


def test_many_header_lines(port):
    reply = ask(port, request("GET", "/favicon.ico", [("X", "y")] * 3000))
    assert reply.code == 200


@pytest.mark.parametrize("length,code", [(64 * MIB, None), (64 * MIB + 1, 413), (10 ** 12, 413)])
def test_announced_body(shared, length, code):
    with Connection(shared.port) as connection:
        connection.send("POST /job HTTP/1.1\r\nHost: x\r\nContent-Length: %d\r\n\r\nabc" % length)
        if code:
            assert connection.reply().code == code
            assert connection.closed()
        else:
            # Taken up, and read as it comes.
            connection.socket.settimeout(0.3)
            with pytest.raises(socket.timeout):
                connection.reply()


def test_body_of_the_largest_size_on_delivery(shared):
    """A delivery server takes bodies far beyond those of the main one."""
    head = "POST /x HTTP/1.1\r\nHost: x\r\nContent-Length: %d\r\n\r\n"
    with Connection(shared.port + 1) as connection:
        connection.send(head % (2048 * MIB + 1))
        assert connection.reply().code == 413
    with Connection(shared.port + 1) as connection:
        connection.send(head % (65 * MIB))
        block = b"x" * MIB
        for _ in range(65):
            connection.send(block)
        assert connection.reply().code == 200


def test_announced_bodies_cost_what_has_arrived(lean):
    before = memory_of(lean)
    with contextlib.ExitStack() as stack:
        for _ in range(50):
            connection = stack.enter_context(Connection(lean.port))
            connection.send("POST /job HTTP/1.1\r\nHost: x\r\nContent-Length: %d\r\n\r\nabc"
                            % (64 * MIB))
        assert ask(lean.port, request("GET", "/favicon.ico")).code == 200
        # 50 announcements of 64 MiB are 3 GiB.
        assert memory_of(lean) - before < 100 * KIB


def test_chunked_body_beyond_the_limit(shared):
    """The sum counts, not the chunk."""
    with Connection(shared.port) as connection:
        chunk = b"100000\r\n" + b"x" * MIB + b"\r\n"
        with contextlib.suppress(ConnectionError):
            connection.send(CHUNKED)
            for _ in range(66):
                connection.send(chunk)
        assert connection.reply().code == 413
        assert connection.closed()
