"""The legacy transcoder's result server: files, the answer to those who must wait, what it leaves
to the web server."""

import os
from urllib.parse import quote

import pytest

from legacy import LegacyService
from raw_http import Connection, ask, request
from waiting import wait_for


def check(reply, code, body=b"", kind=None):
    """The whole reply, headers too."""
    assert (reply.status_code, reply.content) == (code, body)
    headers = {name: value for name, value in reply.headers.items() if name != "Date"}
    expected = {"Server": "OstrandServiceDelivery", "Access-Control-Allow-Origin": "*",
                "Access-Control-Allow-Headers": "content-type", "Content-Length": str(len(body))}
    if kind is not None:
        expected["Content-Type"] = kind
    assert headers == expected


def head(service, path):
    return ask(service.port + 1, request("HEAD", path), has_body=False)


@pytest.fixture(scope="module")
def done(shared_legacy):
    """A service with one finished job, number 1, whose folder the tests may fill."""
    job = shared_legacy.run("result")
    shared_legacy.wait_done(job)
    return shared_legacy


def test_result_of_a_finished_job(done):
    check(done.deliver("1/index.x3d"), 200, b"result", "model/x3d+xml")
    reply = head(done, "/1/index.x3d")
    assert (reply.code, reply.headers["content-type"]) == (200, "model/x3d+xml")
    assert reply.headers["access-control-allow-origin"] == "*"
    # The page reads nothing, so it knows no length.
    assert "content-length" not in reply.headers
    reply = done.deliver("1/index.x3d", headers={"Origin": "http://me", "Range": "bytes=1-2"})
    assert (reply.status_code, reply.content) == (200, b"result")
    assert reply.headers["Access-Control-Allow-Origin"] == "http://me"
    for name in ("Cache-Control", "ETag", "Last-Modified", "Accept-Ranges"):
        assert name not in reply.headers


def test_job_through_its_life(services):
    service = services.start("-t", 1, kind=LegacyService)
    assert service.fetch("/1/index.x3d").status_code == 404
    blocker = service.run("hold gate one")
    service.wait_started(blocker)
    uri = service.post("/job", {"resource": "hold gate", "reply": "file"}).text
    assert uri == service.uri(2) + "/index.x3d"
    folder = service.job_folder(2)
    (folder / "binGeo" / "a.bin").write_bytes(b"data")
    (folder / "index.x3d").write_bytes(b"early")
    # Waiting, then running.
    for gate in (blocker, 2):
        service.wait_started(gate)
        for path in ("index.x3d", "nothing", ".status", ".partial", ".meta", "binGeo", ""):
            check(service.deliver("2/" + path), 202)
        reply = head(service, "/2/index.x3d")
        assert reply.code == 202 and "content-type" not in reply.headers
        # The marker counts in its own folder alone.
        check(service.deliver("2/binGeo/a.bin"), 200, b"data", "application/octet-stream")
        check(service.deliver("2/binGeo/nothing"), 404)
        check(service.deliver("2"), 404)
        service.open_gate(gate)
    service.wait_done(2)
    check(service.deliver("2/index.x3d"), 200, b"hold gate", "model/x3d+xml")
    check(service.deliver("2/binGeo"), 404)
    check(service.deliver("2/"), 404)


def test_who_gets_a_result_finds_the_final_state(services):
    """The state is told first, the marker goes behind it, then come the times."""
    service = services.start("-t", 1, kind=LegacyService)
    for number in range(1, 6):
        assert service.run("say %d" % number) == number
        wait_for(lambda: service.deliver("%d/index.x3d" % number).status_code != 202, "the result",
                 step=0.001)
        assert service.stored_status(number) == 2
        assert service.state(number) == "CLOSED"


def test_failed_job(legacy):
    job = legacy.run("exit-with 3")
    legacy.wait_done(job)
    check(legacy.deliver("%d/index.x3d" % job), 404)
    # An old file that was left is served.
    (legacy.job_folder(job) / "index.x3d").write_bytes(b"old")
    check(legacy.deliver("%d/index.x3d" % job), 200, b"old", "model/x3d+xml")


@pytest.mark.parametrize("method", ["PUT", "DELETE", "OPTIONS", "PATCH", "get"])
def test_other_methods_get_an_empty_reply(done, method):
    """Not even the CORS headers, so that a browser's first question fails."""
    for path in ("/1/index.x3d", "/nowhere"):
        reply = ask(done.port + 1, request(method, path, [("Content-Type", "text/plain"),
                                                          ("Origin", "http://me")]))
        assert (reply.code, reply.body) == (200, b"")
        assert sorted(reply.headers) == ["content-length", "date", "server"]


