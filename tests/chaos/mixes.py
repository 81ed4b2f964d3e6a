"""What clients ask of each provider in an ordinary week, all at once."""

import contextlib
import json
import socket
import threading
import time

import lives
from crowd import Crowd
from hubs import MulticastReceiver
from waiting import wait_for

LARGE = 1 << 20  # bytes of a large result
MAY_RUN = {"commandWhitelist": ["fettle"]}

# Names by the number of jobs that bear them. That there are no more keeps the table at one size.
NAMES = {"plain": 150, "rerun": 10, "failing": 10, "large": 3, "deleted": 20}
COMMANDS = {"plain": "fettle result.txt", "rerun": "fettle result.txt", "failing": "fettle",
            "large": "fettle %d result.txt" % (LARGE >> 10), "deleted": "fettle result.txt"}


class JobMix(Crowd):
    """The transcoders: jobs of a bounded number of names, their states and results, and the cache
    emptied now and then."""

    lists = ("/", "/job")
    folder_code = 403
    unknown_code = 400

    def __init__(self, service, seconds):
        super().__init__(service)
        self.between_clearings = min(max(seconds / 20, 3), 60)
        self.cleared = time.monotonic()
        self.clearings = 0
        self.jobs = {}  # kind by number, guarded by the mutex; emptied with the cache
        self.turns = [threading.Lock() for _ in range(4)]  # each held while a client submits
        self.free_turns = list(self.turns)

    def actions(self):
        return super().actions() + [self.submit] * 3 + [self.poll, self.poll, self.look, self.refuse,
                                                        self.fetch, self.fetch, self.fetch_nothing,
                                                        self.clear]

    def jobs_listed(self):
        return len(self.service.table())

    def happened(self):
        """What a run is worth nothing without, by name."""
        return {"clearings": self.clearings // 2, "registrations": self.renewals(),
                "whole results": self.count("result, plain", 200),
                "large results": self.count("result, large", 200)}

    def turn(self, client):
        """What this client holds while it brings something into the cache."""
        if not hasattr(client, "turn"):
            client.turn = self.free_turns.pop()
        return client.turn

    def known(self, client, kinds=NAMES):
        """A job of one of these kinds: its number, its kind, and the clearings before that."""
        with self.mutex:
            found = [job for job in self.jobs.items() if job[1] in kinds]
            return (client.chance.choice(found) if found else (None, None)) + (self.clearings,)

    # Jobs.

    def submit(self, client):
        kind = client.chance.choices(list(NAMES), [60, 5, 2, 3, 5])[0]
        name = "%s-%d" % (kind, client.chance.randrange(NAMES[kind]))
        description = {"commands": [COMMANDS[kind]], "uid": name, "rerun": kind == "rerun"}
        with self.turn(client):
            reply = client.ask("job, " + kind, (202,), "POST", "/job/add", json.dumps(description))
            with self.mutex:
                self.jobs[self.service.accepted_id(reply)] = kind

    def refuse(self, client):
        text, codes = client.chance.choice((
            ('{"commands": ["rm x"]}', (400,)), ('{"commands": [', (400,)), ("", (400,)),
            ('{"commands": ["fettle"], "format": "none"}', (400,)), ("\xff\xfe", (400,)),
            ('{"resource": 7}', (400,)), ("[{}]", (200, 400)), ("7", (200, 400))))
        client.ask("refused job", codes, "POST", "/job", text.encode("latin-1"))
        client.ask("unknown path", (404,), "GET", "/nowhere")
        client.ask("unknown method", (400,), "PUT", "/job", "{}")

    def poll(self, client):
        with self.mutex:
            asked = [[0, self.service.uri(number)] for number in self.jobs]
        client.ask("states", (200,), "POST", "/job/updateState", json.dumps({"Parameters": asked}))
        client.ask("states of nothing", (400,), "POST", "/job/updateState", "{}")
        number, _, before = self.known(client)
        if number is not None:
            reply = client.ask("job page", (200, self.unknown_code), "GET", "/job/%d" % number)
            self.expect_known(reply.status_code != self.unknown_code, before, number)
        client.ask("page of no job", (self.unknown_code,), "GET", "/job/1000000")

    def look(self, client):
        for path in self.lists:
            client.ask("list", (200,), "GET", path)
        client.ask("list", (200,), "GET", "/job", headers={"Accept": "application/json"})

    def expect_known(self, is_known, before, number):
        """A job has to be known unless the cache was cleared meanwhile."""
        with self.mutex:
            cleared = self.clearings != before
        if not is_known and not cleared:
            self.fault("job %d is unknown" % number)

    # Results.

    def fetch(self, client):
        number, kind, before = self.known(client, ("plain", "large", "deleted", "rerun"))
        if number is None:
            return
        place = self.service.place_of(number)
        head = client.ask("head of a result", (200, 202, 404), "HEAD", place, delivery=True)
        reply = client.ask("result, %s" % kind, (200, 202, 404), "GET", place, delivery=True)
        if head.content:
            self.fault("HEAD is answered with a body")
        # One that is made anew while it is read, or goes, can be anything.
        if kind in ("plain", "large"):
            whole = lives.WHOLE if kind == "plain" else bytes(LARGE)
            self.expect_known(reply.status_code != 404, before, number)
            if reply.status_code == 200 and reply.content != whole:
                self.fault("job %d delivers %d bytes" % (number, len(reply.content)))

    def fetch_nothing(self, client):
        client.ask("no result", (404,), "GET", "/soak/none", delivery=True)
        client.ask("climbing path", (400,), "GET", "/%2e%2e/%2e%2e/etc/passwd", delivery=True)
        number, _, before = self.known(client, ("plain",))
        if number is not None:
            folder = self.service.place_of(number).rpartition("/")[0]
            reply = client.ask("folder", (self.folder_code, 202, 404), "GET", folder, delivery=True)
            self.expect_known(reply.status_code in (self.folder_code, 202), before, number)

    # The cache.

    def clear(self, client):
        """Empties the cache when nothing runs, and looks whether that is so."""
        if time.monotonic() < self.cleared + self.between_clearings:
            return
        with contextlib.ExitStack() as stack:
            for turn in self.turns:
                stack.enter_context(turn)
            wait_for(lambda: self.is_idle(client), "the end of all jobs")
            self.forget()
            self.tidy()
            client.ask("clearing", (200,), "POST", self.clearing_path, '{"clearCache": true}')
            left = self.listed(client)["jobs"]
            if left:
                self.fault("%d jobs are left in the table" % len(left))
            self.forget()
        self.cleared = time.monotonic()

    def forget(self):
        with self.mutex:
            self.clearings += 1
            self.jobs.clear()

    def tidy(self):
        """What the operator does beside a clearing."""


