"""The example renderer in the slots of the example configuration: real pictures of real models."""

import json
import os
import re
import shutil
import socket
import struct
import zlib

import pytest
import requests

from ports import free_port
from render import RenderService
from service import ROOT
from test_real_tool import OWN_MODEL, SHARED
from waiting import wait_for

EXAMPLES = ROOT / "examples"
pytestmark = pytest.mark.skipif(not all(shutil.which(name) for name in ("Xvfb", "f3d")),
                                reason="Xvfb and f3d are not installed")


@pytest.fixture
def example(services):
    """The slots of examples/config, on ports that are free."""
    text = (EXAMPLES / "config" / "dappleconfig.json").read_text()
    config = json.loads(text)
    for renderer in config["renderer"]:
        # The port that clients are told is the one that the application is told.
        assert "--port %d " % renderer["port"] in renderer["exe"] + " "
        port = free_port()
        renderer["exe"] = renderer["exe"].replace("%d" % renderer["port"], "%d" % port)
        renderer["port"] = port
    return services.start(kind=RenderService, config=config, environment={
        "PATH": "%s:%s" % (EXAMPLES / "tools", os.environ["PATH"]), "PYTHONDONTWRITEBYTECODE": "1"})


def address(service, identifier):
    """Where the job's renderer answers, once it does."""
    text = service.detail("%d/dapple" % identifier).text
    found = re.fullmatch(r"http://127\.0\.0\.1:(\d+)\n", text)
    assert found, text

    def answers():
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", int(found.group(1)))) == 0
    wait_for(lambda: answers() or service.state(identifier) not in ("OPEN", "IN PROCESS"),
             "the renderer to start")
    assert service.state(identifier) == "IN PROCESS", service.console(identifier)
    return text.strip()


def lines_of(content):
    """Size of a PNG with three bytes a pixel, and its lines, unpacked but not unfiltered."""
    assert content[:8] == b"\x89PNG\r\n\x1a\n"
    packed, at, size = b"", 8, None
    while at < len(content):
        length, kind = struct.unpack(">I4s", content[at:at + 8])
        data = content[at + 8:at + 8 + length]
        if kind == b"IHDR":
            size = struct.unpack(">II", data[:8])
            assert data[8:10] == b"\x08\x02"
        packed += data if kind == b"IDAT" else b""
        at += length + 12
    raw = zlib.decompress(packed)
    stride = size[0] * 3 + 1
    assert len(raw) == stride * size[1]
    return size, {raw[begin:begin + stride] for begin in range(0, len(raw), stride)}


@pytest.mark.parametrize("model", [OWN_MODEL.name, None])
def test_picture_of_the_jobs_model(example, model):
    job = example.take(output="image", **({"model": model} if model else {}))
    picture = requests.get(address(example, job), timeout=60)
    assert picture.headers["Content-Type"] == "image/png"
    size, lines = lines_of(picture.content)
    assert size == (640, 480)
    # The model covers a good part of the picture: lines that are all background are alike.
    assert len(lines) > 100
    other = requests.get(address(example, job) + "?angle=100", timeout=60)
    assert lines_of(other.content)[1] != lines
    assert "appDapple: shows gem.obj on port " in example.console(job)


def test_two_slots_at_once_and_their_end(example):
    jobs = example.take(), example.take()
    assert jobs == (0, 1) and example.refused()
    sizes = [lines_of(requests.get(address(example, job), timeout=60).content)[0] for job in jobs]
    assert sizes == [(640, 480), (1280, 960)]
    for job in jobs:
        example.stop_job(job)
    # The virtual displays go with their applications.
    wait_for(lambda: not example.tools(), lambda: "the end of %s" % example.tools())
    example.wait_counters(0, 2, 0)


@pytest.mark.skipif(not SHARED, reason="no models beside the repository")
def test_larger_models(services):
    port = free_port()
    service = services.start(kind=RenderService, renderers=[{
        "displays": [""], "port": port,
        "exe": "%s --host 127.0.0.1 --port %d --size 320x240 --models %s"
               % (EXAMPLES / "tools" / "appDapple", port, SHARED[0].parent)}])
    job = service.take(model=SHARED[0].name)
    size, lines = lines_of(requests.get(address(service, job), timeout=120).content)
    assert size == (320, 240) and len(lines) > 80


@pytest.mark.parametrize("model", ["../hub", "/etc/passwd", "", ".", "..", 7, None, "a\0b"])
def test_models_that_are_no_names(example, model):
    job = example.take(model=model)
    example.wait_state(job, "ERROR")
    assert example.console(job).endswith("appDapple: \"model\" is no name of a file\n")


def test_requests_without_a_picture(example):
    job = example.take(model="missing.obj")
    base = address(example, job)
    assert requests.get(base, timeout=60).status_code == 404
    assert requests.get(base + "/other", timeout=60).status_code == 404
    assert requests.get(base + "?angle=nan", timeout=60).status_code == 400
    assert requests.get(base + "?angle=", timeout=60).status_code == 404


def test_busy_port_is_told_of(example):
    port = int(re.search(r"^  port     : (\d+)$", example.table(), re.MULTILINE).group(1))
    with socket.socket() as other:
        other.bind(("127.0.0.1", port))
        other.listen()
        example.take()
        example.wait_state(0, "ERROR")
    assert "appDapple: [Errno 98] Address already in use\n" in example.console(0)
