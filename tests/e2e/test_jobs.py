"""Submission of jobs and their runs: answers, folders, states, console texts, order, shutdown."""

import json
import os
import re
import signal
import threading

import pytest
import requests

from service import TOOLS, job_id
from waiting import stays, wait_for

SPAWN_ERROR = "Error spawning process. Called tool most likely not executable or found\n"
FOLDERS = {"binGeo", "imgGeo", "popGeo", "src", "struct", "acc"}


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


# The folder.

def test_folder_before_a_worker_touches_it(services):
    service = services.start("--worker_threads", 0)
    description = {"commands": [["true", "kept"]], "unknown": {"b": [1.5, None], "a": "\"\n"},
                   "cookies": {"z": "1", "a": "2"}, "uid": "u"}
    service.submit(description)
    folder = service.job_folder(1)
    assert {entry.name for entry in folder.iterdir()} == FOLDERS | {
        ".meta", ".status", ".partial", ".cookie", "jobId"}
    for name in FOLDERS:
        assert list((folder / name).iterdir()) == []
    assert (folder / ".status").read_bytes() == b'{ "status" : 0 }\n'
    assert (folder / ".partial").read_bytes() == b""
    assert (folder / "jobId").read_bytes() == b"1@abc"
    # In key order, whatever the order in the list.
    assert (folder / ".cookie").read_bytes() == b"a\n2\nz\n1\n"
    meta = (folder / ".meta").read_bytes()
    assert json.loads(meta) == description
    # Serialised again: keys sorted, no blanks, no line end.
    assert meta == (b'{"commands":[["true","kept"]],"cookies":{"a":"2","z":"1"},"uid":"u",'
                    b'"unknown":{"a":"\\"\\n","b":[1.5,null]}}')


def test_no_cookie_file_without_cookies(services):
    service = services.start("--worker_threads", 0)
    for number, keys in enumerate([{}, {"cookies": {}}], 1):
        service.run("true", uid=str(number), **keys)
        assert not (service.job_folder(number) / ".cookie").exists()


def test_job_id_file_of_a_larger_number(services):
    service = services.start("--worker_threads", 0)
    service.post("/job", [{"commands": ["true"], "uid": str(number)} for number in range(12)])
    assert (service.job_folder(12) / "jobId").read_bytes() == b"12@abc"


def test_files_of_a_run(service):
    job = service.run("say hello")
    service.wait_done(job)
    folder = service.job_folder(job)
    assert {entry.name for entry in folder.iterdir()} == FOLDERS | {
        ".meta", ".status", "jobId", "console.txt"}
    assert (folder / ".status").read_bytes() == b'{ "status" : 3 }\n'
    assert (folder / "console.txt").read_bytes() == b"hello\nerr: hello\n"


# States.

def test_states_of_a_good_job(single):
    blocker = single.run("hold gate", uid="blocker")
    single.wait_started(blocker)
    job = single.run("hold first", "hold second", uid="u")
    assert (single.state(job), single.stored_status(job)) == ("OPEN", 0)
    assert single.counters() == (2, 0, 0)
    single.open_gate(blocker)
    single.wait_started(job, "first")
    assert (single.state(job), single.stored_status(job)) == ("IN PROCESS", 1)
    single.open_gate(job, "first")
    single.wait_started(job, "second")
    # Between two commands the state is that of the one before, while the job counts as running.
    assert (single.state(job), single.stored_status(job)) == ("CLOSED", 3)
    assert (single.job_folder(job) / ".partial").exists()
    assert single.counters() == (1, 1, 0)
    assert single.update_state(single.uri(job)) == [[200, single.uri(job)]]
    single.open_gate(job, "second")
    single.wait_done(job)
    assert (single.state(job), single.stored_status(job)) == ("CLOSED", 3)
    assert single.counters() == (0, 2, 0)


def test_state_behind_a_failed_command(single):
    job = single.run("exit-with 1", "hold second", uid="u")
    single.wait_started(job, "second")
    assert (single.state(job), single.stored_status(job)) == ("ERROR", 6)
    assert single.update_state(single.uri(job)) == [[404, single.uri(job)]]
    assert single.counters() == (1, 0, 0)
    # Known, and in the state ERROR: it is queued once more though it runs.
    single.run("true", uid="u")
    assert single.counters() == (2, 0, 0)
    single.open_gate(job, "second")
    wait_for(lambda: single.counters() == (0, 2, 0), "both runs")


