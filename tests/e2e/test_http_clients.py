"""The HTTP front by raw sockets: clients that behave badly, or are many."""

import contextlib
import glob
import json
import os
import socket

import pytest

from raw_http import Connection, ask, request, seconds_of
from service import sanitizer
from waiting import PATIENCE, stays, wait_for
from front import CHUNKED, ICON, KIB, MIB, check_refused, memory_of


def test_stalled_clients_hinder_nobody(services):
    """More of them than there are threads for pages; whole requests go through beside them."""
    service = services.start(listen_threads=4)
    with contextlib.ExitStack() as stack:
        for index in range(60):
            connection = stack.enter_context(Connection(service.port + index % 2))
            connection.send(["", "GET /fav", ICON, CHUNKED + "5\r\nab",
                             "POST /job HTTP/1.1\r\nHost: x\r\nContent-Length: 10\r\n\r\nabc"]
                            [index % 5])
        for _ in range(20):
            assert service.get("/favicon.ico").status_code == 200
            assert service.fetch("/favicon.ico").status_code == 200
        job = service.run("true")
        service.wait_done(job)
        assert service.stop() < 15


def test_client_that_goes_away(service):
    """In the middle of a head, a body, a reply; the service goes on and forgets them."""
    (service.jobs_folder() / "big").write_bytes(b"x" * 20 * MIB)
    for _ in range(20):
        for number, text in ((service.port, "GET /fa"), (service.port, CHUNKED + "5\r\nab"),
                             (service.port + 1, request("GET", "/abc/big"))):
            with Connection(number) as connection:
                connection.send(text)
    assert service.fetch("/favicon.ico").status_code == 200

    def is_socket(descriptor):
        try:
            return os.readlink(descriptor).startswith("socket:")
        except FileNotFoundError:
            return False  # closed since it was listed

    def sockets():
        return sum(map(is_socket, glob.glob("/proc/%d/fd/*" % service.process.pid)))

    service.session.close()
    # Three listeners at most two sockets each, and a few of the service's own.
    wait_for(lambda: sockets() <= 12, lambda: "the sockets to go: %d" % sockets())


def test_half_closed_client_gets_its_reply(port):
    with Connection(port) as connection:
        connection.send(request("GET", "/favicon.ico"))
        connection.end_sending()
        assert connection.reply().code == 200
        assert connection.closed()


def test_reply_that_nobody_reads_does_not_keep_the_service(services):
    service = services.start()
    (service.jobs_folder() / "big").write_bytes(b"x" * 50 * MIB)
    with Connection(service.port + 1) as connection:
        connection.send(request("GET", "/abc/big"))
        assert connection.receive()
        assert service.fetch("/favicon.ico").status_code == 200
        assert seconds_of(service.stop) < 30 + PATIENCE


@pytest.mark.skipif(sanitizer() != "", reason="has an allocator of its own")
def test_memory_of_large_results_goes_back_to_the_system(services):
    service = services.start()
    size, clients = 12 * MIB, 8
    (service.jobs_folder() / "big").write_bytes(b"x" * size)
    before = memory_of(service)
    # The rounds behind the first one find what the allocator has learned.
    for _ in range(3):
        with contextlib.ExitStack() as stack:
            for _ in range(clients):
                connection = stack.enter_context(Connection(service.port + 1))
                connection.send(request("GET", "/abc/big"))
            wait_for(lambda: memory_of(service) - before > clients * size // KIB * 3 // 4,
                     lambda: "the results in memory: %d KiB" % (memory_of(service) - before))
        wait_for(lambda: memory_of(service) - before < 20 * KIB,
                 lambda: "their memory to go: %d KiB" % (memory_of(service) - before))


def test_both_families(shared):
    for number in (shared.port, shared.port + 1):
        assert ask(number, request("GET", "/favicon.ico"), host="127.0.0.1").code == 200
        try:
            reply = ask(number, request("GET", "/favicon.ico"), host="::1")
        except OSError:
            assert not ipv6_works()
            continue
        assert reply.code == 200


def ipv6_works():
    with contextlib.suppress(OSError), socket.socket(socket.AF_INET6) as probe:
        probe.bind(("::1", 0))
        return True
    return False


def test_many_connections(services):
    """Idle ones beyond the number of threads, and requests on each of them."""
    service = services.start(listen_threads=4)
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(Connection(service.port)) for _ in range(600)]
        for connection in connections:
            connection.send(request("GET", "/favicon.ico"))
        for connection in connections:
            assert connection.reply().code == 200


def test_full_table_of_files(services):
    """New connections wait, without a loop that burns the processor, and are served later."""
    if sanitizer() == "address":
        pytest.skip("the check of virtual calls opens a pipe of its own, and without takes every "
                    "object for a broken one")
    limit = 120
    service = services.start(listen_threads=4, prefix=["prlimit", "--nofile=%d:%d" % (limit, limit)])

    def processor_seconds():
        with open("/proc/%d/stat" % service.process.pid) as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    with contextlib.ExitStack() as stack:
        for _ in range(limit + 60):
            # A head that has begun: none of them is merely idle.
            stack.enter_context(Connection(service.port)).send("GET /fav")
        before = processor_seconds()
        stays(lambda: not service.has_ended(), "the service ended", 1)
        assert processor_seconds() - before < 0.6
    with Connection(service.port) as late:
        late.send(request("GET", "/job"))
        assert late.reply().code == 200
    job = service.run("true")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"


def test_soft_limit_of_files_is_raised(services):
    service = services.start(prefix=["prlimit", "--nofile=100:500"])
    with open("/proc/%d/limits" % service.process.pid) as limits:
        line = next(line for line in limits if line.startswith("Max open files"))
    assert line.split()[3:5] == ["500", "500"]
    job = service.run("inherited seen")
    service.wait_done(job)
    assert json.loads((service.job_folder(job) / "seen").read_text())["files"] == 100


def test_log_of_refusals_is_limited(services):
    """The front itself writes a few lines a minute about refused requests, and counts the rest."""
    service = services.start()
    for _ in range(200):
        check_refused(service.port, "nonsense\r\n\r\n", {400})
    before = len(service.log().splitlines())
    assert before < 60


def test_exception_out_of_a_page(shared):
    """500 with an empty body, one line in the log, and the connection lives on."""
    body = '{"Parameters":[[0,"x/abc/y"]]}'
    with Connection(shared.port) as connection:
        for _ in range(2):
            connection.send(request("POST", "/job/updateState", body=body))
            reply = connection.reply()
            assert (reply.code, reply.body) == (500, b"")
            assert reply.headers["content-length"] == "0"
            assert "access-control-allow-origin" not in reply.headers


def test_secrets_and_forged_lines_stay_out_of_log_and_output(service):
    with Connection(service.port) as connection:
        connection.send(request("POST", "/job", [
            ("Cookie", "session=sesame"), ("Authorization", "Basic sesame"), ("X-Mark", "a%0a%sb")],
            body='{"commands":["true"]}'))
        assert connection.reply().code == 202
    service.wait_done(1)
    service.stop()
    for text in (service.log(), service.stdout(), service.stderr()):
        assert "sesame" not in text
