"""The application of a render job: how it is started, what it leaves, and the slot that stays taken."""

import json
import os

import pytest

from raw_http import ask, request
from render import RenderService, assert_bare, entry, start_render
from service import TOOLS, run_program
from waiting import wait_for

ERROR_LINE = "Error spawning process. Called tool most likely not executable or found\n"


def folder_names(service, identifier):
    return sorted(os.listdir(service.job_folder(identifier)))


def test_the_application_alone_is_the_command(services):
    given = {"class": "c", "gpus": 2, "cpus": 3, "portOpt": "-p", "classOpt": "-c", "gpuOpt": "-g",
             "cpuOpt": "-u", "outOpt": "-o", "addOpt": "-a"}
    service = start_render(services, dict(entry(exe="arguments seen 'a b' \"c d\" e\\ f \"\""), **given))
    service.take(**{"class": "c"})
    service.wait_state(0, "CLOSED")
    assert json.loads((service.job_folder(0) / "seen").read_text()) == ["a b", "c d", "e f", ""]


def test_the_environment_is_that_of_the_service(services):
    service = start_render(services, entry(exe="sh -c 'echo $PLAIN-$A-$DISPLAY-$CLASS'"),
                    environment={"PLAIN": "plain", "A": "service", "DISPLAY": ":99"})
    service.take(environment={"A": "job", "CLASS": "x"})
    service.wait_state(0, "CLOSED")
    assert service.console(0) == "plain-service-:99-\n"
    assert service.meta(0) == "{\"environment\":{\"A\":\"job\",\"CLASS\":\"x\"}}"


def test_files_of_a_job(services):
    """No state is kept on disk, in no stage of a job."""
    service = start_render(services, entry(exe="sh -c 'pwd; hold gate; exit 3'"))
    service.take(a=1)
    service.wait_started(0)
    assert folder_names(service, 0) == [".meta", "console.txt", "gate.started"]
    service.open_gate(0)
    service.wait_state(0, "ERROR")
    assert folder_names(service, 0) == [".meta", "console.txt", "gate.go", "gate.started"]
    assert service.meta(0) == "{\"a\":1}"
    assert service.console(0) == "%s\ngate\n" % service.job_folder(0)


def test_programs_are_found_as_for_every_tool(services):
    service = services.make(kind=RenderService, renderers=[
        entry(exe="./own a"), entry(exe=str(TOOLS / "say") + " b"), entry(exe="say c")])
    own = service.run_folder / "own"
    own.write_text("#!/bin/sh\necho own $1\n")
    own.chmod(0o755)
    service.start()
    for _ in range(3):
        service.take()
    service.wait_counters(0, 3, 0)
    assert service.console(0) == "own a\n"
    assert sorted(service.console(1).splitlines()) == ["b", "err: b"]
    assert sorted(service.console(2).splitlines()) == ["c", "err: c"]


@pytest.mark.parametrize("exe", ["no-such-renderer --port 1", "", "  ", "'unclosed", "\\",
                                 "./missing", "/", "\"\"", "/etc/hostname"])
def test_applications_that_cannot_be_started(services, exe):
    service = start_render(services, entry(exe=exe))
    service.take()
    service.wait_state(0, "ERROR")
    service.wait_counters(0, 0, 1)
    assert service.console(0) == ERROR_LINE
    assert service.stdout().count(ERROR_LINE) == 1
    assert service.refused()


def test_one_application_that_fails_leaves_the_others_alone(services):
    service = start_render(services, entry(exe="false"), entry(), entry(exe="end-by KILL"))
    for _ in range(3):
        service.take()
    service.wait_counters(1, 0, 2)
    assert service.rows() == {0: ("See Resource", "ERROR"), 1: ("See Resource", "IN PROCESS"),
                              2: ("See Resource", "ERROR")}


