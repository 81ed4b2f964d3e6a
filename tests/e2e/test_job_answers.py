"""Submission of jobs: the forms of the answer, and one job for one uid."""

import json
import threading

import pytest
import requests

from service import job_id
from waiting import wait_for


def moved_page(uri):
    return ("<html><header><title>Moved</title></header><body><h1>Moved</h1><p>This page has moved "
            "to <a href=\"%s\">%s</a>.</p></body></html>" % (uri, uri))


# The forms of the answer.

@pytest.mark.parametrize("reply,extra", [(None, {}), ("id", {}), ("redirect", {}), ("file", {}),
                                         (None, {"redirect": True})])
def test_batch_is_answered_with_its_name(service, reply, extra):
    keys = dict(extra, **({"reply": reply} if reply else {}))
    answer = service.submit(dict(keys, commands=["true"]))
    assert (answer.status_code, answer.text) == (202, "1@abc")
    assert answer.headers["Content-Type"] == "text/html"
    assert "Location" not in answer.headers


@pytest.mark.parametrize("kind", [{"commands": ["true"]}, {"resource": "m.obj"}])
@pytest.mark.parametrize("reply", ["uri", "origin"])
def test_answer_with_the_uri(service, kind, reply):
    answer = service.submit(dict(kind, reply=reply))
    assert (answer.status_code, answer.text) == (202, service.uri(1))
    assert answer.headers["Content-Type"] == "text/html"


@pytest.mark.parametrize("format_name,extension", [
    (None, "x3d"), ("x3d", "x3d"), ("x3db", "x3db"), ("html", "html"), ("x3dv", "x3dv"),
    ("gltf", "gltf"), ("glb", "glb"),
])
def test_tool_job_is_answered_with_its_file(service, format_name, extension):
    keys = {"format": format_name} if format_name else {}
    page = "%s/index.%s" % (service.uri(1), extension)
    answer = service.submit(dict(keys, resource="m.obj", reply="file"))
    assert (answer.status_code, answer.text) == (202, page)
    page = "%s/index.%s" % (service.uri(2), extension)
    answer = service.submit(dict(keys, resource="n.obj", reply="redirect"))
    assert answer.status_code == 302
    assert answer.headers["Location"] == page
    assert answer.headers["Access-Control-Expose-Headers"] == "Location"
    assert answer.headers["Content-Type"] == "text/html"
    assert answer.text == moved_page(page)


def test_tool_job_without_a_wish_is_answered_with_its_name(service):
    answer = service.submit({"resource": "m.obj"})
    assert (answer.status_code, answer.text) == (202, "1@abc")


def test_redirect_wins_over_reply(service):
    answer = service.submit({"resource": "m.obj", "reply": "uri", "redirect": True})
    assert answer.status_code == 302
    answer = service.submit({"resource": "n.obj", "reply": "uri", "redirect": False})
    assert answer.status_code == 202


def test_first_job_of_an_empty_cache_is_number_one(service):
    assert [service.run("true", uid=str(number)) for number in range(3)] == [1, 2, 3]


def test_delivery_service_begins_every_uri(services):
    service = services.start("--delivery_service", "http://10.1.2.3:80")
    assert service.submit({"commands": ["true"], "reply": "uri"}).text == \
        "http://10.1.2.3:80/abc/1"


def test_reply_origin(services):
    service = services.start("--replyorigin")
    port = service.port + 1
    # It is also the form of a batch that names none.
    for number, (header, host) in enumerate([("hub.example:8080", "hub.example"),
                                             ("other", "other"), ("10.0.0.9:1", "10.0.0.9")], 1):
        answer = service.submit({"commands": ["true"], "uid": header},
                                headers={"HubHost": header})
        assert (answer.status_code, answer.text) == (
            202, "http://%s:%d/abc/%d" % (host, port, number))
    answer = service.submit({"commands": ["true"], "uid": "with no header"})
    assert answer.text == "http://:%d/abc/4" % port
    answer = service.submit({"commands": ["true"], "uid": "named", "reply": "id"})
    assert answer.text == "5@abc"
    answer = service.submit({"resource": "m.obj"})
    assert answer.text == "6@abc"


def test_reply_origin_keeps_the_scheme_of_the_delivery_service(services):
    service = services.start("--replyorigin", "--delivery_service", "https://cdn.example")
    answer = service.submit({"commands": ["true"]}, headers={"HubHost": "hub:99"})
    assert answer.text == "https://hub:443/abc/1"


def test_answer_header_cannot_be_split(services):
    service = services.start("--delivery_service", "http://x/\r\nInjected: yes")
    answer = service.submit({"resource": "m.obj", "reply": "redirect"})
    assert answer.status_code == 302
    assert "Injected" not in answer.headers


# One uid, one job.

def test_duplicate_is_answered_alike_and_runs_once(service):
    description = {"commands": ["append runs one"], "reply": "uri"}
    first = service.submit(description)
    service.wait_done(1)
    second = service.submit(description)
    assert first.text == second.text == service.uri(1)
    assert first.status_code == second.status_code == 202
    assert service.counters() == (0, 1, 0)
    assert (service.job_folder(1) / "runs").read_text() == "one\n"


