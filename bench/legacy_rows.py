"""Rows of the legacy transcoder."""

import contextlib
import functools
import json
import os
import pathlib
import shutil
import subprocess
import time

import clients
from common import PROVIDER, in_turns, make_folders
from legacy import LegacyService
from report import Result
from service import Service
from waiting import wait_for


def lists(settings):
    """The page with all jobs of the legacy transcoder, which looks for a file of each, and that of
    the transcoder."""
    count = settings.size(10000, 1000)
    legacy = LegacyService(settings.folder())
    newer = Service(settings.folder(), ["--worker_threads", "0"], provider_id=PROVIDER)
    with contextlib.ExitStack() as stack:
        sides = []
        for own, path, ended in ((legacy, "/job/list", 2), (newer, "/job", 3)):
            own.jobs_folder().mkdir(parents=True)
            make_folders(own.jobs_folder(), count, ended, '"resource":"model.obj"')
            stack.callback(own.stop)
            connection = clients.Connection(own.start().port)
            sides.append(functools.partial(list_time, connection, path, count))
        found = in_turns(settings, *sides)
    return [Result("the list of %s jobs, legacy transcoder" % "{:,}".format(count), "ms", *found, 5,
                   at_most=True)]


def list_time(connection, path, count):
    """Milliseconds until a page that lists so many jobs is there."""
    if b"job %d<" % count not in connection.get(path):
        raise RuntimeError("%s does not list the last job" % path)
    return clients.milliseconds(lambda: connection.get(path))


def legacy_jobs(settings):
    """Jobs of a tool that takes 10 ms, from the first submission to the last end. Each pass of a
    thread ends in a pause of 100 ms, so the peer sleeps for both."""
    count = settings.size(100, 30)
    tools = pathlib.Path(settings.folder())
    tools.mkdir()
    # It runs programs of a few names only.
    (tools / "fettle").symlink_to(shutil.which("sleep"))

    def ours():
        own = LegacyService(settings.folder(), ["--worker_threads", 3],
                            environment={"PATH": "%s:%s" % (tools, os.environ["PATH"])})
        try:
            connection = clients.Connection(own.start().port)
            description = {"commands": ["fettle 0.01"]}
            begin = time.monotonic()
            for number in range(count):
                connection.post("/job/add", json.dumps(dict(description, uid=str(number))).encode())
            wait_for(lambda: connection.get("/job/list/open") == b"0", "the last job")
            seconds = time.monotonic() - begin
            if own.counters()[:3] != (count, count, 0):
                raise RuntimeError("jobs, finished, failed: %s" % (own.counters()[:3],))
            return seconds
        finally:
            own.stop()

    def peer():
        begin = time.monotonic()
        subprocess.run(["xargs", "-P", "3", "-n", "1", "sleep"], input="0.11\n" * count, text=True,
                       check=True)
        return time.monotonic() - begin

    found = in_turns(settings, ours, peer)
    return [Result("%d legacy jobs of 10 ms, 3 threads" % count, "s", *found, 1.1, at_most=True)]
