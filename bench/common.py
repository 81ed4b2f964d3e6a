"""What the rows share: the run's settings, the real program, rounds in turns."""

import contextlib
import dataclasses
import itertools
import pathlib
import typing

import peers
from service import Service

PROVIDER = "bench"
SUBMIT = pathlib.Path(__file__).with_name("submit.lua")


@dataclasses.dataclass
class Settings:
    """What a run was asked for."""

    scratch: pathlib.Path  # an empty folder, removed at the end of the run
    memory: typing.Optional[pathlib.Path]  # one in memory, where the system offers that
    build: pathlib.Path
    rounds: int
    quick: bool
    install: bool  # packages that a row wants may be installed
    curves: typing.Optional[pathlib.Path] = None  # where curves are drawn to, if anywhere

    def __post_init__(self):
        self.numbers = itertools.count()

    def folder(self, below=None):
        """A name in the scratch folder, or in another, that was not given before."""
        return (below or self.scratch) / str(next(self.numbers))

    def size(self, full, quick):
        return quick if self.quick else full


@contextlib.contextmanager
def service(settings, workers, folder=None, before=None):
    """The real program with as many workers, and its default number of page threads; `before` is
    called with the folder of its jobs before it starts."""
    own = Service(folder or settings.folder(), ["--worker_threads", workers],
                  provider_id=PROVIDER, listen_threads=None)
    if before:
        own.jobs_folder().mkdir(parents=True)
        before(own.jobs_folder())
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


def make_folders(root, count, status=3, work='"commands":["true"]', first=1):
    """Job folders as the program leaves them, less the empty folders, which no reload looks at, of
    jobs with this state and this work in their files and with the numbers from the first one up to
    `count`; returns the paths of what a reload reads."""
    listed = []
    for number in range(first, count + 1):
        folder = "%s/%d" % (root, number)
        pathlib.Path(folder).mkdir()
        for name, text in ((".meta", '{%s,"uid":"job %d"}' % (work, number)),
                           (".status", '{ "status" : %d }\n' % status),
                           ("jobId", "%d@%s" % (number, PROVIDER))):
            with open("%s/%s" % (folder, name), "w", encoding="ascii") as out:
                out.write(text)
            listed.append("%s/%s\n" % (folder, name))
    return [path for path in listed if not path.endswith("/jobId\n")]
