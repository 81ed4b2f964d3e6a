"""Ways to run a program that is not listed, against the whole transcoder."""

import itertools
import json
import os
import shlex

import pytest

from marks import META, REFUSED, ZERO, Stand
from service import job_id


def test_unlisted_programs_do_not_run(services):
    stand = Stand(services)
    for name in ("evil", "tool"):
        stand.program(services.folder / "elsewhere" / name)
    lines = REFUSED + ["%s/%s" % (services.folder, path)
                       for path in ("bin/evil", "bin/tool", "bin//tool", "elsewhere/tool",
                                    "elsewhere/../bin/tool", "run/evil")]
    assert stand.codes(lines) == [400] * len(lines)
    # In company of a listed one neither runs.
    batch = [{"commands": ["tool x", line], "uid": line} for line in ("evil", "'tool", "./tool")]
    assert [code for code, _ in stand.service.submit(batch).json()] == [400] * 3
    assert stand.service.jobs()["jobs"] == {}
    assert list(stand.service.jobs_folder().iterdir()) == []
    # The service itself is well, and shows that a listed one would have run.
    stand.service.wait_done(stand.service.run("tool x"))
    assert stand.arguments(1) == ["x"]
    assert stand.marked() == []


@pytest.mark.parametrize("line", ["evil", "./evil", "sub/evil", "'evil'", "e\"vi\"l", "\tevil",
                                  "sh -c evil", "env evil", "../run/evil"])
def test_each_would_run_where_it_is_listed(services, line):
    """What the tests above rely on: the mark works, and nothing but the list is in the way."""
    stand = Stand(services, listed=["*"])
    stand.service.wait_done(stand.service.run(line, uid="u"))
    assert len(stand.marked()) == 1
    assert stand.marked()[0].endswith("evil")


def test_lines_are_judged_as_an_independent_splitter_reads_them(services):
    """All short pieces of what has a meaning, around the name; Python's splitter is the judge."""
    stand = Stand(services)
    pieces = ["'", "\"", "\\", " ", "\t", "\n", "x", "''", "\"\"", ";", "\\'", "\\\""]
    single = [""] + pieces
    around = single + ["".join(pair) for pair in itertools.product(pieces, repeat=2)]
    lines = ["%stool%s" % pair for pair in itertools.product(around, single)]
    lines += ["%sto%sol" % pair for pair in itertools.product(single, around)]
    lines += ["%stool%s" % pair for pair in itertools.product(single, around)]

    def judged(line):
        try:
            words = shlex.split(line)
        except ValueError:
            return 400
        return 202 if words[:1] == ["tool"] else 400

    expected = [judged(line) for line in lines]
    assert 500 < expected.count(202) < len(lines) / 2
    # Under one name, so that those that are taken make one job.
    reply = stand.service.submit([{"commands": [line], "uid": "u"} for line in lines])
    codes = [code for code, _ in reply.json()]
    assert [line for line, code, want in zip(lines, codes, expected) if code != want] == []
    stand.service.wait_done(1)
    assert list(stand.service.jobs()["jobs"]) == ["job1"]


def test_nothing_behind_the_program_is_a_command(services):
    stand = Stand(services)
    lines = ["tool ; evil", "tool | evil", "tool & evil", "tool && evil", "tool $(evil) `evil`",
             "tool > made < made", "tool \nevil", "tool \r\n evil", "tool * ~ $HOME {a,b} #evil",
             "tool '\n'evil", "tool -e evil --exec=evil @evil", "tool 'a b' \"c d\" e\\ f ''"]
    assert stand.codes(lines) == [202] * len(lines)
    stand.service.wait_done(*range(1, len(lines) + 1))
    for number, line in enumerate(lines, 1):
        assert stand.service.state(number) == "CLOSED", line
        told = "".join(word + "\n" for word in shlex.split(line)[1:])
        assert stand.arguments(number) == told.splitlines(), line
        assert not (stand.service.job_folder(number) / "made").exists()
    assert stand.marked() == []


def test_further_texts_of_a_command_are_no_commands(services):
    stand = Stand(services)
    stand.service.wait_done(stand.service.run(["tool a", "evil", "./evil", ["evil"]]))
    assert stand.arguments(1) == ["a"]
    for element in (["evil", "tool"], ["tool;evil"], ["", "tool"], [["tool"]], {"line": "tool"}):
        assert stand.service.submit({"commands": [element], "uid": "u"}).status_code == 400
    assert stand.marked() == []


