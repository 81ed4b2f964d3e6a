"""Fixtures: services that end with the test, whatever comes of it."""

import os
import pathlib
import tempfile

import pytest

from service import BUILD, Service, remove_tree


def pytest_configure(config):
    if not (BUILD / "OstrandService").exists():
        raise pytest.UsageError("no program at %s: run scripts/build, or set OSTRAND_BUILD" % BUILD)


def pytest_report_header(config):
    return "program: %s" % (BUILD / "OstrandService")


@pytest.fixture(scope="session")
def all_folders():
    with tempfile.TemporaryDirectory(prefix="ostrand-e2e.") as path:
        yield pathlib.Path(path)


def _make_folder(all_folders, name):
    safe = "".join(letter if letter.isalnum() else "-" for letter in name)[:60]
    return pathlib.Path(tempfile.mkdtemp(prefix=safe + ".", dir=all_folders))


@pytest.fixture
def folder(all_folders, request):
    """A folder of the test's own, which is gone behind it."""
    path = _make_folder(all_folders, request.node.name)
    yield path
    remove_tree(path)


class Services:
    """Makes services, each in a folder of its own, and ends them all."""

    def __init__(self, folder):
        self.folder = folder
        self.made = []

    def make(self, **settings):
        path = settings.pop("folder", self.folder / ("service-%d" % (len(self.made) + 1)))
        self.made.append(Service(path, **settings))
        return self.made[-1]

    def start(self, *options, **settings):
        return self.make(options=options, **settings).start()

    def end(self):
        faults = []
        for service in self.made:
            try:
                service.end_for_good()
            except Exception as fault:  # One bad end must not leave the next service running.
                faults.append(str(fault))
        assert not faults, "\n".join(faults)


@pytest.fixture
def services(folder):
    made = Services(folder)
    yield made
    made.end()


@pytest.fixture
def service(services):
    """A transcoder with three workers that may run every tool."""
    return services.start()


@pytest.fixture
def single(services):
    """A transcoder with one worker."""
    return services.start("--worker_threads", 1)


@pytest.fixture(scope="module")
def shared(all_folders, request):
    """One service for all the tests of a file that leave it as it was."""
    path = _make_folder(all_folders, request.module.__name__)
    made = Services(path)
    yield made.start()
    made.end()
    remove_tree(path)


@pytest.fixture(scope="session")
def certificate(all_folders):
    """A certificate for localhost and 127.0.0.1 that vouches for itself, and its key."""
    import subprocess
    folder = _make_folder(all_folders, "certificate")
    paths = folder / "cert.pem", folder / "key.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
         "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-out",
         str(paths[0]), "-keyout", str(paths[1])],
        check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=dict(os.environ))
    return paths
