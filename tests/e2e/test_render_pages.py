"""The render provider's pages, to the byte."""

import os
import socket

import pytest

from raw_http import ask, request
from render import CORS, RenderService, assert_bare, cors_of, entry, start_render
from test_pages import html_list
from waiting import wait_for

JSON = {"Accept": "application/json"}


def row(identifier, result, state):
    return ("<tr><td><a href='../job/%d'>%d</a></td><td title=\"not set\">not set</td>"
            "<td title=\"%s\">%s</td><td>%s</td><td>0 sec</td><td></td></tr>"
            % (identifier, identifier, result, result, state))


def requests_told(service, kind, first_line):
    """What was written for the requests of this kind, without their headers."""
    return service.stderr().count("dapple : job %s request : \n%s\n" % (kind, first_line))


def test_front_page(shared_render):
    system = {}
    with open("/etc/os-release") as release:
        for line in release:
            name, _, value = line.strip().partition("=")
            system[name] = value.strip("\"")
    expected = (
        "<html><header></header><body><h1 align='center'>Ostrand Works - DappleRenderer</h1>"
        "<p align='center'>An Ostrandhub Service</p><h2>Status</h2><ul><li>Version: 1.0.0 "
        "(<a href=\"./changelog\">Changelog</a>)</li><h2>Options</h2><ul>"
        "<li><a href=\"./job\">Job List</a></li></ul><h2>System</h2><pre>"
        "Host Name   : %s\nMachine Name: %s\nCPU Count   : %d\nOS          : %s\n</body></html>"
        % (socket.gethostname(), os.uname().machine, len(os.sched_getaffinity(0)),
           system["PRETTY_NAME"]))
    for headers in ((), (("Accept", "application/json"),)):
        reply = ask(shared_render.port, request("GET", "/", headers))
        assert (reply.code, reply.body.decode()) == (200, expected)
        assert reply.headers["content-type"] == "text/html"
        assert cors_of(reply) == CORS
    # No error: the request reaches the page whatever its method is.
    assert shared_render.post("/", "nonsense").text == expected


def test_front_page_echoes_the_origin(shared_render):
    reply = shared_render.get("/", headers={"Origin": "http://me"})
    assert reply.headers["Access-Control-Allow-Origin"] == "http://me"


@pytest.mark.parametrize("path", ["/changelog", "/statistics", "/config",
                                  "/job/../jobs", "/jobs", "/version", "/favicon", "//", "//job/0"])
def test_pages_that_are_not_there(shared_render, path):
    """Two of them are linked by the pages."""
    reply = shared_render.get(path)
    assert (reply.status_code, reply.text) == (404, "")


def test_icon(shared_render):
    reply = shared_render.get("/favicon.ico")
    assert (len(reply.content), reply.headers["Content-Type"]) == (13752, "image/x-icon")


def test_empty_list(shared_render):
    reply = ask(shared_render.port, request("GET", "/job"))
    assert (reply.code, reply.body.decode()) == (200, html_list(0, 0, 0, []))
    assert reply.headers["content-type"] == "text/html"
    assert cors_of(reply) == CORS


def test_list_of_jobs_in_every_stage(services):
    service = start_render(services, entry(), entry(exe="false"), entry(exe="true"),
                           entry(**{"class": "ray"}), entry())
    for _ in range(4):
        service.take()
    service.wait_counters(2, 1, 1)
    rows = [row(0, "See Resource", "IN PROCESS"), row(1, "See Resource", "ERROR"),
            row(2, "See Resource", "CLOSED"), row(4, "See Resource", "IN PROCESS")]
    # Between being taken up and having a process a job reads the same.
    wait_for(lambda: service.get("/job").text == html_list(2, 1, 1, rows), "the list")
    service.stop_job(4)
    service.wait_counters(1, 2, 1)
    rows[3] = row(4, "See Resource", "CLOSED")
    assert service.get("/job").text == html_list(1, 2, 1, rows)


def test_list_shows_nothing_of_the_description(services):
    """And so has nothing to escape."""
    service = start_render(services, entry(**{"class": "<b>", "outputs": ["&"], "exe": "hold gate"}))
    service.take(**{"class": "<b>", "output": "&", "<script>": "<script>"})
    service.wait_started(0)
    assert service.get("/job").text == html_list(1, 0, 0, [row(0, "See Resource", "IN PROCESS")])


