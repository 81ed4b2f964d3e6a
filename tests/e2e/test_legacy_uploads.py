"""Uploads to the legacy transcoder's result server, and jobs on what was uploaded."""

import hashlib
import os
import re
import shutil
import threading

import pytest

from disks import fill
from legacy import LegacyService
from raw_http import Connection, ask, request
from test_legacy_delivery import check
from waiting import wait_for

FORM = r"[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}\.(txt|png|x3d|x3dv)@(%s)"
LIMIT = 2 << 30  # of a body that the server takes


def name_of(service, reply):
    """The file's name in a good answer, which is checked."""
    found = re.fullmatch(FORM % service.provider_id, reply.text)
    assert found, reply.text
    check(reply, 200, reply.content)
    return reply.text.partition("@")[0]


def stored(service, name):
    return service.cache_root / "in" / name


@pytest.mark.parametrize("kind,extension", [
    ("text/plain", "txt"), ("image/png", "png"), ("model/x3d+xml", "x3d"),
    ("model/x3d+vrml", "x3dv"),
])
def test_types(shared_legacy, kind, extension):
    content = bytes(range(256)) + b"\r\n"
    name = name_of(shared_legacy, shared_legacy.upload(content, kind))
    assert name.endswith("." + extension)
    assert stored(shared_legacy, name).read_bytes() == content


@pytest.mark.parametrize("kind", [
    None, "", "text", "text/html", "TEXT/PLAIN", "text/plain;charset=utf-8",
    "text/plain; charset=utf-8", "model/gltf-binary", "application/x-www-form-urlencoded",
    "text/plain, text/plain",
])
def test_other_types(shared_legacy, kind):
    before = os.listdir(shared_legacy.cache_root / "in")
    headers = [] if kind is None else [("Content-Type", kind)]
    reply = ask(shared_legacy.port + 1, request("POST", "/", headers, "model"))
    assert (reply.code, reply.body) == (404, b"")
    assert reply.headers["access-control-allow-origin"] == "*"
    assert reply.headers["access-control-allow-headers"] == "content-type"
    assert os.listdir(shared_legacy.cache_root / "in") == before


def test_type_given_twice(shared_legacy):
    """Even the same twice: what is compared is the joined text."""
    headers = [("Content-Type", "text/plain")] * 2
    assert ask(shared_legacy.port + 1, request("POST", "/", headers, "x")).code == 404
    # The name of the header has no case.
    assert ask(shared_legacy.port + 1,
               request("POST", "/", [("CONTENT-type", "text/plain")], "x")).code == 200


@pytest.mark.parametrize("path", ["/", "/upload", "/1/index.x3d", "/in/x", "/x?id=1"])
def test_path_does_not_matter(shared_legacy, path):
    name = name_of(shared_legacy, shared_legacy.upload(b"model", path=path))
    assert stored(shared_legacy, name).read_bytes() == b"model"


def test_icon_is_no_place_for_uploads(shared_legacy):
    reply = shared_legacy.upload(b"model", path="/favicon.ico")
    assert (reply.status_code, len(reply.content)) == (200, 13752)


def test_marker_does_not_stop_uploads(services):
    service = services.start(kind=LegacyService)
    (service.cache_root / ".partial").touch()
    name_of(service, service.upload(b"model"))


@pytest.mark.parametrize("size", [0, 1, 4096, 100001])
def test_sizes(shared_legacy, size):
    content = os.urandom(size)
    name = name_of(shared_legacy, shared_legacy.upload(content))
    assert stored(shared_legacy, name).read_bytes() == content


def test_chunked_and_announced_body(shared_legacy):
    head = ("POST / HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\n"
            "Transfer-Encoding: chunked\r\nExpect: 100-continue\r\n\r\n")
    with Connection(shared_legacy.port + 1) as connection:
        assert connection.send(head).reply(has_body=False).code == 100
        reply = connection.send("3\r\nabc\r\n2;x=y\r\nde\r\n0\r\n\r\n").reply()
    assert reply.code == 200
    name = reply.body.decode().partition("@")[0]
    assert stored(shared_legacy, name).read_bytes() == b"abcde"