def test_kinds_and_sizes(done):
    folder = done.job_folder(1)
    for name, content, kind in (
            ("a.HTML", b"<p>", "text/html"), ("a.glb", b"", "model/gltf-binary"),
            ("a.x3dv", b"x" * 4096, "model/x3d+vrml"), ("none", b"\0" * 4097,
                                                        "application/octet-stream"),
            ("console.txt", bytes(range(256)) * 5000, "text/plain"),
            ("fettle_screenshot.jpg", b"\xff\xd8", "image/jpeg"), (".png", b"p", "image/png")):
        (folder / name).write_bytes(content)
        check(done.deliver("1/" + name), 200, content, kind)


def test_names_with_odd_characters(done):
    folder = done.job_folder(1)
    for name in ("a b", "ä", "a%b", "a\\b", "a?b", "+", "a;b", "a&b=c", "a:b", "~"):
        (folder / name).write_bytes(name.encode())
        check(done.deliver("1/" + quote(name)), 200, name.encode(), "application/octet-stream")
    # A backslash is no separator.
    check(done.fetch("/1%5Cindex.x3d"), 404)
    assert ask(done.port + 1, request("GET", "/1\\index.x3d")).code == 404
    assert ask(done.port + 1, request("GET", "/1/a\\b")).body == b"a\\b"
    # Decoded once.
    check(done.fetch("/1/a%2525b"), 404)
    assert done.deliver("1/index.x3d?id=2").content == b"result"


def test_paths_of_other_forms(done):
    for path in ("//1/index.x3d", "/1//index.x3d", "/1/./index.x3d", "/x/../1/index.x3d"):
        reply = ask(done.port + 1, request("GET", path))
        assert (reply.code, reply.body) == (200, b"result"), path
    for path in ("/", "/1/index.x3d/", "/1/index.x3d/x", "/01/index.x3d", "/" + "x" * 300,
                 "/a" * 3000):
        assert ask(done.port + 1, request("GET", path)).code == 404, path
    for path in ("/../log/messages.log", "/1/../../log/messages.log", "/%2e%2e/log/messages.log",
                 "/1/%2e%2e/%2e%2e/log/messages.log", "/1/%00", "/1/%0a", "1/index.x3d", "/%zz"):
        assert ask(done.port + 1, request("GET", path)).code == 400, path
    # Nothing below the cache folder is hidden.
    assert done.deliver("1/.meta").json()["resource"] == "result"
    assert done.deliver(".serviceid").text.strip() == done.provider_id


def test_only_regular_files(done):
    folder = done.job_folder(1)
    os.mkfifo(folder / "pipe")
    (folder / "loop").symlink_to("loop")
    (folder / "dangling").symlink_to("nowhere")
    (folder / "link").symlink_to("index.x3d")
    for name in ("pipe", "loop", "dangling", "binGeo"):
        check(done.deliver("1/" + name), 404)
    check(done.deliver("1/link"), 200, b"result", "application/octet-stream")


def test_what_counts_as_a_marker(done):
    for number, make, code in ((101, lambda path: path.symlink_to("/nowhere/at/all"), 200),
                               (102, lambda path: path.mkdir(), 202),
                               (103, lambda path: path.symlink_to("f"), 202),
                               (104, lambda path: path.symlink_to(".partial"), 200)):
        folder = done.job_folder(number)
        folder.mkdir()
        (folder / "f").write_bytes(b"text")
        make(folder / ".partial")
        assert done.deliver("%d/f" % number).status_code == code, number


def test_marker_in_the_root(services):
    service = services.start(kind=LegacyService)
    assert service.fetch("/.serviceid").status_code == 200
    (service.cache_root / ".partial").touch()
    for path in ("/.serviceid", "/nothing", "/"):
        assert service.fetch(path).status_code == 202, path
    assert service.fetch("/in/nothing").status_code == 404
    # It has a page of its own.
    assert len(service.fetch("/favicon.ico").content) == 13752


def test_many_requests_on_one_connection(done):
    with Connection(done.port + 1) as connection:
        connection.send(request("GET", "/1/index.x3d") * 50 + request("GET", "/none") * 50)
        for _ in range(50):
            assert connection.reply().body == b"result"
        for _ in range(50):
            assert connection.reply().code == 404
