"""The pages of the legacy transcoder for people and scripts, over the wire and to the byte."""

import json
import os
import platform
import re
import socket

import pytest

from legacy import LegacyService
from page_headers import HTML_HEADERS, statistics_headers
from raw_http import ask, request
from waiting import wait_for

HEADINGS = "".join("<td bgcolor='#000000' align='center'><font color='#FFFFFF'>%s</font></td>" % name
                   for name in ("ID", "Resource", "CmdLine", "Status", "Time Added", "Statistics"))
STATES = ["OPEN", "IN PROCESS", "CLOSED", "ERROR", "MARKED FOR DELETION", "DELETED", "CANCELED",
          "TERMINATED"]


def place_job(service, identifier, status, uid=None, added=None, timings=(), **keys):
    """A job folder as an earlier run leaves it."""
    folder = service.job_folder(identifier)
    folder.mkdir(parents=True)
    text = dict({"resource": "r", "uid": uid or "job %s" % identifier}, **keys)
    (folder / ".meta").write_text(json.dumps(text))
    (folder / ".status").write_text('{ "status" : %s}\n' % status)
    if added is not None:
        pairs = [{"proc": start, "done": end} for start, end in timings]
        (folder / ".timings").write_text(json.dumps({"added": added, "timings": pairs}))
    return folder


def check(reply, body, kind, code=200):
    """The whole reply, headers too; `kind` None is a reply without a type."""
    assert reply.status_code == code, reply.text[:500]
    assert reply.content == (body if isinstance(body, bytes) else body.encode())
    headers = {name: value for name, value in reply.headers.items() if name != "Date"}
    expected = {"Server": "OstrandService", "Access-Control-Allow-Origin": "*",
                "Access-Control-Allow-Headers": "content-type",
                "Content-Length": str(len(reply.content))}
    if kind is not None:
        expected["Content-Type"] = kind
    if kind == "text/html":
        expected.update(HTML_HEADERS if "<script" not in reply.text
                        else statistics_headers(reply.text))
    assert headers == expected


def html_list(total, finished, rows):
    return ("<html><header></header><body><h1>Jobs</h1>Number of Jobs: %d<br>"
            "Number of finished Jobs: %d<br><br>"
            "<p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
            "<table border='0'><tr>%s</tr>%s</table></body></html>"
            % (total, finished, HEADINGS, "".join(rows)))


def row(identifier, uid, shown, command_line, state, added, link=""):
    return ("<tr><td><a href='../job/%d'>%d</a></td><td title=\"%s\">%s</td>"
            "<td title=\"%s\">%s</td><td>%s</td><td>%s sec</td><td>%s</td></tr>"
            % (identifier, identifier, uid, shown, command_line, command_line, state, added, link))


def entry(identifier, resource, status):
    return ("  \"job%d\" : {\n   \"resource\" : \"%s\",\n   \"status\" : \"%s\"\n  }"
            % (identifier, resource, status))


def json_list(total, finished, entries):
    return ("{\n\"numJobs\" : %d,\n\"numJobsFinished\" : %d,\n\"jobs\": {\n%s}\n}"
            % (total, finished, ",\n".join(entries) + "\n" if entries else ""))


def statistics(total, finished, open_jobs, errors):
    return ("<html><header>"
            "<script src=\"https://cdn.jsdelivr.net/npm/chart.js@1.1.1/Chart.min.js\"></script>"
            "<title>Transcoder - Statistics</title><style>canvas {}</style>"
            "<meta viewport='initial-scale = 1, user-scalable = no'></meta></header><body>"
            "<h1>Statistics</h1><h2>Job Status</h2>Number of Jobs: %d<ul><li>finished: %d</li>"
            "<li>open: %d</li><li>errors: %d</li></ul><div id=\"container\"></div>\n<script>\n"
            "var data_jobstatus = [\n{value : %d,\ncolor : '#9ed800'},\n"
            "{value : %d,\ncolor : '#69D2E7'},\n{value : %d,\ncolor : '#F38630'}\n]\n"
            "var myLine0 = new Chart(document.getElementById('canvas_jobstatus')"
            ".getContext('2d')).Pie(data_jobstatus);\n</script></body></html>"
            % (total, finished, open_jobs, errors, finished, open_jobs, errors))


