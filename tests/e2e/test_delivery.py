"""The delivery server: results, the answer to those who must wait, refusals."""

import os
from urllib.parse import quote

import pytest

from raw_http import Connection, ask, request


@pytest.fixture(scope="module")
def done(shared):
    """A service with one finished job, number 1, whose folder the tests may fill."""
    job = shared.run("put index.x3d result")
    shared.wait_done(job)
    return shared


def check_cors(reply, origin="*"):
    assert reply.headers["Access-Control-Allow-Origin"] == origin
    assert reply.headers["Access-Control-Allow-Headers"] == "content-type"


def check(reply, code, body=b""):
    assert (reply.status_code, reply.content) == (code, body)
    check_cors(reply)


def test_result_of_a_finished_job(done):
    reply = done.deliver("1/index.x3d")
    check(reply, 200, b"result")
    assert reply.headers["Content-Type"] == "model/x3d+xml"
    assert reply.headers["Content-Length"] == "6"
    for name in ("Cache-Control", "ETag", "Last-Modified", "Expires", "Accept-Ranges"):
        assert name not in reply.headers


def test_job_through_its_life(single):
    blocker = single.run("hold gate", uid="blocker")
    job = single.run("put index.x3d early", "put binGeo/a.bin data", "hold gate",
                     "put index.x3d final", uid="u")
    folder = single.job_folder(job)
    (folder / "binGeo" / "sub").mkdir()
    (folder / "binGeo" / "sub" / "deep.bin").write_bytes(b"deep")
    # Queued, then running: wait, whether there is a file or not.
    for gate in (blocker, job):
        single.wait_started(gate)
        for path in ("index.x3d", "binGeo/a.bin", "nothing", ".status", ".partial", "src", "binGeo",
                     "binGeo/nothing"):
            check(single.deliver("%d/%s" % (job, path)), 202)
        check(single.deliver("%d/index.x3d" % job, "HEAD"), 202)
        # Two levels down the marker is not seen.
        check(single.deliver("%d/binGeo/sub/deep.bin" % job), 200, b"deep")
        check(single.deliver("%d/binGeo/sub/nothing" % job), 404)
        # The folder itself: the marker in it does not count, that beside it would.
        check(single.deliver(str(job)), 403)
        single.open_gate(gate)
    single.wait_done(job)
    check(single.deliver("%d/index.x3d" % job), 200, b"final")
    check(single.deliver("%d/binGeo/a.bin" % job), 200, b"data")
    check(single.deliver("%d/src" % job), 403)
    check(single.deliver("%d/nothing" % job), 404)


def test_failed_job(service):
    job = service.run("false")
    service.wait_done(job)
    check(service.deliver("%d/index.x3d" % job), 404)
    job = service.run("put index.x3d rest", "false")
    service.wait_done(job)
    check(service.deliver("%d/index.x3d" % job), 200, b"rest")


def test_job_that_runs_again_is_unfinished_again(single):
    job = single.run("put index.x3d result")
    single.wait_done(job)
    blocker = single.run("hold gate")
    single.wait_started(blocker)
    single.run("put index.x3d result", rerun=True)
    check(single.deliver("%d/index.x3d" % job), 202)
    single.open_gate(blocker)
    single.wait_done(job)
    check(single.deliver("%d/index.x3d" % job), 200, b"result")


@pytest.mark.parametrize("size", [0, 1, 4095, 4096, 4097, 8191, 8192, 8193, 1000003])
def test_sizes(done, size):
    content = os.urandom(size)
    (done.job_folder(1) / "sized").write_bytes(content)
    reply = done.deliver("1/sized")
    check(reply, 200, content)
    assert reply.headers["Content-Length"] == str(size)


def test_large_file(done):
    content = os.urandom(1 << 20) * 40
    path = done.job_folder(1) / "large.glb"
    path.write_bytes(content)
    assert done.deliver("1/large.glb").content == content
    path.unlink()


