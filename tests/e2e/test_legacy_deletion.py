"""Deletion and cancellation of legacy jobs, in every state."""

import re

import pytest

from legacy import LegacyService
from raw_http import ask, request
from test_legacy_pages import check, place_job
from waiting import stays, wait_for

REFUSED = "Not possible to delete that job (yet?)."


def delete(service, identifier, method="GET"):
    return service.request(method, "/job/delete?id=%s" % identifier)


def wait_for_state(service, identifier, state):
    wait_for(lambda: service.state(identifier) == state,
             lambda: "%s to become %s, it is %s" % (identifier, state, service.state(identifier)))


def check_deleted(service, identifier):
    """The results have gone, all else stays."""
    wait_for_state(service, identifier, "DELETED")
    folder = service.job_folder(identifier)
    assert service.stored_status(identifier) == 5
    for name in ("binGeo", "imgGeo", "popGeo"):
        assert (folder / name).is_dir()
    assert (folder / ".meta").exists() and (folder / ".timings").exists()
    assert (folder / "console_fettle.txt").exists()
    wait_for(lambda: re.search(r"Z (\d+) - DELETE job: aquired, ID: %d\n(.*\n)*.*Z \1 - DELETE job: "
                               r"finished, ID: %d\n" % (identifier, identifier), service.log()),
             "the lines in the log")


def test_job_that_ended_well(legacy):
    job = legacy.run("say hello")
    legacy.wait_done(job)
    folder = legacy.job_folder(job)
    for name in ("binGeo/a.bin", "imgGeo/a", "popGeo/a", "statistics.html", "saveFrame.x3d"):
        (folder / name).touch()
    (folder / "binGeo" / "deep").mkdir()
    (folder / "binGeo" / "deep" / "kept").touch()
    (folder / "binGeo" / "empty").mkdir()
    (folder / "binGeo" / "link").symlink_to("deep")
    check(delete(legacy, job), "ok", "text/plain", 202)
    assert "Z DELETE job: success, id: 1\n" in legacy.log()
    check_deleted(legacy, job)
    assert legacy.deliver("%d/index.x3d" % job).status_code == 404
    assert not (folder / "index.x3d").exists()
    # Files go, folders stay, the empty one too, and so does what lies in them.
    assert sorted(path.name for path in (folder / "binGeo").iterdir()) == ["deep", "empty"]
    assert (folder / "binGeo" / "deep" / "kept").exists()
    for name in ("imgGeo", "popGeo"):
        assert list((folder / name).iterdir()) == []
    assert (folder / "statistics.html").exists() and (folder / "saveFrame.x3d").exists()
    # Deleted jobs stay in the counts.
    assert legacy.counters() == (1, 1, 0, 0)


def test_job_that_failed(legacy):
    job = legacy.run("exit-with 3")
    legacy.wait_done(job)
    check(delete(legacy, job), "ok", "text/plain", 202)
    check_deleted(legacy, job)
    assert legacy.counters() == (1, 1, 1, 0)


def test_job_that_waits(services):
    service = services.start("-t", 1, kind=LegacyService)
    running = service.run("hold gate")
    waiting = service.run("say never")
    service.wait_started(running)
    check(delete(service, running), REFUSED, None, 400)
    assert service.state(running) == "IN PROCESS"
    check(delete(service, waiting), "ok", "text/plain", 202)
    assert service.state(waiting) == "CANCELED"
    assert service.stored_status(waiting) == 6
    service.open_gate(running)
    later = service.run("say later")
    service.wait_done(running, later)
    # It never runs, its result is waited for in vain, and it counts as open.
    assert service.state(waiting) == "CANCELED"
    assert service.deliver("%d/index.x3d" % waiting).status_code == 202
    assert service.counters() == (3, 2, 0, 1)


def test_other_states_are_refused(services):
    service = services.make(kind=LegacyService, options=["-t", 0])
    for state in (1, 4, 5, 6, 7):
        place_job(service, state, state)
    service.start()
    for number in (1, 4, 5, 6, 7):
        before = service.state(number)
        check(delete(service, number), REFUSED, None, 400)
        assert service.state(number) == before
    # A gap, none, and beyond.
    for number in (2, 3, 0, 8, -1, 4294967295):
        check(delete(service, number), REFUSED, None, 400)
    assert service.log().count("DELETE job: failed, not possible to delete that job (yet?)\n") == 11


def test_states_of_an_earlier_run(services):
    """What was open when the service ended can be canceled and then run again."""
    service = services.make(kind=LegacyService, options=["-t", 1])
    for state in (0, 2, 3):
        place_job(service, state + 1, state, "say job %d" % state, resource="say job %d" % state)
        for name in ("binGeo", "imgGeo", "popGeo"):
            (service.job_folder(state + 1) / name).mkdir()
    service.start()
    for number in (1, 3, 4):
        check(delete(service, number), "ok", "text/plain", 202)
    assert service.state(1) == "CANCELED"
    for number in (3, 4):
        wait_for_state(service, number, "DELETED")
    assert service.run("say job 0", uid="say job 0") == 1
    service.wait_done(1)
    assert service.state(1) == "CLOSED"


