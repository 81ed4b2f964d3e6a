"""POST /reconfig of the legacy transcoder: threads, cache and delivery address at run time."""

import json
import os
import re
import socket
import threading

import pytest

from legacy import LegacyService
from raw_http import ask, request
from test_legacy_pages import check, place_job
from test_legacy_start import first_in_turn
from waiting import stays, wait_for

MACHINE = socket.gethostname()


@pytest.fixture
def service(services):
    return services.start("--allowReconfig", 1, kind=LegacyService)


def reconfigure(service, value):
    reply = service.post("/reconfig", value)
    check(reply, "", None)


def workers(service):
    return service.threads().count("job worker")


def delivery_of(service):
    return re.search(r"^Delivery    : (.*)$", service.get("/").text, re.MULTILINE).group(1)


def changes(service):
    """The changes of the number of threads, as pairs."""
    return [(int(before), int(after)) for before, after in
            re.findall(r"^from (\d+) threads to (\d+) threads$", service.stderr(), re.MULTILINE)]


def in_background(action):
    thread = threading.Thread(target=action)
    thread.start()
    return thread


def test_not_there_unless_allowed(services):
    for options in ([], ["--allowReconfig", 0]):
        service = services.start(*options, kind=LegacyService)
        reply = service.post("/reconfig", {"threads": 5})
        assert (reply.status_code, reply.content) == (404, b"")
        assert changes(service) == []


def test_every_thread_is_replaced(service):
    wait_for(lambda: workers(service) == 3, "the first workers")
    for count in (5, 5, 1, 3.9):
        reconfigure(service, {"threads": count})
        wait_for(lambda: workers(service) == int(count), "the new workers")
    assert changes(service) == [(3, 5), (5, 5), (5, 1), (1, 3)]
    assert re.findall(r"^at (\d+) threads to (\d+) threads$", service.stderr(), re.MULTILINE) == \
        [("5", "5"), ("5", "5"), ("1", "1"), ("3", "3")]
    # The front page shows the number of the start, whatever came later.
    reconfigure(service, {"threads": 6})
    assert "<li>Worker threads: 3</li>" in service.get("/").text
    job = service.run("say hello")
    service.wait_done(job)
    # Those beyond that number are ended too.
    assert service.stop() < 10


def test_numbers_that_change_nothing(service):
    for count in (0, -1, 0.9, -1e300, "5", True, None, [5], {"n": 5}):
        reconfigure(service, {"threads": count})
    assert "threads to" not in service.stderr()
    for count in (4097, 1e300):
        reconfigure(service, {"threads": count})
    assert "threads to" not in service.stderr()
    assert service.log().count("Z reconfiguration: too many threads: ") == 2


@pytest.fixture(scope="module")
def steady(all_folders, ending, request):
    """A service with one finished job that no request of these tests changes."""
    service = LegacyService(all_folders / "legacy-steady", ["--allowReconfig", 1]).start()
    service.wait_done(service.run("say hello"))
    yield service
    ending.take(request.module.__name__, [service])


def test_other_methods(steady):
    for method in ("GET", "PUT", "DELETE", "OPTIONS", "PATCH"):
        check(steady.request(method, "/reconfig", data='{"threads":5}'), "", None)
        assert changes(steady) == []
    head = ask(steady.port, request("HEAD", "/reconfig"), has_body=False)
    assert head.code == 200 and head.headers["access-control-allow-origin"] == "*"


WISH = '"threads":5,"clearCache":true,"deliveryPort":1'


@pytest.mark.parametrize("body", [
    "", "{", "text", "[{%s}]" % WISH, "5", "null", "{%s" % WISH, "{%s,}" % WISH, "\0{%s}" % WISH,
    b"\xef\xbb\xbf{" + WISH.encode() + b"}", "[" * 100000, '{"a":' * 100000,
    '{"service":"TranscoderLegacyService",%s}' % WISH, '{"service":"",%s}' % WISH,
    '{"service":null,%s}' % WISH, '{"service":["TranscoderService"],%s}' % WISH,
    '{"service":"%%s%%n%%n",%s}' % WISH,
], ids=lambda body: repr(body)[:30])
def test_request_that_is_none(steady, body):
    """It is answered as one that was heard, and nothing of it has been applied."""
    before = len(steady.stderr())
    reply = steady.post("/reconfig", body, headers={"Origin": "http://me"})
    assert (reply.status_code, reply.content) == (200, b"")
    assert reply.headers["Access-Control-Allow-Origin"] == "http://me"
    assert "Content-Type" not in reply.headers
    assert changes(steady) == []
    assert delivery_of(steady) == steady.delivery
    assert steady.state(1) == "CLOSED"
    found = re.fullmatch(r"(?:looking for wrong service : (.*)\n)?", steady.stderr()[before:])
    expected = {'"Tr': "TranscoderLegacyService", '"",': "", 'null': "null", '["Tr': "array",
                '"%s%': "%s%n%n"}
    if isinstance(body, str) and body.startswith('{"service":'):
        value = body[len('{"service":'):]
        assert found.group(1) == next(shown for begin, shown in expected.items()
                                      if value.startswith(begin))
    else:
        assert found.group(1) is None


def test_name_of_the_service_and_unknown_keys(service):
    reconfigure(service, {"service": "TranscoderService", "threads": 4, "other": {"a": [1]}})
    assert changes(service) == [(3, 4)]
    check(service.post("/reconfig", '{"threads":2} and more'), "", None)


@pytest.mark.parametrize("request_text,told", [
    ('{"deliveryPort":80}', "http://%s:80" % MACHINE),
    ('{"deliveryPort":80.9}', "http://%s:80" % MACHINE),
    ('{"deliveryPort":"80"}', "http://%s:" % MACHINE),
    ('{"deliveryPort":null}', "http://%s:" % MACHINE),
    ('{"deliveryPort":80,"deliveryLocalhost":1}', "http://localhost:80"),
    ('{"deliveryPort":80,"deliveryLocalhost":1.9}', "http://localhost:80"),
    ('{"deliveryPort":80,"deliveryLocalhost":true}', "http://%s:80" % MACHINE),
    ('{"deliveryPort":80,"deliveryLocalhost":"1"}', "http://%s:80" % MACHINE),
    ('{"deliveryProto":"https"}', "https://%s:8080" % MACHINE),
    ('{"deliveryProto":"https","deliveryLocalhost":1}', "https://localhost:8080"),
    ('{"deliveryProto":5}', "http://%s:8080" % MACHINE),
    ('{"deliveryLocalhost":1}', "http://front"), ("{}", "http://front"),
])
def test_delivery_address(all_services_with_front, request_text, told):
    service = all_services_with_front
    check(service.post("/reconfig", request_text), "", None)
    if told != "http://front":
        assert delivery_of(service) == told
        assert service.post("/job", {"resource": "r", "reply": "uri"}).text == told + "/1"
        assert service.get("/job/1/path").text == told + "/1"
        assert service.fetch("/favicon.ico").status_code == 200, "the server stays where it is"


@pytest.fixture(scope="module")
def all_services_with_front(all_folders, ending, request):
    service = LegacyService(all_folders / "legacy-reconfig", [
        "--allowReconfig", 1, "-t", 0, "--delivery_service", "http://front",
        "--delivery_port", 8080]).start()
    assert delivery_of(service) == "http://front"
    check(service.post("/reconfig", '{"deliveryLocalhost":1}'), "", None)
    assert delivery_of(service) == "http://front"
    yield service
    ending.take(request.module.__name__, [service])


def test_cache_is_cleared(services):
    service = services.make(kind=LegacyService, options=["--allowReconfig", 1], provider_id="P")
    place_job(service, 7, 3)
    service.start()
    jobs = [service.run("say one"), service.run("exit-with 1")]
    assert jobs == [8, 9]
    service.wait_done(*jobs)
    for name in ("+10", "-11", "012", "abc"):
        (service.cache_root / name).mkdir()
        (service.cache_root / name / ".meta").mkdir()
    (service.cache_root / "13").mkdir()
    (service.cache_root / "14").touch()
    reconfigure(service, {"clearCache": True})
    left = [".serviceid", "13", "14", "P", "abc", "in"]
    assert sorted(os.listdir(service.cache_root)) == left
    assert service.stdout().endswith("clearing cache: ")
    told = service.stderr()
    for name in ("7", "8", "9", "+10", "-11", "012"):
        path = service.cache_root / name
        assert "clear cache %s | %s\nreally delete it %s\n" % (path, name, path) in told
    for name in ("13", "P", "abc", "in"):
        path = service.cache_root / name
        assert "clear cache %s | %s\n" % (path, name) in told
        assert "really delete it %s\n" % path not in told
    assert "cache/14" not in told and ".serviceid" not in told
    assert service.counters() == (0, 0, 0, 0)
    assert service.get("/job/list/cached").text == "[]\n"
    assert service.run("say one") == 1
    service.wait_done(1)
    # What a folder holds is removed as a whole, also by a later clearing.
    reconfigure(service, {"clearCache": True})
    assert sorted(os.listdir(service.cache_root)) == left


def test_cache_without_a_folder_is_cleared_in_silence(service):
    job = service.run("say one")
    service.wait_done(job)
    os.rename(service.cache_root, service.folder / "aside")
    reconfigure(service, {"clearCache": True})
    assert "clear" not in service.stdout() + service.stderr()
    assert service.counters() == (0, 0, 0, 0)
    assert (service.folder / "aside" / "1").exists()


def test_clearing_that_fails(service):
    """The store is empty by then; the answer is the front's."""
    job = service.run("say one")
    service.wait_done(job)
    stuck = service.job_folder(job) / "binGeo"
    if os.system("mount -t tmpfs -o size=16k tmpfs %s 2>/dev/null" % stuck) != 0:
        pytest.skip("needs the right to mount a file system")
    try:
        reply = service.post("/reconfig", {"clearCache": True, "deliveryPort": 1})
        assert (reply.status_code, reply.content) == (500, b"")
        assert service.counters() == (0, 0, 0, 0)
        # What stands behind it was not applied.
        assert delivery_of(service) == service.delivery
    finally:
        os.system("umount -l %s" % stuck)
    reconfigure(service, {"clearCache": True})
    assert not service.job_folder(job).exists()


def test_clearing_while_a_job_runs(service):
    """The worker comes back to a store that does not know its job, and leaves alone the new job
    that has its number."""
    old = service.run("hold gate")
    service.wait_started(old)
    reconfigure(service, {"clearCache": True})
    assert not service.job_folder(old).exists()
    new = service.run("hold gate 0")
    assert new == old
    service.wait_started(new)
    # The old tool ended as its folder had gone.
    wait_for(lambda: service.ended_runs(old) == 1, "the old run's end")
    assert service.state(new) == "IN PROCESS"
    assert service.stored_status(new) == 1
    assert (service.job_folder(new) / ".partial").exists()
    assert service.timings(new) is None
    service.open_gate(new)
    service.wait_done(new, runs=2)
    assert service.state(new) == "CLOSED"
    assert service.counters() == (1, 1, 0, 0)
    assert len(service.timings(new)["timings"]) == 1


def test_threads_come_before_the_cache_and_the_address(service):
    job = service.run("hold gate")
    service.wait_started(job)
    waiter = in_background(lambda: reconfigure(
        service, {"deliveryPort": 1, "clearCache": True, "threads": 2}))
    wait_for(lambda: changes(service) == [(3, 2)], "the first line")
    # The answer waits for the tool in hand, as long as it takes.
    stays(lambda: waiter.is_alive() and "at " not in service.stderr(), "it went on", 0.3)
    assert service.state(job) == "IN PROCESS"
    assert delivery_of(service) == service.delivery
    service.open_gate(job)
    waiter.join()
    assert "at 2 threads to 2 threads\nclear cache " in service.stderr()
    assert service.counters() == (0, 0, 0, 0)
    assert delivery_of(service) == "http://%s:1" % MACHINE


