"""Clients of a service around which things go wrong, and what holds for them all the same."""

import json
import threading

import requests

from faults import Faults
from legacy import LegacyService
from service import TOOLS, Service, job_id
from waiting import wait_for

RESULT = "result.txt"
WHOLE = b"".join(b"%063d\n" % number for number in range(64)) * 2
COMMAND = "fettle " + RESULT


class Struck:
    """A service whose calls to the system can be made to fail."""

    def __init__(self, folder, *arguments, **settings):
        super().__init__(folder, *arguments, **settings)
        self.faults = Faults(self.folder, self.cache_root, self.log_path)

    def environment(self):
        values = super().environment()
        values["PATH"] = "%s:%s" % (TOOLS / "faults", values["PATH"])
        self.faults.add_to(values)
        return values

    def start(self):
        super().start()
        assert self.faults.is_attached()
        return self

    def describe(self, name):
        return {"commands": [COMMAND], "uid": name}

    def table(self):
        """Name and state of each job."""
        return {int(key[3:]): (job["resource"], job["status"])
                for key, job in self.jobs()["jobs"].items()}


class StruckTranscoder(Struck, Service):
    runs_again = True

    def accepted_id(self, reply):
        return job_id(reply.text)

    def place_of(self, number):
        return "/%s/%d/%s" % (self.provider_id, number, RESULT)


class StruckLegacy(Struck, LegacyService):
    runs_again = False

    def accepted_id(self, reply):
        return int(reply.text.partition("@")[0])

    def place_of(self, number):
        return "/%d/%s" % (number, RESULT)


KINDS = {"transcoder": StruckTranscoder, "legacy": StruckLegacy}
WORKERS = {"transcoder": 3, "legacy": 12}  # the latter pause between two jobs


def start_struck(services, provider, *options, **settings):
    return services.start("--worker_threads", WORKERS[provider], *options, kind=KINDS[provider],
                          **settings)


class Load:
    """Clients that submit, ask and fetch until `join`. `broken` tells whether connections may end
    without an answer, `reuse` whether a client has one for all its requests, `early` whether they
    may be given what a tool has written so far."""

    CLIENTS = 4

    def __init__(self, service, broken=False, reuse=True, early=False):
        self.service, self.broken, self.reuse, self.early = service, broken, reuse, early
        self.accepted = {}  # names by number
        self.refused = 0
        self.delivered = 0
        self.cut = 0
        self.wrong = []
        self.mutex = threading.Lock()
        self.stop = threading.Event()
        self.threads = [threading.Thread(target=self._client, args=(number,))
                        for number in range(self.CLIENTS)]
        for thread in self.threads:
            thread.start()

    def join(self):
        self.stop.set()
        for thread in self.threads:
            thread.join()
        assert not self.wrong, self.wrong[:5]

    def progress(self):
        with self.mutex:
            return len(self.accepted) + self.refused + self.cut

    def _client(self, client):
        with requests.Session() as session:
            session.trust_env = False
            if not self.reuse:
                session.headers["Connection"] = "close"
            number = 0
            while not self.stop.is_set():
                number += 1
                for step in (self._submit, self._fetch, self._ask):
                    try:
                        step(session, client, number)
                    except requests.RequestException as fault:
                        with self.mutex:
                            self.cut += 1
                            if not self.broken:
                                self.wrong.append(repr(fault))
                self.stop.wait(0.02)

    def _submit(self, session, client, number):
        name = "client-%d-%d" % (client, number)
        reply = session.post(self.service.url + "/job/add", timeout=60,
                             data=json.dumps(self.service.describe(name)))
        with self.mutex:
            if reply.status_code == 202:
                self.accepted[self.service.accepted_id(reply)] = name
            elif (reply.status_code, reply.content) == (500, b""):
                self.refused += 1
            else:
                self.wrong.append("submission: %d %r" % (reply.status_code, reply.content[:100]))

    def _any(self, client, number):
        with self.mutex:
            known = list(self.accepted)
        return known[(client * 7919 + number * 104729) % len(known)] if known else None

    def _fetch(self, session, client, number):
        job = self._any(client, number)
        if job is None:
            return
        reply = session.get("http://127.0.0.1:%d%s" % (
            self.service.port + 1, self.service.place_of(job)), timeout=60)
        with self.mutex:
            if (reply.status_code, reply.content) == (200, WHOLE):
                self.delivered += 1
            elif self.early and reply.status_code == 200 and WHOLE.startswith(reply.content):
                pass
            elif (reply.status_code, reply.content) not in ((202, b""), (404, b"")):
                self.wrong.append("job %d delivers %d, %d bytes" % (job, reply.status_code,
                                                                    len(reply.content)))

    def _ask(self, session, client, number):
        job = self._any(client, number)
        if job is None:
            return
        reply = session.post(self.service.url + "/job/updateState", timeout=60, data=json.dumps(
            {"Parameters": [[0, self.service.uri(job)]]}))
        codes = [pair[0] for pair in reply.json()] if reply.status_code == 200 else None
        # The legacy transcoder leaves a failed job out.
        if codes not in ([200], [202], [404], []):
            with self.mutex:
                self.wrong.append("state of job %d: %d %s" % (job, reply.status_code, codes))


def wait_ended(service, accepted):
    """Waits until each accepted job has an end; returns the table."""
    def ended():
        table = service.table()
        lost = set(accepted) - set(table)
        assert not lost, "jobs %s are unknown" % sorted(lost)
        return all(table[number][1] in ("CLOSED", "ERROR") for number in accepted) and table
    return wait_for(ended, lambda: "the ends: %s" % {
        number: state for number, (_, state) in service.table().items()
        if state not in ("CLOSED", "ERROR")})


def deliver(service, number):
    reply = service.fetch(service.place_of(number))
    return reply.status_code, reply.content


def check_truth(service, accepted):
    """What is told of the accepted jobs is so, once the fault has gone; returns the closed ones."""
    table = wait_ended(service, accepted)
    closed = []
    for number, name in accepted.items():
        assert table[number][0] == name, (number, name, table[number])
        if table[number][1] == "CLOSED":
            closed.append(number)
            wait_for(lambda: deliver(service, number) == (200, WHOLE),
                     lambda: "the result of job %d, which is %s" % (
                         number, deliver(service, number)[0]))
        else:
            assert deliver(service, number) in ((404, b""), (202, b""), (200, WHOLE)), number
    return closed


def check_recovery(service, accepted):
    """New jobs run, what had failed runs when it is submitted again, and a service that is killed
    and started anew knows them all."""
    closed = check_truth(service, accepted)
    again = {}
    for number, name in [*accepted.items(), (0, "behind-the-fault")]:
        if number not in closed:
            reply = service.post("/job/add", service.describe(name))
            assert reply.status_code == 202, (name, reply.status_code)
            again[service.accepted_id(reply)] = name
    wait_for(lambda: all(service.table()[number][1] == "CLOSED" for number in again),
             lambda: "the failed jobs: %s" % {number: service.table()[number] for number in again})
    everything = {**accepted, **again}
    wait_for(lambda: all(deliver(service, number) == (200, WHOLE) for number in everything),
             "all results")
    service.kill()
    service.restart()
    assert sorted(check_truth(service, everything)) == sorted(everything)
