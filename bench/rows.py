"""The rows of the table: each measures ours and the peer in turns and returns Results."""

import contextlib
import dataclasses
import functools
import itertools
import json
import os
import pathlib
import shutil
import subprocess
import sys
import time
import typing

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "e2e"))

import clients  # noqa: E402
import machine  # noqa: E402
import peers  # noqa: E402
from legacy import LegacyService  # noqa: E402
from report import Result, figures  # noqa: E402
from service import Service  # noqa: E402
from waiting import wait_for  # noqa: E402

PROVIDER = "bench"


@dataclasses.dataclass
class Settings:
    """What a run was asked for."""

    scratch: pathlib.Path  # an empty folder, removed at the end of the run
    memory: typing.Optional[pathlib.Path]  # one in memory, where the system offers that
    build: pathlib.Path
    rounds: int
    quick: bool

    def __post_init__(self):
        self.numbers = itertools.count()

    def folder(self, below=None):
        """A name in the scratch folder, or in another, that was not given before."""
        return (below or self.scratch) / str(next(self.numbers))

    def size(self, full, quick):
        return quick if self.quick else full


@contextlib.contextmanager
def service(settings, workers, folder=None):
    """The real program with as many workers, and its default number of page threads."""
    own = Service(folder or settings.folder(), ["--worker_threads", workers],
                  provider_id=PROVIDER, listen_threads=None)
    try:
        yield own.start()
        own.stop()
    finally:
        # After a failure above. What it wrote goes with the whole scratch folder: some file systems
        # make new files slowly for minutes after many were removed.
        if own.process is not None:
            own.process.kill()
            own.process.wait()


def in_turns(settings, *sides):
    """Calls each once a round; returns the figures of each."""
    found = [[] for _ in sides]
    for _ in range(settings.rounds):
        for figure, side in zip(found, sides):
            figure.append(side())
    return found


def expect(port, path, code, length):
    """Checks that a server serves what is to be measured."""
    seen = peers.head_of(port, path)
    if seen != (code, length):
        raise RuntimeError("port %d answers %s with %s" % (port, path, seen))


def against(settings, what, wanted, connections, ours, peer):
    """Requests a second of two (port, path), one after the other in each round."""
    seconds = settings.size(5, 2)
    results = in_turns(settings, lambda: peers.wrk(*ours, connections, seconds),
                       lambda: peers.wrk(*peer, connections, seconds))
    return [Result(what, "requests/s", *results, wanted)]


def accepted(settings, connections):
    """Answers 202 for a job that waits."""
    with service(settings, workers=0) as own:
        number = own.run("true")
        with peers.nginx(settings.folder(), own.folder) as port:
            path = "/%s/%d/index.x3d" % (PROVIDER, number)
            expect(own.port + 1, path, 202, 0)
            expect(port, "/accepted", 202, 0)
            return against(settings, "202 for an unfinished job, %d connections" % connections,
                           0.85, connections, (own.port + 1, path), (port, "/accepted"))


def finished(settings, name, size, connections, wanted):
    """A result that a job made, and the same file from nginx."""
    with service(settings, workers=1) as own:
        source = own.folder / "source"
        source.write_bytes(bytes(index % 251 for index in range(size)))
        number = own.run("cp %s result.bin" % source)
        own.wait_done(number)
        with peers.nginx(settings.folder(), own.cache_root) as port:
            path = "/%s/%d/result.bin" % (PROVIDER, number)
            expect(own.port + 1, path, 200, size)
            expect(port, path, 200, size)
            return against(settings, "a result of %s, %d connections" % (name, connections),
                           wanted, connections, (own.port + 1, path), (port, path))


def jobs(settings, workers):
    """Jobs of `true` from their submission to their end, against xargs. Each job is a folder with
    ten entries, so the file system has its part in the figure: it is taken on the disk and, where
    there is one, on a file system in memory."""
    count = settings.size(2000, 400)

    def ours(below):
        with service(settings, workers, settings.folder(below)) as own:
            client = clients.JobClient(own.port, PROVIDER)
            peers.settle()
            seconds = client.run(count)
            wait_for(lambda: own.counters()[0] == 0, "the counters")
            if own.counters() != (0, count, 0):
                raise RuntimeError("jobs, finished, failed: %s" % (own.counters(),))
            return count / seconds

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
    *found, theirs = in_turns(settings, *(functools.partial(ours, below) for _, below in places),
                              peer)
    return [Result("{:,} jobs of `true`, {} workers, folders {}".format(
                count, workers, place), "jobs/s", figure, theirs, 1.0)
            for (place, _), figure in zip(places, found)]


