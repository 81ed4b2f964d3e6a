"""Tool jobs of the legacy transcoder: the tool's arguments, its run and what becomes of the job."""

import itertools
import os
import shutil
import time

import pytest

from legacy import LEGACY_TOOLS, LegacyService
from service import TOOLS
from waiting import stays, wait_for

# What each operation adds to the tool's arguments, as the tool sees it: without the double quotes.
OPERATIONS = {
    "toImageGeo": ["-g", "imgGeo/:is"],
    "toBinGeo": ["-G", "binGeo/:sacp"],
    "toBinGeoFull": ["-G", "binGeo/:is"],
    "toPopGeo": ["-K", "popGeo/:a"],
    "toSRC": ["-Y", "encodingPreset(CMP1)"],
    "reuse": ["-u"],
    "collapse": ["-F", "Scene:maxTris(10000000),mostUsedMaterial(true)"],
    "restructure": ["-F", "Scene:cacheopt(true)"],
    "restructure_atlas": ["-F", "Scene:cacheopt(true),maxTextureSize(4096)"],
    "collapse_restructure": ["-F", "Scene:cacheopt(true),mostUsedMaterial(true)"],
    "collapse+id": ["-F", "Scene:maxTris(10000000),mostUsedMaterial(true),idmap(id)"],
    "restructure+id": ["-F", "Scene:cacheopt(true),idmap(id)"],
    "restructure_atlas+id": ["-F", "Scene:cacheopt(true),maxTextureSize(4096),idmap(id)"],
    "collapse_restructure+id": ["-F", "Scene:cacheopt(true),mostUsedMaterial(true),idmap(id)"],
}
MAPPING = [name for name in OPERATIONS if name.endswith("+id")]
MAPPED = {"toBinGeo": ["-G", "binGeo/:sacpd"], "toBinGeoFull": ["-G", "binGeo/:isd"]}
HEAD = ["-i", "m.obj", "-J", "statistics.html"]
TAIL = ["--x3d", "index.x3d"]


def check_calls(service, expected):
    """Submits a job for each description and compares the one call that each makes."""
    jobs = [(service.run(**description), words) for description, words in expected]
    service.wait_done(*(job for job, _ in jobs))
    for (job, words), (description, _) in zip(jobs, expected):
        assert service.calls(job) == [words], description
        assert service.state(job) == "CLOSED"


@pytest.fixture(scope="module")
def many(module_services):
    """A legacy transcoder with many workers, since each pauses behind a job."""
    return module_services.start("--worker_threads", 24, kind=LegacyService)


def test_each_operation_alone(many):
    check_calls(many, [({"resource": "m.obj", "ops": name}, HEAD + words + TAIL)
                       for name, words in OPERATIONS.items()])


@pytest.mark.parametrize("mapping", MAPPING)
def test_mapping_changes_what_stands_behind_it(many, mapping):
    own = OPERATIONS[mapping]
    expected = []
    for name, words in OPERATIONS.items():
        expected.append(({"resource": "m.obj", "ops": "%s,%s" % (mapping, name)},
                         HEAD + own + MAPPED.get(name, words) + TAIL))
        if name not in MAPPING:
            expected.append(({"resource": "m.obj", "ops": "%s,%s" % (name, mapping)},
                             HEAD + words + own + TAIL))
    check_calls(many, expected)


def test_operations_are_compared_exactly_and_repeated(many):
    check_calls(many, [({"resource": "m.obj", "ops": ops}, HEAD + words + TAIL) for ops, words in [
        (",", []), ("unknown,,toPopGeo", ["-K", "popGeo/:a"]), (" reuse", []), ("reuse ,Reuse", []),
        ("reuse,reuse", ["-u", "-u"]), ("reuse;toSRC", []), ("collapse +id", []),
        ("toBinGeo,collapse+id,toBinGeo",
         MAPPED["toBinGeo"][:1] + ["binGeo/:sacp"] + OPERATIONS["collapse+id"] + MAPPED["toBinGeo"]),
        ("collapse+id,unknown,toBinGeoFull",
         OPERATIONS["collapse+id"] + MAPPED["toBinGeoFull"])]])


