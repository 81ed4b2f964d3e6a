"""Connections that cannot be accepted, or break while they are read or written."""

import errno

import pytest

from fault_load import Load, check_recovery, start_struck
from waiting import wait_for

KINDS = {
    "accept": (errno.EMFILE, errno.ENFILE, errno.ECONNABORTED, errno.ENOMEM),
    "send": (errno.ECONNRESET, errno.EPIPE, errno.ENOBUFS),
    "recv": (errno.ECONNRESET, errno.ETIMEDOUT),
}


@pytest.mark.parametrize("kind, rate", [("accept", 0.7), ("send", 0.2), ("recv", 0.2)])
@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_connections_that_fail(services, provider, kind, rate):
    """A client that got no answer knows nothing; the others are answered, and truly."""
    service = start_struck(services, provider)
    with service.faults.set(kind, rate, *KINDS[kind]):
        # One that waits to be accepted is, in the end.
        load = Load(service, broken=kind != "accept", reuse=kind != "accept")
        wait_for(lambda: load.wrong or (len(load.accepted) >= 10 and
                                        service.faults.struck(kind) >= 10),
                 lambda: "answers: %d, %s" % (load.progress(), service.faults.all_struck()))
        load.join()
    assert load.refused == 0
    assert (load.cut > 0) == (kind != "accept")
    check_recovery(service, load.accepted)


def test_nobody_can_be_accepted(services):
    """Clients wait, and are served as soon as there are descriptors."""
    service = start_struck(services, "transcoder")
    service.session.close()
    service.faults.set("accept", 1, errno.EMFILE)
    load = Load(service)
    with service.faults:
        wait_for(lambda: service.faults.struck("accept") >= 5, "attempts to accept")
        before = load.progress()
    wait_for(lambda: load.wrong or load.progress() > before + 10, "answers behind the fault")
    load.join()
    assert load.cut == 0
    log = service.log()
    assert "Too many open files" in log or "EMFILE" in log, log[-500:]
