"""The pages for people and scripts: front page, job lists, the page of one job."""

import json
import os
import re
import socket
from urllib.parse import unquote

import pytest

from raw_http import ask, request
from test_update_state import place_job

JSON = {"Accept": "application/json"}
HEADINGS = "".join("<td bgcolor='#000000' align='center'><font color='#FFFFFF'>%s</font></td>" % name
                   for name in ("ID", "Resource", "CmdLine", "Status", "Time Added", "Statistics"))
TIMINGS = ("command timings : <BR> <pre>\nadded : \n<pre>\n  start processing : \n"
           "  done processing  : \n  time waiting     : \n  time processing  : \n"
           "  overall time     : \n</pre>\n")


def html_list(pending, finished, failed, rows):
    return ("<html><header></header><body><h1>Jobs</h1>Number of Jobs: %d<br>"
            "Number of finished Jobs: %d<br>Number of failed Jobs: %d<br><br>"
            "<p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
            "<table border='0'><tr>%s</tr>%s</table></body></html>"
            % (pending, finished, failed, HEADINGS, "".join(rows)))


def row(identifier, uid, shown, command_line, state, link=""):
    return ("<tr><td><a href='../job/abc/%d'>%d</a></td><td title=\"%s\">%s</td>"
            "<td title=\"%s\">%s</td><td>%s</td><td>0 sec</td><td>%s</td></tr>"
            % (identifier, identifier, uid, shown, command_line, command_line, state, link))


def json_list(service, pending, finished, failed, jobs):
    entries = ",\n".join(
        "  \"job%d\" : {\n   \"uri\" : \"%s\",\n   \"resource\" : \"%s\",\n   \"status\" : \"%s\"\n  }"
        % (identifier, service.uri(identifier), resource, status)
        for identifier, resource, status in jobs)
    return ("{\n \"numJobs\" : %d,\n \"numJobsFinished\" : %d,\n \"numJobsFailed\" : %d,\n"
            " \"jobs\": {\n%s }\n}" % (pending, finished, failed,
                                       entries + "\n" if jobs else ""))


def system_lines(service):
    """Machine, processors and operating system as the JSON front page tells them."""
    page = json.loads(service.get("/", headers=JSON).text)
    return page["MachineType"], page["CPUs"], page["OS"]


def test_front_page(shared):
    machine, processors, system = system_lines(shared)
    assert machine and system and processors == str(os.cpu_count())
    assert '"' not in system
    reply = shared.get("/")
    assert reply.status_code == 200
    assert reply.headers["Content-Type"] == "text/html"
    assert reply.text == (
        "<html><header></header><body><h1 align='center'>Ostrand Works - Transcoder</h1>"
        "<p align='center'>An Ostrandhub Service</p><h2>Status</h2><ul><li>Version: 1.0.0 "
        "(<a href=\"./changelog\">Changelog</a>)</li><h2>Options</h2><ul>"
        "<li><a href=\"./job\">Job List</a></li></ul><h2>System</h2><pre>"
        "Host Name   : %s\nMachine Name: %s\nCPU Count   : %s\nOS          : %s\n"
        "Delivery    : %s\n</pre></body></html>"
        % (socket.gethostname(), machine, processors, system, shared.delivery))


def test_front_page_as_json(services):
    service = services.start("--worker_threads", 7)
    machine, processors, system = system_lines(service)
    reply = service.get("/", headers=JSON)
    assert reply.headers["Content-Type"] == "application/json"
    assert reply.text == (
        "  {\n"
        "    \"Service\"     : \"TranscoderService\",\n"
        "    \"ProviderId\"  : \"abc\",\n"
        "    \"Host\"        : \"127.0.0.1\",\n"
        "    \"MachineType\" : \"%s\",\n"
        "    \"CPUs\"        : \"%s\",\n"
        "    \"OS\"          : \"%s\",\n"
        "    \"Port\"        : %d,\n"
        "    \"PortSSL\"     : 0,\n"
        "    \"JobUri\"      : \"/job\",\n"
        "    \"Delivery\"    : \"%s\",\n"
        "    \"NumThreads\"    : 7\n"
        "  }\n" % (machine, processors, system, service.port, service.delivery))
    assert list(reply.json()) == ["Service", "ProviderId", "Host", "MachineType", "CPUs", "OS",
                                  "Port", "PortSSL", "JobUri", "Delivery", "NumThreads"]


