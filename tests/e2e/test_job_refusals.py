"""Descriptions that are refused, and what the whitelists let through."""

import json
import re

import pytest

from service import TOOLS
from waiting import wait_for


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


@pytest.mark.parametrize("path", ["/job", "/job/add", "/job/updateState", "/config"])
@pytest.mark.parametrize("piece", ["[", "{\"a\":", "[{\"a\":"])
def test_brackets_without_end(shared, path, piece):
    """A few megabytes are more than the stack of a thread holds, if each took a call."""
    assert shared.post(path, piece * 1000000).status_code == 400
    assert shared.get("/job").status_code == 200
