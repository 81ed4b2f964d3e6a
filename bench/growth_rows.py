"""Rows of what grows with jobs, with connections and with old folders."""

import pathlib
import statistics
import subprocess

import clients
import peers
from common import PROVIDER, make_folders, service
from legacy import LegacyService
from report import Result
from service import Service

DRAWING = pathlib.Path(__file__).with_name("growth.gnuplot")


def growth(settings):
    """Each curve is a file of points, number and cost; they are drawn where a folder was named for
    that. The table gets the cost of each piece at the largest number."""
    points = settings.folder()
    points.mkdir()
    counts = settings.size((1000, 3000, 10000, 30000, 100000), (1000, 3000, 10000))
    results = [jobs(settings, points / "jobs", counts)]
    for name, kind, state, work in (("transcoder", transcoder, 3, '"commands":["true"]'),
                                    ("legacy", legacy, 2, '"resource":"model.obj"')):
        results += folders(kind(settings), points, name, counts, settings.rounds, state, work)
    for name, request in (("never used", None), ("answered once", True)):
        results.append(connections(settings, points, name, request))
    if settings.curves:
        subprocess.run(["gnuplot", "-e", "points='%s'; folder='%s'" % (points, settings.curves),
                        str(DRAWING)], check=True)
    return results


def transcoder(settings):
    return Service(settings.folder(), ["--worker_threads", "0"], provider_id=PROVIDER,
                   listen_threads=None)


def legacy(settings):
    return LegacyService(settings.folder(), listen_threads=None)


def keep(path, rows):
    with open(path, "w", encoding="ascii") as out:
        for row in rows:
            out.write("%d %.6g\n" % row)


def each(what, unit, factor, rows):
    """The cost of a piece at the largest number."""
    count, cost = rows[-1]
    return Result(what % "{:,}".format(count), unit, [cost * factor / count], [], None)


def jobs(settings, path, counts):
    """Memory, in MiB, of jobs that were submitted and wait."""
    rows = []
    with service(settings, 0, settings.folder(settings.memory)) as own:
        client = clients.JobClient(own.port, PROVIDER)
        client.submit(0, 1)
        empty, before = memory_of(own), 1
        for count in counts:
            client.submit(before, count)
            rows.append((count, (memory_of(own) - empty) / 1024))
            before = count
    keep(path, rows)
    return each("memory of each of %s jobs that were submitted and wait", "bytes", 1 << 20, rows)


def folders(own, points, name, counts, rounds, state, work):
    """Seconds until old jobs are loaded, and the memory, in MiB, that they take."""
    own.jobs_folder().mkdir(parents=True)
    times, sizes, before = [], [], 0
    empty = memory_when_started(own)
    for count in counts:
        make_folders(own.jobs_folder(), count, state, work, before + 1)
        before = count
        peers.settle()
        found = [clients.time_to_line(own, "Loading old jobs: %d" % count)[0]
                 for _ in range(rounds + 1)][1:]  # the first does not find the files in memory
        times.append((count, statistics.median(found)))
        sizes.append((count, (memory_when_started(own) - empty) / 1024))
    keep(points / ("start-" + name), times)
    keep(points / ("old-" + name), sizes)
    return [each("start of the " + name + " with %s old jobs, of each", "µs", 1e6, times),
            each("memory of each of %s old jobs, " + name, "bytes", 1 << 20, sizes)]


def memory_of(own):
    return clients.resident_kib(own.process.pid, "RssAnon")


def memory_when_started(own):
    own.start()
    try:
        return memory_of(own)
    finally:
        own.stop()


def connections(settings, points, name, request):
    """Memory, in MiB, of idle connections, of a service of their own for each number."""
    head = "GET /%s/1/index.x3d HTTP/1.1\r\nHost: x\r\n\r\n" % PROVIDER
    rows = []
    for count in settings.size((1000, 2000, 5000, 10000), (1000, 2000)):
        with service(settings, workers=0) as own:
            rows.append((count, count / 1024 * clients.memory_each(
                own.process.pid, own.port + 1, count, head.encode() if request else None)))
    keep(points / ("connections-" + name.replace(" ", "-")), rows)
    return each("memory of each of %s connections, " + name, "bytes", 1 << 20, rows)
