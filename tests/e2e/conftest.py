"""Fixtures: services that end with the test, whatever comes of it."""

import json
import os
import pathlib
import ssl
import subprocess
import tempfile

import pytest

import faults
from legacy import LegacyService
from render import RenderService
from service import AROUND, BUILD, Service


def pytest_configure(config):
    if not (BUILD / "OstrandService").exists():
        raise pytest.UsageError("no program at %s: run scripts/build, or set OSTRAND_BUILD" % BUILD)


def pytest_report_header(config):
    return "program: %s%s" % (BUILD / "OstrandService", ", amid faults" if AROUND else "")


class Ending:
    """The services whose tests are over. An orderly end takes the service about half a second, in
    which the next test already runs; what is wrong with an end is reported by a later test, under
    the name of the one that it belongs to."""

    MOST = 8

    def __init__(self):
        self.waiting = []
        self.folders = []
        self.removals = []

    def take(self, name, services):
        for service in services:
            service.begin_end()
            self.waiting.append((name, service))

    def remove(self, folder):
        """Removes the folder as soon as no service runs in it."""
        self.folders.append(folder)

    def collect(self, most=MOST):
        """Checks the services that have ended, and waits for some until only `most` are left."""
        faults, left = [], []
        surplus = len(self.waiting) - most
        for name, service in self.waiting:
            if surplus <= 0 and service.process is not None and not service.has_ended():
                left.append((name, service))
                continue
            surplus -= 1
            try:
                service.finish_end()
            except Exception as fault:  # One bad end must not leave the next service running.
                faults.append("%s: %s" % (name, fault))
        self.waiting = left
        busy = [service.folder for _, service in left]
        for folder in [folder for folder in self.folders
                       if not any(folder in path.parents for path in busy)]:
            self.folders.remove(folder)
            self.removals.append(subprocess.Popen(["rm", "-rf", "--one-file-system", str(folder)]))
        assert not faults, "\n".join(faults)

    def finish(self):
        try:
            self.collect(most=0)
        finally:
            for removal in self.removals:
                removal.wait()


@pytest.fixture(scope="session")
def all_folders():
    with tempfile.TemporaryDirectory(prefix="ostrand-e2e.") as path:
        yield pathlib.Path(path)


@pytest.fixture(scope="session")
def ending(all_folders):
    made = Ending()
    yield made
    made.finish()
    if AROUND:
        report_faults()


def report_faults():
    """Adds what was made to fail in this run to a file, a line a test runner."""
    path = os.environ.get("OSTRAND_FAULTS_REPORT")
    if path:
        with open(path, "a") as file:
            file.write(json.dumps(faults.TOTALS) + "\n")


def _make_folder(all_folders, name):
    safe = "".join(letter if letter.isalnum() else "-" for letter in name)[:60]
    return pathlib.Path(tempfile.mkdtemp(prefix=safe + ".", dir=all_folders))


@pytest.fixture
def folder(all_folders, ending, request):
    """A folder of the test's own, which is gone behind it."""
    path = _make_folder(all_folders, request.node.name)
    yield path
    ending.remove(path)


class Services:
    """Makes services, each in a folder of its own."""

    def __init__(self, folder):
        self.folder = folder
        self.made = []

    def make(self, **settings):
        path = settings.pop("folder", self.folder / ("service-%d" % (len(self.made) + 1)))
        kind = settings.pop("kind", Service)
        self.made.append(kind(path, **settings))
        return self.made[-1]

    def start(self, *options, **settings):
        return self.make(options=options, **settings).start()


@pytest.fixture
def services(folder, ending, request):
    made = Services(folder)
    yield made
    ending.take(request.node.name, made.made)
    ending.collect()


@pytest.fixture
def service(services):
    """A transcoder with three workers that may run every tool."""
    return services.start()


@pytest.fixture
def single(services):
    """A transcoder with one worker."""
    return services.start("--worker_threads", 1)


@pytest.fixture
def legacy(services):
    """A legacy transcoder with three workers and recording tools."""
    return services.start(kind=LegacyService)


@pytest.fixture
def render(services):
    """A render provider with one slot, whose application waits for a gate."""
    return services.start(kind=RenderService)


@pytest.fixture(scope="module")
def module_services(all_folders, ending, request):
    """Makes services that live as long as the tests of a file."""
    path = _make_folder(all_folders, request.module.__name__)
    made = Services(path)
    yield made
    ending.take(request.module.__name__, made.made)
    ending.remove(path)
    ending.collect()


@pytest.fixture(scope="module")
def shared(module_services):
    """One transcoder for all the tests of a file that leave it as it was."""
    return module_services.start()


@pytest.fixture(scope="module")
def shared_legacy(module_services):
    """One legacy transcoder for all the tests of a file that leave it as it was."""
    return module_services.start(kind=LegacyService)


@pytest.fixture(scope="module")
def shared_render(module_services):
    """One render provider with a free slot for all the tests of a file that leave it as it was."""
    return module_services.start(kind=RenderService)


@pytest.fixture
def small_disk(folder):
    """A file system of 256 KiB; ends with the test."""
    path = folder / "disk"
    path.mkdir()
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k,nr_inodes=200", "tmpfs",
                              str(path)], stderr=subprocess.DEVNULL, check=False)
    if mounted.returncode != 0:
        pytest.skip("needs the right to mount a file system")
    yield path
    subprocess.run(["umount", "-l", str(path)], check=True)


@pytest.fixture(params=["main", "delivery"])
def port(request, shared):
    """Each of the two plain servers in turn."""
    return shared.port + (request.param == "delivery")


@pytest.fixture
def lean(services):
    """A service whose memory can be measured: the address sanitizer keeps what has been freed."""
    return services.start(environment={"ASAN_OPTIONS": "quarantine_size_mb=1"})


@pytest.fixture(scope="session")
def certificate(all_folders):
    """A certificate for localhost and 127.0.0.1 that vouches for itself, and its key."""
    folder = _make_folder(all_folders, "certificate")
    paths = folder / "cert.pem", folder / "key.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
         "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-out",
         str(paths[0]), "-keyout", str(paths[1])],
        check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=dict(os.environ))
    return paths


@pytest.fixture(scope="session")
def context(certificate):
    """TLS for a client that trusts this certificate alone."""
    return ssl.create_default_context(cafile=str(certificate[0]))
