"""The time of day is set forward and back while jobs run: no wait and no limit goes by it."""

import re

import pytest

from fault_load import Load, check_recovery, start_struck
from hubs import RecordingHub
from waiting import wait_for

HOUR = 3600


@pytest.mark.parametrize("provider", ["transcoder", "legacy"])
def test_clock_that_jumps(services, provider):
    service = start_struck(services, provider)
    load = Load(service)
    for jump in (5 * HOUR, -30 * HOUR, 24 * 365 * HOUR, -1, 0):
        service.faults.set_clock(jump)
        before = load.progress()
        readings = service.faults.clock_readings()
        wait_for(lambda: load.wrong or (load.progress() >= before + 15 and (
            jump == 0 or service.faults.clock_readings() > readings)), "answers behind a jump")
    load.join()
    assert load.refused == 0
    check_recovery(service, load.accepted)


def test_stop_behind_a_jump(services):
    service = start_struck(services, "transcoder")
    service.faults.set_clock(-48 * HOUR)
    assert service.stop() < 10


def test_date_and_log_follow_the_clock(services):
    """They show the time of day, whatever it is."""
    service = start_struck(services, "transcoder")
    year = service.get("/job").headers["Date"].split()[3]
    service.faults.set_clock(2 * 24 * 366 * HOUR)
    later = str(int(year) + 2)
    wait_for(lambda: service.get("/job").headers["Date"].split()[3] >= later, "the new date")
    assert service.submit({}).status_code == 400
    assert re.search("^%s-.*job refused" % later, service.log(), re.MULTILINE)


def test_renewal_at_the_hub_goes_on_behind_a_jump_back(services):
    with RecordingHub() as hub:
        service = start_struck(services, "transcoder", "--refresh", 1, hub=hub.address)
        hub.wait_for(1)
        service.faults.set_clock(-5 * HOUR)
        hub.wait_for(3)
        service.stop()
