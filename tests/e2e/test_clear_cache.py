"""The clearing of the cache."""

import json
import threading

import pytest
import requests

from waiting import wait_for


def clear(service, **keys):
    return service.post("/config", dict(keys, clearCache=True))


def test_clear_cache(service):
    jobs = [service.run(command, uid=str(number))
            for number, command in enumerate(["true", "false", "true"])]
    service.wait_done(*jobs)
    wait_for(lambda: service.counters() == (0, 2, 1), "the counters")
    (service.jobs_folder() / "notes").mkdir()
    (service.jobs_folder() / "notes" / ".meta").touch()
    (service.jobs_folder() / "9").mkdir()
    (service.jobs_folder() / "10").write_text("a file")
    other = service.cache_root / "other" / "1"
    other.mkdir(parents=True)
    (other / ".meta").write_text("{}")
    assert clear(service).status_code == 200
    assert service.counters() == (0, 0, 0)
    assert service.jobs()["jobs"] == {}
    assert sorted(entry.name for entry in service.jobs_folder().iterdir()) == ["10", "9", "notes"]
    assert (other / ".meta").exists()
    assert "clearing cache in: %s\n" % service.jobs_folder() in service.stdout()
    text = service.stderr()
    for name in ("1", "2", "3", "9", "notes"):
        assert "clear cache %s/%s | %s\n" % (service.jobs_folder(), name, name) in text
    for name in ("1", "2", "3"):
        assert "really delete it %s/%s\n" % (service.jobs_folder(), name) in text
    assert text.count("really delete it ") == 3
    assert "| 10\n" not in text
    # Numbers start anew, and a uid is no hit any more.
    assert service.run("append runs x", uid="0") == 1
    service.wait_done(1)
    assert (service.job_folder(1) / "runs").read_text() == "x\n"


def test_job_moves_into_a_folder_that_was_left(service):
    (service.jobs_folder() / "1").mkdir()
    (service.jobs_folder() / "1" / "kept").write_text("here")
    assert clear(service).status_code == 200
    assert service.run("true") == 1
    service.wait_done(1)
    assert (service.job_folder(1) / "kept").read_text() == "here"
    assert (service.job_folder(1) / ".meta").exists()


@pytest.mark.parametrize("stage", ["running", "waiting"])
def test_clear_cache_while_jobs_are_pending(services, stage):
    service = services.start("--worker_threads", 1 if stage == "running" else 0)
    job = service.run("hold gate")
    if stage == "running":
        service.wait_started(job)
    reply = clear(service, deliveryPort=8181)
    assert reply.status_code == 200
    assert "clearing cache" not in service.stdout()
    assert (service.job_folder(job) / ".meta").exists()
    assert service.counters() == (1, 0, 0)
    # The rest of the request went on.
    assert service.submit({"commands": ["true"], "reply": "uri"}).text.split("/")[2].endswith(":8181")
    service.open_gate(job)


@pytest.mark.parametrize("value", [False, 1, "true", None, [True]])
def test_clear_cache_needs_true(service, value):
    job = service.run("true")
    service.wait_done(job)
    wait_for(lambda: service.counters()[0] == 0, "the counters")
    assert service.post("/config", {"clearCache": value}).status_code == 200
    assert service.state(job) == "CLOSED"


def test_clear_cache_under_load_loses_no_accepted_job(service):
    """Whatever is accepted around a clearing either stands in the table or was cleared when done."""
    stop = threading.Event()
    faults = []

    def submit(client):
        number = 0
        with requests.Session() as session:
            session.trust_env = False
            while not stop.is_set():
                number += 1
                trace = service.folder / ("trace-%d-%d" % (client, number))
                reply = session.post(service.url + "/job", timeout=60, data=json.dumps(
                    {"commands": ["append %s x" % trace]}))
                if reply.status_code != 202:
                    faults.append(reply.status_code)
                # Its own job ends before the next one, so that the service is idle now and then.
                wait_for(trace.exists, "the run of an accepted job")
                stop.wait(0.02)

    clients = [threading.Thread(target=submit, args=(number,)) for number in range(2)]
    for client in clients:
        client.start()
    try:
        wait_for(lambda: clear(service).status_code == 200 and
                 service.stdout().count("clearing cache in") >= 5, "five clearings", step=0.001)
    finally:
        stop.set()
        for client in clients:
            client.join()
    assert faults == []
