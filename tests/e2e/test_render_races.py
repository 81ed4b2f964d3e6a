"""Many clients at once at the render provider, and jobs that are stopped at awkward moments."""

import concurrent.futures
import os
import signal
import threading

import pytest

from raw_http import Connection, request
from render import RenderService, entry, start_render
from service import sanitizer
from waiting import stays, wait_for


def at_once(actions):
    """Runs the actions on threads of their own that begin together; returns their results."""
    barrier = threading.Barrier(len(actions))

    def begin(action):
        barrier.wait()
        return action()
    with concurrent.futures.ThreadPoolExecutor(len(actions)) as pool:
        return list(pool.map(begin, actions))


def exchange(service, method, path, body=""):
    """An action: one request on a connection of its own, which is open before the race begins."""
    connection = Connection(service.port)

    def action():
        with connection:
            reply = connection.send(request(method, path, body=body)).reply()
            return reply.code, reply.body.decode()
    return action


def own_uri(service, identifier):
    return "http://127.0.0.1:%d/job/%d\n" % (service.port, identifier)


@pytest.mark.parametrize("exe", ["hold gate", "true", "no-such-renderer"])
def test_32_clients_for_8_slots(services, exe):
    service = start_render(services, entry(8, exe=exe), listen_threads=32)
    answers = at_once([exchange(service, "POST", "/job", "{}") for _ in range(32)])
    assert sorted(answers) == [(200, own_uri(service, n)) for n in range(8)] + [(503, "")] * 24
    assert sorted(service.rows()) == list(range(8))
    pending = 8 if exe == "hold gate" else 0
    wait_for(lambda: service.counters()[0] == pending, "the counters")


def test_clients_of_two_classes_and_outputs(services):
    service = start_render(services, entry(4), entry(4, outputs=["image"]),
                           entry(4, **{"class": "ray"}), listen_threads=32)
    bodies = ["{\"output\":\"image\"}", "{\"class\":\"ray\"}"] * 8
    answers = at_once([exchange(service, "POST", "/job", body) for body in bodies])
    images = sorted(answer for answer in answers[0::2])
    rays = sorted(answer for answer in answers[1::2])
    assert images == [(200, own_uri(service, n)) for n in range(4, 8)] + [(503, "")] * 4
    assert rays == sorted([(200, own_uri(service, n)) for n in range(8, 12)] + [(503, "")] * 4)


def test_lists_of_jobs_at_once(services):
    """Batches share the slots with each other as single jobs do."""
    service = start_render(services, entry(10), listen_threads=32)
    answers = at_once([exchange(service, "POST", "/job/add", "[{},{},{},{}]") for _ in range(8)])
    assert [code for code, _ in answers] == [200] * 8
    told = "".join(body for _, body in answers)
    assert told.count("[503,\"\"]") == 22
    for number in range(10):
        assert told.count("[200,\"%s\"]" % own_uri(service, number)) == 1


def test_pages_while_slots_are_taken(services):
    service = start_render(services, entry(8, exe="true", port=1000), listen_threads=32)
    actions = []
    for number in range(8):
        actions += [exchange(service, "POST", "/job", "{}"),
                    exchange(service, "GET", "/job/%d/dapple" % number),
                    exchange(service, "GET", "/job"),
                    exchange(service, "DELETE", "/job/%d" % number)]
    answers = at_once(actions)
    # A stop that came at the last moment of a run frees the slot; all others stay taken.
    wait_for(lambda: len(service.rows()) + service.stderr().count("clear job ") == 8, "the rows")
    assert [code for code, _ in answers[0::4]] == [200] * 8
    if "clear job " not in service.stderr():
        assert sorted(uri for _, uri in answers[0::4]) == [own_uri(service, n) for n in range(8)]
    for number, answer in enumerate(answers[1::4]):
        assert answer in ((400, ""), (200, "http://127.0.0.1:%d\n" % (1000 + number)))
    for code, page in answers[2::4]:
        assert code == 200 and page.endswith("</table></body></html>")
        assert page.count("<tr>") == page.count("</tr>")
    for answer in answers[3::4]:
        assert answer in ((400, ""), (200, ""))