def test_a_file_in_the_way_of_the_folder(services):
    """Accepted, and failed when the application is to start where there is nothing."""
    service = services.make(kind=RenderService, renderers=[entry(), entry()])
    service.jobs_folder().mkdir(parents=True)
    service.job_folder(0).write_text("in the way")
    service.start()
    assert service.take() == 0
    service.wait_state(0, "ERROR")
    assert service.stdout().count(ERROR_LINE) == 1
    assert service.job_folder(0).read_text() == "in the way"
    assert service.take() == 1
    service.wait_started(1)


def test_a_folder_that_goes_while_the_application_runs(services):
    service = start_render(services, entry(2, exe="sh -c 'sleep 600'"))
    service.take()
    service.wait_state(0, "IN PROCESS")
    run_program(["-c", "rm -rf \"$0\"", service.job_folder(0)], service.folder, link="/bin/sh")
    assert service.detail("0").status_code == 200
    service.stop_job(0)
    assert service.take() == 1


# Nothing frees a slot.

@pytest.mark.parametrize("exe, state, counters", [
    ("true", "CLOSED", (0, 1, 0)), ("false", "ERROR", (0, 0, 1)),
    ("no-such-renderer", "ERROR", (0, 0, 1))])
def test_slot_of_an_ended_application_stays_taken(services, exe, state, counters):
    service = start_render(services, entry(exe=exe, port=7))
    service.take()
    service.wait_counters(*counters)
    assert service.rows() == {0: ("See Resource", state)}
    assert service.refused()
    assert service.detail("0/dapple").text == "http://127.0.0.1:7\n"
    # Nothing to stop any more.
    assert_bare(ask(service.port, request("DELETE", "/job/0")), 200)
    assert service.rows() == {0: ("See Resource", state)}
    assert service.counters() == counters
    assert service.refused()
    assert "clear job" not in service.stderr()


def test_stopped_application(services):
    service = start_render(services, entry(2, exe="sh -c 'echo up; hold gate; echo not reached'"))
    service.take()
    service.take()
    service.wait_started(0)
    service.stop_job(0)
    service.wait_counters(1, 1, 0)
    assert service.rows()[0] == ("See Resource", "CLOSED")
    assert service.console(0) == "up\n"
    assert service.refused()
    # The other one was not touched.
    assert service.state(1) == "IN PROCESS"
    assert service.detail("0").status_code == 200
    assert "clear job" not in service.stderr()


def test_delete_takes_what_stands_behind_the_id(services):
    service = start_render(services, entry())
    service.take()
    service.wait_started(0)
    service.stop_job(0, path="0/whatever/else")
    assert service.state(0) == "CLOSED"


def test_stop_takes_what_the_application_started(services):
    service = start_render(services, entry(exe="sh -c 'sleep 600 & sleep 601 & hold gate'"))
    service.take()
    service.wait_started(0)
    wait_for(lambda: len(service.tools()) >= 4, "the application's own processes")
    service.stop_job(0)
    wait_for(lambda: not service.tools(), lambda: "the end of %s" % service.tools())


def test_restart_frees_all_slots(services):
    """On the same folders: no job is read again, and a slot's next job takes over the folder."""
    service = start_render(services, entry(2, exe="echo one"))
    assert (service.take(first="a long text that the next one does not cover"),
            service.take()) == (0, 1)
    service.wait_counters(0, 2, 0)
    service.stop()
    service.write_config({"renderer": [entry(1, exe="echo two")]})
    service.restart()
    assert service.rows() == {} and service.counters() == (0, 0, 0)
    assert service.detail("0").status_code == 400
    assert service.take(second=2) == 0
    service.wait_counters(0, 1, 0)
    assert service.meta(0) == "{\"second\":2}"
    assert service.console(0) == "one\ntwo\n"
    # What the configuration no longer names is left alone.
    assert service.console(1) == "one\n"


def test_restart_after_a_kill(services):
    service = start_render(services, entry())
    service.take()
    service.wait_started(0)
    service.kill()
    service.end_tools()
    service.restart()
    assert service.rows() == {}
    (service.job_folder(0) / "gate.started").unlink()
    assert service.take() == 0
    service.wait_started(0)
    assert service.state(0) == "IN PROCESS"
