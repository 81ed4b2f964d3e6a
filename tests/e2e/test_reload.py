"""Old jobs after a restart, and what a kill at any moment leaves."""

import json
import random
import re
import threading
import time

import pytest
import requests

from service import job_id
from test_update_state import place_job
from waiting import wait_for


def loaded(service):
    """The number in the line that the walk over the cache writes."""
    return int(re.search(r"^Loading old jobs: (\d+)$", service.stdout(), re.MULTILINE).group(1))


def idle(services, **settings):
    """A service that is not started yet and will run no job."""
    return services.make(options=["--worker_threads", 0], **settings)


def test_empty_cache(service):
    assert loaded(service) == 0
    assert service.counters() == (0, 0, 0)


def test_file_in_place_of_the_cache_folder(services):
    """There is nothing to read, and no word of it; jobs find no place for their folders."""
    service = services.make()
    service.cache_root.mkdir()
    service.jobs_folder().write_text("in the way")
    service.start()
    assert "Loading old jobs" not in service.stdout()
    assert service.run("true") == 1
    wait_for(lambda: service.counters() == (0, 0, 1), "the job's end")
    assert service.post("/config", {"clearCache": True}).status_code == 200
    assert service.counters() == (0, 0, 0)
    assert "clearing cache in" not in service.stdout()
    assert service.jobs_folder().read_text() == "in the way"


def test_holes_and_the_next_number(services):
    service = idle(services)
    for number in (1, 2, 5):
        place_job(service, number, 3)
    service.start()
    assert loaded(service) == 3
    assert list(service.jobs()["jobs"]) == ["job1", "job2", "job5"]
    assert [service.get("/job/%d" % number).status_code for number in range(7)] == [
        400, 200, 200, 400, 400, 200, 400]
    assert service.run("true", uid="new") == 6
    assert service.run("true", uid="job 2") == 2


@pytest.mark.parametrize("status,state,counters", [
    ("0", "OPEN", (1, 0, 0)), ("1", "OPEN", (1, 0, 0)), ("2", "TERMINATING", (0, 1, 0)),
    ("3", "CLOSED", (0, 1, 0)), ("4", "MARKED FOR DELETION", (0, 1, 0)),
    ("5", "CANCELED", (0, 1, 0)), ("6", "ERROR", (0, 0, 1)), ("7", "TERMINATED", (0, 1, 0)),
    ("8", "DELETED", (0, 1, 0)), ("9", None, (0, 1, 0)), ("10", "ERROR", (0, 0, 1)),
    ("12", "ERROR", (0, 0, 1)), ("-1", "ERROR", (0, 0, 1)), ("3.9", "CLOSED", (0, 1, 0)),
    ("-0.5", "OPEN", (1, 0, 0)), ("1e300", "ERROR", (0, 0, 1)), ("1e999", "ERROR", (0, 0, 1)),
    ("4294967296", "ERROR", (0, 0, 1)), ("\"3\"", "ERROR", (0, 0, 1)),
    ("null", "ERROR", (0, 0, 1)), ("[3]", "ERROR", (0, 0, 1)),
])
def test_states(services, status, state, counters):
    service = idle(services)
    folder = place_job(service, 1, status)
    before = (folder / ".status").read_bytes()
    service.start()
    assert loaded(service) == 1
    assert service.counters() == counters
    assert service.state(1) == state
    after = (folder / ".status").read_bytes()
    if status == "1":
        assert after == b'{ "status" : 0 }\n'
    elif state == "ERROR":
        assert after == (before if status == "6" else b'{ "status" : 6 }\n')
    else:
        assert after == before


@pytest.mark.parametrize("content", [None, "", "nonsense", "[3]", "{}", "{\"Status\":3}", "3",
                                     "{ \"status\" : 3", "{ \"status\" : 3 } x"])
