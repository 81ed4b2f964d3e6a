"""What goes wrong around legacy jobs: kills, missing folders, full disks, many clients at once."""

import concurrent.futures
import json
import shutil

import pytest

from disks import fill
from legacy import LegacyService
from waiting import stays, wait_for


def test_answered_jobs_are_known_after_a_kill(services):
    service = services.start("--worker_threads", 2, kind=LegacyService)
    done, failed = service.run("done"), service.run("exit-with 1")
    service.wait_done(done, failed)
    running = [service.run("hold gate", uid="running %d" % number) for number in range(2)]
    for job in running:
        service.wait_started(job)
    waiting = service.run("waiting")
    canceled = service.run("canceled")
    assert service.get("/job/delete?id=%d" % canceled).text == "ok"
    last = service.run("last")  # Killed right behind its answer.
    service.kill()
    service.end_tools()
    service.restart()
    assert [service.state(job) for job in (done, failed, *running, waiting, canceled, last)] == [
        "CLOSED", "ERROR", "IN PROCESS", "IN PROCESS", "OPEN", "CANCELED", "OPEN"]
    for job, uid in ((done, "done"), (running[0], "running 0"), (last, "last")):
        assert service.run("any", uid=uid) == job
    # What waited or ran is not taken up again, and stays unfinished for its clients.
    assert service.deliver("%d/index.x3d" % waiting).status_code == 202
    assert service.deliver("%d/index.x3d" % running[0]).status_code == 202
    assert service.counters() == (7, 7, 1, 0)
    assert service.run("new") == last + 1
    service.wait_done(last + 1)


@pytest.mark.parametrize("round_number", range(3))
def test_kill_amid_submissions(services, round_number):
    service = services.start("--worker_threads", 4, kind=LegacyService)
    answered = {}

    def submit(number):
        for step in range(200):
            name = "%d-%d" % (number, step)
            try:
                reply = service.post("/job", {"resource": name, "more": "x" * 3000})
            except OSError:
                return
            if reply.status_code == 202:
                answered[name] = int(reply.text.partition("@")[0])

    with concurrent.futures.ThreadPoolExecutor(4) as clients:
        tasks = [clients.submit(submit, number) for number in range(4)]
        wait_for(lambda: len(answered) >= 20 + 30 * round_number, "the first answers", step=0.001)
        service.process.kill()
        for task in tasks:
            task.result()
    service.kill()
    service.end_tools()
    for name, job in answered.items():
        folder = service.job_folder(job)
        assert json.loads((folder / ".meta").read_text())["resource"] == name
        assert (folder / "jobId").read_text() == "%d@%s" % (job, service.provider_id)
        assert (folder / ".status").exists()
    service.restart()
    for name, job in answered.items():
        assert service.run(name) == job


def test_orderly_end_waits_for_tools_and_leaves_the_rest_open(services):
    service = services.start("--worker_threads", 1, kind=LegacyService)
    running, waiting = service.run("hold gate"), service.run("waiting")
    service.wait_started(running)
    service.process.terminate()
    stays(lambda: not service.has_ended(), "the service with its tool", 0.3)
    service.open_gate(running)
    service.stop()
    assert service.stored_status(running) == 2
    assert len(service.timings(running)["timings"]) == 1
    assert service.stored_status(waiting) == 0
    assert (service.job_folder(waiting) / ".partial").exists()


def test_folder_removed_under_a_running_job(services):
    service = services.start("--worker_threads", 1, kind=LegacyService)
    job = service.run("hold gate", options="screenshot")
    service.wait_started(job)
    shutil.rmtree(service.job_folder(job))
    # The tool ends by itself when its folder has gone.
    service.wait_done(job)
    assert service.state(job) == "ERROR"
    assert not service.job_folder(job).exists()
    # A new submission brings the folder back.
    assert service.run("hold gate", options="screenshot") == job
    service.wait_started(job)
    service.open_gate(job)
    service.wait_done(job, runs=2)
    assert service.state(job) == "CLOSED"
    assert service.deliver("%d/fettle_screenshot.jpg" % job).status_code == 200
    assert len(service.timings(job)["timings"]) == 2


def test_folder_removed_before_the_run(services):
    service = services.start("--worker_threads", 1, kind=LegacyService)
    blocking, removed = service.run("hold gate"), service.run("removed")
    service.wait_started(blocking)
    shutil.rmtree(service.job_folder(removed))
    service.open_gate(blocking)
    service.wait_done(blocking, removed)
    assert service.state(removed) == "ERROR"
    assert service.log().count("Z Error spawning process.\n") == 1
    assert service.run("removed") == removed
    service.wait_done(removed, runs=2)
    assert service.state(removed) == "CLOSED"


def test_cache_folder_removed(legacy):
    legacy.wait_done(legacy.run("first"))
    shutil.rmtree(legacy.cache_root)
    reply = legacy.submit({"resource": "second"})
    assert (reply.status_code, reply.content) == (500, b"")
    assert legacy.state(2) == "ERROR"
    legacy.cache_root.mkdir()
    assert legacy.run("second") == 2
    legacy.wait_done(2)
    assert legacy.state(2) == "CLOSED"
    assert legacy.counters() == (2, 2, 0, 0)


def test_full_disk(services, small_disk):
    service = services.start(kind=LegacyService, cache_path=small_disk / "cache")
    service.wait_done(service.run("first"))
    filler = small_disk / "filler"
    fill(filler)
    before = service.jobs()["numJobs"]
    codes = [service.submit({"resource": "full %d" % number, "text": "x" * 5000}).status_code
             for number in range(3)]
    # No job is answered that a restart would not know.
    assert codes == [500] * 3
    assert service.jobs()["numJobs"] == before
    assert service.run("first") == 1
    filler.unlink()
    job = service.run("full 0")
    assert (job, service.run("first")) == (2, 1)
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    service.stop()


def test_many_clients_submit_the_same_and_other_jobs(services):
    service = services.start("--worker_threads", 8, kind=LegacyService)

    def submit(number):
        return service.submit({"resource": "m%d" % (number % 20), "reply": "uri"}).text

    with concurrent.futures.ThreadPoolExecutor(8) as clients:
        uris = list(clients.map(submit, range(100)))
    assert sorted(set(uris)) == sorted(service.uri(number) for number in range(1, 21))
    assert all(uris[number] == uris[number % 20] for number in range(100))
    service.wait_done(*range(1, 21))
    assert all(len(service.calls(number)) == 1 for number in range(1, 21))
    assert service.counters() == (20, 20, 0, 0)


def test_state_file_is_always_whole(services):
    service = services.start("--worker_threads", 4, kind=LegacyService)
    seen = set()
    jobs = [service.run("m%d" % number) for number in range(12)]
    while not all(service.ended_runs(job) for job in jobs):
        for job in jobs:
            seen.add((service.job_folder(job) / ".status").read_text())
    assert seen <= {'{ "status" : %d}\n' % state for state in (0, 1, 2)}
