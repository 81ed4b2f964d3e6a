"""A service that is killed and started again under load, and what its clients were promised."""

import json
import pathlib
import random
import sys
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

import requests  # noqa: E402

from legacy import LegacyService  # noqa: E402
from render import RenderService, entry  # noqa: E402
from service import Service, job_id  # noqa: E402
from waiting import wait_for  # noqa: E402

TOOLS = pathlib.Path(__file__).resolve().with_name("tools")
RESULT = "result.txt"
WHOLE = b"".join(b"%063d\n" % number for number in range(200))
CLIENTS = 8


class WithTools:
    """Finds the tools of this folder first."""

    def environment(self):
        values = super().environment()
        values["PATH"] = "%s:%s" % (TOOLS, values["PATH"])
        return values


class Common(WithTools):
    """What both transcoders are asked."""

    accepting_codes = (202,)
    refusing_codes = ()

    def __init__(self, folder, options=(), **settings):
        super().__init__(folder, ["--worker_threads", self.workers] + list(options), **settings)

    def table(self):
        """Name and state of each job."""
        return {int(key[3:]): (job["resource"], job["status"])
                for key, job in self.jobs()["jobs"].items()}

    def ask_for(self, session, number):
        """The reply for a job's result."""
        return session.get("http://127.0.0.1:%d%s" % (self.port + 1, self.place_of(number)),
                           timeout=60)

    def whole(self, _):
        return WHOLE

    def unanswered(self, promised, accepted):
        """The jobs that were taken in without an answer."""
        return set(self.table()) - set(promised) - set(accepted)

    def check(self, promised):
        return check(self, promised)


class Transcoder(Common, Service):
    """Runs what is left over behind a restart."""

    runs_again = True
    workers = 3

    def accepted_id(self, reply):
        return job_id(reply.text)

    def place_of(self, number):
        return "/%s/%d/%s" % (self.provider_id, number, RESULT)


class Legacy(Common, LegacyService):
    """Knows what is left over behind a restart, and does not run it."""

    runs_again = False
    workers = 16  # each pauses behind each pass

    def accepted_id(self, reply):
        return int(reply.text.partition("@")[0])

    def place_of(self, number):
        return "/%d/%s" % (number, RESULT)


class Render(WithTools, RenderService):
    """Forgets all in a restart. Has as many slots as jobs can come in a life, and applications that
    end by themselves and write down that they were started."""

    accepting_codes = (200,)
    refusing_codes = (503,)

    def __init__(self, folder, slots=300, application="appDapple 0.2"):
        super().__init__(folder, [entry(slots, application)])
        self.slots = slots

    def accepted_id(self, reply):
        return int(reply.text.rpartition("/")[2])

    def ask_for(self, session, number):
        return session.get("%s/job/%d/dapple" % (self.url, number), timeout=60)

    def whole(self, number):
        return b"http://%s:%d\n" % (self.host.encode(), 42000 + number)

    def unanswered(self, _, accepted):
        """Those that were started in this life."""
        path = self.folder / "started"
        started = {int(line) for line in path.read_text().split()} if path.exists() else set()
        path.write_text("")
        return started - set(accepted)

    def check(self, _):
        return []


KINDS = {"transcoder": Transcoder, "legacy": Legacy, "render": Render}
TRANSCODERS = ("transcoder", "legacy")


class Load:
    """Clients that submit jobs and fetch results until the service has gone."""

    def __init__(self, service, life):
        self.service, self.life = service, life
        self.accepted = {}  # names by number
        self.faults = []
        self.delivered = 0
        self.mutex = threading.Lock()
        self.threads = [threading.Thread(target=self._client, args=(number,))
                        for number in range(CLIENTS)]
        for thread in self.threads:
            thread.start()

    def join(self):
        for thread in self.threads:
            thread.join()

    def _client(self, client):
        chance = random.Random(self.life * CLIENTS + client)
        with requests.Session() as session:
            session.trust_env = False
            try:
                for number in range(100000):
                    self._submit(session, "life-%d-%d-%d" % (self.life, client, number))
                    self._fetch(session, chance)
            except requests.RequestException:
                pass  # the end that was to come

    def _submit(self, session, name):
        reply = session.post(self.service.url + "/job/add", timeout=60, data=json.dumps(
            {"commands": ["fettle " + RESULT], "uid": name}))
        if reply.status_code not in self.service.accepting_codes:
            if reply.status_code not in self.service.refusing_codes:
                self._fault("%s is answered with %d" % (name, reply.status_code))
            return
        with self.mutex:
            self.accepted[self.service.accepted_id(reply)] = name

    def _fetch(self, session, chance):
        with self.mutex:
            number = chance.choice(list(self.accepted) or [None])
        if number is None:
            return
        reply = self.service.ask_for(session, number)
        if (reply.status_code, reply.content) == (200, self.service.whole(number)):
            with self.mutex:
                self.delivered += 1
        elif (reply.status_code, reply.content) != (202, b""):
            self._fault("job %d delivers %d, %d bytes" % (number, reply.status_code,
                                                          len(reply.content)))

    def _fault(self, text):
        with self.mutex:
            self.faults.append(text)


def run_unmarked(service, promised):
    """A job whose end was written before the kill and whose marker was not yet removed waits, as
    told, until it is run once more. There are no more of them than there were workers."""
    table = service.table()
    waiting = {number: name for number, name in promised.items()
               if table.get(number, ("", ""))[1] == "CLOSED" and
               (service.job_folder(number) / ".partial").exists()}
    assert len(waiting) <= service.workers, waiting
    for number, name in waiting.items():
        service.run("fettle " + RESULT, uid=name, rerun=True)
    if waiting:
        wait_for(lambda: service.counters()[0] == 0, "the runs")


def check(service, promised):
    """What is wrong with the promised jobs behind a restart; waits for those that run again."""
    faults = []
    table = service.table()
    for number, name in promised.items():
        found, state = table.get(number, ("nothing", "UNKNOWN"))
        if found != name or state not in ("OPEN", "IN PROCESS", "CLOSED"):
            faults.append("job %d, %s, is %s, %s" % (number, name, found, state))
    if service.runs_again:
        wait_for(lambda: service.counters()[0] == 0, "the runs")
        run_unmarked(service, promised)
        table = service.table()
    for number in promised:
        state = table.get(number, ("", "UNKNOWN"))[1]
        if service.runs_again and state != "CLOSED":
            faults.append("job %d ends as %s" % (number, state))
        reply = service.ask_for(requests, number)
        waits = not service.runs_again and (reply.status_code, reply.content) == (202, b"")
        if not waits and (reply.status_code, reply.content) != (200, WHOLE):
            faults.append("job %d, %s, delivers %d, %d bytes" % (number, state, reply.status_code,
                                                                 len(reply.content)))
    return faults
