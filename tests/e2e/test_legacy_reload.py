"""What a restart of the legacy transcoder makes of the folders that it finds."""

import itertools
import json
import os

import pytest

from legacy import LegacyService
from waiting import stays

STATES = ["OPEN", "IN PROCESS", "CLOSED", "ERROR", "MARKED FOR DELETION", "DELETED", "CANCELED",
          "TERMINATED", "INVALID"]
GOOD_TIMINGS = '{"added":10,"timings":[{"done":2000.5,"proc":1000}]}'


def make_job(service, name, state=2, meta=None, timings=None, files=()):
    """A job's folder as an earlier process has left it; `state` may be the text of .status."""
    folder = service.cache_root / str(name)
    folder.mkdir(parents=True)
    for part in ("binGeo", "imgGeo", "popGeo"):
        (folder / part).mkdir()
    text = '{"resource":"job %s"}' % name if meta is None else meta
    (folder / ".meta").write_bytes(text if isinstance(text, bytes) else text.encode())
    if state is not None:
        (folder / ".status").write_text(
            state if isinstance(state, str) else '{ "status" : %d}\n' % state)
    if timings is not None:
        (folder / ".timings").write_text(timings)
    for file in files:
        (folder / file).write_text("content of " + file)
    return folder


@pytest.fixture
def old(services):
    """A legacy transcoder that has not been started yet, with an empty cache folder."""
    service = services.make(kind=LegacyService)
    service.cache_root.mkdir(parents=True)
    return service


def loaded_line(service):
    return [line for line in service.stdout().splitlines() if line.startswith("Loading")]


def test_first_start_makes_the_cache_folder(legacy):
    assert loaded_line(legacy) == ["Loading old jobs: 0"]
    assert legacy.jobs() == {"numJobs": 0, "numJobsFinished": 0, "jobs": {}}


def test_answered_job_is_known_again(legacy):
    job = legacy.run("m", ops="reuse", format="glb")
    legacy.wait_done(job)
    before = legacy.timings(job)
    legacy.stop()
    legacy.restart()
    assert loaded_line(legacy) == ["Loading old jobs: 1"]
    assert "Z LOADED job: 1\n" in legacy.log()
    assert (legacy.state(1), legacy.command_line(1)) == ("CLOSED", "")
    assert legacy.run("m", ops="reuse", format="glb") == 1
    assert legacy.get("/job/1/result").text == legacy.uri(1) + "/index.glb"
    assert legacy.counters() == (1, 1, 0, 0)
    assert legacy.timings(1) == before
    assert legacy.run("other") == 2


def test_every_state(old):
    for state in range(9):
        make_job(old, state + 1, state, files=(".partial",) if state < 2 else ())
    old.start()
    assert loaded_line(old) == ["Loading old jobs: 9"]
    assert [old.state(number) for number in range(1, 10)] == STATES
    # Each counts as finished, 3 and 7 as errors; none is taken up again.
    assert old.counters() == (9, 9, 2, 0)
    stays(lambda: old.state(1) == "OPEN", "the open job", 0.3)
    assert old.calls(1) == []
    assert [old.deliver("%d/index.x3d" % number).status_code for number in (1, 2, 3)] \
        == [202, 202, 404]
    # A row of state 8 is hidden in the list.
    assert old.get("/job/list").text.count("<tr><td>") == 8
    for number, state in enumerate(STATES, 1):
        deletable = state in ("OPEN", "CLOSED", "ERROR")
        assert (old.get("/job/delete?id=%d" % number).status_code == 202) == deletable, state
    assert (old.state(1), old.state(5)) == ("CANCELED", "MARKED FOR DELETION")


@pytest.mark.parametrize("state, again", [(0, False), (1, False), (2, False), (3, True), (4, False),
                                          (5, True), (6, True), (7, False), (8, False)])
def test_resubmission_by_state(old, state, again):
    make_job(old, 1, state)
    old.start()
    assert old.run("job 1") == 1
    if again:
        old.wait_done(1)
        assert (old.state(1), old.deliver("1/index.x3d").text) == ("CLOSED", "job 1")
    else:
        assert old.log().endswith("Z ADD job: failed, already exists: 1\n")
        assert old.state(1) == STATES[state]


def test_open_job_of_old_runs_once_it_was_canceled(old):
    make_job(old, 1, 0, files=(".partial",))
    old.start()
    assert old.get("/job/delete?id=1").text == "ok"
    assert old.run("job 1") == 1
    old.wait_done(1)
    assert old.deliver("1/index.x3d").status_code == 200
    # It counted as finished at its loading, and at its end again.
    assert old.counters() == (2, 2, 0, 0)