@pytest.mark.parametrize("commands,state,finished", [
    (["true"], "CLOSED", True),
    (["false"], "ERROR", False),
    (["false", "true"], "CLOSED", True),
    (["true", "false"], "ERROR", False),
    (["exit-with 255"], "ERROR", False),
    (["nothing-of-this-name"], "ERROR", False),
    (["nothing-of-this-name", "true"], "CLOSED", True),
    (["true", "nothing-of-this-name"], "ERROR", False),
    (["end-by TERM"], "ERROR", False),
    (["end-by KILL"], "ERROR", False),
    (["end-by SEGV"], "ERROR", False),
])
def test_last_command_decides(service, commands, state, finished):
    job = service.run(*commands)
    service.wait_done(job)
    assert service.state(job) == state
    assert service.stored_status(job) == (3 if finished else 6)
    assert service.counters() == (0, int(finished), int(not finished))
    code = 200 if finished else 404
    assert service.update_state(service.uri(job)) == [[code, service.uri(job)]]


@pytest.mark.parametrize("description", [
    {"resource": "m.obj"}, {"commands": [], "uid": "empty"}, {"commands": [], "resource": "r"},
])
def test_job_without_commands_stays_in_process(service, description):
    service.submit(description)
    service.wait_done(1)
    assert service.state(1) == "IN PROCESS"
    assert service.stored_status(1) == 1
    assert service.counters() == (0, 1, 0)
    assert service.update_state(service.uri(1)) == [[202, service.uri(1)]]
    assert service.deliver("1/index.x3d").status_code == 404
    assert service.console(1) == ""
    # Known, and in no state that runs again.
    service.submit(description)
    assert service.counters() == (0, 1, 0)


# The console.

def test_console_of_all_commands_and_all_runs(service):
    commands = ["say one", "exit-with 2 two", "nothing-of-this-name", "say three"]
    text = "one\nerr: one\ntwo\n" + SPAWN_ERROR + "three\nerr: three\n"
    job = service.run(*commands)
    service.wait_done(job)
    assert service.console(job) == text
    assert service.state(job) == "CLOSED"
    assert service.stdout().endswith("threads\n" + SPAWN_ERROR)
    service.run(*commands, rerun=True)
    wait_for(lambda: service.counters() == (0, 2, 0), "the second run")
    service.wait_done(job)
    assert service.console(job) == text * 2


@pytest.mark.parametrize("line", [
    "nothing-of-this-name", "./nothing", "/no/such/tool", str(TOOLS), "/etc/passwd",
    str(TOOLS / "no-interpreter"), "say 'unclosed", "say \"unclosed", "say \\", "", "  \t ",
    "''",
])
def test_tool_that_cannot_be_started(service, line):
    job = service.run(line, uid="u")
    service.wait_done(job)
    assert service.state(job) == "ERROR"
    assert service.console(job) == SPAWN_ERROR
    assert service.stdout().endswith("threads\n" + SPAWN_ERROR)


# Order.

def test_one_worker_runs_in_order_of_arrival(single):
    trace = single.folder / "trace"
    blocker = single.run("hold gate")
    single.wait_started(blocker)
    jobs = [single.run("append %s %d" % (trace, number)) for number in range(20)]
    assert single.counters() == (21, 0, 0)
    assert not trace.exists()
    single.open_gate(blocker)
    single.wait_done(*jobs)
    assert trace.read_text().split() == [str(number) for number in range(20)]


def test_workers_run_side_by_side(service):
    jobs = [service.run("hold gate", uid=str(number)) for number in range(5)]
    for job in jobs[:3]:
        service.wait_started(job)
    # Three workers, so the fourth waits.
    stays(lambda: not (service.job_folder(jobs[3]) / "gate.started").exists(), "a fourth ran", 0.2)
    service.open_gate(jobs[1])
    service.wait_started(jobs[3])
    for job in jobs:
        service.open_gate(job)
    service.wait_done(*jobs)


def test_no_workers_no_runs(services):
    service = services.start("--worker_threads", 0)
    job = service.run("put ran yes")
    assert (service.state(job), service.counters()) == ("OPEN", (1, 0, 0))
    stays(lambda: service.stored_status(job) == 0, "it ran", 0.3)
    assert service.stop() < 10


# Refusals.

