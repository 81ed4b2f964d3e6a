"""Ways out of the cache folder by the path of a request: none of them leads to a file outside."""

import itertools

import pytest

from legacy import LegacyService
from raw_http import ask, request
from service import Service

SECRET = b"nobody outside may read this"

# How two dots are written ...
DOTS = ["..", "%2e%2e", ".%2e", "%2E.", "%252e%252e", "%25252e%25252e", "%c0%ae%c0%ae",
        "%e0%80%ae%e0%80%ae", "%f0%80%80%ae%f0%80%80%ae", "%uff0e%uff0e", "%ef%bc%8e%ef%bc%8e", "..;",
        "..%00", "..%0a", "..%20", "..%09", "....", "...", ".", "%2e", ".. ", "..?", "..#"]
# ... and a slash.
SLASHES = ["/", "%2f", "%2F", "%252f", "//", "\\", "%5c", "%255c", "%c0%af", "%e0%80%af", "%c1%9c",
           "/./", "%2f.%2f", ";/", "%00/", "%u2215", "%ef%bc%8f"]


def ways(depth, start):
    for dots, slash in itertools.product(DOTS, SLASHES):
        yield start + (dots + slash) * depth + "secret.txt"
    for slash in SLASHES:
        # Words that a careless filter would put together to two dots.
        yield start + ("..." + slash + "." + slash) * depth + "secret.txt"
        yield start + ("...." + slash + slash) * depth + "secret.txt"
        yield start + (".." + slash) * depth + "..%2fsecret.txt%00.x3d"


def absolute(path):
    for start in ("/", "//", "///", "/%2f", "/%2f%2f", "/\\", "/%5c", "/file:", "/file:///", "/%00/",
                  "http://localhost", "file://"):
        yield start + str(path)
        yield start + str(path).replace("/", "%2f")


@pytest.mark.parametrize("kind", [Service, LegacyService])
def test_ways_out_of_the_cache(services, kind):
    """The secret lies beside the cache folder, so one step out, or two from a job, would do."""
    service = services.make(kind=kind)
    service.folder.mkdir(exist_ok=True)
    secret = service.folder / "secret.txt"
    secret.write_bytes(SECRET)
    job = service.cache_root / ("abc/1" if kind is Service else "1")
    job.mkdir(parents=True)
    (job / "index.x3d").write_bytes(b"a result")
    service.start()
    name = "/" + str(job.relative_to(service.cache_root))
    asked = set(absolute(secret)) | set(absolute("/etc/passwd"))
    for depth in (1, 2, 3, 4):
        asked.update(ways(depth, "/"), ways(depth, name + "/"))
    refused = 0
    for target in sorted(asked):
        reply = ask(service.port + 1, request("GET", target))
        assert SECRET not in reply.body and b"root:" not in reply.body, target
        # A path inside the cache that names nothing, or no path at all.
        assert reply.code in (400, 403, 404), (target, reply)
        refused += reply.code == 400
    # Some of them did climb, and were seen to.
    assert refused > len(DOTS)
    assert ask(service.port + 1, request("GET", name + "/index.x3d")).body == b"a result"