REFUSED_TEXTS = [
    b'{"uid":"u","commands":["tool"],"commands":["evil"]}',
    b'{"uid":"u","commands":["tool\\u0000evil"]}', b'{"uid":"u","commands":["\\u0000evil"]}',
    b'{"uid":"u\\u0000","commands":["tool"]}', b'{"uid":"u\\n","commands":["tool"]}',
    b'{"uid":"u","commands":["\xc1\xb4ool"]}', b'{"uid":"u","commands":["\xe0\x81\xb4ool"]}',
    b'{"uid":"u","commands":["\xff\xfet\x00o\x00o\x00l\x00"]}',
    b'{"uid":"u","commands":["tool\\ud83d"]}', b'{"uid":"u","commands":["\\ud83d\\u0065vil"]}',
    b'{"uid":"u","commands":["\\udd00tool"]}', b'{"uid":"u","commands":["tool"\x00]}',
    b'{"uid":"u","commands":["tool"]}\x00evil', b'{"uid":"u","commands":["tool"]}{"uid":"v"}',
    b"{'uid':'u','commands':['tool']}", b'{"uid":"u","commands":["tool" "evil"]}',
    b'{"uid":"u","commands":["evil"],"JobKind":0}', b'{"uid":"u","commands":{"0":"tool"}}',
    b'{"uid":"u","commands":"tool"}', b'\xef\xbb\xbf{"uid":"u","commands":["tool"]}',
    b'{"uid":"u","commands":["tool"],"environment":{"PATH":"."}}',
    b'{"uid":"u","commands":["tool"],"environment":{"LD_PRELOAD":"x.so"}}',
    b'{"uid":"u","commands":["tool"],"environment":{"SCENE\\u0000":"x"}}',
    b'{"uid":"u","commands":["tool"],"environment":{"SCENE=PATH":"x"}}',
    b'{"uid":"u","commands":["tool"],"environment":{"SCENE":"x","SCENE ":"x"}}',
    b'{"uid":"u","commands":["tool"],"environment":{"":"x"}}',
    b'{"uid":"u","commands":["tool"],"environment":[["SCENE","x"]]}',
]


def test_refused_texts(services):
    stand = Stand(services, config={"commandWhitelist": ["tool"], "envWhitelist": ["SCENE"]})
    for body in REFUSED_TEXTS:
        assert stand.service.post("/job", body).status_code == 400, body
        assert stand.service.post("/job/add", body).status_code == 400, body
    assert stand.service.jobs()["jobs"] == {}
    stand.service.wait_done(stand.service.run("tool"))
    assert stand.marked() == []


@pytest.mark.parametrize("body", [
    b'{"uid":"u","commands":["evil"],"commands":["tool a"]}',
    b'{"uid":"u","commands":["\\u0074ool a"]}', b'{"uid":"u","commands":["\\u0074\\u006fol\\ta"]}',
    b'{"uid":"u","commands":["tool a"],"exe":"evil","command":"evil","Commands":["evil"]}',
    b'{"uid":"$(evil)","commands":["tool a"],"resource":"`evil`","ops":"evil;evil"}',
])
def test_taken_texts_run_what_was_checked(services, body):
    """Also after a restart, which reads them again."""
    stand = Stand(services)
    service = stand.service
    assert service.post("/job", body).status_code == 202
    service.wait_done(1)
    assert stand.arguments(1) == ["a"]
    service.stop()
    stand.reopen(1)
    service.restart()
    service.wait_done(1)
    assert stand.arguments(1) == ["a", "a"]
    assert stand.marked() == []


# Where programs are looked for.


def test_programs_that_tools_leave_behind_do_not_run(services):
    stand = Stand(services, listed=["tool", "plant", "other"])
    service = stand.service
    job = service.run("plant tool other ./bin/tool sub/tool", "tool a", "other")
    service.wait_done(job)
    # The folder of the job is on no PATH: `other` is nowhere, and `tool` is the service's own.
    assert (stand.arguments(job), service.state(job)) == (["a"], "ERROR")
    assert (service.job_folder(job) / "other").exists()
    for name in ("other", "tool"):
        assert stand.codes(["./" + name, "bin/tool", "%s/%s" % (service.job_folder(job), name)]) \
            == [400] * 3
    assert stand.marked() == []


