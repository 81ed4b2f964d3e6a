"""Rows of the jobs: their rate, and their table after a restart."""

import functools
import subprocess
import time

import clients
import peers
from common import PROVIDER, SUBMIT, in_turns, make_folders, service
from report import Result
from service import Service
from waiting import wait_for


def rate(settings, workers, count, below=None):
    """Jobs a second of a fresh service, from the first submission to the last end."""
    with service(settings, workers, settings.folder(below)) as own:
        client = clients.JobClient(own.port, PROVIDER)
        peers.settle()
        seconds = client.run(count)
        wait_for(lambda: own.counters()[0] == 0, "the counters")
        if own.counters() != (0, count, 0):
            raise RuntimeError("jobs, finished, failed: %s" % (own.counters(),))
        return count / seconds


def jobs(settings, workers):
    """Jobs of `true` from their submission to their end, against xargs. Each job is a folder with
    ten entries, so the file system has its part in the figure: it is taken on the disk and, where
    there is one, on a file system in memory."""
    count = settings.size(2000, 400)

    def peer():
        numbers = "".join("%d\n" % number for number in range(count))
        peers.settle()
        begin = time.monotonic()
        subprocess.run(["xargs", "-P", str(workers), "-n", "1", "true"], input=numbers, text=True,
                       check=True)
        return count / (time.monotonic() - begin)

    places = [("on the disk", settings.scratch)]
    if settings.memory:
        places.append(("in memory", settings.memory))
    *found, theirs = in_turns(settings, *(functools.partial(rate, settings, workers, count, below)
                                         for _, below in places),
                              peer)
    return [Result("{:,} jobs of `true`, {} workers, folders {}".format(
                count, workers, place), "jobs/s", figure, theirs, 1.0)
            for (place, _), figure in zip(places, found)]


def submission(settings):
    """Submission alone: 32 clients, each job with a name of its own, no worker. The peer makes the
    same folders and files and has nobody to answer."""
    results = submission_below(settings, settings.scratch, "on the disk")
    if settings.memory:
        results += submission_below(settings, settings.memory, "in memory")
    return results


def submission_below(settings, below, place):
    loads = []

    def ours():
        peers.settle()
        with service(settings, 0, settings.folder(below)) as own:
            loads.append(peers.wrk_script(own.port, SUBMIT, 32, settings.size(5, 2)))
            return loads[-1].rate

    def peer():
        folder = settings.folder(below)
        folder.mkdir()
        peers.settle()
        done = subprocess.run([str(settings.build / "bench" / "folder_bench"), str(folder),
                               str(settings.size(20000, 8000)), "2"], stdout=subprocess.PIPE,
                              check=True)
        return float(done.stdout)

    found = in_turns(settings, ours, peer)
    return [Result("submission of jobs, 32 connections, folders " + place, "jobs/s", *found, 0.5),
            Result("until half of them are answered", "ms", [load.middle for load in loads], [],
                   None),
            Result("until 99 % of them are answered", "ms", [load.late for load in loads], [],
                   None)]


def reload(settings):
    """From the start of the process to the line that tells how many old jobs were found."""
    count = settings.size(100000, 10000)
    own = Service(settings.folder(), ["--worker_threads", "0"], provider_id=PROVIDER,
                  listen_threads=None)
    own.jobs_folder().mkdir(parents=True)
    files = "".join(make_folders(own.jobs_folder(), count)).encode()
    peers.settle()

    def ours():
        seconds, line = clients.time_to_line(own, "Loading old jobs: ")
        if line != "Loading old jobs: %d" % count:
            raise RuntimeError("the program says: " + line)
        return seconds

    def peer():
        begin = time.monotonic()
        subprocess.run(["xargs", "cat"], input=files, stdout=subprocess.DEVNULL, check=True)
        return time.monotonic() - begin

    ours(), peer()  # from here on both find the files in memory
    found = in_turns(settings, ours, peer)
    return [Result("reload of %s job folders" % "{:,}".format(count), "s", *found, 2.0,
                   at_most=True)]