def check_refused(service, description, folders=()):
    """400 with an empty body, one line in the log, and nothing stored."""
    before = service.log().count("job refused: ")
    reply = service.submit(description)
    assert (reply.status_code, reply.content) == (400, b"")
    assert reply.headers["Access-Control-Allow-Origin"] == "*"
    wait_for(lambda: service.log().count("job refused: ") == before + 1, "the line in the log")
    assert re.search(r"Z job refused: \S", service.log())
    assert service.jobs()["jobs"] == {}
    assert sorted(entry.name for entry in service.jobs_folder().iterdir()) == sorted(folders)


@pytest.mark.parametrize("description", [
    {}, {"uid": "u"}, {"resource": ""}, {"resource": 1}, {"resource": None}, {"resource": ["m"]},
    {"resource": "m", "suffix": 1}, {"resource": "m", "ops": ["a"]},
    {"resource": "m", "options": {}}, {"resource": "m", "format": 1},
    {"resource": "m", "format": "obj"}, {"resource": "m", "format": "X3D"},
    {"resource": "m", "annotations": "a"}, {"resource": "m", "annotations": [["a"]]},
    {"resource": "m", "annotations": [["a", "b", "c"]]}, {"resource": "m", "annotations": [["a", 1]]},
    {"commands": "true"}, {"commands": {"a": "true"}}, {"commands": [1]}, {"commands": [[]]},
    {"commands": [[1, "true"]]}, {"commands": ["true", None]}, {"commands": None},
    {"commands": []},
    {"commands": ["true"], "environment": ["A"]}, {"commands": ["true"], "environment": {"A": 1}},
    {"commands": ["true"], "cookies": ["a"]}, {"commands": ["true"], "cookies": {"a": 1}},
    {"commands": ["true"], "redirect": "yes"}, {"commands": ["true"], "redirect": 1},
    {"commands": ["true"], "reply": "other"}, {"commands": ["true"], "reply": 2},
    {"commands": ["true"], "uid": ""}, {"commands": ["true"], "uid": 7},
    {"commands": ["true"], "rerun": "yes"}, {"commands": ["true"], "rerun": 1},
    {"commands": ["true"], "uid": "a\nb"}, {"commands": ["true"], "uid": "a\x7fb"},
    {"commands": ["true"], "uid": "a\0b"}, {"commands": ["true\nfalse"]},
    {"commands": ["say a\tb"]},
    {"resource": "m\x1f.obj"},
    {"resource": "m\".obj"}, {"resource": "m.obj\\"},
    {"resource": "m", "suffix": "a b"}, {"resource": "m", "suffix": "a'b"},
    {"resource": "m", "suffix": "a\"b"}, {"resource": "m", "suffix": "a\\b"},
    {"resource": "m", "annotations": [["a b", "c"]]}, {"resource": "m", "annotations": [["a", "'"]]},
    {"resource": "m", "annotations": [["a", "\\"]]},
    {"resource": "/@01234567-89ab-cdef-0123-456789abcdef"},
    {"resource": "..@01234567-89ab-cdef-0123-456789abcdef"},
    {"resource": "a/.@01234567-89ab-cdef-0123-456789abcdef"},
    {"resource": "@01234567-89ab-cdef-0123-456789abcdef"},
    {"commands": ["true"], "environment": {"PATH": "/"}},
])
def test_refused_descriptions(shared, description):
    check_refused(shared, description)


@pytest.mark.parametrize("description", [
    {"resource": "m", "options": "screenshot,duplicateTextures,unheardOf"},
    {"resource": "a b.obj"}, {"resource": "http://x/m.obj?a=b&c"}, {"resource": "back\\slash.obj"},
    {"resource": "it's.obj"},
    {"resource": "scene.obj@01234567-89ab-cdef-0123-456789abcdef"},
    {"resource": "..@not-a-uuid"},
    {"resource": "m", "unknown": [1]},
    {"resource": "m", "annotations": []},
    {"resource": "m", "uid": "ümläut ☃"},
    {"commands": [["true", 1, None]]},
])
def test_accepted_descriptions(service, description):
    assert service.submit(description).status_code == 202


def test_log_line_of_a_refusal_is_one_line(service):
    service.submit({"resource": "m", "format": "a\nb\rc%s{}"})
    lines = [line for line in service.log().splitlines() if "job refused" in line]
    assert len(lines) == 1


# Whitelists.