class TranscoderMix(JobMix):
    """Renews its registration with a hub every second."""

    clearing_path = "/config"

    def __init__(self, folder, seconds, hub):
        self.hub = hub
        super().__init__(lives.Transcoder(folder, ["--refresh", 1], config=MAY_RUN,
                                          hub=hub.address), seconds)

    def renewals(self):
        return len(self.hub.received)

    def listed(self, client):
        return client.ask("list", (200,), "GET", "/job",
                          headers={"Accept": "application/json"}).json()

    def is_idle(self, client):
        return self.listed(client)["numJobs"] == 0


class LegacyMix(JobMix):
    """Also uploads, jobs whose tool's command is composed, deletions, and changes of the number of
    workers."""

    clearing_path = "/reconfig"
    lists = ("/", "/job", "/job/list", "/job/list/json", "/job/list/cached", "/job/list/open",
             "/statistics", "/version", "/changelog", "/settings")
    folder_code = 404
    unknown_code = 404

    def __init__(self, folder, seconds, _):
        super().__init__(lives.Legacy(folder, ["--refresh", 1, "--allowReconfig", 1]), seconds)
        self.documents = 0

    def actions(self):
        return super().actions() + [self.upload, self.delete, self.change, self.hear]

    def renewals(self):
        return self.documents

    def hear(self, _):
        """Takes what the service tells its hub, which is by multicast."""
        with MulticastReceiver("239.255.77.77", self.service.multicast_port) as receiver:
            while not self.ended.is_set():
                with contextlib.suppress(socket.timeout):
                    receiver.receive(1)
                    self.documents += 1

    def listed(self, client):
        return json.loads(client.ask("list", (200,), "GET", "/job/list/json").text)

    def is_idle(self, client):
        return not any(job["status"] in ("OPEN", "IN PROCESS")
                       for job in self.listed(client)["jobs"].values())

    def tidy(self):
        for path in (self.service.cache_root / "in").glob("*"):
            path.unlink()

    def upload(self, client):
        with self.turn(client):
            reply = client.ask("upload", (200,), "POST", "/", bytes(1 << 16), delivery=True,
                               headers={"Content-Type": "text/plain"})
            client.ask("job on an upload", (302,), "POST", "/job/add", json.dumps(
                {"resource": reply.text, "uid": "upload-%d" % client.chance.randrange(20),
                 "suffix": "x3d", "reply": "redirect"}))
        client.ask("upload of no known type", (404,), "POST", "/", b"x", delivery=True)

    def delete(self, client):
        number, _, _ = self.known(client, ("deleted",))
        if number is not None:
            client.ask("deletion", (202, 400), "GET", "/job/delete?id=%d" % number)
        client.ask("deletion of nothing", (400,), "GET", "/job/delete?id=x")
        self.ended.wait(0.2)

    def change(self, client):
        """Waits for the tools that run, so not too often."""
        self.ended.wait(self.between_clearings / 3)
        client.ask("change of the workers", (200,), "POST", "/reconfig",
                   json.dumps({"threads": client.chance.randrange(12, self.service.workers + 1)}))


