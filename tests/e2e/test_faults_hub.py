"""A hub that resets connections, and a service that gets no connection to it."""

import errno

import pytest

from fault_load import Load, check_recovery, start_struck
from hubs import RecordingHub, RudeHub
from waiting import wait_for


def test_hub_that_resets_connections(services):
    with RudeHub("resetting") as hub:
        service = services.start("--refresh", 1, hub=hub.address)
        wait_for(lambda: len(hub.connections) >= 2, "two attempts")
        job = service.run("true")
        service.wait_done(job)
        assert service.state(job) == "CLOSED"
        assert "hub %s: " % hub.address in service.log()
        assert service.stop() < 10


@pytest.mark.parametrize("kind, errors", [
    ("connect", (errno.ECONNREFUSED, errno.EHOSTUNREACH, errno.ENOBUFS)),
    ("socket", (errno.EMFILE, errno.ENOBUFS))])
def test_no_connection_to_the_hub(services, kind, errors):
    """Jobs run meanwhile, and the next renewal reaches the hub."""
    with RecordingHub() as hub:
        service = start_struck(services, "transcoder", "--refresh", 1, hub=hub.address)
        with service.faults.set(kind, 1, *errors):
            load = Load(service)
            wait_for(lambda: service.faults.struck(kind) >= 1, "an attempt")
            heard = len(hub.received)
            wait_for(lambda: load.wrong or (service.faults.struck(kind) >= 3 and
                                            len(load.accepted) >= 5), "more attempts")
            load.join()
            assert len(hub.received) == heard
        assert "hub %s: " % hub.address in service.log()
        hub.wait_for(heard + 1)
        check_recovery(service, load.accepted)