def test_cursor_that_goes_back_runs_what_lay_open(old):
    for number, state in enumerate((3, 0, 2, 0), 1):
        make_job(old, number, state)
    old.start()
    assert old.run("job 1") == 1
    old.wait_done(1, 2, 4)
    assert [old.state(number) for number in range(1, 5)] == ["CLOSED"] * 4
    # Five additions and seven ends: the number of open jobs is unsigned and wraps.
    assert old.counters() == (5, 7, 1, 2**32 - 2)
    assert old.calls(3) == []


def test_gaps(old):
    make_job(old, 2)
    make_job(old, 5)
    (old.cache_root / "3").mkdir()
    (old.cache_root / "6").mkdir()
    (old.cache_root / "7").write_text("no folder")
    old.start()
    assert loaded_line(old) == ["Loading old jobs: 2"]
    assert [old.state(number) for number in range(1, 6)] \
        == ["INVALID", "CLOSED", "INVALID", "INVALID", "CLOSED"]
    assert old.get("/job/list").text.count("<tr><td>") == 2
    assert sorted(old.jobs()["jobs"]) == ["job%d" % number for number in range(1, 6)]
    assert old.get("/job/list/cached").text == '["","job 2","","","job 5"]\n'
    for gap in (1, 3, 4):
        assert old.get("/job/delete?id=%d" % gap).status_code == 400
        assert old.get("/job/%d" % gap).status_code == 200
    # The next number is 6, whose folder is there already.
    assert old.run("new") == 6
    old.wait_done(6)
    assert old.deliver("6/index.x3d").status_code == 200
    # A file in the way of the next one.
    assert old.submit({"resource": "newer"}).status_code == 500
    assert old.state(7) == "ERROR"
    (old.cache_root / "7").unlink()
    assert old.run("newer") == 7
    old.wait_done(7)


def test_folder_names(old):
    for name in ("03", "+4", "-1", "16777216", "4294967295", "99999999999", "6x", "0x7", " 8", "1e1",
                 "-0", "abc", "1.5"):
        make_job(old, name)
    os.symlink("03", old.cache_root / "9")
    old.start()
    # "03", "+4", "-0", and 9, a link to a folder, whose description is that of "03".
    assert loaded_line(old) == ["Loading old jobs: 4"]
    assert old.log().count("old job skipped, no usable id: ") == 3
    assert [old.state(number) for number in range(1, 10)] == [
        "INVALID", "INVALID", "CLOSED", "CLOSED"] + ["INVALID"] * 4 + ["CLOSED"]
    # The record's folder is that of the name; a run goes to that of the number, which is missing.
    assert old.get("/job/delete?id=4").text == "ok"
    assert old.run("new") == 10


def test_job_whose_folder_has_another_form_of_its_number(old):
    make_job(old, "+4", 3)
    old.start()
    assert old.run("job +4") == 4
    old.wait_done(4)
    # What tells of the job lies in the one folder, the run asks for the other.
    assert old.state(4) == "ERROR"
    assert "Z Error spawning process.\n" in old.log()
    assert (old.cache_root / "+4" / ".status").read_text() == '{ "status" : 3}\n'
    assert (old.cache_root / "+4" / ".partial").exists()
    assert not (old.cache_root / "4").exists()


STATUS = [None, "", "x", "[]", "{}", "2", "null", '{"status":"2"}', '{"status":null}',
          '{"status":12}', '{"status":9}', '{"status":-1}', '{"status":-0.5}', '{"status":8.5}',
          '{"status":1e999}', '{"status":[2]}', '{ "status" : 2', '{"state":2}', '{"a":' * 100000]


def test_status_that_makes_no_sense_is_an_error_and_is_left_alone(old):
    folders = [make_job(old, number, text) for number, text in enumerate(STATUS, 1)]
    unreadable = make_job(old, len(STATUS) + 1, None)
    (unreadable / ".status").mkdir()
    old.start()
    count = len(STATUS) + 1
    assert {old.state(number) for number in range(1, count + 1)} == {"ERROR"}
    assert old.counters() == (count, count, count, 0)
    for folder, text in zip(folders, STATUS):
        path = folder / ".status"
        assert (path.read_text() if path.exists() else None) == text


def test_status_of_other_forms(old):
    for number, text in enumerate(('{ "status" : 2 }\n', '{"status":2.9}', '\n {"status":2} rest',
                                   '{"a":[],"status":2,"b":{}}', '{"status":3,"status":2}'), 1):
        make_job(old, number, text)
    old.start()
    assert {old.state(number) for number in range(1, 6)} == {"CLOSED"}


META = ["", "x", "[]", "[1]", "{}", "null", '{"resource":1}', '{"resource":""}',
        '{"resource":"m","format":"tga"}', '{"resource":"a\\nb"}', '{"commands":["rm -rf /"]}',
        '{"resource":"m","environment":{"A":"1"}}', "[" * 100000, '{"a":' * 100000, b"\xff\0"]


