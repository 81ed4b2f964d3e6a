"""Runs the legacy transcoder, with tools that write down what they are called with."""

import json
import socket

import raw_http
from ports import closed_port
from service import TOOLS, Service
from waiting import wait_for

# `fettle` and `glimt` stand there; the whole of tests/tools is on the PATH anyway.
LEGACY_TOOLS = TOOLS / "legacy"


class LegacyService(Service):
    """A legacy transcoder: no configuration file, jobs right below the cache folder, and the hub
    told by multicast, which does not leave the machine."""

    def __init__(self, folder, options=(), environment=None, **settings):
        settings.setdefault("link", "TranscoderLegacyService")
        settings.setdefault("config", None)
        settings.setdefault("provider_id", None)
        self.multicast_port = settings.pop("multicast_port", None) or closed_port()
        super().__init__(folder, ["--maddr", "239.255.77.77", "--mport", self.multicast_port,
                                  "--mttl", 0] + list(options),
                         environment=dict({"PYTHONDONTWRITEBYTECODE": "1"}, **(environment or {})),
                         **settings)

    def environment(self):
        values = super().environment()
        if "PATH" not in self.extra_environment:
            values["PATH"] = "%s:%s" % (LEGACY_TOOLS, values["PATH"])
        return values

    def is_listening(self):
        """The line of the last server comes before the hub client, and until there is one the
        service answers without its identifier."""
        return super().is_listening() and "hub client" in self.threads()

    @property
    def delivery(self):
        # By the machine's own name, whatever --host says.
        return "http://%s:%d" % (socket.gethostname(), self.port + 1)

    def jobs_folder(self):
        return self.cache_root

    def uri(self, identifier):
        return "%s/%s" % (self.delivery, identifier)

    def deliver(self, path, method="GET", **arguments):
        return self.fetch("/" + path, method, **arguments)

    def upload(self, content, media_type="model/x3d+xml", path="/", **arguments):
        headers = {"Content-Type": media_type} if media_type is not None else {}
        return self.fetch(path, "POST", data=content, headers=headers, **arguments)

    def submit_form(self, query):
        """Submits by GET, the query going out as it stands."""
        return raw_http.ask(self.port, raw_http.request("GET", "/job/add?" + query))

    def run(self, resource="model.obj", **keys):
        """Submits a tool job; returns its id."""
        return self.add(dict({"resource": resource}, **keys))

    def add(self, description):
        reply = self.post("/job/add", description)
        assert reply.status_code == 202, (reply.status_code, self.log()[-2000:])
        return int(reply.text.partition("@")[0])

    def state(self, identifier):
        return self.get("/job/%s/status" % identifier).text

    def jobs(self):
        return json.loads(self.get("/job/list/json").text)

    def counters(self):
        """The numbers of jobs, of ended ones, of failed ones and of open ones."""
        listed = self.jobs()
        page = self.get("/statistics").text
        failed = int(page.partition("<li>errors: ")[2].partition("<")[0])
        return (listed["numJobs"], listed["numJobsFinished"], failed,
                int(self.get("/job/list/open").text))

    def command_line(self, identifier):
        """What the job list shows of the run."""
        row = self.get("/job/list").text.partition("<tr><td><a href='../job/%s'>" % identifier)[2]
        return row.split("<td title=\"")[2].partition("\">")[0]

    def timings(self, identifier):
        path = self.job_folder(identifier) / ".timings"
        return json.loads(path.read_text()) if path.exists() else None

    def wait_done(self, *identifiers, runs=1):
        """Until workers have told the end of that many runs of each of the jobs."""
        for identifier in identifiers:
            wait_for(lambda: self.ended_runs(identifier) >= runs,
                     lambda: "job %s, which is %s; log: %s" % (
                         identifier, self.state(identifier), self.log()[-2000:]))

    def ended_runs(self, identifier):
        ends = (" - PROC job: finished, ID: %s" % identifier,
                " - PROC job: failed, fettle error, ID: %s" % identifier)
        return sum(line.endswith(ends) for line in self.log().splitlines())

    def calls(self, identifier, tool="fettle"):
        """The arguments of each call of a recording tool in the job's folder."""
        path = self.job_folder(identifier) / (tool + ".calls")
        return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []
