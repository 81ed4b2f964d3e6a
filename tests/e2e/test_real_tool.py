"""Real models through the whole road: submitted, converted by assimp, fetched."""

import re
import shlex
import subprocess
import sys
import xml.etree.ElementTree

import pytest
import requests

from service import ROOT
from waiting import wait_for

OWN_MODEL = ROOT / "examples" / "models" / "gem.obj"
# Larger ones, where somebody has put them beside the repository.
SHARED = sorted((ROOT.parent / "shared" / "models").glob("*.obj"))
MODELS = [OWN_MODEL] + SHARED
ASSIMP = {"commandWhitelist": ["assimp"]}


def faces_and_points(content):
    """The numbers of faces and points of an X3D scene."""
    scene = xml.etree.ElementTree.fromstring(content)
    assert scene.tag == "X3D"
    faces = sum(node.get("coordIndex").split().count("-1") for node in scene.iter("IndexedFaceSet"))
    points = sum(len(node.get("point").split()) // 3 for node in scene.iter("Coordinate"))
    return faces, points


def faces_of_obj(path):
    return sum(line.startswith("f ") for line in path.read_text(errors="replace").splitlines())


def poll(uri):
    """As a client does it: until the answer is no longer that it must wait."""
    answers = []

    def answered():
        answers.append(requests.get(uri, timeout=60))
        return answers[-1].status_code != 202

    wait_for(answered, uri)
    return answers[-1]


@pytest.mark.parametrize("model", MODELS, ids=lambda path: path.stem)
def test_obj_becomes_x3d(services, model):
    service = services.start(config=ASSIMP)
    answer = service.submit({"commands": ["assimp export %s index.x3d" % shlex.quote(str(model))],
                             "reply": "uri"})
    assert answer.status_code == 202
    reply = poll(answer.text + "/index.x3d")
    assert reply.status_code == 200, service.console(1)
    assert reply.headers["Content-Type"] == "model/x3d+xml"
    faces, points = faces_and_points(reply.content)
    # The tool cuts some faces into triangles and drops degenerate ones, yet the model is there.
    assert faces >= 0.9 * faces_of_obj(model)
    assert points > 0
    assert service.update_state(answer.text) == [[200, answer.text]]
    assert "wrote output file" in service.get("/job/1").text
    assert "wrote output file" in service.console(1)


def test_all_models_at_once_in_one_request(services):
    service = services.start(config=ASSIMP)
    batch = [{"commands": ["assimp export %s index.%s" % (shlex.quote(str(model)), kind)],
              "reply": "uri", "format": "x3d"} for model in MODELS for kind in ("x3d", "stl")]
    answer = service.post("/job", batch)
    assert answer.status_code == 200
    uris = [uri for code, uri in answer.json()]
    assert uris == [service.uri(number + 1) for number in range(len(batch))]
    for number, uri in enumerate(uris):
        kind = ("x3d", "stl")[number % 2]
        reply = poll("%s/index.%s" % (uri, kind))
        assert reply.status_code == 200
        assert len(reply.content) > 500
        assert reply.headers["Content-Type"] == {"x3d": "model/x3d+xml", "stl": "model/stl"}[kind]
    assert service.update_state(*uris) == [[200, uri] for uri in uris]
    assert service.counters() == (0, len(batch), 0)


def test_steps_of_one_batch_work_in_one_folder(services):
    service = services.start(config=ASSIMP)
    quoted = shlex.quote(str(OWN_MODEL))
    job = service.run("assimp export %s src/step.stl" % quoted, "assimp export src/step.stl index.x3d")
    service.wait_done(job)
    assert service.state(job) == "CLOSED", service.console(job)
    assert service.deliver("1/src/step.stl").status_code == 200
    faces, _ = faces_and_points(service.deliver("1/index.x3d").content)
    assert faces >= faces_of_obj(OWN_MODEL)


def test_model_that_is_none(services, folder):
    service = services.start(config=ASSIMP)
    broken = folder / "broken model.obj"
    broken.write_text("f 1 2 3\n")
    for number, path in enumerate((broken, folder / "missing.obj"), 1):
        job = service.run("assimp export %s index.x3d" % shlex.quote(str(path)))
        service.wait_done(job)
        assert (job, service.state(job)) == (number, "ERROR")
        assert service.deliver("%d/index.x3d" % job).status_code == 404
        assert service.console(job) != ""
    assert service.counters() == (0, 0, 2)


def test_model_script_writes_the_model_of_the_repository(folder):
    made = folder / "made.obj"
    subprocess.run([sys.executable, str(ROOT / "scripts" / "make-model"), str(made)], check=True,
                   stdout=subprocess.DEVNULL)
    assert made.read_text() == OWN_MODEL.read_text()
    assert len(re.findall("^vn ", made.read_text(), re.MULTILINE)) == faces_of_obj(made) == 37