def test_relative_folders_of_the_path_are_the_services(services):
    stand = Stand(services, listed=["tool", "plant", "other"], start=False,
                  path=":sub:.:%s:/usr/bin:/bin" % (services.folder / "bin"))
    service = stand.service
    stand.program(service.run_folder / "sub" / "other", "echo own >other.ran")
    service.start()
    job = service.run("plant tool other sub/tool sub/other", "tool a", "other")
    service.wait_done(job)
    assert (stand.arguments(job), service.state(job)) == (["a"], "CLOSED")
    assert (service.job_folder(job) / "other.ran").read_text() == "own\n"
    assert stand.marked() == []


def test_links_with_listed_names_do_not_run(services):
    stand = Stand(services, listed=["tool", "ln"])
    service = stand.service
    job = service.run("ln -s %s tool" % (stand.bin / "evil"), "ln -s tool ln", "tool a")
    service.wait_done(job)
    assert os.path.islink(service.job_folder(job) / "tool")
    assert (stand.arguments(job), stand.marked()) == (["a"], [])


def test_listed_path_is_that_path(services):
    """An entry with a slash in it is the file in the service's folder, before the job's."""
    stand = Stand(services, listed=["plant", "own/tool"], start=False)
    service = stand.service
    stand.program(service.run_folder / "own" / "tool", "echo own >tool.ran")
    service.start()
    job = service.run("plant own/tool", "own/tool")
    service.wait_done(job)
    assert (stand.arguments(job), stand.marked()) == (["own"], [])
    assert stand.codes(["./own/tool", "own//tool", "own/../own/tool", "own/./tool", "tool",
                        str(service.run_folder / "own" / "tool"), "own/tool2"]) == [400] * 7


def test_name_with_the_ending_is_not_the_name_without(services):
    stand = Stand(services, listed=["tool.exe"])
    service = stand.service
    assert stand.codes(["tool", "evil.exe", "tool.EXE", "tool.exe.exe", "tool.ex"]) == [400] * 5
    service.wait_done(service.run("tool.exe a"))
    assert stand.arguments(1) == ["a"]


def test_variables_do_not_move_the_search(services):
    """Even a PATH that jobs may set is the tool's and not the search's."""
    stand = Stand(services, config={"commandWhitelist": ["tool", "plant", "other", "show"],
                                    "envWhitelist": ["PATH", "SCENE", "A=B"]})
    service = stand.service
    stand.program(stand.bin / "show", "/usr/bin/env -0 >show.ran")
    elsewhere = services.folder / "elsewhere"
    for name in ("tool", "other", "show"):
        stand.program(elsewhere / name)
    variables = {"PATH": "%s:." % elsewhere, "SCENE": "x\nPATH=y", "A=B": "c"}
    job = service.run("plant tool other", "tool a", "show", "other", environment=variables)
    service.wait_done(job)
    assert (stand.arguments(job), service.state(job)) == (["a"], "ERROR")
    seen = (service.job_folder(job) / "show.ran").read_text().split(ZERO)
    assert "PATH=" + variables["PATH"] in seen
    assert "SCENE=x\nPATH=y" in seen
    assert not [text for text in seen if text.startswith("A=")]
    assert stand.marked() == []


def test_value_with_a_zero_byte_is_not_cut(services):
    stand = Stand(services, config={"commandWhitelist": ["show"], "envWhitelist": ["SCENE", "B"]})
    service = stand.service
    stand.program(stand.bin / "show", "/usr/bin/env -0 >show.ran")
    service.wait_done(service.run("show", environment={"SCENE": "x" + ZERO + "PATH=y", "B": "z"}))
    seen = (service.job_folder(1) / "show.ran").read_text().split(ZERO)
    assert "B=z" in seen
    assert not [text for text in seen if text.startswith(("SCENE=", "PATH=y"))]


def test_argument_with_a_zero_byte_is_no_start(services):
    stand = Stand(services)
    service = stand.service
    job = service.run("tool a" + ZERO + "b", uid="u")
    service.wait_done(job)
    assert (service.state(job), stand.arguments(job)) == ("ERROR", [])
    assert service.console(job) == (
        "Error spawning process. Called tool most likely not executable or found\n")


