"""Tools that cannot be started for want of memory, processes or descriptors."""

import errno

import pytest

from fault_load import COMMAND, Load, check_recovery, check_truth, start_struck
from waiting import wait_for

SHORT = {"spawn": (errno.ENOMEM, errno.EAGAIN), "pidfd": (errno.EMFILE, errno.ENOMEM)}


@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_no_tool_can_be_started(services, provider):
    """Each job fails, none is run half, and what is submitted behind the fault runs."""
    service = start_struck(services, provider)
    accepted = {}
    with service.faults.set("spawn", 1, *SHORT["spawn"]):
        for number in range(4):
            reply = service.post("/job/add", {"commands": [COMMAND], "uid": str(number)})
            assert reply.status_code == 202
            accepted[service.accepted_id(reply)] = str(number)
        assert check_truth(service, accepted) == []
    assert service.faults.struck("spawn") == 4
    check_recovery(service, accepted)


@pytest.mark.parametrize("kind, rate", [("spawn", 0.3), ("pidfd", 0.7)])
@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_some_tools_cannot_be_started(services, provider, kind, rate):
    service = start_struck(services, provider)
    with service.faults.set(kind, rate, *SHORT[kind]):
        load = Load(service)
        wait_for(lambda: load.wrong or service.faults.struck(kind) >= 10, "10 faults")
        load.join()
    assert load.refused == 0
    closed = check_truth(service, load.accepted)
    # A tool without a handle is waited for by its number, and is none the worse for it.
    assert kind != "pidfd" or sorted(closed) == sorted(load.accepted)
    check_recovery(service, load.accepted)
