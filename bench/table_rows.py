"""Rows of the job table: what its pages cost, and what they cost others."""

import threading

import clients
import peers
from common import PROVIDER, SUBMIT, make_folders, service
from report import Result

# Name, header, and how a job stands in it.
_FORMS = (("page", "", b"job %d<"), ("JSON", "Accept: application/json\r\n", b'"job%d"'))


def table(settings):
    """Polling and the lists, in a table of old jobs that grows; then submissions beside lists."""
    largest = settings.size(100000, 10000)
    results = []
    for count in (largest // 100, largest // 10, largest):
        results += one_size(settings, count, polls=count == largest)
    return results


def one_size(settings, count, polls):
    with service(settings, workers=0, before=lambda folder: make_folders(folder, count)) as own:
        connection = clients.Connection(own.port)
        results = [_lists(settings, connection, count, *form) for form in _FORMS]
        if polls:
            results += [_polls(settings, connection, count, asked) for asked in (1, 100, 10000)]
            results += _beside(settings, own, count)
        return results


def _lists(settings, connection, count, name, accept, entry):
    def once():
        if entry % count not in connection.get("/job", accept):
            raise RuntimeError("the list lacks the last job")

    found = [clients.milliseconds(once) for _ in range(settings.rounds)]
    return Result("GET /job, %s, %s jobs" % (name, "{:,}".format(count)), "ms", found, [], None)


def _polls(settings, connection, count, asked):
    body = clients.question(PROVIDER, range(count - asked + 1, count + 1))

    def once():
        if connection.post("/job/updateState", body).count(b"[200,") != asked:
            raise RuntimeError("not all jobs are told as ended")

    found = [clients.milliseconds(once) for _ in range(settings.rounds)]
    return Result("POST /job/updateState, %s of %s jobs" % (
        "{:,}".format(asked), "{:,}".format(count)), "ms", found, [], None)


def _beside(settings, own, count):
    """What all but a hundredth of submissions wait at most, alone and while a client asks for the
    page with all jobs again and again."""
    seconds = settings.size(5, 2)
    alone = [peers.wrk_script(own.port, SUBMIT, 8, seconds).late for _ in range(settings.rounds)]
    with Lister(own.port) as lister:
        beside = [peers.wrk_script(own.port, SUBMIT, 8, seconds, first=1000 * (number + 1)).late
                  for number in range(settings.rounds)]
    if lister.pages == 0:
        raise RuntimeError("no list was taken meanwhile")
    return [Result("until 99 %% of submissions are answered, beside lists of %s jobs; peer: alone"
                   % "{:,}".format(count), "ms", beside, alone, None)]


class Lister:
    """A client that takes one list after the other while the scope lasts."""

    def __init__(self, port):
        self.connection = clients.Connection(port)
        self.pages = 0
        self.ended = False
        self.thread = threading.Thread(target=self._run)

    def _run(self):
        while not self.ended:
            self.connection.get("/job")
            self.pages += 1

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended = True
        self.thread.join()