def test_stops_by_several_clients_at_once(services):
    service = start_render(services, entry(2), listen_threads=32)
    service.take()
    service.take()
    service.wait_started(0)
    service.wait_started(1)
    answers = at_once([exchange(service, "DELETE", "/job/0") for _ in range(16)])
    # 400 from the second on, where one of them met the very end of the run and freed the slot.
    assert set(answers) <= {(200, ""), (400, "")} and (200, "") in answers
    # All of them may have come before the process was known.
    service.stop_job(0)
    freed = service.stderr().count("clear job 0\n")
    assert (service.state(0), freed) in (("CLOSED", 0), (None, 1))
    service.wait_counters(1 - freed, 1 + freed, 0)
    assert service.state(1) == "IN PROCESS"


def test_stop_at_every_moment_of_a_short_run(services):
    """Submissions followed by stops at once: the service goes on, and a slot becomes free only where
    it says so."""
    count = 60
    service = start_render(services, entry(count, exe="sh -c 'exit 0'"))
    for number in range(count):
        taken = service.take()
        for _ in range(number % 7):
            reply = service.delete(taken)
            # 400 where the stop before met the very end of the run and freed the slot.
            assert (reply.status_code, reply.text) in ((200, ""), (400, ""))

    def is_settled():
        # A freed slot's job is counted twice.
        freed = service.stderr().count("clear job ")
        return service.counters() == (-freed % 2**32, count + freed, 0)
    wait_for(is_settled, lambda: "the end of the jobs: %s" % (service.counters(),))
    assert len(service.rows()) == count - service.stderr().count("clear job ")
    assert set(service.rows().values()) == {("See Resource", "CLOSED")}


def test_stop_before_the_process_is_there(services):
    """A client can't tell that it came too early, and asks again."""
    service = start_render(services, entry(20))
    for number in range(20):
        assert service.take() == number
        assert service.delete(number).status_code == 200
    for number in range(20):
        service.stop_job(number)
    wait_for(lambda: not service.tools(), lambda: "the end of %s" % service.tools())
    assert set(service.rows().values()) == {("See Resource", "CLOSED")}
    assert service.refused()


# The end of the service.

def test_end_waits_for_the_application(services):
    service = start_render(services, entry())
    service.take()
    service.wait_started(0)
    service.process.send_signal(signal.SIGTERM)
    wait_for(lambda: service.stderr().endswith("shutting down threads\n"), "the end to begin")
    # No stop can be asked for any more, and a second signal changes nothing.
    with pytest.raises(OSError):
        Connection(service.port)
    for number in (signal.SIGTERM, signal.SIGINT):
        service.process.send_signal(number)
    stays(lambda: not service.has_ended(), "the service ended", 0.7)
    assert len(service.tools()) >= 1
    service.open_gate(0)
    assert service.wait_for_end() == 0
    assert service.console(0) == "gate\n"


def test_end_behind_a_stop(services):
    """As an operator does it: DELETE first."""
    service = start_render(services, entry(2))
    service.take()
    service.take()
    for number in (0, 1):
        service.stop_job(number)
    service.stop(seconds=30)
    assert not service.tools()


def test_nothing_of_the_service_is_left_open_to_applications(services):
    service = start_render(services, entry(exe="inherited seen"))
    with Connection(service.port) as idle:
        idle.send(request("GET", "/"))
        idle.reply()
        service.take()
        service.wait_state(0, "CLOSED")
    assert (service.job_folder(0) / "seen").exists()


@pytest.mark.skipif(sanitizer() == "thread", reason="hundreds of threads under this checker")
def test_hundreds_of_applications(services):
    count = 120
    service = start_render(services, entry(count, exe="sleep 600"), listen_threads=8)
    for number in range(count):
        assert service.take() == number
    wait_for(lambda: len(service.tools()) == count, lambda: "%d tools" % len(service.tools()))
    assert service.refused()
    for number in range(count):
        service.delete(number)
    for number in range(count):
        service.stop_job(number)
    service.wait_counters(0, count, 0)
    assert os.listdir(service.job_folder(count - 1)) != []
