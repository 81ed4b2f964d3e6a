"""Single calls on the files of jobs fail at random, while clients submit, ask and fetch."""

import errno

import pytest

from fault_load import Load, check_recovery, start_struck
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
        load = Load(service)
        wait_for(lambda: load.wrong or (load.progress() >= 30 and
                                        service.faults.struck(kind) >= 10),
                 lambda: "answers: %d, %s" % (load.progress(), service.faults.all_struck()))
        load.join()
    assert not service.has_ended()
    check_recovery(service, load.accepted)