def test_fresh_service(services):
    service = services.start("-t", 5, kind=LegacyService)
    check(service.get("/job/list"), html_list(0, 0, []), "text/html")
    check(service.get("/job"), html_list(0, 0, []), "text/html")
    check(service.get("/job/list/json"), json_list(0, 0, []), "application/json")
    check(service.get("/job/list/cached"), "[]\n", "text/json")
    check(service.get("/job/list/open"), "0", "text/plain")
    check(service.get("/statistics"), statistics(0, 0, 0, 0), "text/html")
    check(service.get("/version"), "1.0.0", "text/plain")
    check(service.get("/settings"), "", "text/html")
    check(service.get("/job/1"), "Job id too high: 1", "text/html", 404)
    page = service.get("/")
    system = re.search(r"^OS          : (.+)$", page.text, re.MULTILINE).group(1)
    check(page, "<html><header></header><body><h1 align='center'>Ostrand Works - Transcoder</h1>"
          "<p align='center'>An Ostrandhub Service</p><h2>Status</h2><ul><li>Version: 1.0.0 "
          "(<a href=\"./changelog\">Changelog</a>)</li><li>Worker threads: 5</li></ul>"
          "<h2>Options</h2><ul><li><a href=\"./job/list\">Job List</a></li>"
          "<li><a href=\"./statistics\">Statistics</a></li></ul><h2>System</h2><pre>"
          "Host Name   : %s\nMachine Name: %s\nCPU Count   : %d\nOS          : %s\n"
          "Delivery    : %s\n</pre></body></html>"
          % (socket.gethostname(), platform.machine(), os.cpu_count(), system, service.delivery),
          "text/html")
    assert "Z frontpage accessed\n" in service.log()


@pytest.fixture(scope="module")
def known(all_folders, ending, request):
    """A service without workers and with a job in each state, at 2 to 9, and gaps at 1 and 10."""
    service = LegacyService(all_folders / "legacy-pages", ["-t", 0])
    for state in range(8):
        place_job(service, state + 2, state, "u%d" % state)
    place_job(service, 11, 2, "a & <b>\"\\é", added=1234.5, format="glb",
              timings=[(2000, 3500.25), (1e12, 1e12 + 123.4567)])
    place_job(service, 12, 2, "x" * 30 + "y" * 30, added=0.125)
    place_job(service, 13, 2, "x" * 30 + "z" + "y" * 30, added=1e12)
    yield service.start()
    ending.take(request.module.__name__, [service])


def test_list_of_reloaded_jobs(known):
    uid = "a & <b>\"\\é"
    rows = [row(state + 2, "u%d" % state, "u%d" % state, "", name, "0")
            for state, name in enumerate(STATES)]
    rows += [row(11, uid, uid, "", "CLOSED", "1.2345"),
             row(12, "x" * 30 + "y" * 30, "x" * 30 + "y" * 30, "", "CLOSED", "0.000125"),
             row(13, "x" * 30 + "z" + "y" * 30, "x" * 30 + "..." + "y" * 30, "", "CLOSED", "1e+09")]
    check(known.get("/job/list"), html_list(11, 11, rows), "text/html")
    check(known.get("/job", headers={"Accept": "application/json"}), html_list(11, 11, rows),
          "text/html")


def test_other_lists_of_reloaded_jobs(known):
    """Gaps have no row above, and entries here."""
    entries = [entry(1, "", "INVALID")]
    entries += [entry(state + 2, "u%d" % state, name) for state, name in enumerate(STATES)]
    entries += [entry(10, "", "INVALID"),
                entry(11, "a%20%26%20%3Cb%3E%22%5C%C3%A9", "CLOSED"),
                entry(12, "x" * 30 + "y" * 30, "CLOSED"),
                entry(13, "x" * 30 + "z" + "y" * 30, "CLOSED")]
    check(known.get("/job/list/json"), json_list(11, 11, entries), "application/json")
    keys = [""] + ["u%d" % state for state in range(8)] + ["", "a & <b>\"\\é"]
    keys += ["x" * 30 + "y" * 30, "x" * 30 + "z" + "y" * 30]
    check(known.get("/job/list/cached"), "[\"" + "\",\"".join(keys) + "\"]\n", "text/json")
    # The highest id, not the number of jobs; what failed counts as finished too.
    check(known.get("/statistics"), statistics(13, 11, 0, 2), "text/html")
    check(known.get("/job/list/open"), "0", "text/plain")


