"""The HTTP front by raw sockets: what is refused, what is not, and how connections end."""

import contextlib
import threading
import time

import pytest

from raw_http import Connection, ask, request
from waiting import PATIENCE
from front import CHUNKED, ICON, KIB, check_refused, memory_of

STALLS = ["GET /fav", ICON + "X: y\r\n",
          "POST /job HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\nabc", CHUNKED + "5\r\nab",
          request("GET", "/favicon.ico")]


@pytest.fixture(scope="module", autouse=True)
def stalled(shared):
    """Lets all of these clients wait while the tests of this file run; gives the code that one got,
    or None, and the seconds until its connection was closed."""
    outcomes = {}

    def wait(text):
        with Connection(shared.port, timeout=45 + PATIENCE) as connection:
            begin = time.monotonic()
            connection.send(text)
            code = None
            with contextlib.suppress(EOFError):
                code = connection.reply().code
            ended = connection.closed()
            outcomes[text] = (code, time.monotonic() - begin) if ended else None

    threads = [threading.Thread(target=wait, args=(text,)) for text in STALLS]
    for thread in threads:
        thread.start()

    def outcome(text):
        for thread in threads:
            thread.join()
        return outcomes[text]

    return outcome


@pytest.mark.parametrize("text,codes", [
    ("GET /favicon.ico HTTP/1.1\r\n\r\n", {400}),
    ("GET /favicon.ico HTTP/1.1\r\nHostess: x\r\n\r\n", {400}),
    (ICON + "X: a\r\n folded\r\n\r\n", {400}),
    (ICON + "X: a\r\n\tfolded\r\n\r\n", {400}),
    (ICON + "No colon\r\n\r\n", {400}),
    (ICON + ": no name\r\n\r\n", {400}),
    (ICON + "Blank : x\r\n\r\n", {400}),
    (ICON + "Na me: x\r\n\r\n", {400}),
    (ICON + "X: a\rb\r\n\r\n", {400}),
    (ICON + "X: a\0b\r\n\r\n", {400}),
    (ICON + "Origin: a\x01b\r\n\r\n", {400}),
    (ICON + "Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", {400}),
    (ICON + "Transfer-Encoding: gzip\r\n\r\n", {501}),
    (ICON + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", {501}),
    (ICON + "Transfer-Encoding: identity\r\n\r\n", {501}),
    (ICON + "Content-Length: x\r\n\r\n", {400}),
    (ICON + "Content-Length: -1\r\n\r\n", {400}),
    (ICON + "Content-Length: +1\r\n\r\nx", {400}),
    (ICON + "Content-Length: 0x1\r\n\r\nx", {400}),
    (ICON + "Content-Length: 1 1\r\n\r\nx", {400}),
    (ICON + "Content-Length: \r\n\r\n", {400}),
    (ICON + "Content-Length: 99999999999999999999\r\n\r\n", {400, 413}),
    (ICON + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nxx", {400}),
    ("GET /favicon.ico HTTP/2.0\r\nHost: x\r\n\r\n", {400, 505}),
    ("GET /favicon.ico HTTP/0.9\r\nHost: x\r\n\r\n", {400, 505}),
    ("GET /favicon.ico HTTP/1.2\r\nHost: x\r\n\r\n", {400, 505}),
    ("GET /favicon.ico http/1.1\r\nHost: x\r\n\r\n", {400, 505}),
    ("GET /favicon.ico\r\n\r\n", {400, 505}),
    ("GET\r\n\r\n", {400}),
    ("nonsense\r\n\r\n", {400}),
    ("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", {400}),
    ("GET favicon.ico HTTP/1.1\r\nHost: x\r\n\r\n", {400}),
    ("GET * HTTP/1.1\r\nHost: x\r\n\r\n", {400}),
    ("OPTIONS * HTTP/1.1\r\nHost: x\r\n\r\n", {400}),
    ("G(T /favicon.ico HTTP/1.1\r\nHost: x\r\n\r\n", {400}),
])
def test_refused_heads(port, text, codes):
    check_refused(port, text, codes)


@pytest.mark.parametrize("target", [
    "/../x", "/..", "/a/../..", "/%2e%2e/x", "/a/%2E./../x", "/a%2f..%2f..", "/%2e%2e%2fx",
    "/x%00y", "/x%0ay", "/x%0Dy", "/x%7fy", "/x\x01y", "/x\x7fy", "/%", "/%4", "/%zz", "/%u0041",
    "/a%", "x", "?x",
])
def test_refused_targets(port, target):
    reply = ask(port, request("GET", target))
    assert (reply.code, reply.body) == (400, b""), reply


@pytest.mark.parametrize("target", [
    "/favicon.ico", "/./favicon.ico", "/x/../favicon.ico", "/favicon%2Eico", "/%66avicon.ico",
    "/x%2f..%2ffavicon.ico", "/favicon.ico?", "/favicon.ico?a=%zz&b=/../../", "/favicon.ico?\xfc|[",
    "/%2e/favicon.ico", "/y/./../favicon.ico",
])
def test_targets_that_mean_the_icon(port, target):
    reply = ask(port, request("GET", target))
    assert reply.code == 200, reply
    assert len(reply.body) == 13752


@pytest.mark.parametrize("target", ["/x|y", "/[x]", "/{x}", "/\xc3\xbc", "/x\"y", "/<x>", "/x^y`z",
                                    "/%252e%252e/x", "/%25", "/...", "/..x", "/x..", "/a..b/c"])
def test_targets_that_a_strict_parser_would_refuse(port, target):
    assert ask(port, request("GET", target)).code == 404


def test_repeated_header_is_joined(shared):
    reply = ask(shared.port, request("GET", "/", [("Origin", "a"), ("ORIGIN", "b")]))
    assert reply.headers["access-control-allow-origin"] == "a, b"
    # A value that is two is not the one that the list asks for.
    headers = [("Accept", "application/json"), ("accept", "application/json")]
    assert ask(shared.port, request("GET", "/", headers)).headers["content-type"] == "text/html"


def test_header_names_are_compared_without_case(shared):
    reply = ask(shared.port, "GET / HTTP/1.1\r\nhOST: x\r\naCCEPT: application/json\r\n\r\n")
    assert reply.headers["content-type"] == "application/json"


def test_blanks_around_a_header_value(shared):
    reply = ask(shared.port, request("GET", "/", [("Origin", " \t a b \t ")]))
    assert reply.headers["access-control-allow-origin"] == "a b"


def test_empty_lines_before_a_request(port):
    with Connection(port) as connection:
        for _ in range(3):
            connection.send("\r\n\r\n" + request("GET", "/favicon.ico"))
            assert connection.reply().code == 200


def test_lines_may_arrive_in_pieces(port):
    with Connection(port) as connection:
        for letter in request("GET", "/favicon.ico"):
            connection.send(letter)
        assert connection.reply().code == 200


def test_keep_alive(port):
    with Connection(port) as connection:
        for _ in range(200):
            connection.send(request("GET", "/favicon.ico"))
            assert connection.reply().code == 200
        connection.send(request("GET", "/favicon.ico", [("Connection", "close")]))
        reply = connection.reply()
        assert reply.headers["connection"].lower() == "close"
        assert connection.closed()


def test_replies_without_a_body_say_so(shared):
    """A client on a kept connection would wait for the end of a body for ever otherwise."""
    for number, target in ((shared.port, "/nothing"), (shared.port, "/job/0"),
                           (shared.port + 1, "/abc/nothing"), (shared.port + 1, "/")):
        with Connection(number) as connection:
            for _ in range(2):
                connection.send(request("GET", target))
                reply = connection.reply()
                assert reply.code in (400, 403, 404)
                assert reply.headers["content-length"] == "0"


@pytest.mark.parametrize("headers,kept", [
    ([], False), ([("Connection", "keep-alive")], True), ([("Connection", "Keep-Alive")], True),
    ([("Connection", "close")], False),
])
def test_http_1_0(port, headers, kept):
    with Connection(port) as connection:
        text = request("GET", "/favicon.ico", headers, version="1.0").replace("Host: localhost\r\n",
                                                                              "")
        connection.send(text)
        reply = connection.reply()
        assert reply.code == 200
        assert len(reply.body) == 13752
        assert "transfer-encoding" not in reply.headers
        if kept:
            assert reply.headers["connection"].lower() == "keep-alive"
            connection.send(text)
            assert connection.reply().code == 200
        else:
            assert connection.closed()


def test_head(port):
    with Connection(port) as connection:
        for _ in range(3):
            connection.send(request("HEAD", "/favicon.ico"))
            reply = connection.reply(has_body=False)
            assert (reply.code, reply.headers["content-length"]) == (200, "13752")
            connection.send(request("GET", "/favicon.ico"))
            assert len(connection.reply().body) == 13752


def test_head_of_an_unknown_path(shared):
    with Connection(shared.port) as connection:
        connection.send(request("HEAD", "/nothing"))
        assert connection.reply(has_body=False).code == 404
        connection.send(request("GET", "/favicon.ico"))
        assert connection.reply().code == 200


def test_pipelining(port):
    """Answered in order, each with its own body."""
    targets = ["/favicon.ico", "/nothing%20here"] * 50
    with Connection(port) as connection:
        connection.send("".join(request("GET", target) for target in targets))
        for target in targets:
            reply = connection.reply()
            assert (reply.code, len(reply.body)) == (
                (200, 13752) if target == "/favicon.ico" else (404, 0))


def test_pipelining_with_bodies(service):
    jobs = ['{"commands":["true"],"uid":"%d"}' % number for number in range(20)]
    with Connection(service.port) as connection:
        connection.send("".join(request("POST", "/job", body=job) for job in jobs))
        for number in range(20):
            assert connection.reply().body == b"%d@abc" % (number + 1)


def test_pipelining_without_reading(lean):
    """The requests of one segment are not all answered ahead of a client that does not read."""
    before = memory_of(lean)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(Connection(lean.port + 1)) for _ in range(20)]
        for connection in connections:
            connection.send(request("GET", "/favicon.ico") * 400)
        # While they wait, others are served.
        for _ in range(20):
            assert ask(lean.port + 1, request("GET", "/favicon.ico")).code == 200
        # 20 connections with 400 icons each would be 110 MB.
        assert memory_of(lean) - before < 60 * KIB
        for connection in connections[:3]:
            for _ in range(400):
                assert len(connection.reply().body) == 13752


def test_bytes_behind_a_refused_request_are_not_answered(port):
    check_refused(port, "GET /favicon.ico HTTP/1.1\r\n\r\n" + request("GET", "/favicon.ico") * 3,
                  {400})


# The clients that wait for the end of a limit, at the end: they wait since the first test.

@pytest.mark.parametrize("text", STALLS[:-1])
def test_stalled_request_ends_after_its_time(stalled, text):
    """408 or nothing, and the connection is closed, after about 15 s."""
    code, seconds = stalled(text)
    assert code in (None, 408)
    assert 10 < seconds < 15 + PATIENCE


def test_idle_connection_is_closed(stalled):
    code, seconds = stalled(STALLS[-1])
    assert code == 200
    assert 25 < seconds < 30 + PATIENCE
