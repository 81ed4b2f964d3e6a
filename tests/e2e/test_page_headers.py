"""What keeps browsers from running the texts of strangers: on HTML pages of the main and the secure
server, whatever made them, and on nothing else."""

import re

import pytest

from legacy import LegacyService
from page_headers import HTML_HEADERS, safety_of, statistics_headers
from raw_http import ask, request
from render import RenderService
from service import Service

JSON = (("Accept", "application/json"),)
# Method, path, headers, body.
PAGES = {
    Service: [
        ("GET", "/", (), ""), ("POST", "/", (), ""), ("OPTIONS", "/", (), ""),
        ("GET", "/job", (), ""), ("GET", "/job/add", (), ""), ("GET", "/job/1", (), ""),
        ("POST", "/job", (), '{"commands":["true"]}'), ("POST", "/job", (), '{"resource":"a"}'),
        ("POST", "/job", (), '{"resource":"a","redirect":true}')],
    LegacyService: [
        ("GET", "/", (), ""), ("OPTIONS", "/", (), ""), ("GET", "/job", (), ""),
        ("GET", "/job", JSON, ""), ("GET", "/job/list", (), ""), ("GET", "/job/1", (), ""),
        ("OPTIONS", "/job/1", (), ""), ("GET", "/job/1/status", (), ""), ("GET", "/job/9", (), ""),
        ("GET", "/job/<b>", (), ""), ("GET", "/settings", (), ""),
        ("POST", "/job/add", (), '{"resource":"a"}'),
        ("POST", "/job/add", (), '{"resource":"a","reply":"redirect"}'),
        ("GET", "/job/add?resource=a&reply=uri", (), "")],
    RenderService: [
        ("GET", "/", (), ""), ("POST", "/", (), ""), ("OPTIONS", "/", (), ""),
        ("GET", "/job", (), ""), ("GET", "/job/add", (), "")],
}
OTHERS = {
    Service: [
        ("GET", "/", JSON, ""), ("GET", "/job", JSON, ""), ("OPTIONS", "/job", (), ""),
        ("PUT", "/job/1", (), ""), ("GET", "/job/99", (), ""), ("POST", "/job", (), "nonsense"),
        ("POST", "/job", (), "[{}]"), ("POST", "/job", (), "1"), ("GET", "/none", (), ""),
        ("POST", "/job/updateState", (), "[]"), ("GET", "/favicon.ico", (), ""),
        ("POST", "/config", (), "{}"), ("GET", "/%", (), ""), ("GET", "/..", (), "")],
    LegacyService: [
        ("OPTIONS", "/job", (), ""), ("GET", "/job/list/json", (), ""),
        ("GET", "/job/list/cached", (), ""), ("GET", "/job/list/open", (), ""),
        ("GET", "/version", (), ""), ("GET", "/changelog", (), ""), ("GET", "/chart.js", (), ""),
        ("GET", "/job/delete?id=<b>", (), ""), ("POST", "/job/delete", (), ""),
        ("POST", "/job/updateState", (), "[]"), ("GET", "/favicon.ico", (), ""),
        ("GET", "/none", (), ""), ("GET", "/%", (), "")],
    RenderService: [
        ("OPTIONS", "/job", (), ""), ("GET", "/job", JSON, ""), ("GET", "/job/x", (), ""),
        ("GET", "/statistics", (), ""), ("GET", "/favicon.ico", (), ""), ("GET", "/%", (), "")],
}


def cases(table):
    return [pytest.param(kind, *case, id="%s %s %s" % (kind.__name__, case[0], case[1]))
            for kind, listed in table.items() for case in listed]


@pytest.fixture(scope="module")
def known(module_services):
    """A service of each kind, with a job in it."""
    made = {}

    def of(kind):
        if kind not in made:
            made[kind] = module_services.start(kind=kind)
            made[kind].post("/job/add", {"commands": ["true"], "resource": "a"})
        return made[kind]
    return of