def test_wishes_annotations_suffix_and_formats(many):
    pairs = [["a", "b"], ["", ""], ["$HOME", "`ls`;*~"]]
    notes = list(itertools.chain(*(["-C", "%s:MetadataString:%s" % tuple(pair)] for pair in pairs)))
    check_calls(many, [
        ({"resource": "m.obj", "options": "duplicateTextures"}, HEAD + ["-k"] + TAIL),
        ({"resource": "m.obj", "options": "Screenshot, duplicateTextures"}, HEAD + TAIL),
        ({"resource": "m.obj", "annotations": pairs}, HEAD + notes + TAIL),
        ({"resource": "m.obj", "suffix": "x"}, ["-i", "m.obj:x"] + HEAD[2:] + TAIL),
        ({"resource": "a b'c/$d\\e.obj"}, ["-i", "a b'c/$d\\e.obj"] + HEAD[2:] + TAIL),
        ({"resource": "http://host/a%20b?c=d&e#f"},
         ["-i", "http://host/a%20b?c=d&e#f"] + HEAD[2:] + TAIL),
        ({"resource": "m.obj", "uid": "all", "suffix": "s", "ops": "reuse,restructure+id,toBinGeo",
          "options": "screenshot,other,duplicateTextures", "annotations": [["a", "b"]],
          "format": "html", "environment": {}, "rerun": True},
         ["-i", "m.obj:s", "-J", "statistics.html", "-V", "-C", "a:MetadataString:b", "-u"]
         + OPERATIONS["restructure+id"] + ["-G", "binGeo/:sacpd", "-k", "--html", "index.html"])]
        + [({"resource": "m.obj", "format": name, "uid": name},
            HEAD + ["--" + name, "index." + name])
           for name in ("x3d", "x3db", "html", "x3dv", "gltf", "glb")])


def test_words_that_would_leave_their_place_are_refused(many):
    for description in ({"resource": "a\"b"}, {"resource": "a\\"}, {"resource": ""},
                        {"resource": "a", "suffix": "x y"}, {"resource": "a", "suffix": "x'"},
                        {"resource": "a", "annotations": [["a", "b c"]]},
                        {"resource": "a", "annotations": [["a\\", "b"]]}):
        assert many.submit(description).status_code == 400, description


def test_stored_line_keeps_the_quotes_and_ends_in_a_blank(legacy):
    job = legacy.run("a b", suffix="x", ops="restructure", annotations=[["n", "v"]])
    legacy.wait_done(job)
    assert legacy.command_line(job) == (
        'fettle.exe -i "a b":x -J statistics.html -C n:MetadataString:v '
        '-F Scene:"cacheopt(true)" --x3d index.x3d ')


def test_line_is_shown_behind_the_run_alone(legacy):
    job = legacy.run("hold gate")
    legacy.wait_started(job)
    assert (legacy.state(job), legacy.command_line(job)) == ("IN PROCESS", "Not Run Yet")
    assert legacy.deliver("%d/index.x3d" % job).status_code == 202
    assert legacy.timings(job) is None
    assert legacy.stored_status(job) == 1
    legacy.open_gate(job)
    legacy.wait_done(job)
    assert legacy.command_line(job).startswith('fettle.exe -i "hold gate" ')
    assert (legacy.job_folder(job) / ".status").read_text() == '{ "status" : 2}\n'
    assert legacy.deliver("%d/index.x3d" % job).text == "hold gate"


def test_timings_span_the_run(legacy):
    job = legacy.run("hold gate")
    legacy.wait_started(job)
    time.sleep(0.2)
    legacy.open_gate(job)
    legacy.wait_done(job)
    told = legacy.timings(job)
    pair, = told["timings"]
    assert 0 < told["added"] <= pair["proc"] < pair["done"]
    # Milliseconds: the run took the pause above at least, and the tool's start at most.
    assert 200 <= pair["done"] - pair["proc"] < 60000
    text = (legacy.job_folder(job) / ".timings").read_text()
    assert text.startswith('{"added":') and text.endswith("}]}")
    assert "\n" not in text and " " not in text
    assert text.index('"done"') < text.index('"proc"')


def test_picture_of_the_result(legacy):
    job = legacy.run("m.obj", options="screenshot", format="glb")
    legacy.wait_done(job)
    assert legacy.calls(job) == [["-i", "m.obj", "-J", "statistics.html", "-V", "--glb", "index.glb"]]
    assert legacy.calls(job, "glimt") == [["--appThreadCount", "0", "saveFrame.x3d"]]
    assert legacy.command_line(job) == "glimt --appThreadCount 0 saveFrame.x3d "
    assert legacy.deliver("%d/fettle_screenshot.jpg" % job).text == "picture"
    assert (legacy.job_folder(job) / "saveFrame.x3d").read_bytes() == SCENE % b"index.glb"
    assert len(legacy.timings(job)["timings"]) == 1
    assert (legacy.job_folder(job) / "console_fettle.txt").read_text() == "fettle: m.obj\n"
    assert (legacy.job_folder(job) / "console_glimt.txt").read_text() \
        == "glimt: --appThreadCount 0 saveFrame.x3d\n"