def test_front_page_takes_every_method(shared):
    page = shared.get("/").text
    for method in ("POST", "PUT", "DELETE", "OPTIONS"):
        reply = shared.request(method, "/")
        assert (reply.status_code, reply.text) == (200, page)


def test_empty_lists(shared):
    reply = shared.get("/job")
    assert reply.headers["Content-Type"] == "text/html"
    assert reply.text == html_list(0, 0, 0, [])
    reply = shared.get("/job", headers=JSON)
    assert reply.headers["Content-Type"] == "application/json"
    assert reply.text == ("{\n \"numJobs\" : 0,\n \"numJobsFinished\" : 0,\n"
                          " \"numJobsFailed\" : 0,\n \"jobs\": {\n }\n}")


def test_lists_of_jobs_in_every_stage(single):
    failed = single.run("false", uid="failed")
    single.wait_done(failed)
    running = single.run("hold gate", uid="running")
    single.wait_started(running)
    waiting = single.run("true", uid="waiting")
    assert single.get("/job").text == html_list(2, 0, 1, [
        row(failed, "failed", "failed", "See Resource", "ERROR"),
        row(running, "running", "running", "See Resource", "IN PROCESS"),
        row(waiting, "waiting", "waiting", "Not Run Yet", "OPEN")])
    assert single.get("/job", headers=JSON).text == json_list(single, 2, 0, 1, [
        (failed, "failed", "ERROR"), (running, "running", "IN PROCESS"),
        (waiting, "waiting", "OPEN")])
    single.open_gate(running)
    single.wait_done(running, waiting)
    assert single.get("/job").text == html_list(0, 2, 1, [
        row(1, "failed", "failed", "See Resource", "ERROR"),
        row(2, "running", "running", "See Resource", "CLOSED"),
        row(3, "waiting", "waiting", "See Resource", "CLOSED")])


@pytest.mark.parametrize("length,shown", [
    (1, "u"), (60, None), (61, "short"), (500, "short"),
])
def test_shortening_of_the_resource(services, length, shown):
    service = services.start("--worker_threads", 0)
    uid = ("u" + "0123456789" * 60)[:length]
    service.run("true", uid=uid)
    text = uid if length <= 60 else uid[:30] + "..." + uid[-30:]
    assert len(text) == (63 if length > 60 else length)
    assert row(1, uid, text, "Not Run Yet", "OPEN") in service.get("/job").text


def test_shortening_counts_bytes(services):
    service = services.start("--worker_threads", 0)
    # 61 bytes in 31 letters; the cuts go through letters.
    uid = "x" + "ü" * 30
    service.run("true", uid=uid)
    raw = uid.encode()
    assert raw[:30] + b"..." + raw[-30:] in service.get("/job").content


def test_uid_is_raw_in_html_and_encoded_in_json(services):
    service = services.start("--worker_threads", 0)
    uid = "<b>\"q\" 'a' \\ & ü ☃ 100% a+b/c?d=e#f</b>"
    service.run("true", uid=uid)
    assert "<td title=\"%s\">%s</td>" % (uid, uid) in service.get("/job").content.decode()
    assert "<li>Resource: %s</li>" % uid in service.get("/job/1").content.decode()
    reply = service.get("/job", headers=JSON)
    resource = json.loads(reply.text)["jobs"]["job1"]["resource"]
    assert re.fullmatch(r"[!#-\[\]-~]+", resource)
    assert unquote(resource) == uid
    assert '"' not in resource and "\\" not in resource and " " not in resource


def test_statistics_link(service):
    """There once the job has closed and has the file; with no provider in its address."""
    page = "<a href=\"%s/%d/statistics.html\">Statistics</a>"
    good = service.run("put statistics.html x", uid="good")
    bad = service.run("put statistics.html x", "false", uid="bad")
    none = service.run("true", uid="none")
    service.wait_done(good, bad, none)
    assert service.get("/job").text == html_list(0, 2, 1, [
        row(good, "good", "good", "See Resource", "CLOSED", page % (service.delivery, good)),
        row(bad, "bad", "bad", "See Resource", "ERROR"),
        row(none, "none", "none", "See Resource", "CLOSED")])