def test_without_a_configuration_only_the_default_tools_run(services):
    service = services.make(config=None)
    names = service.folder / "bin"
    names.mkdir()
    for name in ("fettle", "glimt", "other"):
        (names / name).write_text("#!/bin/sh\necho \"$0 $*\" >&2\n")
        (names / name).chmod(0o755)
    service.extra_environment["PATH"] = "%s:/usr/bin:/bin" % names
    service.start()
    for number, line in enumerate(["fettle a", "fettle.exe b", "glimt", "\"fettle\" c",
                                   "'fet'tle d", "\\fettle e", "  fettle f"], 1):
        job = service.run(line)
        assert job == number
        service.wait_done(job)
        assert service.state(job) == "CLOSED", line
    # The name with the ending finds the tool without it.
    assert service.console(2) == "%s/fettle b\n" % names
    for line in ("other", "true", "Fettle", "./fettle", "%s/fettle" % names, "glimt.exe", "fettlex",
                 "", "''", " ", "fettle 'x", "fettle.exe.exe"):
        assert service.submit({"commands": [line], "uid": "no " + line}).status_code == 400, line
    # One bad line refuses the batch.
    assert service.submit({"commands": ["fettle", "other"]}).status_code == 400
    assert len(service.jobs()["jobs"]) == 7


def test_command_whitelist(services):
    service = services.start(config={"commandWhitelist": ["say", str(TOOLS / "put"), "two words"]})
    for line, code in [("say x", 202), ("%s/put a b" % TOOLS, 202), ("put a b", 400),
                       ("%s/say x" % TOOLS, 400), ("fettle", 400), ("sayx", 400), ("'say' x", 202),
                       ("s\"a\"y y", 202), ("'two words'", 202), ("two words", 400)]:
        assert service.submit({"commands": [line]}).status_code == code, line


def test_environment_whitelist(services):
    service = services.start(config={"commandWhitelist": ["inherited"],
                                     "envWhitelist": ["SCENE", "EMPTY"]})
    service.run("inherited seen", environment={"SCENE": "a=b c", "EMPTY": ""})
    service.wait_done(1)
    seen = json.loads((service.job_folder(1) / "seen").read_text())["environment"]
    assert seen["SCENE"] == "a=b c"
    assert seen["EMPTY"] == ""
    assert seen["OSTRANDHUB_DATA"] == str(service.data)
    for name in ("OTHER", "scene", "PATH", ""):
        reply = service.submit({"commands": ["inherited x"], "environment": {name: "1"}})
        assert reply.status_code == 400
    assert service.submit({"commands": ["inherited y"], "environment": {}}).status_code == 202


def test_cookies_for_the_tools_that_may_have_them(services):
    service = services.start(config={
        "commandWhitelist": ["*"], "cookieWhitelist": ["sid", "a="],
        "cookieAwareCommands": ["inherited"]})

    def seen(name):
        text = (service.job_folder(1) / name).read_text()
        return json.loads(text)["environment"].get("PORTICO_HTTPURL_COOKIE_HEADER")

    def run(cookie, *names):
        headers = {"Cookie": cookie} if cookie is not None else {}
        reply = service.submit({"commands": ["inherited aware", "%s/inherited other" % TOOLS],
                                "uid": "u", "rerun": True}, headers=headers)
        assert reply.status_code == 202
        service.wait_done(1)
        assert seen("other") is None
        return seen("aware")

    assert run("a=1; sid=2 ;b=3") == "a=1sid=2"
    # Without the header the former value stays, and so with an empty one.
    assert run(None) == "a=1sid=2"
    assert run("") == "a=1sid=2"
    assert run("sid2=7;xsid=1; ab=2") == "sid2=7"
    # A header of which nothing is left empties it.
    assert run("b=3") is None
    assert run("b=3; \t sid=\"x y\" \t;;;") == "sid=\"x y\""


def test_no_cookie_without_a_whitelist(services):
    service = services.start(config={"commandWhitelist": ["*"],
                                     "cookieAwareCommands": ["inherited"]})
    service.submit({"commands": ["inherited seen"]}, headers={"Cookie": "sid=1"})
    service.wait_done(1)
    seen = json.loads((service.job_folder(1) / "seen").read_text())
    assert "PORTICO_HTTPURL_COOKIE_HEADER" not in seen["environment"]