SCENE = b"""<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE X3D PUBLIC 'ISO//Web3D//DTD X3D 3.0//EN' 'http://www.web3d.org/specifications/x3d-3.0.dtd'>
<X3D xmlns:xsd='http://www.w3.org/2001/XMLSchema-instance' profile='Full' version='3.0' \
xsd:noNamespaceSchemaLocation='http://www.web3d.org/specifications/x3d-3.0.xsd'>
  <Engine DEF='engine'>
    <TimerJob DEF='timer' fixFrameDelta='0.04'/>
    <SynchronizeJob DEF='synchronize'/>
    <RenderJob DEF='render'>
      <WindowGroup>
        <Window DEF='cam1' size='512 512' sample='8'>
          <Viewarea grabFrames='1' grabFile='fettle_screenshot.jpg'/>
        </Window>
      </WindowGroup>
    </RenderJob>
    <ROUTE fromNode='engine' fromField='frameFinished' toNode='engine' toField='set_doExit'/>
  </Engine>
  <Scene DEF='scene'>
    <Inline url='%s' />
  </Scene>
</X3D>
"""


def test_no_picture_of_a_page_or_of_a_failure(legacy):
    page = legacy.run("m.obj", options="screenshot", format="html")
    failed = legacy.run("exit-with 1", options="screenshot")
    legacy.wait_done(page, failed)
    assert "-V" in legacy.calls(page)[0]
    assert (legacy.state(page), legacy.state(failed)) == ("CLOSED", "ERROR")
    for job in (page, failed):
        assert legacy.command_line(job).startswith("fettle.exe ")
        assert not (legacy.job_folder(job) / "saveFrame.x3d").exists()
        assert legacy.calls(job, "glimt") == []


def test_failing_viewer_changes_nothing(services):
    service = services.start(kind=LegacyService, environment={"GLIMT_EXIT": "3"})
    job = service.run(options="screenshot")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert service.calls(job, "glimt") != []
    assert service.log().count("Error spawning process.") == 0


def test_missing_viewer_changes_nothing_and_is_logged(services, folder):
    os.symlink(LEGACY_TOOLS / "fettle", folder / "fettle")
    service = services.start(kind=LegacyService, environment={"PATH": str(folder)})
    job = service.run(options="screenshot")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert service.command_line(job) == "glimt --appThreadCount 0 saveFrame.x3d "
    assert service.log().count("Z Error spawning process.\n") == 1
    # Its console is made before it is started.
    assert (service.job_folder(job) / "console_glimt.txt").read_text() == ""


def test_scene_that_cannot_be_written_costs_the_picture_alone(legacy):
    job = legacy.run("hold gate", options="screenshot")
    legacy.wait_started(job)
    (legacy.job_folder(job) / "saveFrame.x3d").mkdir()
    legacy.open_gate(job)
    legacy.wait_done(job)
    assert legacy.state(job) == "CLOSED"
    assert legacy.calls(job, "glimt") == []
    assert legacy.command_line(job) == (
        'fettle.exe -i "hold gate" -J statistics.html -V --x3d index.x3d ')
    assert not (legacy.job_folder(job) / "console_glimt.txt").exists()
    assert len(legacy.timings(job)["timings"]) == 1


@pytest.mark.parametrize("resource", ["exit-with 1", "exit-with 255", "end-by KILL", "end-by SEGV",
                                      "end-by TERM"])
def test_tool_that_fails_makes_an_error(legacy, resource):
    job = legacy.run(resource)
    legacy.wait_done(job)
    assert legacy.state(job) == "ERROR"
    assert (legacy.job_folder(job) / ".status").read_text() == '{ "status" : 3}\n'
    assert not (legacy.job_folder(job) / ".partial").exists()
    assert len(legacy.timings(job)["timings"]) == 1
    assert legacy.deliver("%d/index.x3d" % job).status_code == 404
    assert legacy.counters() == (1, 1, 1, 0)
    assert " - PROC job: failed, fettle error, ID: 1\n" in legacy.log()


def bad_tool(folder, kind):
    path = folder / ("tool with blanks" if kind == "blanks" else "tool")
    if kind == "folder":
        path.mkdir()
    elif kind == "no right":
        path.write_text("#!/bin/sh\n")
    elif kind == "no interpreter":
        shutil.copy(TOOLS / "no-interpreter", path)
    elif kind == "blanks":
        shutil.copy(LEGACY_TOOLS / "fettle", path)
    return path


@pytest.mark.parametrize("kind", ["missing", "folder", "no right", "no interpreter", "blanks"])
def test_tool_that_cannot_be_started(services, folder, kind):
    tool = bad_tool(folder, kind)
    service = services.start("--fettle_path", tool, kind=LegacyService)
    job = service.run("m.obj", options="screenshot")
    service.wait_done(job)
    assert service.state(job) == "ERROR"
    assert service.log().count("Z Error spawning process.\n") == 1
    assert service.command_line(job) == (
        '%s -i "m.obj" -J statistics.html -V --x3d index.x3d ' % tool)
    assert len(service.timings(job)["timings"]) == 1
    assert not (service.job_folder(job) / "saveFrame.x3d").exists()
    assert (service.job_folder(job) / "console_fettle.txt").read_text() == ""
    assert service.get("/job/1").text.endswith("Console fettle : <BR> ")
    # The worker lives on.
    assert service.run("other") == 2
    service.wait_done(2)