@pytest.mark.parametrize("query,text", [
    ("?id=", ""), ("?id", ""), ("?id=x", "x"), ("?id=%31", "%31"), ("?id=1%20", "1%20"),
    ("?id=4294967296", "4294967296"), ("?id=1.0", "1.0"), ("?id=<b>", "<b>"), ("?id=x&id=1", "x"),
])
def test_ids_that_are_none(shared_legacy, query, text):
    reply = ask(shared_legacy.port, request("GET", "/job/delete" + query))
    assert (reply.code, reply.body.decode()) == (400, "Invalid ID: " + text)
    assert "content-type" not in reply.headers
    assert reply.headers["access-control-allow-origin"] == "*"
    assert "Z DELETE job: failed, invalid id: %s\n" % text in shared_legacy.log()


def test_no_id(shared_legacy):
    for query in ("", "?", "?ID=1", "?x=1"):
        check(shared_legacy.get("/job/delete" + query), "", None, 400)
    assert shared_legacy.log().count("Z DELETE job: failed, no ID supplied\n") == 4


def test_signs_and_zeros(services):
    service = services.start("-t", 0, kind=LegacyService)
    for number, text in ((1, "+1"), (2, "002"), (3, "-4294967293")):
        assert service.run("r%d" % number) == number
        check(delete(service, text), "ok", "text/plain", 202)
        assert service.state(number) == "CANCELED"
        assert "Z DELETE job: success, id: %d\n" % number in service.log()


def test_other_methods_say_ok_and_do_nothing(services):
    service = services.start("-t", 0, kind=LegacyService)
    job = service.run()
    for method in ("POST", "PUT", "DELETE", "PATCH", "OPTIONS"):
        check(delete(service, job, method), "ok", "text/plain", 202)
        check(service.request(method, "/job/delete"), "ok", "text/plain", 202)
    # A job's own page shows it, whatever the method.
    reply = service.request("DELETE", "/job/%d" % job)
    assert reply.text.startswith("Job: 1/0<ul>")
    assert service.state(job) == "OPEN"
    assert "DELETE job" not in service.log()


def test_deletion_goes_before_open_jobs(services):
    service = services.start("-t", 1, kind=LegacyService)
    done = service.run("say done")
    service.wait_done(done)
    running = service.run("hold gate")
    service.wait_started(running)
    waiting = service.run("say waiting")
    check(delete(service, done), "ok", "text/plain", 202)
    assert service.state(done) == "MARKED FOR DELETION"
    service.open_gate(running)
    service.wait_done(waiting)
    order = re.findall(r"(DELETE|PROC) job: aquired, ID: (\d+)\n", service.log())
    assert order == [("PROC", "1"), ("PROC", "2"), ("DELETE", "1"), ("PROC", "3")]


def test_submitted_again_behind_every_end(legacy):
    """Deleted and canceled jobs run again under their old id; a marked one does not."""
    job = legacy.run("say hello")
    legacy.wait_done(job)
    delete(legacy, job)
    wait_for_state(legacy, job, "DELETED")
    assert legacy.run("say hello") == job
    legacy.wait_done(job, runs=2)
    assert legacy.state(job) == "CLOSED"
    assert legacy.deliver("%d/index.x3d" % job).text == "say hello"
    assert len(legacy.timings(job)["timings"]) == 2
    # A second addition and a second end, but the deletion took back neither of the first.
    assert legacy.counters() == (2, 2, 0, 0)


@pytest.mark.parametrize("part", ["binGeo", "popGeo"])
def test_folder_that_has_gone_costs_its_job_alone(services, part):
    """The worker says so, goes on, and the job stays marked."""
    service = services.start("-t", 1, kind=LegacyService)
    broken, whole = service.run("say one"), service.run("say two")
    service.wait_done(broken, whole)
    (service.job_folder(broken) / part).rmdir()
    delete(service, broken)
    delete(service, whole)
    wait_for_state(service, whole, "DELETED")
    assert service.state(broken) == "MARKED FOR DELETION"
    assert re.search(r"Z \d+ - worker failed: ", service.log())
    job = service.run("say three")
    service.wait_done(job)
    check(delete(service, broken), REFUSED, None, 400)


def test_job_folder_removed_under_a_running_job(services):
    service = services.start("-t", 2, kind=LegacyService)
    job = service.run("hold gate")
    service.wait_started(job)
    folder = service.job_folder(job)
    for path in sorted(folder.rglob("*"), reverse=True):
        path.rmdir() if path.is_dir() else path.unlink()
    folder.rmdir()
    # The tool ends when its folder has gone.
    service.wait_done(job)
    assert service.state(job) == "ERROR"
    assert not folder.exists()
    assert service.deliver("%d/index.x3d" % job).status_code == 404
    delete(service, job)
    wait_for(lambda: "worker failed: " in service.log(), "the line in the log")
    other = service.run("say other")
    service.wait_done(other)
    stays(lambda: service.get("/version").status_code == 200, "the service", 0.1)