@pytest.mark.parametrize("state", ["OPEN", "IN PROCESS", "CLOSED"])
def test_known_job_is_not_queued_again(single, state):
    blocker = single.run("hold gate", uid="blocker")
    single.wait_started(blocker)
    job = blocker
    if state != "IN PROCESS":
        job = single.run("append runs one", uid="known")
    if state == "CLOSED":
        single.open_gate(blocker)
        single.wait_done(job)
    assert single.state(job) == state
    before = single.counters()
    again = single.run("append runs two", uid="known" if job != blocker else "blocker")
    assert again == job
    assert single.counters() == before
    single.open_gate(blocker)
    single.wait_done(blocker, job)
    assert single.counters() == ((0, 1, 0) if job == blocker else (0, 2, 0))


def test_answer_takes_the_form_of_the_first_description(service):
    assert service.submit({"resource": "m", "uid": "u", "reply": "uri"}).text == service.uri(1)
    answer = service.submit({"resource": "m", "uid": "u", "reply": "redirect", "format": "glb"})
    assert (answer.status_code, answer.text) == (202, service.uri(1))
    service.stop()
    service.restart()
    answer = service.submit({"resource": "m", "uid": "u", "reply": "redirect", "format": "glb"})
    assert (answer.status_code, answer.text) == (202, service.uri(1))


def test_failed_job_runs_again(service):
    description = {"commands": ["append runs x", "exit-with 3"]}
    for run in (1, 2, 3):
        assert job_id(service.submit(description).text) == 1
        service.wait_done(1)
        assert service.state(1) == "ERROR"
        assert (service.job_folder(1) / "runs").read_text() == "x\n" * run
        assert service.counters() == (0, 0, run)


def test_rerun_runs_the_stored_commands(service):
    service.run("append runs old", uid="u")
    service.wait_done(1)
    meta = (service.job_folder(1) / ".meta").read_bytes()
    service.run("append runs new", uid="u", rerun=True)
    service.wait_done(1)
    assert (service.job_folder(1) / "runs").read_text() == "old\nold\n"
    assert service.counters() == (0, 2, 0)
    assert (service.job_folder(1) / ".meta").read_bytes() == meta
    # Only the new request's flag counts, not the stored one.
    service.run("append runs new", uid="u", rerun=False)
    assert service.counters() == (0, 2, 0)


def test_stored_rerun_does_not_run_again(service):
    service.run("append runs one", uid="u", rerun=True)
    service.wait_done(1)
    service.run("append runs one", uid="u")
    assert service.counters() == (0, 1, 0)


def test_rerun_of_a_waiting_and_a_running_job(services):
    """Queued twice, run twice, by two workers at once if it comes so."""
    service = services.start("--worker_threads", 2)
    job = service.run("append runs x", "hold gate", "append runs y", uid="u")
    service.wait_started(job)
    service.run("true", uid="u", rerun=True)
    assert service.counters()[0] == 2
    service.open_gate(job)
    wait_for(lambda: service.counters() == (0, 2, 0), "both runs")
    assert sorted((service.job_folder(job) / "runs").read_text().split()) == ["x", "x", "y", "y"]
    assert service.state(job) == "CLOSED"
    assert not (service.job_folder(job) / ".partial").exists()


def test_uid_is_formed_from_the_description(service):
    """Descriptions that mean the same are one job; what differs in them makes another."""
    same = [{"resource": "a.obj"}, {"resource": "a.obj", "format": "x3d"},
            {"resource": "a.obj", "uid": "a.obj"}, {"uid": "a.obj", "commands": ["true"]}]
    for description in same:
        assert service.submit(description).text == "1@abc"
    different = [
        ({"resource": "a.obj", "format": "glb"}, "a.obj?format=glb"),
        ({"resource": "a.obj", "suffix": "obj", "ops": "clean,join", "format": "html",
          "options": "screenshot", "annotations": [["k", "v"], ["l", "w"]]},
         "a.obj?suffix=obj&ops=clean,join&options=screenshot&format=html&annotations=k:v,l:w"),
        ({"commands": ["true", "say hello"]}, "true; say hello"),
        ({"commands": ["true", ["say hello", "more"]], "resource": "r"}, "r true; say hello"),
        ({"commands": [], "resource": "only"}, "only "),
        ({"commands": [], "uid": "named"}, "named"),
    ]
    for number, (description, _) in enumerate(different, 2):
        assert service.submit(description).text == "%d@abc" % number, description
    for number, (_, uid) in enumerate(different, 2):
        assert "<li>Resource: %s</li>" % uid in service.get("/job/%d" % number).text


def test_simultaneous_submissions_of_one_uid(service):
    """All of them are told the same, the tool runs once, and the folder is there for each."""
    clients = 12
    for attempt in range(5):
        answers, faults = [], []
        barrier = threading.Barrier(clients)

        def submit():
            with requests.Session() as session:
                session.trust_env = False
                barrier.wait()
                reply = session.post(service.url + "/job", timeout=60, data=json.dumps(
                    {"commands": ["append runs x"], "uid": "attempt %d" % attempt}))
                # Whoever holds an answer finds the job on disk.
                folder = service.job_folder(job_id(reply.text))
                for name in (".meta", ".status", "jobId"):
                    if not (folder / name).exists():
                        faults.append("%s is missing" % name)
                answers.append(reply.text)

        threads = [threading.Thread(target=submit) for _ in range(clients)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert answers == ["%d@abc" % (attempt + 1)] * clients
        assert faults == []
        service.wait_done(attempt + 1)
        assert (service.job_folder(attempt + 1) / "runs").read_text() == "x\n"
    assert service.counters() == (0, 5, 0)