class RenderMix(Crowd):
    """Slots are taken in the first quarter of a run, and the applications stopped, one after the
    other, in the rest of it. All else is asked for all the time."""

    def __init__(self, folder, seconds, _):
        super().__init__(lives.Render(folder, slots=60, application="appDapple"))
        self.between_takes = seconds / 4 / self.service.slots
        self.between_stops = seconds * 0.7 / self.service.slots
        self.taken = 0  # slots, whose numbers are those below; written by one client
        self.stopped = 0

    def actions(self):
        return super().actions() + [self.take, self.refuse, self.refuse, self.ask_details,
                                    self.ask_details, self.look, self.stop]

    def jobs_listed(self):
        return len(self.service.rows())

    def happened(self):
        return {"taken slots": self.taken, "stopped applications": self.stopped}

    def finish(self):
        """An application ends when somebody stops it, and not with the service."""
        super().finish()
        for number in range(self.stopped, self.taken):
            self.service.stop_job(number)

    def take(self, client):
        client.ask("slot", (200 if self.taken < self.service.slots else 503,), "POST", "/job", "{}")
        if self.taken < self.service.slots:
            self.taken += 1
            self.ended.wait(self.between_takes)

    def refuse(self, client):
        text, codes = client.chance.choice((
            ('{"class": "none"}', (503,)), ('{"output": "none"}', (503,)), ('{"class": 7}', (400,)),
            ("{", (400,)), ("7", (200,)), ('[{"class": "none"}]', (200,))))
        client.ask("refused job", codes, "POST", "/job/add", text)
        client.ask("unknown path", (404,), "GET", "/nowhere")
        client.ask("unknown method", (400,), "PUT", "/job", "{}")

    def ask_details(self, client):
        if self.taken:
            number = client.chance.randrange(self.taken)
            client.ask("job", (200,), "GET", "/job/%d" % number)
            client.ask("renderer", (200,), "GET", "/job/%d/dapple" % number)
            client.ask("unknown detail", (400,), "GET", "/job/%d/none" % number)
        client.ask("no job", (400,), "GET", "/job/1000000")
        client.ask("no number", (500,), "GET", "/job/x")

    def look(self, client):
        client.ask("list", (200,), "GET", "/job")
        client.ask("front page", (200,), "GET", "/")
        client.ask("no list", (200,), "GET", "/job", headers={"Accept": "application/json"})

    def stop(self, client):
        """The next application; one that has ended is asked to end again, which changes nothing."""
        client.ask("stop of nothing", (400,), "DELETE", "/job/1000000")
        if self.ended.wait(self.between_stops) or self.stopped >= self.taken:
            return
        self.service.stop_job(self.stopped)
        self.stopped += 1
        client.ask("stop", (200,), "DELETE", "/job/%d" % client.chance.randrange(self.stopped))


MIXES = {"transcoder": TranscoderMix, "legacy": LegacyMix, "render": RenderMix}