def test_unusable_status_file(services, content):
    service = idle(services)
    folder = place_job(service, 1, 3)
    if content is None:
        (folder / ".status").unlink()
    else:
        (folder / ".status").write_text(content)
    service.start()
    assert service.state(1) == "ERROR"
    assert service.counters() == (0, 0, 1)
    assert (folder / ".status").read_bytes() == b'{ "status" : 6 }\n'
    # A new submission of it is what makes it run.
    assert service.run("true", uid="job 1") == 1
    assert service.counters() == (1, 0, 1)


@pytest.mark.parametrize("content", [b"", b"nonsense", b"[]", b"{}", b"{\"commands\":[1]}",
                                     b"{\"commands\":[\"true\"],\"uid\":\"u\"} x", b"{\"a\":1e999}",
                                     b"{\"commands\":[\"forbidden\"]}", b"[" * 200 + b"]" * 200])
def test_unusable_description(services, content):
    service = idle(services, config={"commandWhitelist": ["true"]})
    folder = place_job(service, 1, 0)
    (folder / ".meta").write_bytes(content)
    place_job(service, 2, 3)
    service.start()
    assert loaded(service) == 1
    assert list(service.jobs()["jobs"]) == ["job2"]
    assert service.counters() == (0, 1, 0)
    assert (folder / ".meta").read_bytes() == content
    assert (folder / ".status").read_bytes() == b'{ "status" : 0 }\n'


def test_description_counts_up_to_a_zero_byte(services):
    service = idle(services)
    folder = place_job(service, 1, 3)
    (folder / ".meta").write_bytes(b'{"commands":["true"],"uid":"u"}\0 whatever')
    service.start()
    assert service.state(1) == "CLOSED"


@pytest.mark.parametrize("name,identifier", [
    ("7", 7), ("07", 7), ("+7", 7), ("x", None), ("7x", None), ("7 ", None), (" 7", None),
    ("0x7", None), ("7.0", None), ("-7", None), ("99999999999", None), ("2147483647", None),
    ("2000000000", None), ("16777216", None), (".7", None), ("7e0", None),
])
def test_names_of_folders(services, name, identifier):
    service = idle(services)
    place_job(service, name, 3, uid="u")
    service.start()
    assert loaded(service) == (identifier is not None)
    assert list(service.jobs()["jobs"]) == (["job7"] if identifier else [])
    assert service.run("true", uid="new") == (identifier + 1 if identifier else 1)
    assert (service.jobs_folder() / name / ".meta").exists()


def test_largest_number_of_a_folder(services):
    service = idle(services)
    place_job(service, 16777215, 3, uid="u")
    service.start()
    assert service.state(16777215) == "CLOSED"


def test_console_of_a_folder_that_is_named_oddly(services):
    service = idle(services)
    folder = place_job(service, "07", 3)
    (folder / "console.txt").write_text("here it is")
    service.start()
    assert "here it is" not in service.get("/job/7").text
    assert "here it is" in service.get("/job/07").text


def test_folder_zero(services):
    """It fills the slot that stands for nothing: listed, without a page, and a submission of its
    uid gives the same job a number of its own."""
    service = idle(services)
    place_job(service, 0, 3, uid="zero")
    service.start()
    assert list(service.jobs()["jobs"]) == ["job0"]
    assert service.get("/job/0").status_code == 400
    assert service.update_state(service.uri(0)) == [[200, service.uri(0)]]
    assert service.run("true", uid="zero") == 1
    listed = service.get("/job", headers={"Accept": "application/json"}).text
    # One job in two slots: both show its new number.
    assert listed.count("\"job1\"") == 2
    assert "\"job0\"" not in listed
    assert service.counters() == (1, 1, 0)
    assert (service.job_folder(1) / ".meta").exists()
    assert service.run("true", uid="zero") == 1


def test_files_and_folders_that_are_no_jobs(services):
    service = idle(services)
    place_job(service, 1, 3)
    (service.jobs_folder() / "2").write_text("a file")
    (service.jobs_folder() / "3").mkdir()
    (service.jobs_folder() / "4" / ".meta").mkdir(parents=True)
    (service.jobs_folder() / "5").symlink_to("1")
    service.start()
    assert "job1" in service.jobs()["jobs"]
    assert not {"job2", "job3", "job4"} & set(service.jobs()["jobs"])


