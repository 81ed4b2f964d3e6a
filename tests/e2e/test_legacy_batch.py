"""Command batches of the legacy transcoder: their runs, and what they may start."""

import pytest

from legacy import LegacyService

# The recording tool as a command line: what it does, and the file that it writes.
LINE = "fettle -i '%s' %s"


def lines(*resources):
    return [LINE % (resource, "out%d" % number) for number, resource in enumerate(resources, 1)]


def run(service, *resources, **keys):
    job = service.add(dict({"commands": lines(*resources)}, **keys))
    service.wait_done(job)
    return job


def test_commands_run_one_after_the_other(legacy):
    job = run(legacy, "one", "two", "three")
    assert [call[1] for call in legacy.calls(job)] == ["one", "two", "three"]
    assert (legacy.state(job), legacy.command_line(job)) == ("CLOSED", "See Resource")
    assert legacy.console(job) == "fettle: one\nfettle: two\nfettle: three\n"
    pairs = legacy.timings(job)["timings"]
    assert len(pairs) == 3
    assert all(a["proc"] < a["done"] <= b["proc"] < b["done"] for a, b in zip(pairs, pairs[1:]))
    assert legacy.deliver("%d/out3" % job).text == "three"
    assert legacy.counters() == (1, 1, 0, 0)


def test_batch_shows_its_line_from_the_start(legacy):
    job = legacy.add({"commands": lines("hold gate")})
    legacy.wait_started(job)
    assert (legacy.state(job), legacy.command_line(job)) == ("IN PROCESS", "See Resource")
    legacy.open_gate(job)
    legacy.wait_done(job)


@pytest.mark.parametrize("failing", ["exit-with 1", "end-by KILL"])
def test_first_failure_ends_the_batch(legacy, failing):
    job = run(legacy, "one", failing, "three")
    assert len(legacy.calls(job)) == 2
    assert len(legacy.timings(job)["timings"]) == 2
    assert legacy.state(job) == "ERROR"
    assert not (legacy.job_folder(job) / ".partial").exists()
    assert " - PROC job: failed, fettle error, ID: 1\n" in legacy.log()


def test_command_that_cannot_be_started_ends_the_batch(services, folder):
    service = services.start(kind=LegacyService, environment={"PATH": str(folder)})
    job = run(service, "one", "two")
    assert service.state(job) == "ERROR"
    assert len(service.timings(job)["timings"]) == 1
    assert service.log().count("Z Error spawning process.\n") == 1
    assert service.console(job) == ""


def test_empty_batch_is_stuck(legacy):
    job = run(legacy, resource="model")
    assert (legacy.state(job), legacy.command_line(job)) == ("IN PROCESS", "See Resource")
    assert (legacy.job_folder(job) / ".timings").read_text().endswith(',"timings":[]}')
    assert legacy.deliver("%d/index.x3d" % job).status_code == 404
    assert " - PROC job: failed, fettle error, ID: 1\n" in legacy.log()
    assert legacy.get("/job/delete?id=1").status_code == 400
    assert legacy.add({"commands": [], "resource": "model"}) == job
    assert legacy.log().count("ADD job: failed, already exists: 1\n") == 1
    assert legacy.counters() == (1, 0, 0, 1)


def test_failed_batch_runs_again_from_its_first_command(legacy):
    job = run(legacy, "one", "exit-with 1")
    assert legacy.add({"commands": lines("one", "exit-with 1")}) == job
    legacy.wait_done(job, runs=2)
    assert len(legacy.calls(job)) == 4
    assert len(legacy.timings(job)["timings"]) == 4
    assert legacy.console(job) == "fettle: one\nfettle: exit-with 1\n\n" * 2


def test_lists_as_commands(legacy):
    job = legacy.add({"commands": [[LINE % ("one", "out1"), "more", 3]]})
    legacy.wait_done(job)
    assert legacy.calls(job) == [["-i", "one", "out1"]]


def test_only_the_tools_of_this_provider_are_allowed(legacy):
    for line in ("say x", "/bin/true", "Fettle", "./fettle", "sh -c fettle", "", "'", "*"):
        assert legacy.submit({"commands": [line], "uid": "u"}).status_code == 400, line
    job = legacy.add({"commands": ["fettle.exe -i one out1", "glimt a b", "'fet'tle -i two out2"]})
    legacy.wait_done(job)
    assert legacy.state(job) == "CLOSED"
    assert legacy.calls(job, "glimt") == [["a", "b"]]
    assert legacy.log().count("job refused: program not allowed: ") == 6
    assert legacy.log().count("job refused: a command line without a program\n") == 2


def test_configuration_file_is_not_read(services):
    service = services.start(kind=LegacyService, config={"commandWhitelist": ["*"],
                                                         "envWhitelist": ["A"]})
    assert service.submit({"commands": ["say x"]}).status_code == 400
    assert service.submit({"resource": "r", "environment": {"A": "1"}}).status_code == 400
    assert "job refused: variable not allowed: A\n" in service.log()
