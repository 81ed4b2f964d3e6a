"""Runs of jobs: folders, states, console texts, order."""

import json

import pytest

from service import TOOLS
from waiting import stays, wait_for

SPAWN_ERROR = "Error spawning process. Called tool most likely not executable or found\n"
FOLDERS = {"binGeo", "imgGeo", "popGeo", "src", "struct", "acc"}


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