# Lists, sizes, and jobs that are there already.


def test_entries_are_neither_patterns_nor_beginnings(services):
    listed = ["too", "tool2", "to*", "tool x", " tool", "tool ", "", ".", "/", "TOOL", "./tool",
              "^tool$", "tool\n", "tool" + ZERO, "**"]
    stand = Stand(services, listed=listed)
    lines = ["tool", "tool x", "\ttool\n", "'tool'", "evil", ""]
    assert stand.codes(lines) == [400] * len(lines)
    # What equals such an entry is taken, and is nothing that could be started.
    entries = ["too", "''", ".", "/", "'tool x'", "'tool" + ZERO + "'"]
    jobs = [service_job(stand, line) for line in entries]
    stand.service.wait_done(*jobs)
    assert {stand.service.state(job) for job in jobs} == {"ERROR"}
    assert stand.marked() == []


def service_job(stand, line):
    return stand.service.run(line, uid="entry " + line.replace(ZERO, ""))


@pytest.mark.parametrize("listed, code", [
    ([], 400), ([["*"]], 400), ([1, None, "evil2"], 400), ("*", 400), ({"*": "*"}, 400),
    (None, 400), (True, 400), (["evil"], 202), (["x", "*"], 202)])
def test_lists_of_other_forms(services, listed, code):
    """A value that is no list leaves the default, and elements that are no text list nothing."""
    stand = Stand(services, config={"commandWhitelist": listed})
    assert stand.codes(["evil"]) == [code]
    if code == 202:
        stand.service.wait_done(1)
    assert bool(stand.marked()) == (code == 202)


def test_large_lines(services):
    stand = Stand(services)
    big = 1 << 20
    refused = ["t" * big, "'" * (big + 1), " " * big, "evil " + "a" * big, "\\" * (big + 1),
               "'tool" + " x" * big, "tool" * (big // 4), "''" * big + " tool"]
    assert stand.codes(refused) == [400] * len(refused)
    # Thousands of words arrive whole; more than the system passes on is no start.
    words = ["w%d" % number for number in range(20000)]
    job = stand.service.run("tool " + " ".join(words), uid="words")
    stand.service.wait_done(job)
    assert stand.arguments(job) == words
    job = stand.service.run("'tool' " + "a" * (1 << 22), uid="long")
    stand.service.wait_done(job)
    assert stand.service.state(job) == "ERROR"
    # Many commands, of which the last is not listed.
    assert stand.service.submit({"commands": ["tool"] * 50000 + ["evil"],
                                 "uid": "many"}).status_code == 400
    assert stand.marked() == []


def test_known_job_takes_no_new_commands(services):
    stand = Stand(services)
    service = stand.service
    service.wait_done(service.run("tool a", uid="u"))
    assert service.submit({"commands": ["evil"], "uid": "u", "rerun": True}).status_code == 400
    assert service.submit({"commands": ["evil"], "uid": "u"}).status_code == 400
    reply = service.submit({"commands": ["tool b"], "uid": "u", "rerun": True})
    assert (reply.status_code, job_id(reply.text)) == (202, 1)
    service.wait_done(1)
    assert stand.arguments(1) == ["a", "a"]
    assert json.loads((service.job_folder(1) / ".meta").read_text())["commands"] == ["tool a"]
    assert stand.marked() == []


@pytest.mark.parametrize("text", META)
def test_description_altered_on_the_disk(services, text):
    stand = Stand(services)
    service = stand.service
    service.wait_done(service.run("tool a", uid="u"), service.run("tool b", uid="v"))
    service.stop()
    stand.reopen(1)
    stand.reopen(2)
    (service.job_folder(1) / ".meta").write_text(text)
    service.restart()
    # The other one shows that jobs are taken up again.
    service.wait_done(2)
    assert list(service.jobs()["jobs"]) == ["job2"]
    assert stand.arguments(2) == ["b", "b"]
    assert stand.arguments(1) == ["a"]
    # Its uid is free again, for a job of its own.
    assert service.submit({"commands": ["evil"], "uid": "u"}).status_code == 400
    service.wait_done(service.run("tool c", uid="u"))
    assert stand.marked() == []
