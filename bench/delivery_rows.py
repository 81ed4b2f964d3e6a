"""Rows of the result server and of the web server below it."""

import contextlib

import clients
import peers
from common import PROVIDER, expect, in_turns, service
from report import Result


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


@contextlib.contextmanager
def result_of(settings, size):
    """A result that a job made, and the same file from nginx: the service and both addresses."""
    with service(settings, workers=1) as own:
        source = own.folder / "source"
        block = bytes(index % 251 for index in range(min(size, 1 << 20)))
        with open(source, "wb") as out:
            for _ in range(size // len(block)):
                out.write(block)
        number = own.run("cp %s result.bin" % source)
        own.wait_done(number)
        source.unlink()
        with peers.nginx(settings.folder(), own.cache_root) as port:
            path = "/%s/%d/result.bin" % (PROVIDER, number)
            expect(own.port + 1, path, 200, size)
            expect(port, path, 200, size)
            yield own, (own.port + 1, path), (port, path)


def finished(settings, name, size, connections, wanted):
    with result_of(settings, size) as (_, ours, theirs):
        return against(settings, "a result of %s, %d connections" % (name, connections), wanted,
                       connections, ours, theirs)


def sizes(settings):
    """Results of all sizes to few and to many, and what they cost in memory: each reply holds its
    own copy of the file, so those that would not fit into this machine are left out."""
    largest = settings.size(1 << 30, 1 << 26)
    results = []
    for name, size in (("64 KiB", 1 << 16), ("1 MiB", 1 << 20), ("64 MiB", 1 << 26),
                       ("1 GiB", 1 << 30)):
        if size > largest:
            continue
        with result_of(settings, size) as (own, ours, theirs):
            for connections in (1, 8, 64):
                if size * connections > 10 << 30:
                    continue
                what = "a result of %s, %d connections" % (name, connections)
                clients.forget_peak(own.process.pid)
                results += against(settings, what, None, connections, ours, theirs)
                results.append(Result(what + ": memory at the most", "MiB",
                                      [clients.peak_kib(own.process.pid) / 1024], [], None))
    return results


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