def test_links_of_the_list_lead_to_the_jobs(services):
    service = start_render(services, entry())
    service.take()
    assert "<a href='../job/0'>0</a>" in service.get("/job").text
    assert service.get("/job/../job/0").status_code == 200


@pytest.mark.parametrize("accept", [None, "", "text/html", "application/json, text/html",
                                    "Application/JSON", "application/json;q=1", "*/*"])
def test_other_accepted_types_give_the_page(shared_render, accept):
    headers = [("Accept", accept)] if accept is not None else []
    reply = ask(shared_render.port, request("GET", "/job", headers))
    assert reply.headers["content-type"] == "text/html"
    assert reply.body.startswith(b"<html>")


def test_list_in_json_is_a_code_alone(services):
    service = start_render(services, entry())
    for path in ("/job", "/job/add"):
        assert_bare(ask(service.port, request("GET", path, JSON.items())), 200)
    service.take()
    service.wait_started(0)
    assert_bare(ask(service.port, request("GET", "/job", JSON.items())), 200)


def test_requests_are_told_of(services):
    service = start_render(services, entry())
    begin = len(service.stderr())
    head = "Host: localhost\n"
    steps = [
        ("POST", "/job", "{}", "add", "", "Content-Length: 2\n", "found slot\n"),
        ("GET", "/job", "", "list html", "", "", ""),
        ("GET", "/job/0", "", "details", "", "", ":/\n:job\n:0 | 0\ndetail : all\n"),
        ("GET", "/job/+0/dapple", "", "details", "", "", ":/\n:job\n:+0 | 0\ndetail : dapple\n"),
        ("GET", "/job/0/", "", "details", "", "", ":/\n:job\n:0 | 0\ndetail : .\n"),
        ("GET", "/job/", "", "details", "", "", ":/\n:job\n"),
        ("GET", "/job/9", "", "details", "", "", ":/\n:job\n"),
        ("GET", "/job/x", "", "details", "", "", ":/\n:job\n"),
        ("DELETE", "/job/", "", "delete", "", "", ":/\n:job\n"),
        ("DELETE", "/job/1x", "", "delete", "", "", ":/\n:job\n"),
        ("DELETE", "/job/7", "", "delete", "", "", ":/\n:job\n"),
        ("DELETE", "/job/00/x", "", "delete", "", "", ":/\n:job\n:00 | 0\n"),
    ]
    expected = ""
    for method, path, body, kind, query, headers, lines in steps:
        ask(service.port, request(method, path + query, body=body))
        expected += ("dapple : job %s request : \n%s %s\n%s%s%s"
                     % (kind, method, path, head, headers, lines))
        assert service.stderr()[begin:] == expected
    ask(service.port, request("GET", "/job?a=b", JSON.items()))
    expected += ("dapple : job list json request : \nGET /job?a=b\n%sAccept: application/json\n"
                 % head)
    assert service.stderr()[begin:] == expected


def test_what_is_told_of_a_request_cannot_be_forged(services):
    service = start_render(services, entry())
    begin = len(service.stderr())
    ask(service.port, request("GET", "/job/0?a=\u00e4", [("X-A", "b\tc"), ("Cookie", "secret=1")]))
    told = service.stderr()[begin:]
    assert "secret" not in told and "Cookie: (left out)\n" in told
    assert "X-A: b\\x09c\n" in told


def test_secure_server_has_the_pages_but_the_one_for_adding(services, certificate):
    import ssl
    service = services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key", certificate[1],
                             kind=RenderService)
    context = ssl.create_default_context(cafile=str(certificate[0]))
    port = service.port - 1
    reply = ask(port, request("POST", "/job", body="{}"), tls=context)
    assert (reply.code, reply.body.decode()) == (
        200, "http://127.0.0.1:%d/job/0\n" % service.port)
    assert b"DappleRenderer" in ask(port, request("GET", "/"), tls=context).body
    assert ask(port, request("GET", "/job/0/dapple"), tls=context).body == (
        b"http://127.0.0.1:42000\n")
    # "/job/*" takes it there, and knows no POST.
    assert ask(port, request("POST", "/job/add", body="{}"), tls=context).code == 400