def test_others_go_on_while_one_is_waited_for(services):
    """Each worker is told when its turn comes, so those behind it take up jobs meanwhile."""
    service = services.start("--allowReconfig", 1, "-t", 3, kind=LegacyService)
    # Each of the three in turn has a job in hand, one of them the worker that is first in turn.
    held = [service.run("hold gate 0 %d" % number) for number in range(3)]
    for job in held:
        service.wait_started(job)
    others = [service.run("say %d" % number) for number in range(3)]
    waiter = in_background(lambda: reconfigure(service, {"threads": 1}))
    wait_for(lambda: changes(service) == [(3, 1)], "the first line")
    # Let go all but the one that is waited for.
    first = first_in_turn(service, held)
    for job in held:
        if job != first:
            service.open_gate(job)
    service.wait_done(*others)
    assert waiter.is_alive() and service.state(first) == "IN PROCESS"
    service.open_gate(first)
    waiter.join()
    wait_for(lambda: workers(service) == 1, "the new worker")


def test_front_with_one_thread_waits(services):
    service = services.start("--allowReconfig", 1, kind=LegacyService, listen_threads=1)
    job = service.run("hold gate")
    service.wait_started(job)
    waiter = in_background(lambda: ask(service.port, request("POST", "/reconfig",
                                                             body='{"threads":2}')))
    wait_for(lambda: changes(service) == [(3, 2)], "the first line")
    with pytest.raises(OSError):
        ask(service.port, request("GET", "/version"), timeout=0.3)
    assert service.fetch("/favicon.ico").status_code == 200, "results are served meanwhile"
    service.open_gate(job)
    waiter.join()
    assert service.get("/version").text == "1.0.0"


def test_many_at_once(service):
    """They are served one by one: each finds what the one before has left."""
    jobs = [service.run("say %d" % number) for number in range(10)]
    clients = [in_background(lambda count=count: ask(
        service.port, request("POST", "/reconfig", body=json.dumps({"threads": count}))))
        for count in (1, 4, 2, 5, 3)]
    for client in clients:
        client.join()
    service.wait_done(*jobs)
    steps = changes(service)
    assert sorted(after for _, after in steps) == list(range(1, 6))
    assert [first for first, _ in steps] == [3] + [after for _, after in steps[:-1]]
    wait_for(lambda: workers(service) == steps[-1][1], "the last workers")
    assert service.counters() == (10, 10, 0, 0)


def test_up_and_down_under_load(service):
    """No job is lost or run twice, and no thread stays behind. (200 rounds: OSTRAND_ROUNDS=200)"""
    rounds = int(os.environ.get("OSTRAND_ROUNDS", "2"))
    before = len(service.threads())
    jobs, over = [], threading.Event()

    def submit():
        while not over.is_set():
            body = json.dumps({"resource": "say %d" % len(jobs)})
            reply = ask(service.port, request("POST", "/job", body=body))
            jobs.append(int(reply.body.partition(b"@")[0]))
            # Enough for every worker, at all times.
            while int(ask(service.port, request("GET", "/job/list/open")).body) > 20:
                over.wait(0.02)
    client = in_background(submit)
    try:
        for _ in range(rounds):
            reconfigure(service, {"threads": 8})
            reconfigure(service, {"threads": 3})
    finally:
        over.set()
        client.join()
    wait_for(lambda: service.counters() == (len(jobs), len(jobs), 0, 0), "the jobs' end")
    assert changes(service) == [(3, 8), (8, 3)] * rounds
    wait_for(lambda: workers(service) == 3, lambda: "3 workers of %s" % service.threads())
    # The web servers keep the further threads that stalled pages made them start.
    assert len(service.threads()) <= before + 2 * service.listen_threads
    for job in jobs:
        assert service.ended_runs(job) == 1
        assert len(service.calls(job)) == 1


def test_end_right_behind_a_change(service):
    reconfigure(service, {"threads": 8})
    service.stop()
    service.start()
    client = in_background(lambda: post_quietly(service, '{"threads":5}'))
    wait_for(lambda: changes(service), "the first line")
    service.stop()
    client.join()


def post_quietly(service, body):
    try:
        ask(service.port, request("POST", "/reconfig", body=body))
    except (OSError, EOFError):
        pass