def test_head(done):
    reply = done.deliver("1/index.x3d", "HEAD")
    check(reply, 200)
    assert reply.headers["Content-Type"] == "model/x3d+xml"
    # The page reads nothing, so the length is not known, and 0 would be wrong.
    assert "Content-Length" not in reply.headers
    assert "Transfer-Encoding" not in reply.headers
    check(done.deliver("1", "HEAD"), 403)
    check(done.deliver("1/nothing", "HEAD"), 404)
    # The connection stays in step behind it.
    with Connection(done.port + 1) as connection:
        for _ in range(3):
            connection.send(request("HEAD", "/abc/1/index.x3d"))
            assert connection.reply(has_body=False).code == 200
            connection.send(request("GET", "/abc/1/index.x3d"))
            assert connection.reply().body == b"result"


@pytest.mark.parametrize("method", ["POST", "PUT", "DELETE", "OPTIONS", "PATCH", "get", "head"])
@pytest.mark.parametrize("path", ["/abc/1/index.x3d", "/abc/1", "/nothing"])
def test_other_methods(done, method, path):
    reply = ask(done.port + 1, request(method, path, [("Origin", "http://x")]))
    assert (reply.code, reply.body) == (200, b"")
    assert reply.headers["content-length"] == "0"
    assert "access-control-allow-origin" not in reply.headers
    assert "content-type" not in reply.headers


def test_origin_comes_back(done):
    headers = {"Origin": "https://viewer.example"}
    for path in ("1/index.x3d", "1", "1/nothing"):
        for method in ("GET", "HEAD"):
            check_cors(done.deliver(path, method, headers=headers), headers["Origin"])
    (done.job_folder(1) / "src" / ".partial").touch()
    reply = done.deliver("1/src/x", headers=headers)
    (done.job_folder(1) / "src" / ".partial").unlink()
    assert reply.status_code == 202
    check_cors(reply, headers["Origin"])


@pytest.mark.parametrize("path,code", [
    ("/", 403), ("/abc", 403), ("/abc/", 403), ("/abc/1/", 403), ("/nothing", 404),
    ("/abc/2/index.x3d", 404), ("/other/1/index.x3d", 404), ("/abc/1/index.x3d/", 404),
    ("/abc/1/index.x3d/more", 404), ("/abc/1/INDEX.X3D", 404),
    ("/abc/1/index.x3d?version=2", 200), ("/abc/1/index%2Ex3d", 200), ("/%61bc/1/index.x3d", 200),
    ("/abc//1/index.x3d", 200), ("/abc/./1/index.x3d", 200), ("/abc/9/../1/index.x3d", 200),
    ("/abc/1/.meta", 200), ("/abc/1/.status", 200), ("/abc/1/jobId", 200),
])
def test_paths(done, path, code):
    reply = ask(done.port + 1, request("GET", path))
    assert reply.code == code
    assert reply.headers["access-control-allow-origin"] == "*"


def test_folder_with_and_without_a_slash_while_unfinished(services):
    """The marker counts by the parent of the path as it is written, and a slash at its end moves
    that parent into the folder."""
    service = services.start("--worker_threads", 0)
    job = service.run("true")
    check(service.deliver("%d" % job), 403)
    check(service.deliver("%d/" % job), 202)


@pytest.mark.parametrize("length", [255, 256, 5000])
def test_long_names(done, length):
    check(done.deliver("1/" + "n" * length), 404)
    check(done.deliver("/".join(["1"] + ["n" * 200] * 30)), 404)


def test_names_with_odd_characters(done):
    for name in ("with blank", "ümläut", "100%", "a+b", "a&b=c", "a;b", "semi:colon", "[x]|y", "#"):
        (done.job_folder(1) / name).write_text(name)
        check(done.deliver("1/" + quote(name)), 200, name.encode())


