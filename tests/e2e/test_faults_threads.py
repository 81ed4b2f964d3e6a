"""Threads that the system does not give to a service that runs."""

import errno
import re
import threading

import pytest

from fault_load import Load, check_recovery, check_truth, start_struck, wait_ended
from waiting import wait_for

NO_THREAD = "web server: no further thread: Resource temporarily unavailable\n"


def workers(service):
    return service.threads().count("job worker")


def reconfigure(service, count):
    return service.post("/reconfig", {"threads": count})


def submit(service, name):
    reply = service.post("/job/add", service.describe(name))
    assert reply.status_code == 202
    return service.accepted_id(reply)


@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_slow_pages_without_further_threads(services, provider):
    """Pages that take long are served by the threads that there are, and the log is not filled."""
    service = start_struck(services, provider)
    # The last thread of a start.
    wait_for(lambda: "hub client" in service.threads(), "the whole start")
    service.faults.set("thread", 1, errno.EAGAIN).set("delay", 1)
    service.faults.set_delay(0.02)
    with service.faults:
        load = Load(service)
        wait_for(lambda: load.wrong or service.faults.struck("thread") >= 20, "20 faults")
        load.join()
        assert load.refused == 0
        check_truth(service, load.accepted)
    assert 1 <= service.log().count(NO_THREAD) < service.faults.struck("thread")
    check_recovery(service, load.accepted)


def test_reconfiguration_waits_for_a_thread(services):
    """A worker comes as soon as the system gives it, and nobody has to ask a second time."""
    service = start_struck(services, "legacy", "--allowReconfig", "1")
    replies = []
    with service.faults.set("thread", 1, errno.EAGAIN):
        client = threading.Thread(target=lambda: replies.append(reconfigure(service, 3)))
        client.start()
        wait_for(lambda: workers(service) == 0 and service.faults.struck("thread") > 0, "no worker")
    client.join()
    assert replies[0].status_code == 200
    wait_for(lambda: workers(service) == 3, "3 workers")
    check_recovery(service, {submit(service, "runs"): "runs"})


def test_reconfiguration_with_fewer_threads(services):
    """What can be started works on, and both outputs tell how many."""
    service = start_struck(services, "legacy", "--allowReconfig", "1")
    with service.faults.set("thread", 0.2, errno.EAGAIN):
        assert reconfigure(service, 100).status_code == 200
    told = re.search(r"Z reconfiguration: ([0-9]+) of 100 threads: Resource ", service.log())
    count = int(told[1])
    assert 1 <= count < 100
    assert "\nat %d threads to 100 threads\n" % count in service.stderr_path().read_text()
    wait_for(lambda: workers(service) == count, "%d workers" % count)
    check_recovery(service, {submit(service, "runs"): "runs"})


def test_reconfiguration_gives_up(services):
    """Without any worker it is told as failed; jobs wait for the next."""
    service = start_struck(services, "legacy", "--allowReconfig", "1")
    with service.faults.set("thread", 1, errno.EAGAIN):
        assert reconfigure(service, 2).status_code == 500
        assert workers(service) == 0
        assert "reconfiguration: 0 of 2 threads: " in service.log()
        job = submit(service, "waits")
    assert reconfigure(service, 2).status_code == 200
    wait_ended(service, [job])
    check_recovery(service, {job: "waits"})