def test_uid_in_two_folders(services):
    service = idle(services)
    place_job(service, 1, 3, uid="same")
    place_job(service, 2, 3, uid="same")
    service.start()
    assert list(service.jobs()["jobs"]) == ["job1", "job2"]
    assert service.run("true", uid="same") in (1, 2)


def test_jobs_of_another_provider(services):
    service = idle(services)
    place_job(service, 1, 3)
    service.given_provider_id = "xyz"
    service.start()
    assert loaded(service) == 0
    assert service.run("true", uid="new") == 1
    assert (service.cache_root / "abc" / "1" / ".meta").exists()


def test_known_uid_stays_a_hit(services):
    service = services.start()
    job = service.run("append runs x", uid="u", format="glb")
    service.wait_done(job)
    service.stop()
    service.restart()
    assert loaded(service) == 1
    assert service.run("append runs x", uid="u") == job
    assert service.counters() == (0, 1, 0)
    assert (service.job_folder(job) / "runs").read_text() == "x\n"
    assert "<td title=\"\"></td>" in service.get("/job").text
    # And runs once more when told to.
    service.run("true", uid="u", rerun=True)
    service.wait_done(job)
    assert (service.job_folder(job) / "runs").read_text() == "x\nx\n"


def test_markers_are_left_as_they_are(services):
    """A closed job with a stale marker waits for ever, until it is run again; an open one without
    a marker has no result until it has run."""
    service = idle(services)
    stale, bare = place_job(service, 1, 3), place_job(service, 2, 0)
    (stale / ".partial").touch()
    (stale / "index.x3d").write_text("old")
    (stale / "jobId").write_text("stays")
    service.start()
    assert service.counters() == (1, 1, 0)
    assert service.deliver("1/index.x3d").status_code == 202
    assert service.update_state(service.uri(1)) == [[200, service.uri(1)]]
    assert service.deliver("2/index.x3d").status_code == 404
    assert (stale / "jobId").read_text() == "stays"
    assert not (bare / ".partial").exists() and not (bare / "jobId").exists()
    service.stop()
    service.options = []
    service.restart()
    wait_for(lambda: service.counters() == (0, 2, 0), "the open job")
    assert service.deliver("1/index.x3d").status_code == 202
    service.run("true", uid="job 1", rerun=True)
    service.wait_done(1)
    assert service.deliver("1/index.x3d").text == "old"


def test_interrupted_job_runs_again_without_its_cookies(services):
    service = services.start("--worker_threads", 1, config={
        "commandWhitelist": ["*"], "cookieWhitelist": ["sid"], "cookieAwareCommands": ["inherited"]})
    reply = service.submit({"commands": ["inherited first", "hold gate", "inherited second"]},
                           headers={"Cookie": "sid=1"})
    job = job_id(reply.text)
    service.wait_started(job)
    # As a kill in the first command leaves it.
    service.kill()
    service.end_tools()
    (service.job_folder(job) / ".status").write_text('{ "status" : 1 }\n')
    assert (service.job_folder(job) / ".partial").exists()
    service.restart()
    service.open_gate(job)
    service.wait_done(job)
    assert service.counters() == (0, 1, 0)

    def seen(name):
        text = (service.job_folder(job) / name).read_text()
        return json.loads(text)["environment"].get("PORTICO_HTTPURL_COOKIE_HEADER")

    assert seen("first") is None, "written by the second run"
    assert seen("second") is None


def test_kill_between_two_commands_leaves_a_finished_job(services):
    """The state is that of the command before, and the reload takes it at its word."""
    service = services.start("--worker_threads", 1)
    job = service.run("true", "hold gate", uid="u")
    service.wait_started(job)
    service.kill()
    service.end_tools()
    service.restart()
    assert service.state(job) == "CLOSED"
    assert service.counters() == (0, 1, 0)
    assert service.deliver("%d/index.x3d" % job).status_code == 202
    (service.job_folder(job) / "gate.go").touch()
    service.run("true", uid="u", rerun=True)
    service.wait_done(job)
    assert service.counters() == (0, 2, 0)