@pytest.mark.parametrize("listed", [False, True])
def test_delivery_host_for_the_tools(services, listed):
    config = {"commandWhitelist": ["*"]}
    if listed:
        config["envWhitelist"] = ["SERVICE_HUB_DELIVERY_HOST"]
    service = services.start("--replyorigin", "--worker_threads", 1, config=config)
    # The first run may come before the host is stored; a second one behind it has it.
    for _ in range(2):
        service.submit({"commands": ["inherited seen"], "uid": "u", "rerun": True},
                       headers={"HubHost": "hub:1"})
        service.wait_done(1)
    seen = json.loads((service.job_folder(1) / "seen").read_text())
    assert seen["environment"].get("SERVICE_HUB_DELIVERY_HOST") == (
        "http://hub:%d" % (service.port + 1) if listed else None)


# What a tool is given.

def test_words_of_a_command_line(service):
    cases = [
        ("plain two", ["plain", "two"]),
        ("'single \"q\" \\' x", ["single \"q\" \\", "x"]),
        ("\"double \\\" \\\\ \\n 'q'\"", ["double \" \\ \\n 'q'"]),
        ("a\\ b \\'c", ["a b", "'c"]),
        ("'' \"\"", ["", ""]),
        ("join'ed 'wo\"rd s\"", ["joined word s"]),
        ("$HOME ~ * `id` $(id) ; && | > x # y", ["$HOME", "~", "*", "`id`", "$(id)", ";", "&&", "|",
                                                 ">", "x", "#", "y"]),
        ("  many   blanks  ", ["many", "blanks"]),
        ("ünï-code", ["ünï-code"]),
    ]
    for number, (words, wanted) in enumerate(cases, 1):
        job = service.run("arguments out " + words, uid=str(number))
        service.wait_done(job)
        assert json.loads((service.job_folder(job) / "out").read_text()) == wanted


def test_what_a_tool_inherits(services):
    service = services.start("--ssl", config={"commandWhitelist": ["*"]})
    clients = [service.session.get(service.url + "/favicon.ico", stream=True) for _ in range(3)]
    job = service.run("inherited seen", "signals which")
    service.wait_done(job)
    del clients
    folder = service.job_folder(job)
    seen = json.loads((folder / "seen").read_text())
    assert seen["folder"] == str(folder)
    assert seen["group"] == seen["process"], "a process group of its own"
    assert seen["SigBlk"] == 0
    console = str(folder / "console.txt")
    # Descriptor 3 or so is the one by which the tool itself lists them, gone when it looks.
    assert seen["descriptors"] == {"0": "/dev/null", "1": console, "2": console}
    signals = dict(line.split() for line in (folder / "which").read_text().splitlines())
    # The C library's starting of processes leaves its own two signals, 32 and 33, ignored.
    ignored = int(signals["SigIgn:"], 16) & ~(3 << 31)
    assert (int(signals["SigBlk:"], 16), ignored) == (0, 0)
    with open("/proc/self/limits") as limits:
        soft = next(line.split()[3] for line in limits if line.startswith("Max open files"))
    assert seen["files"] == int(soft), "the limit that the service itself was started with"


def test_program_with_a_slash(service):
    """Looked for below the service's own folder first, then below the job's."""
    script = "#!/bin/sh\necho %s >&2\n"
    own = service.run_folder / "bin" / "tool"
    own.parent.mkdir()
    own.write_text(script % "of the service")
    own.chmod(0o755)
    job = service.run("bin/tool")
    service.wait_done(job)
    assert service.console(job) == "of the service\n"
    job = service.run("hold gate", "src/tool")
    service.wait_started(job)
    tool = service.job_folder(job) / "src" / "tool"
    tool.write_text(script % "of the job")
    tool.chmod(0o755)
    service.open_gate(job)
    service.wait_done(job)
    assert service.console(job) == "gate\nof the job\n"


def test_interrupt_of_the_terminal_does_not_reach_a_tool(single):
    """The tool is in no group that a terminal would signal along with the service's."""
    job = single.run("hold gate")
    single.wait_started(job)
    tool = single.tools()[0]
    assert os.getpgid(tool) != os.getpgid(single.process.pid)
    single.process.send_signal(signal.SIGINT)
    wait_for(lambda: "shutting down threads" in single.stderr(), "the end to begin")
    single.open_gate(job)
    single.stop()
    assert single.stored_status(job) == 3