@pytest.mark.parametrize("first", [False, True])
def test_description_that_cannot_be_read(old, first):
    offset = 0 if first else 1
    if not first:
        make_job(old, 1)
    folders = [make_job(old, number + offset, 2, meta) for number, meta in enumerate(META, 1)]
    gap = len(META) + offset + 1
    make_job(old, gap + 1)
    old.start()
    count = len(META) + offset + 1
    assert loaded_line(old) == ["Loading old jobs: %d" % count]
    # They have no uid, and share one record with the gap: that of the first of them, or, where a job
    # was loaded before it, the one that gaps have, which no list shows.
    assert {old.state(number) for number in range(1 + offset, gap + 1)} \
        == {"ERROR" if first else "INVALID"}
    assert old.counters() == (count, count, len(META), 0)
    for folder in folders:
        assert (folder / ".status").read_text() == '{ "status" : 3}\n'
    assert old.get("/job/list").status_code == 200
    assert old.run("new") == gap + 2
    old.wait_done(gap + 2)


TIMINGS = {
    "": (0, []), "x": (0, []), "[]": (0, []), "null": (0, []), "{}": (0, []),
    '{"timings":[{"proc":1,"done":2}]}': (0, []),
    '{"added":"1","timings":[{"proc":1,"done":2}]}': (0, []),
    '{"added":null,"timings":[{"proc":1,"done":2}]}': (0, []),
    '{"added":1e999,"timings":[{"proc":1,"done":2}]}': (0, []),
    '{"added":1000}': (1, []),
    '{"added":1000,"timings":{}}': (1, []),
    '{"added":1000,"timings":"x"}': (1, []),
    '{"added":1000,"timings":[1,null,"x",[],[1,2],{},{"proc":1},{"done":1},'
    '{"proc":"1","done":2},{"proc":1,"done":null},{"proc":1000,"done":3000}]}': (1, [(1, 3)]),
    '{"timings":[{"done":3000,"proc":2000,"more":1},{"proc":0,"done":-1000}],"added":1000} rest':
        (1, [(2, 3), (0, -1)]),
    '{"added":1000,"timings":[{"proc":1,"done":2}': (0, []),
    '{"added":' * 100000: (0, []),
}


def test_timings_of_every_shape(old):
    for number, text in enumerate(TIMINGS, 1):
        make_job(old, number, timings=text)
    last = len(TIMINGS) + 1
    (make_job(old, last) / ".timings").mkdir()
    make_job(old, last + 1)
    old.start()
    expected = list(TIMINGS.values()) + [(0, []), (0, [])]
    for number, (added, pairs) in enumerate(expected, 1):
        page = old.get("/job/%d" % number).text
        lines = page.partition("<pre>\n")[2].partition("</pre>")[0].splitlines()
        assert lines[0] == "added : %g" % added, number
        assert [line for line in lines if line.startswith(("  start", "  done"))] == list(
            itertools.chain(*(["  start processing : %g" % begin, "  done processing  : %g" % end]
                              for begin, end in pairs))), number
        assert len(lines) == 1 + 6 * len(pairs)


def test_second_run_appends_to_the_times_of_old(old):
    make_job(old, 1, 3, timings=GOOD_TIMINGS)
    old.start()
    assert old.run("job 1") == 1
    old.wait_done(1)
    told = old.timings(1)
    assert told["timings"][0] == {"proc": 1000, "done": 2000.5}
    assert len(told["timings"]) == 2
    assert (old.job_folder(1) / ".timings").read_text().count('"done":2000.5,"proc":1000}') == 1


def test_one_uid_in_two_folders(old):
    make_job(old, 2, 2, '{"resource":"same"}')
    make_job(old, 4, 3, '{"resource":"same"}')
    old.start()
    assert old.counters() == (2, 2, 1, 0)
    assert (old.state(2), old.state(4)) == ("CLOSED", "CLOSED")
    assert old.run("same") == 2


def test_resubmission_keeps_the_description_until_the_restart(legacy):
    job = legacy.run("exit-with 1", uid="u", format="glb")
    legacy.wait_done(job)
    assert legacy.run("better", uid="u", format="html") == job
    legacy.wait_done(job, runs=2)
    assert legacy.calls(job)[1] == legacy.calls(job)[0]
    assert json.loads((legacy.job_folder(job) / ".meta").read_text())["resource"] == "better"
    legacy.stop()
    legacy.restart()
    assert legacy.run("better", uid="u", format="html") == job
    legacy.wait_done(job, runs=3)
    assert (legacy.state(job), legacy.calls(job)[2][1]) == ("CLOSED", "better")
    assert legacy.deliver("1/index.html").text == "better"


def test_batches_come_back_as_they_are(old):
    make_job(old, 1, 3, '{"commands":["fettle -i again out"]}')
    old.start()
    assert old.add({"commands": ["fettle -i again out"]}) == 1
    old.wait_done(1)
    assert old.calls(1) == [["-i", "again", "out"]]