def test_job_without_commands_runs_at_each_start(services):
    service = services.start()
    service.submit({"resource": "m.obj"})
    service.wait_done(1)
    for _ in range(2):
        service.stop()
        service.restart()
        wait_for(lambda: service.counters() == (0, 1, 0), "its run")
        assert service.state(1) == "IN PROCESS"


def test_whitelists_of_today_judge_the_jobs_of_yesterday(services):
    service = services.start("--worker_threads", 0)
    service.run("say x", uid="u")
    service.run("true", uid="v")
    service.stop()
    service.write_config({"commandWhitelist": ["true"]})
    service.restart()
    assert loaded(service) == 1
    assert list(service.jobs()["jobs"]) == ["job2"]
    assert (service.job_folder(1) / ".meta").exists()
    assert "job refused: " in service.log()


def test_killed_start_leaves_the_folders_alone(services):
    service = idle(services)
    for number in range(1, 400):
        place_job(service, number, number % 2)
    for _ in range(6):
        service.launch()
        wait_for(lambda: "Providers" in service.stderr(), "the start", step=0.001)
        time.sleep(random.random() * 0.03)
        service.kill()
    service.start()
    assert loaded(service) == 399
    assert service.counters() == (399, 0, 0)
    assert {service.stored_status(number) for number in range(1, 400)} == {0}


class Submitters:
    """Clients that submit jobs for as long as they are answered, and keep what was accepted."""

    def __init__(self, service, count, life):
        self.service, self.life = service, life
        self.accepted = {}
        self.mutex = threading.Lock()
        self.threads = [threading.Thread(target=self.submit, args=(number,))
                        for number in range(count)]
        for thread in self.threads:
            thread.start()

    def submit(self, client):
        with requests.Session() as session:
            session.trust_env = False
            for number in range(100000):
                uids = ["%s-%d-%d-%d" % (self.life, client, number, part)
                        for part in range(1 + number % 3)]
                batch = [{"commands": ["append runs x"], "uid": uid} for uid in uids]
                try:
                    reply = session.post(self.service.url + "/job", timeout=30,
                                         data=json.dumps(batch if len(batch) > 1 else batch[0]))
                except requests.RequestException:
                    return
                found = re.findall(r"(\d+)@abc", reply.text)
                assert len(found) == len(uids), reply.text
                with self.mutex:
                    self.accepted.update(zip(uids, map(int, found)))

    def join(self):
        for thread in self.threads:
            thread.join()
        return self.accepted


@pytest.mark.parametrize("workers", [0, 2])
def test_kill_at_any_moment_forgets_no_accepted_job(services, workers):
    """Whoever holds a 2xx finds the job after the restart, under its number, and it runs."""
    service = services.start("--worker_threads", workers)
    chance = random.Random(4711 + workers)
    accepted = {}
    for life in range(5):
        clients = Submitters(service, 4, "life%d" % life)
        wait_for(lambda: len(clients.accepted) > 5, "some accepted jobs")
        time.sleep(chance.random() * 0.2)
        service.kill()
        accepted.update(clients.join())
        service.restart()
        listed = service.jobs()["jobs"]
        for uid, number in accepted.items():
            job = listed.get("job%d" % number)
            assert job and job["resource"] == uid, (uid, number, job)
            # Nothing but a tool's own failure makes an accepted job fail.
            assert job["status"] in ("OPEN", "IN PROCESS", "CLOSED"), (uid, job)
    service.stop()
    service.options = ["--worker_threads", 3]
    service.restart()
    wait_for(lambda: service.counters()[0] == 0, lambda: "all runs: %s" % (service.counters(),))
    # A job that was cut off before its answer may count as failed; an accepted one may not.
    listed = service.jobs()["jobs"]
    for uid, number in accepted.items():
        assert listed["job%d" % number]["status"] == "CLOSED"
        assert set((service.job_folder(number) / "runs").read_text()) == {"x", "\n"}, uid
