"""A log that cannot be written keeps no client and no job waiting, and goes on behind the fault."""

import errno

import pytest

from fault_load import Load, check_recovery, start_struck
from faults import LOG
from waiting import wait_for


@pytest.mark.parametrize("kind", ["stream", "open"])
@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_log_that_cannot_be_written(services, provider, kind):
    service = start_struck(services, provider)
    service.submit({})
    service.faults.set(kind, 0.7, errno.ENOSPC, errno.EIO, where=LOG)
    # A file is opened only behind a failed writing.
    service.faults.set("stream", 0.7, errno.ENOSPC, errno.EIO, where=LOG)
    with service.faults:
        load = Load(service)

        def refuse():
            assert service.post("/job/add", "no description").status_code == 400
            return load.wrong or service.faults.struck(kind) >= 10
        wait_for(refuse, lambda: "10 faults: %s" % service.faults.all_struck())
        load.join()
    assert load.refused == 0
    before = len(service.log())
    service.post("/job/add", {"uid": 5})
    wait_for(lambda: len(service.log()) > before, "a new line in the log")
    check_recovery(service, load.accepted)
