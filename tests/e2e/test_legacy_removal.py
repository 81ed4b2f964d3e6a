"""What a worker removes of a legacy job that is deleted, and how deleted jobs come back."""

import os

import pytest

from legacy import LegacyService
from waiting import stays, wait_for

RESULTS = ("binGeo", "imgGeo", "popGeo")


def delete(service, identifier):
    return service.get("/job/delete?id=%d" % identifier)


def check_not_possible(service, identifier):
    state = service.state(identifier)
    reply = delete(service, identifier)
    assert (reply.status_code, reply.text) == (400, "Not possible to delete that job (yet?).")
    assert service.state(identifier) == state


def wait_deleted(service, identifier):
    wait_for(lambda: " - DELETE job: finished, ID: %d\n" % identifier in service.log(),
             lambda: "the deletion of %d: %s" % (identifier, service.log()[-2000:]))


@pytest.mark.parametrize("resource, counters", [("model", (1, 1, 0, 0)), ("exit-with 1", (1, 1, 1, 0))])
def test_ended_job_loses_its_results_alone(legacy, resource, counters):
    job = legacy.run(resource, options="screenshot")
    legacy.wait_done(job)
    folder = legacy.job_folder(job)
    (folder / "outside").mkdir()
    (folder / "outside" / "file").write_text("kept")
    for part in RESULTS:
        (folder / part / "sub").mkdir()
        (folder / part / "sub" / "file").write_text("kept")
        (folder / part / "empty").mkdir()
        (folder / part / "file").write_text("gone")
        os.symlink("../../outside", folder / part / "link")
        os.symlink("nowhere", folder / part / "dangling")
        os.mkfifo(folder / part / "pipe")
    before = set(os.listdir(folder))
    reply = delete(legacy, job)
    assert (reply.status_code, reply.text) == (202, "ok")
    wait_deleted(legacy, job)
    assert legacy.state(job) == "DELETED"
    assert (folder / ".status").read_text() == '{ "status" : 5}\n'
    assert set(os.listdir(folder)) == before - {"index.x3d"}
    for part in RESULTS:
        assert sorted(os.listdir(folder / part)) == ["empty", "sub"]
        assert os.listdir(folder / part / "sub") == ["file"]
    assert os.listdir(folder / "outside") == ["file"]
    assert legacy.deliver("%d/index.x3d" % job).status_code == 404
    # It stays counted, and its number and uid stay known.
    assert legacy.counters() == counters
    check_not_possible(legacy, job)
    assert legacy.jobs()["jobs"]["job1"]["status"] == "DELETED"


def test_deleted_and_canceled_jobs_come_back(services):
    service = services.start("--worker_threads", 1, kind=LegacyService)
    blocking, canceled = service.run("hold gate"), service.run("canceled")
    service.wait_started(blocking)
    assert delete(service, canceled).text == "ok"
    assert service.state(canceled) == "CANCELED"
    assert service.deliver("%d/index.x3d" % canceled).status_code == 202
    assert (service.job_folder(canceled) / ".partial").exists()
    check_not_possible(service, canceled)
    check_not_possible(service, blocking)
    assert service.counters() == (2, 0, 0, 2)
    service.open_gate(blocking)
    service.wait_done(blocking)
    # A canceled job is passed by, and stays counted as open.
    after = service.run("after")
    service.wait_done(after)
    assert service.calls(canceled) == []
    assert service.counters() == (3, 2, 0, 1)
    assert service.run("canceled") == canceled
    service.wait_done(canceled)
    assert service.deliver("%d/index.x3d" % canceled).text == "canceled"
    assert delete(service, canceled).text == "ok"
    wait_deleted(service, canceled)
    assert service.run("canceled") == canceled
    assert service.deliver("%d/index.x3d" % canceled).status_code == 202
    service.wait_done(canceled, runs=2)
    assert service.deliver("%d/index.x3d" % canceled).status_code == 200
    assert len(service.timings(canceled)["timings"]) == 2
    assert service.counters() == (5, 4, 0, 1)


def test_result_that_is_a_folder_or_a_link(legacy):
    folder_job, link_job = legacy.run("a"), legacy.run("b")
    legacy.wait_done(folder_job, link_job)
    target = legacy.folder / "target"
    target.write_text("kept")
    for job in (folder_job, link_job):
        (legacy.job_folder(job) / "index.x3d").unlink()
    (legacy.job_folder(folder_job) / "index.x3d").mkdir()
    os.symlink(target, legacy.job_folder(link_job) / "index.x3d")
    for job in (folder_job, link_job):
        assert delete(legacy, job).text == "ok"
        wait_deleted(legacy, job)
        assert legacy.state(job) == "DELETED"
    assert not os.path.lexists(legacy.job_folder(link_job) / "index.x3d")
    assert target.read_text() == "kept"


def test_mark_is_stuck_over_a_restart(services):
    service = services.start("--worker_threads", 0, kind=LegacyService)
    folder = service.cache_root / "5"
    service.stop()
    folder.mkdir()
    (folder / ".meta").write_text('{"resource":"m"}')
    (folder / ".status").write_text('{ "status" : 4}\n')
    service.options[service.options.index(0)] = 1
    service.restart()
    stays(lambda: service.state(5) == "MARKED FOR DELETION", "the mark", 0.3)
    check_not_possible(service, 5)
    assert service.run("m") == 5
    assert service.state(5) == "MARKED FOR DELETION"