def test_tool_path_relative_to_the_service(services):
    service = services.make(kind=LegacyService, options=("--fettle_path", "./tool"))
    os.symlink(LEGACY_TOOLS / "fettle", service.run_folder / "tool")
    service.start()
    job = service.run()
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert service.command_line(job).startswith('./tool -i "model.obj" ')


def test_tool_works_in_the_folder_of_its_job(services):
    service = services.start("--fettle_path", TOOLS / "inherited", kind=LegacyService)
    job = service.run()
    service.wait_done(job)
    # The tool writes to its first argument.
    found = (service.job_folder(job) / "-i").read_text()
    assert '"folder": "%s"' % service.job_folder(job).resolve() in found
    assert '"0": "/dev/null"' in found
    for number in ("1", "2"):
        assert '"%s": "%s"' % (number, (service.job_folder(job) / "console_fettle.txt").resolve()) \
            in found


def test_second_run_appends(legacy):
    job = legacy.run("exit-with 1")
    legacy.wait_done(job)
    first = legacy.timings(job)
    assert legacy.run("exit-with 1") == job
    legacy.wait_done(job, runs=2)
    second = legacy.timings(job)
    assert second["timings"][0] == first["timings"][0]
    assert len(second["timings"]) == 2
    assert first["timings"][0]["done"] < second["added"] <= second["timings"][1]["proc"]
    assert len(legacy.calls(job)) == 2
    console = (legacy.job_folder(job) / "console_fettle.txt").read_text()
    assert console == "fettle: exit-with 1\n\n" * 2
    assert legacy.counters() == (2, 2, 2, 0)


def test_console_that_is_a_folder_does_not_fail_the_job(legacy):
    job = legacy.run("hold gate")
    legacy.wait_started(job)
    waiting = legacy.run("exit-with 1 x")
    legacy.wait_done(waiting)
    (legacy.job_folder(waiting) / "console_fettle.txt").unlink()
    (legacy.job_folder(waiting) / "console_fettle.txt").mkdir()
    legacy.run("exit-with 1 x")
    legacy.wait_done(waiting, runs=2)
    assert len(legacy.calls(waiting)) == 2
    legacy.open_gate(job)
    legacy.wait_done(job)


def test_folders_in_the_place_of_its_files_do_not_fail_the_job(legacy):
    """What can't be written then is not missed before the restart."""
    names = (".status", ".meta", "jobId", ".cookie", ".timings")
    for name in names:
        (legacy.job_folder(1) / name / "kept").mkdir(parents=True)
    job = legacy.run("m.obj", options="screenshot", cookies={"a": "b"})
    assert job == 1
    legacy.wait_done(job)
    assert legacy.state(job) == "CLOSED"
    assert legacy.counters() == (1, 1, 0, 0)
    assert not (legacy.job_folder(job) / ".partial").exists()
    assert legacy.deliver("1/index.x3d").status_code == 200
    assert all((legacy.job_folder(job) / name / "kept").is_dir() for name in names)
    assert not [name for name in os.listdir(legacy.job_folder(job)) if name.startswith(".new")]
    legacy.stop()
    legacy.restart()
    assert legacy.stdout().count("Loading old jobs: 1\n") == 1
    assert legacy.counters() == (1, 1, 1, 0)


def test_no_descriptor_stays_behind(legacy):
    def descriptors():
        return len(os.listdir("/proc/%d/fd" % legacy.process.pid))

    legacy.wait_done(legacy.run("first"))
    before = descriptors()
    jobs = [legacy.run("exit-with 1 %d" % number, options="screenshot") for number in range(6)]
    legacy.wait_done(*jobs)
    wait_for(lambda: descriptors() <= before + 1, lambda: "descriptors: %d" % descriptors())


def test_jobs_of_a_single_worker_come_in_order_with_pauses(services):
    service = services.start("--worker_threads", 1, kind=LegacyService)
    jobs = [service.run("m%d" % number) for number in range(5)]
    service.wait_done(*jobs)
    begins = [service.timings(job)["timings"][0]["proc"] for job in jobs]
    assert begins == sorted(begins)
    # The pause is taken behind every job, so the next one starts a tenth of a second later.
    assert all(later - earlier >= 100 for earlier, later in zip(begins, begins[1:]))


def test_no_workers_no_runs(services):
    service = services.start("--worker_threads", 0, kind=LegacyService)
    job = service.run()
    stays(lambda: service.state(job) == "OPEN", "a job without workers", 0.3)
    assert service.deliver("%d/index.x3d" % job).status_code == 202
