"""The tools of examples/ behind the legacy transcoder, on real models."""

import os
import re
import shutil
import subprocess

import pytest

from legacy import LegacyService
from service import ROOT
from test_real_tool import MODELS, OWN_MODEL, faces_and_points, faces_of_obj

EXAMPLES = ROOT / "examples" / "tools"
RENDERER = all(shutil.which(name) for name in ("Xvfb", "f3d", "pngtopam", "pnmtojpeg"))
needs_renderer = pytest.mark.skipif(not RENDERER, reason="Xvfb, f3d and netpbm are not installed")


@pytest.fixture
def real(services):
    return services.start(kind=LegacyService, environment={
        "PATH": "%s:%s" % (EXAMPLES, os.environ["PATH"])})


def console(service, job, tool="fettle"):
    return (service.job_folder(job) / ("console_%s.txt" % tool)).read_text()


def run(service, resource, **keys):
    job = service.run(str(resource), **keys)
    service.wait_done(job)
    assert service.state(job) == "CLOSED", console(service, job)
    return job


def jpeg_size(content):
    """Width and height, from the frame header."""
    assert content[:3] == b"\xff\xd8\xff"
    frame = re.search(rb"\xff[\xc0\xc2]..\x08(..)(..)", content, re.DOTALL)
    return tuple(int.from_bytes(frame.group(number), "big") for number in (2, 1))


@needs_renderer
@pytest.mark.parametrize("model", MODELS, ids=lambda path: path.stem)
def test_model_becomes_x3d_with_a_picture(real, model):
    job = run(real, model, options="screenshot", ops="reuse,restructure")
    result = real.deliver("%d/index.x3d" % job)
    assert result.headers["Content-Type"] == "model/x3d+xml"
    faces, points = faces_and_points(result.content)
    assert faces >= 0.9 * faces_of_obj(model) and points > 0
    statistics = real.deliver("%d/statistics.html" % job)
    assert statistics.headers["Content-Type"] == "text/html"
    # It counts triangles, of which a face of the result may hold two.
    told = int(re.search(r"^Faces:\s+(\d+)", statistics.text, re.MULTILINE).group(1))
    assert faces <= told <= 2 * faces
    picture = real.deliver("%d/fettle_screenshot.jpg" % job)
    assert picture.headers["Content-Type"] == "image/jpeg"
    assert jpeg_size(picture.content) == (512, 512)
    # An empty picture of this size is about 2 KiB.
    assert len(picture.content) > 4000
    assert console(real, job, "glimt") == \
        "glimt: fettle_screenshot.jpg shows index.x3d, 512 by 512\n"
    assert console(real, job).splitlines()[0] == "fettle: left out, assimp cannot do it: -V"


@needs_renderer
def test_uploaded_model(real):
    upload = real.upload(OWN_MODEL.read_bytes(), "text/plain").text
    job = run(real, upload, suffix="obj", options="screenshot", format="glb")
    assert real.deliver("%d/index.glb" % job).content[:4] == b"glTF"
    assert jpeg_size(real.deliver("%d/fettle_screenshot.jpg" % job).content) == (512, 512)
    # The result can be uploaded and converted again.
    first = run(real, OWN_MODEL)
    again = real.upload(real.deliver("%d/index.x3d" % first).content).text
    second = run(real, again)
    assert faces_and_points(real.deliver("%d/index.x3d" % second).content)[0] > 0


def test_formats(real):
    heads = {"x3d": b"<?xml", "html": b"<!DOCTYPE html>", "gltf": b"{", "glb": b"glTF"}
    for name, head in heads.items():
        job = run(real, OWN_MODEL, format=name)
        assert real.deliver("%d/index.%s" % (job, name)).content.startswith(head)
    assert "<X3D " in real.deliver("2/index.html").text
    for name in ("x3db", "x3dv"):
        job = real.run(str(OWN_MODEL), format=name)
        real.wait_done(job)
        assert real.state(job) == "ERROR"
        assert console(real, job) == "fettle: assimp cannot write the format %s\n" % name


def test_what_the_converter_cannot_do_is_told_in_one_line(real):
    job = run(real, OWN_MODEL, options="duplicateTextures", annotations=[["author", "me"]],
              ops="toBinGeo,collapse_restructure+id,toBinGeoFull,toPopGeo,toImageGeo,toSRC,reuse")
    assert console(real, job).splitlines()[0] == (
        "fettle: left out, assimp cannot do it: -C author:MetadataString:me; -G binGeo/:sacp; "
        "-F Scene:mostUsedMaterial(true),idmap(id); -G binGeo/:isd; -K popGeo/:a; -g imgGeo/:is; "
        "-Y encodingPreset(CMP1); -k")
    assert "param = -fi\nparam = -icl\n" in console(real, job)


def test_input_that_is_none(real, folder):
    broken = folder / "broken.obj"
    broken.write_text("f 1 2 3\n")
    for resource, text in ((broken, "fettle: assimp could not convert %s\n" % broken),
                           (folder / "no.obj", "fettle: no such file: %s\n" % (folder / "no.obj")),
                           ("http://127.0.0.1/a.obj",
                            "fettle: no such file: http://127.0.0.1/a.obj\n")):
        job = real.run(str(resource), options="screenshot")
        real.wait_done(job)
        assert real.state(job) == "ERROR"
        assert console(real, job).endswith(text)
        assert not (real.job_folder(job) / "saveFrame.x3d").exists()


@pytest.mark.parametrize("words", [
    [], ["-i"], ["-i", "a", "-J", "b", "--x3d"], ["-i", "a", "-J", "b", "c"],
    ["-i", "a", "-J", "b", "--x3d", "--glb", "c"], ["-i", "a", "-J", "b", "--x3d", "-q", "c"],
    ["-i", "a", "-J", "b", "--x3d", "c", "d"]])
def test_other_arguments_are_refused_by_the_converter(folder, words):
    ended = subprocess.run([str(EXAMPLES / "fettle")] + words, cwd=folder, check=False,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert ended.returncode == 2
    assert ended.stdout.startswith(b"fettle: ") and ended.stdout.count(b"\n") == 1


@pytest.mark.parametrize("scene", [None, "", "<X3D/>", "<X3D><Inline url='a.glb'/></X3D>"])
def test_scene_that_the_viewer_cannot_show(folder, scene):
    if scene is not None:
        (folder / "scene.x3d").write_text(scene)
    ended = subprocess.run([str(EXAMPLES / "glimt"), "--appThreadCount", "0", "scene.x3d"],
                           cwd=folder, check=False, stdout=subprocess.PIPE)
    assert ended.returncode == 1
    assert ended.stdout.startswith(b"glimt: ") and ended.stdout.count(b"\n") == 1
