"""Single calls on the files of jobs fail at random, while clients submit, ask and fetch."""

import errno

import pytest

from fault_load import RESULT, WHOLE, Load, check_recovery, deliver, start_struck
from waiting import wait_for

KINDS = {
    "open": (errno.EMFILE, errno.ENOSPC, errno.EACCES),
    "write": (errno.ENOSPC, errno.EIO),
    "write.short": (),
    "close": (errno.EIO, errno.ENOSPC),
    "mkdir": (errno.ENOSPC, errno.EMLINK),
    "rename": (errno.ENOSPC, errno.EIO),
    "unlink": (errno.EIO, errno.EACCES),
    "look": (errno.EIO, errno.ENOMEM),
}


@pytest.mark.parametrize("rate", [0.1, 0.6])
@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_random_faults(services, provider, kind, rate):
    service = start_struck(services, provider)
    service.faults.set(kind, rate, *KINDS[kind])
    with service.faults:
        # Its page for results takes a marker that can't be looked for as none.
        load = Load(service, early=(provider, kind) == ("legacy", "look"))
        wait_for(lambda: load.wrong or (load.progress() >= 30 and
                                        service.faults.struck(kind) >= 10),
                 lambda: "answers: %d, %s" % (load.progress(), service.faults.all_struck()))
        load.join()
    assert not service.has_ended()
    check_recovery(service, load.accepted)


@pytest.mark.parametrize("error", KINDS["look"])
@pytest.mark.parametrize("provider, early", [
    ("transcoder", (202, b"")), ("legacy", (200, WHOLE[:64]))])
def test_marker_that_cannot_be_looked_for(services, provider, early, error):
    """Whether a job is unfinished can't be told then: the one page makes the client wait, the other
    goes by the file."""
    service = start_struck(services, provider)
    reply = service.post("/job/add", {"commands": ["fettle hold gate"], "uid": "waiting"})
    job = service.accepted_id(reply)
    service.wait_started(job)
    wait_for(lambda: deliver(service, job) == (202, b""), "the marker")
    (service.job_folder(job) / RESULT).write_bytes(WHOLE[:64])
    assert deliver(service, job) == (202, b"")
    service.faults.set("look", 1, error)
    with service.faults:
        assert deliver(service, job) == early
        assert service.fetch(service.place_of(job), "HEAD").status_code == early[0]
        assert service.faults.struck("look") >= 2
    assert deliver(service, job) == (202, b"")
    service.open_gate(job)
    wait_for(lambda: deliver(service, job) == (200, WHOLE[:64]), "the result")
