"""Ways to run a program that is not listed, against the legacy transcoder and the renderers."""

import pytest

from legacy import LegacyService
from marks import META, REFUSED, ZERO, Stand
from render import RenderService, entry


def legacy_stand(services, **settings):
    stand = Stand(services, kind=LegacyService, config=None, start=False, **settings)
    stand.program(stand.bin / "fettle", "printf '%s\\n' \"$@\" >>tool.ran")
    stand.service.start()
    return stand


def test_legacy_batches(services):
    stand = legacy_stand(services)
    service = stand.service
    lines = [line.replace("tool", "fettle") for line in REFUSED if line != "tool.exe"]
    lines += ["fettle.exe.exe", "plant", "tool", "glimt.exe"]
    for number, line in enumerate(lines):
        reply = service.post("/job/add", {"commands": [line], "uid": "line %d" % number})
        assert reply.status_code == 400, line
        reply = service.post("/job", {"commands": ["fettle x", line], "uid": "pair %d" % number})
        assert reply.status_code == 400, line
    assert service.jobs()["jobs"] == {}
    job = service.add({"commands": ["fettle ; evil", "fettle.exe $(evil)"], "uid": "u"})
    service.wait_done(job)
    assert stand.arguments(job) == [";", "evil", "$(evil)"]
    assert stand.marked() == []


def test_legacy_forms_hold_no_commands(services):
    stand = legacy_stand(services)
    service = stand.service
    for query in ("commands=evil", "commands=[%22evil%22]", "uid=u&commands=evil"):
        assert service.submit_form(query).code == 400
    query = "resource=m.obj&commands=evil&exe=evil&uid=%0A&environment=PATH"
    assert service.submit_form(query).code == 202
    service.wait_done(1)
    assert stand.arguments(1)[:2] == ["-i", "m.obj"]
    assert stand.marked() == []


WORDS = [
    {"resource": "m.obj; evil"}, {"resource": "$(evil)"}, {"resource": "`evil`"},
    {"resource": "m\nevil"}, {"resource": "' evil '"}, {"resource": "-x evil"},
    {"resource": "a\\\\b' evil"}, {"resource": "m", "suffix": ";evil"},
    {"resource": "m", "suffix": "$(evil)"}, {"resource": "m", "ops": "evil,;evil,reuse"},
    {"resource": "m", "options": "evil,$(evil)"},
    {"resource": "m", "annotations": [["-x", "|evil"]]},
    {"resource": "m", "annotations": [["a", "b\u00a0evil"]]}, {"resource": "m", "uid": "$(evil)"},
]


def tool_words(keys):
    """What the tool is to be called with for a description."""
    suffix = ":" + keys["suffix"] if "suffix" in keys else ""
    words = ["-i", keys["resource"].replace("\\\\", "\\") + suffix, "-J", "statistics.html"]
    for name, value in keys.get("annotations", []):
        words += ["-C", "%s:MetadataString:%s" % (name, value)]
    words += ["-u"] if "reuse" in keys.get("ops", "") else []
    return words + ["--x3d", "index.x3d"]


def test_legacy_texts_stay_the_words_that_they_are(services):
    stand = legacy_stand(services)
    service = stand.service
    jobs = [service.add(dict({"uid": "job %d" % number}, **keys))
            for number, keys in enumerate(WORDS)]
    service.wait_done(*jobs)
    for job, keys in zip(jobs, WORDS):
        assert service.state(job) == "CLOSED", keys
        assert stand.arguments(job) == "\n".join(tool_words(keys)).split("\n"), keys
    assert stand.marked() == []


NO_WORDS = [
    {"resource": "m\" evil \""}, {"resource": "m\\"}, {"resource": "m\"\nevil\""},
    {"resource": "m", "suffix": "x evil"}, {"resource": "m", "suffix": "x\tevil", "uid": "u"},
    {"resource": "m", "suffix": "x\nevil", "uid": "u"}, {"resource": "m", "suffix": "'"},
    {"resource": "m", "suffix": "\""}, {"resource": "m", "suffix": "\\"},
    {"resource": "m", "annotations": [["a", "b evil"]]},
    {"resource": "m", "annotations": [["a\tevil", "b"]], "uid": "u"},
    {"resource": "m", "annotations": [["a", "\""]]},
    {"resource": "m", "annotations": [["\\", "b"]]},
    {"resource": "m", "annotations": [["a", "b" + ZERO]], "uid": "u"},
]


def test_legacy_texts_that_would_become_words_are_refused(services):
    stand = legacy_stand(services)
    for keys in NO_WORDS:
        assert stand.service.post("/job/add", keys).status_code == 400, keys
    assert stand.service.jobs()["jobs"] == {}


def test_legacy_resource_with_a_zero_byte_is_no_start(services):
    stand = legacy_stand(services)
    job = stand.service.add({"resource": "m" + ZERO + "\nevil", "uid": "u"})
    stand.service.wait_done(job)
    assert (stand.service.state(job), stand.arguments(job)) == ("ERROR", [])


@pytest.mark.parametrize("text", [text.replace("tool", "fettle") for text in META])
def test_legacy_description_altered_on_the_disk(services, text):
    """Old jobs are not taken up again, but for those behind one that comes back."""
    stand = legacy_stand(services)
    service = stand.service
    first = service.add({"commands": ["fettle first", "glimt"], "uid": "first"})
    jobs = [service.add({"commands": ["fettle a"], "uid": uid}) for uid in "uv"]
    service.wait_done(first, *jobs)
    assert service.state(first) == "ERROR"
    service.stop()
    for job in jobs:
        (service.job_folder(job) / ".status").write_text('{ "status" : 0}\n')
    (service.job_folder(jobs[0]) / ".meta").write_text(text)
    service.restart()
    service.add({"commands": ["fettle first", "glimt"], "uid": "first"})
    service.wait_done(first, jobs[1], runs=2)
    assert stand.arguments(jobs[1]) == ["a", "a"]
    assert (stand.arguments(jobs[0]), service.state(jobs[0])) == (["a"], "INVALID")
    assert service.post("/job/add", {"commands": ["evil"], "uid": "u"}).status_code == 400
    assert stand.marked() == []


def test_render_jobs_bring_no_program(services):
    stand = Stand(services, kind=RenderService, start=False, config={"renderer": [
        entry(2, exe="tool own", outputs=["picture"], **{"class": "evil"})]})
    service = stand.service
    service.start()
    for keys in ({"class": "opengl"}, {"class": "evil;evil"}, {"class": "evil" + ZERO},
                 {"class": "evil", "output": "$(evil)"}, {"class": "evil", "output": "picture "}):
        assert service.submit(keys).status_code == 503, keys
    assert service.submit({"class": ["evil"]}).status_code == 400
    keys = {"class": "evil", "output": "picture", "exe": "evil", "app": "evil", "addOpt": "evil",
            "commands": ["evil"], "environment": {"PATH": ".", "LD_PRELOAD": "x"},
            "slot": {"exe": "evil"}, "uid": "u", "id": 1}
    assert service.submit(keys).status_code == 200
    service.wait_state(0, "CLOSED")
    # The application's own command line alone, whatever the job's texts.
    assert stand.arguments(0) == ["own"]
    assert service.console(0) == ""
    assert stand.marked() == []