def blocked(settings):
    """32 clients beside 250 blocked pages, and the same clients alone. No page of the real program
    can be blocked at will, so this measures its web server with a page that takes 10 s."""
    seconds = settings.size(5, 2)
    with peers.front(settings.build, 256) as port:
        expect(port, "/202", 202, 0)

        def beside():
            with clients.Blockers(port, "/block", 250) as blockers:
                rate = peers.wrk(port, "/202", 32, seconds)
                if blockers.any_answered():
                    raise RuntimeError("a page was no longer blocked at the end of the round")
                return rate

        found = in_turns(settings, beside, lambda: peers.wrk(port, "/202", 32, seconds))
    return [Result("32 clients while 250 pages are blocked", "requests/s", *found, 0.8)]


def idle(settings):
    """Memory of idle connections: fresh ones, and ones that were answered once."""
    count = 5000

    def one(request):
        with service(settings, workers=0) as own:
            return clients.memory_each(own.process.pid, own.port + 1, count, request)

    head = "GET /%s/1/index.x3d HTTP/1.1\r\nHost: x\r\n\r\n" % PROVIDER
    fresh, answered = in_turns(settings, lambda: one(None), lambda: one(head.encode()))
    return [Result("each of %s idle connections, %s" % ("{:,}".format(count), kind), "KiB",
                   found, [], 4, at_most=True)
            for kind, found in (("never used", fresh), ("answered once", answered))]


def make_folders(root, count, status=3, work='"commands":["true"]'):
    """Job folders as the program leaves them, less the empty folders, which no reload looks at, of
    jobs with this state and this work in their files; returns the paths of what a reload reads."""
    listed = []
    for number in range(1, count + 1):
        folder = "%s/%d" % (root, number)
        pathlib.Path(folder).mkdir()
        for name, text in ((".meta", '{%s,"uid":"job %d"}' % (work, number)),
                           (".status", '{ "status" : %d }\n' % status),
                           ("jobId", "%d@%s" % (number, PROVIDER))):
            with open("%s/%s" % (folder, name), "w", encoding="ascii") as out:
                out.write(text)
            listed.append("%s/%s\n" % (folder, name))
    return [path for path in listed if not path.endswith("/jobId\n")]


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
            sides.append(functools.partial(list_seconds, connection, path, count))
        found = in_turns(settings, *sides)
    return [Result("the list of %s jobs, legacy transcoder" % "{:,}".format(count), "ms", *found, 5,
                   at_most=True)]


def list_seconds(connection, path, count):
    """Milliseconds until a page that lists so many jobs is there, the shortest of five."""
    def once():
        begin = time.monotonic()
        page = connection.get(path)
        taken = time.monotonic() - begin
        if b"job %d<" % count not in page:
            raise RuntimeError("%s does not list the last job" % path)
        return taken * 1000

    return min(once() for _ in range(5))


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


_ROWS = {
    "accepted-32": lambda settings: accepted(settings, 32),
    "accepted-256": lambda settings: accepted(settings, 256),
    "result-1k": lambda settings: finished(settings, "1 KiB", 1024, 32, 0.8),
    "result-1m": lambda settings: finished(settings, "1 MiB", 1024 * 1024, 8, 0.9),
    "jobs-2": lambda settings: jobs(settings, 2),
    "jobs-8": lambda settings: jobs(settings, 8),
    "blocked": blocked,
    "idle": idle,
    "reload": reload,
    "legacy-list": lists,
    "legacy-jobs": legacy_jobs,
}


def measure(name, settings):
    """Measures one row, prints it as it comes, and returns its results."""
    before = machine.load()
    results = _ROWS[name](settings)
    for result in results:
        peer = ", peer %s, ratio %.2f" % (figures(result.peer, result.unit),
                                          result.value()) if result.peer else ""
        print("%s: %s%s; load before: %.1f" % (result.what, figures(result.ours, result.unit),
                                               peer, before), flush=True)
    return results
