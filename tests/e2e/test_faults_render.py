"""A render provider around whose files and applications things go wrong."""

import errno

import pytest

from fault_load import Struck
from render import RenderService, entry
from waiting import wait_for


class StruckRender(Struck, RenderService):
    pass


def start(services, count):
    return services.start(kind=StruckRender, renderers=[entry(count)])


@pytest.mark.parametrize("kind, errors", [
    ("mkdir", (errno.ENOSPC, errno.EROFS)), ("spawn", (errno.ENOMEM, errno.EAGAIN))])
def test_application_that_cannot_run(services, kind, errors):
    """The job is told as failed and keeps its slot; those behind the fault run."""
    service = start(services, 4)
    with service.faults.set(kind, 1, *errors):
        failed = [service.take() for _ in range(2)]
        for job in failed:
            service.wait_state(job, "ERROR")
    assert service.faults.struck(kind) >= 2
    running = [service.take() for _ in range(2)]
    for job in running:
        service.wait_started(job)
        assert service.state(job) == "IN PROCESS"
        service.open_gate(job)
        service.wait_state(job, "CLOSED")
    assert [service.state(job) for job in failed] == ["ERROR"] * 2
    assert service.refused()
    service.wait_counters(0, 2, 2)


def test_random_faults(services):
    """Every job comes to its end and every slot is lent once, whatever fails."""
    service = start(services, 12)
    for name in ("open", "write", "close", "rename", "mkdir", "unlink"):
        service.faults.set(name, 0.3, errno.EIO, errno.ENOSPC, errno.EMFILE)
    service.faults.set("pidfd", 0.3, errno.EMFILE)
    service.faults.set("spawn", 0.3, errno.ENOMEM)
    with service.faults:
        jobs = [service.take() for _ in range(12)]
        assert service.refused()

        def ended():
            for job in jobs:
                if (service.job_folder(job) / "gate.started").exists():
                    service.open_gate(job)
            return all(service.state(job) in ("CLOSED", "ERROR") for job in jobs)
        wait_for(ended, lambda: "the ends: %s" % service.rows())
    assert sum(service.faults.all_struck().values()) >= 10, service.faults.all_struck()
    started = {job for job in jobs if (service.job_folder(job) / "gate.started").exists()}
    assert started == {job for job in jobs if service.state(job) == "CLOSED"}
    assert sorted(jobs) == list(range(12))
    service.stop()
    service.restart()
    job = service.take()
    service.wait_started(job)
    service.open_gate(job)
    service.wait_state(job, "CLOSED")