def test_300_mib(services):
    service = services.start(kind=LegacyService)
    block = os.urandom(1 << 20)
    digest = hashlib.sha1()
    head = request("POST", "/", [("Content-Type", "model/x3d+xml"),
                                 ("Content-Length", str(300 << 20))])
    with Connection(service.port + 1) as connection:
        connection.send(head)
        for _ in range(300):
            connection.send(block)
            digest.update(block)
        # Others are served while it comes in.
        assert service.upload(b"small").status_code == 200
        reply = connection.reply()
    assert reply.code == 200
    path = stored(service, reply.body.decode().partition("@")[0])
    assert path.stat().st_size == 300 << 20
    found = hashlib.sha1()
    with open(path, "rb") as file:
        for piece in iter(lambda: file.read(1 << 20), b""):
            found.update(piece)
    assert found.digest() == digest.digest()
    path.unlink()


def test_body_beyond_the_limit_is_refused_by_its_length(shared_legacy):
    head = request("POST", "/", [("Content-Type", "text/plain"),
                                 ("Content-Length", str(LIMIT + 1))])
    assert ask(shared_legacy.port + 1, head).code == 413
    # The main server takes less.
    head = request("POST", "/job", [("Content-Length", str((64 << 20) + 1))])
    assert ask(shared_legacy.port, head).code == 413


def test_broken_off_upload_leaves_nothing(legacy):
    head = request("POST", "/", [("Content-Type", "text/plain"), ("Content-Length", "1000")])
    with Connection(legacy.port + 1) as connection:
        connection.send(head + "x" * 500)
    assert legacy.upload(b"model").status_code == 200
    assert len(os.listdir(legacy.cache_root / "in")) == 1


def test_folder_that_has_gone(legacy):
    """The answer is that of a success, and no file is there; the log tells."""
    shutil.rmtree(legacy.cache_root / "in")
    name = name_of(legacy, legacy.upload(b"model"))
    assert not (legacy.cache_root / "in").exists()
    assert "UPLOAD: failed, could not be written: %s\n" % name in legacy.log()
    (legacy.cache_root / "in").mkdir()
    name = name_of(legacy, legacy.upload(b"model"))
    assert stored(legacy, name).read_bytes() == b"model"


def test_full_disk(services, small_disk):
    service = services.start(kind=LegacyService, cache_path=small_disk / "cache")
    kept = name_of(service, service.upload(b"x" * 1000))
    # What does not fit as a whole leaves no part behind.
    for content in (b"x" * (1 << 20), b"x" * (300 << 10)):
        name = name_of(service, service.upload(content))
        assert "UPLOAD: failed, could not be written: %s\n" % name in service.log()
    assert os.listdir(small_disk / "cache" / "in") == [kept]
    fill(small_disk / "filler")
    name_of(service, service.upload(b"x"))
    assert os.listdir(small_disk / "cache" / "in") == [kept]
    (small_disk / "filler").unlink()
    assert stored(service, name_of(service, service.upload(b"again"))).read_bytes() == b"again"


def test_many_at_once(legacy):
    """Each under a name of its own."""
    names = []

    def send(number):
        for piece in range(10):
            content = b"%d %d" % (number, piece)
            reply = ask(legacy.port + 1, request("POST", "/", [("Content-Type", "text/plain")],
                                                 content.decode()))
            name = reply.body.decode().partition("@")[0]
            names.append(name)
            assert stored(legacy, name).read_bytes() == content
    threads = [threading.Thread(target=send, args=(number,)) for number in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(set(names)) == 80


def test_whole_identifier_whatever_the_options(services):
    """The short form and the one from the options stand for the folder alone."""
    for options, provider_id in ((["--shortuuid"], None), ([], "P")):
        service = services.start(*options, kind=LegacyService, provider_id=provider_id)
        whole = (service.cache_root / ".serviceid").read_text().strip()
        assert len(whole) == 36
        assert service.upload(b"model").text.partition("@")[2] == whole
        assert service.submit({"resource": "r"}).text == "1@" + whole
        assert (service.job_folder(1) / "jobId").read_text() == "1@" + whole
        assert (service.cache_root / (provider_id or whole[:8])).is_dir()


def test_job_on_an_upload(legacy):
    """The road of a client: upload, job by the name that came back, result."""
    named = legacy.upload(b"model").text
    uri = legacy.submit({"resource": named, "reply": "file"}).text
    job = int(uri.rsplit("/", 2)[1])
    legacy.wait_done(job)
    path = stored(legacy, named.partition("@")[0])
    call, = legacy.calls(job)
    assert call[:2] == ["-i", str(path)]
    assert legacy.deliver("%d/index.x3d" % job).text == str(path)
    # The uid keeps the text that was sent.
    assert legacy.get("/job/list/cached").json() == [named]
    wait_for(lambda: legacy.timings(job), "the times")
