"""Runs the render provider: its slots, what it tells of them, and its jobs."""

import re

from service import Service
from waiting import wait_for

# Waits in its job's folder until the test opens its gate.
HOLD = "hold gate"
FIELDS = ("class", "gpus", "cpus", "port", "outputs", "display", "app", "portOpt", "classOpt",
          "gpuOpt", "cpuOpt", "outOpt", "addOpt")
CORS = {"access-control-allow-origin": "*", "access-control-allow-headers": "content-type"}
_ROW = re.compile(r"<tr><td><a href='\.\./job/(\d+)'>\1</a></td>"
                  r"<td title=\"not set\">not set</td><td title=\"([^\"]*)\">\2</td>"
                  r"<td>([A-Z ]+)</td><td>0 sec</td><td></td></tr>")


def entry(count=1, exe=HOLD, **keys):
    """A renderer entry with this many displays."""
    return dict({"displays": [":%d" % number for number in range(count)], "exe": exe}, **keys)


def table(*slots):
    """The lines with which the service lists these slots, each a dict of fields that differ from
    the defaults; "outputs" are those behind the first."""
    text = "num renderer slots : %d\n" % len(slots)
    for number, given in enumerate(slots):
        slot = dict({"class": "opengl", "gpus": 1, "cpus": 1, "port": 42000, "outputs": [],
                     "display": ":0.0", "app": "appDapple", "portOpt": "--port",
                     "classOpt": "--class", "gpuOpt": "--gpus", "cpuOpt": "--cpus",
                     "outOpt": "--output", "addOpt": "--foobar"}, **given)
        outputs = "".join(" [%d] %s, " % pair
                          for pair in enumerate(["framebuffer"] + slot["outputs"]))
        text += ("Renderer : %d\n  class   : %s\n  gpus    : %d\n  cpus    : %d\n"
                 "  port     : %d\n  outputs : %s\n  display  : %s\n  app      : %s\n"
                 "  portOpt  : %s\n  classOpt : %s\n  gpuOpt   : %s\n  cpuOpt   : %s\n"
                 "  outOpt   : %s\n  addOpt   : %s\n"
                 % ((number,) + tuple(outputs if field == "outputs" else slot[field]
                                      for field in FIELDS)))
    return text


class RenderService(Service):
    """A render provider. `renderers` are the entries of its configuration; `config`, where it is
    given, the whole of it, None for no file."""

    def __init__(self, folder, renderers=None, **settings):
        settings.setdefault("link", "DappleRenderService")
        settings.setdefault("config", {"renderer": [entry()] if renderers is None else renderers})
        super().__init__(folder, **settings)

    def config_path(self):
        return self.data / "config" / "dappleconfig.json"

    def is_listening(self):
        """The table of the slots comes last, behind the start of the server and the workers."""
        found = re.search(r"^num renderer slots : (\d+)$", self.stderr(), re.MULTILINE)
        return found and (len(re.findall(r"^  addOpt   : .*\n", self.stderr(), re.MULTILINE))
                          >= int(found.group(1)))

    def table(self):
        """The table of the slots as it was written, without what requests have written since."""
        text = self.stderr()
        begin = text.index("num renderer slots : ")
        return text[begin:].partition("dapple : ")[0].partition("shutting down threads")[0]

    # Its jobs.

    def take(self, **description):
        """Submits a job that must get a slot; returns its id."""
        reply = self.submit(description)
        assert reply.status_code == 200, (reply.status_code, reply.text)
        assert reply.headers["Content-Type"] == "text/plain"
        found = re.fullmatch(r"http://%s:%d/job/(\d+)\n" % (re.escape(self.host), self.port),
                             reply.text)
        assert found, reply.text
        return int(found.group(1))

    def refused(self, **description):
        """True if no slot is free for the job."""
        reply = self.submit(description)
        assert reply.status_code in (200, 503)
        return (reply.status_code, reply.text) == (503, "")

    def detail(self, path):
        return self.get("/job/%s" % path)

    def delete(self, identifier):
        return self.request("DELETE", "/job/%s" % identifier)

    def rows(self):
        """The rows of the job list: id to result text and state."""
        page = self.get("/job").text
        rows = _ROW.findall(page)
        assert page.count("<tr>") == len(rows) + 1, page
        return {int(identifier): (result, state) for identifier, result, state in rows}

    def state(self, identifier):
        return self.rows().get(identifier, (None, None))[1]

    def counters(self):
        found = re.search(r"Number of Jobs: (\d+)<br>Number of finished Jobs: (\d+)<br>"
                          r"Number of failed Jobs: (\d+)<br>", self.get("/job").text)
        return tuple(map(int, found.groups()))

    def wait_counters(self, *expected):
        wait_for(lambda: self.counters() == expected,
                 lambda: "the counters %s, which are %s" % (expected, self.counters()))

    def wait_state(self, identifier, state):
        wait_for(lambda: self.state(identifier) == state,
                 lambda: "job %s to be %s, which is %s" % (identifier, state,
                                                           self.state(identifier)))

    def stop_job(self, identifier, path=None):
        """Stops a job's application as a client does it: again, until that has an effect. A stop
        that comes before the application's process is known changes nothing; one that comes behind
        an effective one may free the slot, so none is sent then."""
        def stopped():
            state = self.state(identifier)
            if state in ("OPEN", "IN PROCESS"):
                reply = self.delete(path or identifier)
                assert (reply.status_code, reply.text) == (200, "")
            return state not in ("OPEN", "IN PROCESS", "TERMINATING")
        wait_for(stopped, lambda: "job %s to stop, which is %s" % (identifier,
                                                                   self.state(identifier)))

    def meta(self, identifier):
        return (self.job_folder(identifier) / ".meta").read_text()


def start_render(services, *renderers, **settings):
    """A render provider with these entries."""
    return services.start(kind=RenderService, renderers=list(renderers), **settings)


def cors_of(reply):
    return {name: value for name, value in reply.headers.items()
            if name.startswith("access-control")}


def assert_bare(reply, code, cors=True):
    """An answer that is a code alone; the headers are those of a raw reply."""
    assert (reply.code, reply.body) == (code, b"")
    assert "content-type" not in reply.headers
    assert cors_of(reply) == (CORS if cors else {})