@pytest.mark.parametrize("kind,method,path,headers,body", cases(PAGES))
def test_page(known, kind, method, path, headers, body):
    service = known(kind)
    reply = ask(service.port, request(method, path, headers, body))
    assert reply.headers["content-type"] == "text/html"
    assert safety_of(reply) == HTML_HEADERS
    # Once each, behind what the page set.
    assert reply.names[-4:] == list(HTML_HEADERS) + ["Content-Length"]


@pytest.mark.parametrize("kind,method,path,headers,body", cases(OTHERS))
def test_other_reply(known, kind, method, path, headers, body):
    reply = ask(known(kind).port, request(method, path, headers, body))
    assert not reply.headers.get("content-type", "").startswith("text/html")
    assert safety_of(reply) == {}


def test_heads_of_other_replies_are_as_ever(known):
    """To the byte, but for the date."""
    head = request("GET", "/job", JSON)
    reply = ask(known(Service).port, head)
    assert reply.names == ["Server", "Date", "Content-Type", "Access-Control-Allow-Origin",
                           "Access-Control-Allow-Headers", "Content-Length"]
    reply = ask(known(Service).port, request("OPTIONS", "/job"))
    assert reply.names == ["Server", "Date", "Content-Length"]


def without_sums(headers):
    return {name: re.sub(r"'sha256-[^']*'", "SUM", value) for name, value in headers.items()}


@pytest.mark.parametrize("kind,path", [(Service, "/"), (LegacyService, "/job/1/status"),
                                       (LegacyService, "/statistics"), (RenderService, "/")])
def test_head_is_answered_like_get(known, kind, path):
    port = known(kind).port
    get = ask(port, request("GET", path))
    head = ask(port, request("HEAD", path), has_body=False)
    assert head.names == get.names
    assert len(safety_of(get)) == 3
    # The numbers of the statistics change from one moment to the next, and the sum of their script
    # with them.
    assert without_sums(safety_of(head)) == without_sums(safety_of(get))


def test_statistics_may_run_their_own_script_alone(services):
    """What is allowed goes with the numbers in the script."""
    service = services.start(kind=LegacyService)
    policies = set()
    for number in range(3):
        reply = ask(service.port, request("GET", "/statistics"))
        assert safety_of(reply) == statistics_headers(reply.body.decode())
        assert reply.names.count("Content-Security-Policy") == 1
        policies.add(reply.headers["content-security-policy"])
        service.wait_done(service.run("model-%d" % number))
    assert len(policies) == 3
    for word in ("unsafe", "*", "data:", "http:", "strict-dynamic"):
        assert not any(word in policy for policy in policies)


@pytest.mark.parametrize("kind", [Service, RenderService])
def test_secure_server(services, certificate, context, kind):
    service = services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key", certificate[1],
                             kind=kind)
    service.submit({"commands": ["true"]})
    for path in ("/", "/job") + (("/job/1",) if kind is Service else ()):
        reply = ask(service.port - 1, request("GET", path), tls=context)
        assert reply.headers["content-type"] == "text/html"
        assert safety_of(reply) == HTML_HEADERS
    reply = ask(service.port - 1, request("GET", "/none"), tls=context)
    assert (reply.code, safety_of(reply)) == (404, {})


@pytest.mark.parametrize("kind", [Service, LegacyService])
def test_results_are_delivered_without(services, kind):
    """They are the jobs' own pages: a viewer in them has to run."""
    service = services.start(kind=kind)
    folder = service.jobs_folder() / "7"
    folder.mkdir(parents=True)
    (folder / "index.html").write_text("<script>view()</script>")
    path = "/7/index.html" if kind is LegacyService else "/abc/7/index.html"
    for method in ("GET", "HEAD"):
        reply = ask(service.port + 1, request(method, path), has_body=method == "GET")
        assert (reply.code, reply.headers["content-type"]) == (200, "text/html")
        assert safety_of(reply) == {}