def test_page_of_a_job(known):
    check(known.get("/job/11"),
          "Job: 11/12<ul><li>Resource: a & <b>\"\\é</li></ul>command timings : <BR> <pre>\n"
          "added : 1.2345\n"
          "[0]\n  start processing : 2\n  done processing  : 3.50025\n  time waiting     : 0.7655\n"
          "  time processing  : 1.50025\n  overall time     : 2.26575\n"
          "[1]\n  start processing : 1e+09\n  done processing  : 1e+09\n"
          "  time waiting     : 1e+09\n  time processing  : 0.123457\n  overall time     : 1e+09\n"
          "</pre>\n", "text/html")
    check(known.get("/job/2"), "Job: 2/12<ul><li>Resource: u0</li></ul>"
          "command timings : <BR> <pre>\nadded : 0\n</pre>\n", "text/html")
    check(known.get("/job/1"), "Job: 1/12<ul><li>Resource: </li></ul>"
          "command timings : <BR> <pre>\nadded : 0\n</pre>\n", "text/html")
    for state, name in enumerate(STATES):
        check(known.get("/job/%d/status" % (state + 2)), name, "text/html")
    check(known.get("/job/10/status"), "INVALID", "text/html")
    check(known.get("/job/11/result"), known.delivery + "/11/index.glb", "text/html")
    check(known.get("/job/+11/path"), known.delivery + "/+11", "text/html")
    for path in ("2/", "2/status/", "2/x", "2//status", "2/Status"):
        check(known.get("/job/" + path), "", "text/html")


@pytest.mark.parametrize("path,low", [
    ("0", True), ("00", True), ("+0", True), ("-0", True), ("x", True), ("", True), ("1x", True),
    ("%201", True), ("list/", True), ("list/x", True), ("deleted", True), ("updateState/", True),
    ("18446744073709551616", True), ("14", False), ("4294967297", False), ("-1", False),
    ("18446744073709551615", False),
])
def test_id_that_is_none(known, path, low):
    before = known.log().count("Z DETAILS job: ")
    shown = 0 if low else int(path) % 2 ** 64
    check(known.get("/job/" + path), "Job id too %s: %d" % ("low" if low else "high", shown),
          "text/html", 404)
    lines = known.log().count("Z DETAILS job: ") - before
    is_number = re.fullmatch(r"[+-]?\d+", path) and abs(int(path)) < 2 ** 64
    assert lines == (1 if is_number else 2)


def test_id_from_the_other_end(known):
    assert known.get("/job/-18446744073709551614").text.startswith("Job: 2/12<")


def test_every_method_shows_a_job(known):
    for method in ("POST", "PUT", "DELETE", "PATCH", "OPTIONS"):
        check(known.request(method, "/job/4/status"), "CLOSED", "text/html")
    head = ask(known.port, request("HEAD", "/job/4/status"), has_body=False)
    assert (head.code, head.headers["content-type"]) == (200, "text/html")
    assert head.headers["content-length"] == "6"


def test_methods_of_the_job_page(known):
    for method in ("PUT", "DELETE", "PATCH", "OPTIONS"):
        reply = known.request(method, "/job")
        assert (reply.status_code, reply.content) == (400, b"")
        assert "Access-Control-Allow-Origin" not in reply.headers
    # Lists and texts are there for every method.
    for method in ("POST", "DELETE"):
        check(known.request(method, "/job/list/open"), "0", "text/plain")
        check(known.request(method, "/version"), "1.0.0", "text/plain")


def test_origin_of_the_request_is_named(known):
    for path in ("/", "/job", "/job/list", "/job/list/json", "/job/list/cached", "/job/list/open",
                 "/job/2", "/job/99", "/job/delete", "/settings", "/changelog", "/statistics",
                 "/chart.js", "/version"):
        reply = known.get(path, headers={"Origin": "http://me"})
        assert reply.headers["Access-Control-Allow-Origin"] == "http://me", path
        assert reply.headers["Access-Control-Allow-Headers"] == "content-type", path


