"""The file system of the cache turns read-only and comes back, with jobs all the time."""

import errno

import pytest

from fault_load import COMMAND, check_recovery, deliver, start_struck, wait_ended
from waiting import wait_for

WRITING = ("write", "mkdir", "rename", "unlink")


def turn_read_only(service):
    """Nothing below the cache folder can be written; files that are open only for reading can be
    opened."""
    for kind in WRITING:
        service.faults.set(kind, 1, errno.EROFS)
    service.faults.set("open.write", 1, errno.EROFS)
    service.faults.begin()


@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_read_only_for_a_while(services, provider):
    service = start_struck(services, provider)
    accepted = {}

    def submit(name, *commands):
        reply = service.post("/job/add", {"commands": list(commands) or [COMMAND], "uid": name})
        if reply.status_code == 202:
            accepted[service.accepted_id(reply)] = name
        return reply.status_code

    assert submit("before") == 202
    wait_ended(service, accepted)
    running = len(accepted) + 1
    assert submit("running", "fettle hold gate", COMMAND) == 202
    service.wait_started(running)
    turn_read_only(service)
    assert submit("meanwhile") == {"transcoder": 202, "legacy": 500}[provider]
    service.open_gate(running)
    table = wait_ended(service, accepted)
    # It has run, and is told so; its result waits for the disk.
    assert table[running] == ("running", "CLOSED")
    assert deliver(service, running) == (202, b"")
    assert deliver(service, 1)[0] == 200
    assert service.faults.struck("open.write") > 0 and service.faults.struck("mkdir") > 0
    service.faults.end()
    wait_for(lambda: deliver(service, running)[0] == 200, "the result of what ran meanwhile")
    check_recovery(service, accepted)