def test_names_of_all_states(services):
    service = services.make(options=["--worker_threads", 0])
    names = ["OPEN", "OPEN", "TERMINATING", "CLOSED", "MARKED FOR DELETION", "CANCELED", "ERROR",
             "TERMINATED", "DELETED"]
    for number in range(10):
        place_job(service, number + 1, number)
    service.start()
    listed = service.jobs()["jobs"]
    # The tenth is invalid and hidden in both lists, though it has its page.
    assert [listed["job%d" % number]["status"] for number in range(1, 10)] == names
    assert "job10" not in listed
    assert service.counters() == (2, 7, 1)
    rows = [row(number, "job %d" % number, "job %d" % number, "Not Run Yet" if number < 3 else "",
                name) for number, name in enumerate(names, 1)]
    assert service.get("/job").text == html_list(2, 7, 1, rows)
    assert service.get("/job/10").status_code == 200


def test_page_of_a_job(service):
    job = service.run("say 1 < 2 & \"x\"")
    service.wait_done(job)
    reply = service.get("/job/%d" % job)
    assert reply.status_code == 200
    assert reply.headers["Content-Type"] == "text/html"
    head = "Job: 1/1<ul><li>Resource: say 1 < 2 & \"x\"</li></ul>" + TIMINGS
    console = "Console command batch : <BR> <pre>\n1 < 2 & x\nerr: 1 < 2 & x\n</pre>\n"
    assert reply.text == head + console
    # The path in front of the last component does not matter.
    for path in ("/job/abc/1", "/job/x/y/z/1", "/job//1"):
        assert service.get(path).text == head + console
    # The tool of another kind has its own console, which goes first and is not shown.
    (service.job_folder(job) / "console_fettle.txt").write_text("text")
    assert service.get("/job/1").text == head + "Console fettle : <BR> "


def test_page_of_a_job_without_a_console(services):
    service = services.start("--worker_threads", 0)
    service.run("true", uid="u")
    service.run("true", uid="v")
    assert service.get("/job/1").text == "Job: 1/2<ul><li>Resource: u</li></ul>" + TIMINGS


@pytest.mark.parametrize("size", [0, 1, 4095, 4096, 4097, 8192, 100001])
def test_console_of_any_size(service, size):
    job = service.run("true", uid="u")
    service.wait_done(job)
    text = ("0123456789abcde\n" * (size // 16 + 1))[:size]
    (service.job_folder(job) / "console.txt").write_text(text)
    assert service.get("/job/1").text.endswith(
        "Console command batch : <BR> <pre>\n%s</pre>\n" % text)


def test_console_with_any_bytes(service):
    job = service.run("true")
    service.wait_done(job)
    content = bytes(range(256)) * 20
    (service.job_folder(job) / "console.txt").write_bytes(content)
    assert service.get("/job/1").content.endswith(b"<pre>\n" + content + b"</pre>\n")


@pytest.mark.parametrize("text", [
    "0", "abc", "", "2", "99999999999", "18446744073709551616", "-1", "1x", "x1", "1.0", "0x1",
    "%201", "1%20", "+0", "-0", "--1", "+",
])
def test_page_of_no_job(service, text):
    service.run("true")
    reply = ask(service.port, request("GET", "/job/" + text, [("Origin", "o")]))
    assert (reply.code, reply.body) == (400, b"")
    # Refused by the page, not by the front: the pair is there.
    assert reply.headers["access-control-allow-origin"] == "o"


@pytest.mark.parametrize("text", ["+1", "01", "0001", "-18446744073709551615", "%31", "x%2F1"])
def test_other_ways_to_name_a_job(service, text):
    job = service.run("say hello")
    service.wait_done(job)
    reply = ask(service.port, request("GET", "/job/" + text))
    assert reply.code == 200
    page = reply.body.decode()
    assert page.startswith("Job: 1/1<ul>")
    # The console is looked for by the text, and only a decoded one names the folder.
    assert ("hello" in page.partition(TIMINGS)[2]) == (text in ("%31", "x%2F1"))


def test_holes_in_the_table(services):
    service = services.make(options=["--worker_threads", 0])
    place_job(service, 3, 3)
    service.start()
    assert service.get("/job/3").text.startswith("Job: 3/3<ul>")
    for hole in (1, 2, 4):
        assert service.get("/job/%d" % hole).status_code == 400
    assert list(service.jobs()["jobs"]) == ["job3"]


def test_numbers_have_no_separators(services):
    service = services.make(options=["--worker_threads", 0], environment={"LC_ALL": "en_US.UTF-8"})
    place_job(service, 12345, 3)
    service.start()
    assert service.submit({"commands": ["true"], "reply": "uri"}).text == service.uri(12346)
    assert service.job_folder(12346).is_dir()
    assert "Job: 12345/12346<ul>" in service.get("/job/12345").text