def test_what_is_no_regular_file(done):
    folder = done.job_folder(1)
    os.mkfifo(folder / "pipe")
    (folder / "loop").symlink_to("loop")
    (folder / "broken").symlink_to("nothing")
    (folder / "device").symlink_to("/dev/zero")
    for name in ("pipe", "loop", "loop/x", "broken", "device"):
        check(done.deliver("1/" + name), 404)
        check(done.deliver("1/" + name, "HEAD"), 404)


def test_unreadable_file(done):
    path = done.job_folder(1) / "secret"
    path.write_text("x")
    path.chmod(0)
    # Who may read everything reads this too.
    reply = done.deliver("1/secret")
    assert reply.status_code == (200 if os.access(path, os.R_OK) else 404)
    check_cors(reply)


@pytest.mark.parametrize("path", [
    "/../config/transcoderconfig.json", "/abc/../../data/config/transcoderconfig.json",
    "/%2e%2e/data/config/transcoderconfig.json", "/abc/1/%2e%2e/%2e%2e/%2e%2e/data",
    "/abc%2F..%2F..%2Fdata", "/..%2f..%2f..%2fetc/passwd", "/..", "/abc/1/../../..",
])
def test_climbing_is_refused(done, path):
    reply = ask(done.port + 1, request("GET", path))
    assert (reply.code, reply.body) == (400, b"")


def test_doubly_encoded_dots_are_a_name(done):
    assert ask(done.port + 1, request("GET", "/abc/1/%252e%252e/x")).code == 404


@pytest.mark.parametrize("name,content_type", [
    ("a.x3d", "model/x3d+xml"), ("a.x3db", "model/x3d+binary"), ("a.x3dv", "model/x3d+vrml"),
    ("a.gltf", "model/gltf+json"), ("a.glb", "model/gltf-binary"), ("a.obj", "model/obj"),
    ("a.stl", "model/stl"), ("a.html", "text/html"), ("a.htm", "text/html"),
    ("a.txt", "text/plain"), ("a.log", "text/plain"), ("a.css", "text/css"),
    ("a.js", "text/javascript"), ("a.json", "application/json"), ("a.xml", "application/xml"),
    ("a.png", "image/png"), ("a.jpeg", "image/jpeg"), ("a.jpg", "image/jpeg"),
    ("a.gif", "image/gif"), ("a.webp", "image/webp"), ("a.svg", "image/svg+xml"),
    ("a.ico", "image/x-icon"), ("a.wasm", "application/wasm"), ("a.zip", "application/zip"),
    ("a.pdf", "application/pdf"), ("A.X3D", "model/x3d+xml"), ("a.tar.GLB", "model/gltf-binary"),
    ("a.unheardof", "application/octet-stream"), ("plain", "application/octet-stream"),
    ("a.", "application/octet-stream"), ("x3d", "application/octet-stream"),
])
def test_content_types(done, name, content_type):
    (done.job_folder(1) / name).write_bytes(b"x")
    for method in ("GET", "HEAD"):
        assert done.deliver("1/" + name, method).headers["Content-Type"] == content_type


def test_range_is_not_looked_at(done):
    reply = done.deliver("1/index.x3d", headers={"Range": "bytes=1-2"})
    check(reply, 200, b"result")


def test_delivery_is_on_the_next_port_whatever_is_told(services):
    service = services.start("--delivery_port", 9000)
    job = service.run("put index.x3d here", reply="id")
    service.wait_done(job)
    assert service.deliver("1/index.x3d").text == "here"
    assert service.submit({"commands": ["true"], "reply": "uri"}).text == \
        "http://127.0.0.1:9000/abc/2"


def test_files_of_every_provider_below_the_cache_root(done):
    other = done.cache_root / "other" / "7"
    other.mkdir(parents=True)
    (other / "index.x3d").write_text("of another")
    check(done.fetch("/other/7/index.x3d"), 200, b"of another")
