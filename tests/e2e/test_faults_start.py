"""A start over old jobs that cannot all be read: nothing is lost by it."""

import errno

import pytest

from fault_load import WHOLE, check_recovery, deliver, start_struck, wait_ended
from waiting import wait_for


def run_some(service, count):
    accepted = {}
    for number in range(count):
        reply = service.post("/job/add", service.describe("old-%d" % number))
        accepted[service.accepted_id(reply)] = "old-%d" % number
    wait_ended(service, accepted)
    wait_for(lambda: all(deliver(service, number) == (200, WHOLE) for number in accepted),
             "the results")
    return accepted


@pytest.mark.parametrize("kind", ["read", "open"])
@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_old_jobs_that_cannot_be_read(services, provider, kind):
    """Those that were not found, or are told as failed, are there behind the next start."""
    service = start_struck(services, provider)
    accepted = run_some(service, 12)
    service.stop()
    with service.faults.set(kind, 0.3, errno.EIO, errno.EMFILE):
        service.launch()
        wait_for(lambda: service.has_ended() or service.is_listening(), "the start or its failure")
        assert service.faults.struck(kind) > 0
        if service.has_ended():
            assert service.wait_for_end() == 255
        else:
            service.stop()
    service.start()
    check_recovery(service, accepted)


@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_cache_folder_that_cannot_be_walked(services, provider):
    """A service that does not know its jobs would give their numbers away: it does not start."""
    service = start_struck(services, provider)
    accepted = run_some(service, 3)
    service.stop()
    with service.faults.set("readdir", 1, errno.EIO):
        service.launch()
        assert service.wait_for_end() == 255
    assert service.faults.struck("readdir") > 0
    service.start()
    assert set(accepted) <= set(service.table())
    check_recovery(service, accepted)