def test_unknown_paths(known):
    for path in ("/config", "/Version", "/version/", "/statistics/x", "/reconfig", "/joblist"):
        reply = known.get(path)
        assert (reply.status_code, reply.content) == (404, b""), path


def test_icon(known):
    for port in (known.port, known.port + 1):
        for method in ("GET", "POST", "PUT"):
            reply = known.session.request(method, "http://127.0.0.1:%d/favicon.ico" % port)
            assert (reply.status_code, len(reply.content)) == (200, 13752)
            assert reply.headers["Content-Type"] == "image/x-icon"
            assert "Access-Control-Allow-Origin" not in reply.headers


def test_link_by_the_uid(services):
    """It asks for a folder that bears the uid, and leads to the one that bears the id."""
    service = services.make(kind=LegacyService, options=["-t", 0])
    place_job(service, 1, 2, "own")
    place_job(service, 2, 3, "own failed")
    place_job(service, 3, 2, "u" * 300)
    # Another folder of the same job: its row has its own number.
    place_job(service, 4, 2, "own")
    for name in ("own", "own failed"):
        (service.cache_root / name).mkdir()
        (service.cache_root / name / "statistics.html").touch()
    service.start()
    page = service.get("/job/list")
    assert page.status_code == 200
    for number in (1, 4):
        link = "<a href=\"%s/%d/statistics.html\">Statistics</a>" % (service.delivery, number)
        assert row(number, "own", "own", "", "CLOSED", "0", link) in page.text
    assert page.text.count("Statistics</a>") == 2


def test_consoles(services):
    service = services.make(kind=LegacyService, options=["-t", 0])
    raw = b"a\0\xff<b>\r\n" * 2000
    for number in range(1, 5):
        place_job(service, number, 2)
    (service.job_folder(2) / "console.txt").write_bytes(raw)
    (service.job_folder(3) / "console.txt").write_bytes(raw)
    (service.job_folder(3) / "console_fettle.txt").write_bytes(b"not shown")
    (service.job_folder(4) / "console.txt").mkdir()
    service.start()

    def behind_times(number):
        return service.get("/job/%d" % number).content.partition(b"</pre>\n")[2]
    assert behind_times(1) == b""
    assert behind_times(2) == b"Console command batch : <BR> <pre>\n" + raw + b"</pre>\n"
    assert behind_times(3) == b"Console fettle : <BR> "
    assert behind_times(4) == b"Console command batch : <BR> <pre>\n</pre>\n"


@pytest.mark.parametrize("path,name,kind", [
    ("/changelog", "changelog.txt", "text/plain"), ("/chart.js", "Chart.min.js", "text/javascript"),
])
def test_files_of_the_working_folder(services, path, name, kind):
    """Read anew at each request, as bytes; empty where there is none."""
    service = services.start(kind=LegacyService)
    file = service.run_folder / name
    check(service.get(path), b"", kind)
    head = ask(service.port, request("HEAD", path), has_body=False)
    assert (head.code, head.headers["content-type"]) == (200, kind)
    for content in (b"", b"one\r\n", bytes(range(256)) * 2000, b"last"):
        file.write_bytes(content)
        check(service.get(path), content, kind)
    check(service.request("POST", path), b"last", kind)
    file.unlink()
    file.mkdir()
    check(service.get(path), b"", kind)


def test_pages_of_a_job_that_runs(legacy):
    job = legacy.run("hold gate")
    legacy.wait_started(job)
    page = legacy.get("/job/%d" % job).text
    assert re.fullmatch(r"Job: 1/0<ul><li>Resource: hold gate</li></ul>command timings : <BR> <pre>\n"
                        r"added : [0-9.e-]+\n</pre>\nConsole fettle : <BR> ", page), page
    assert legacy.counters() == (1, 0, 0, 1)
    assert "<td title=\"Not Run Yet\">Not Run Yet</td><td>IN PROCESS</td>" in \
        legacy.get("/job/list").text
    legacy.open_gate(job)
    legacy.wait_done(job)
    wait_for(lambda: legacy.timings(job), "the times")
    page = legacy.get("/job/%d" % job).text
    assert re.search(r"\[0\]\n  start processing : ([0-9.e+-]+)\n  done processing  : ", page)
    assert legacy.counters() == (1, 1, 0, 0)
