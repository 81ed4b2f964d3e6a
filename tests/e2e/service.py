"""Runs the real program in a folder of its own and talks to its public faces."""

import glob
import json
import os
import pathlib
import re
import signal
import subprocess
import time

import requests

from ports import closed_port, free_port
from waiting import wait_for

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = (ROOT / os.environ.get("OSTRAND_BUILD", "build/release")).resolve()
TOOLS = ROOT / "tests" / "tools"
DATA = ROOT / "tests" / "data"
# "benign" runs every service amid faults that nobody may notice.
AROUND = os.environ.get("OSTRAND_FAULTS", "")
EVERY_TOOL = {"commandWhitelist": ["*"]}

_REPORT = re.compile(r"ERROR: AddressSanitizer|ERROR: LeakSanitizer|WARNING: ThreadSanitizer|"
                     r"runtime error:|AddressSanitizer:DEADLYSIGNAL|terminate called|"
                     r"FATAL: ThreadSanitizer")


def sanitizer():
    """The sanitizer that the program was built with: "address", "thread" or ""."""
    found = re.search(r"^OSTRAND_SANITIZER:\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(),
                      re.MULTILINE)
    return found.group(1) if found else ""


def sanitizer_report(text):
    """The text from the first report of a sanitizer on, or None."""
    found = _REPORT.search(text)
    return text[max(0, found.start() - 200):found.start() + 6000] if found else None


class Service:
    """One service: its folder, its ports, its process. Not started by the constructor.

    `link` is the file name in the build folder by which the program is started; `config` the
    content of its configuration file (a value for JSON, bytes as they are, None for no file);
    `provider_id` None leaves the identifier to the service. `prefix` is a command that replaces
    itself by the program.
    """

    def __init__(self, folder, options=(), link="TranscoderService", config=EVERY_TOOL,
                 provider_id="abc", listen_threads=8, port=None, host="127.0.0.1", hub=None,
                 environment=None, cache_path=None,
                 prefix=()):
        self.folder = pathlib.Path(folder)
        self.link = link
        self.port = port or free_port()
        self.given_provider_id = provider_id
        self.data = self.folder / "data"
        self.cache_root = pathlib.Path(cache_path) if cache_path else self.folder / "cache"
        self.log_path = self.folder / "log"
        self.run_folder = self.folder / "run"
        self.run_folder.mkdir(parents=True, exist_ok=True)
        self.host = host
        self.hub = hub or "127.0.0.1:%d" % closed_port()
        self.options = list(options)
        self.listen_threads = listen_threads
        self.extra_environment = dict(environment or {})
        self.prefix = list(prefix)
        self.process = None
        self.session = None
        self.starts = 0
        self.faults = None
        if config is not None:
            self.write_config(config)

    # What the service is given.

    def write_config(self, config):
        path = self.config_path()
        path.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(config, bytes):
            path.write_bytes(config)
        else:
            path.write_text(json.dumps(config))

    def config_path(self):
        return self.data / "config" / "transcoderconfig.json"

    def arguments(self):
        listed = ["--port", str(self.port), "--log_path", str(self.log_path),
                  "--cache_path", str(self.cache_root), "--ipreg", self.hub]
        if self.host:
            listed += ["--host", self.host]
        if self.given_provider_id:
            listed += ["--providerid", self.given_provider_id]
        if self.listen_threads is not None:
            listed += ["--listen_threads", str(self.listen_threads)]
        return listed + [str(option) for option in self.options]

    def environment(self):
        values = dict(os.environ)
        values["PATH"] = "%s:%s" % (TOOLS, values["PATH"])
        values["OSTRANDHUB_DATA"] = str(self.data)
        # Finds the tools that outlive a killed service.
        values["OSTRAND_TEST_FOLDER"] = str(self.folder)
        values.update(self.extra_environment)
        if AROUND == "benign":
            self.add_faults(values)
        return values

    def add_faults(self, environment):
        import faults  # which needs this module
        if self.faults is None:
            self.faults = faults.make_benign(self)
        self.faults.add_to(environment)

    # Its life.

    def launch(self):
        """Starts the process and does not wait for it to listen."""
        assert self.process is None, "runs already"
        self.starts += 1
        with open(self.stdout_path(), "wb") as out, open(self.stderr_path(), "wb") as err:
            self.process = subprocess.Popen(
                self.prefix + [str(BUILD / self.link)] + self.arguments(),
                stdin=subprocess.DEVNULL,
                stdout=out, stderr=err, cwd=self.run_folder, env=self.environment())
        self.session = requests.Session()
        self.session.trust_env = False
        return self

    def start(self):
        """Starts the process and waits for the line of its last server."""
        self.launch()
        wait_for(lambda: self.has_ended() or self.is_listening(), self.why_not_listening)
        assert not self.has_ended(), self.why_not_listening()
        return self

    def is_listening(self):
        return re.search(r"^OstrandServiceDelivery listening on port: \d+ with : -?\d+ threads$",
                         self.stdout(), re.MULTILINE)

    def why_not_listening(self):
        return "the service to listen; exit status %s, standard error: %s" % (
            self.process.poll() if self.process else None, self.stderr()[-3000:])

    def has_ended(self):
        return self.process.poll() is not None

    def stop(self, number=signal.SIGTERM, seconds=None):
        """Ends the service in order and checks that it ended so; returns the seconds it took."""
        begin = time.monotonic()
        if self.process.poll() is None:
            self.process.send_signal(number)
        status = self.wait_for_end(seconds)
        took = time.monotonic() - begin
        assert status == 0, "exit status %d, standard error: %s" % (status, self.stderr()[-3000:])
        return took

    def wait_for_end(self, seconds=None):
        """Waits for the process to end by itself; returns its exit status."""
        process = self.process
        wait_for(self.has_ended, self.why_not_ended, seconds)
        self.forget_process()
        return process.returncode

    def kill(self):
        """SIGKILL, as a crash or the system's out-of-memory killer does it."""
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        self.forget_process()

    def forget_process(self):
        self.process = None
        self.session.close()
        report = sanitizer_report(self.stderr())
        assert not report, report

    def why_not_ended(self):
        return "the service to end; its tools: %s, standard error: %s" % (
            self.tools(), self.stderr()[-3000:])

    def restart(self):
        return self.start()

    def begin_end(self):
        """Asks for the end of the service and its tools, and does not wait for it."""
        self.end_tools()
        if self.process is not None and self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)

    def finish_end(self):
        """Waits for the end that was asked for, and checks it as `stop` does."""
        try:
            if self.process is not None:
                # A worker that was freed of its tool may have taken up its next job.
                wait_for(lambda: self.has_ended() or self.end_tools(), self.why_not_ended)
                self.stop()
        finally:
            if self.process is not None:
                self.process.kill()
                self.process.wait()
                self.process = None
            self.end_tools()
            if self.faults is not None:
                self.faults.retire()

    def end_tools(self):
        for process in self.tools():
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def tools(self):
        """The processes of this service's tools, also of those that have lost their parent."""
        mark = b"OSTRAND_TEST_FOLDER=" + os.fsencode(str(self.folder)) + b"\0"
        program = str((BUILD / self.link).resolve())
        found = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit() or int(entry) == os.getpid():
                continue
            try:
                # Neither the service nor what shares its memory for a moment: a child that has not
                # become its tool yet, or the helper with which the leak checker looks around.
                if os.readlink("/proc/%s/exe" % entry) == program:
                    continue
                with open("/proc/%s/environ" % entry, "rb") as environment:
                    if mark in environment.read() + b"\0":
                        found.append(int(entry))
            except OSError:
                continue
        return found

    def threads(self):
        """The names of the process's threads."""
        names = []
        for path in glob.glob("/proc/%d/task/*/comm" % self.process.pid):
            try:
                with open(path) as file:
                    names.append(file.read().strip())
            except OSError:
                continue
        return names

    # What it writes.

    def stdout_path(self):
        return self.folder / ("stdout-%d" % self.starts)

    def stderr_path(self):
        return self.folder / ("stderr-%d" % self.starts)

    def stdout(self):
        return self.stdout_path().read_text(errors="replace")

    def stderr(self):
        return self.stderr_path().read_text(errors="replace")

    def log(self):
        path = self.log_path / "messages.log"
        return path.read_text(errors="replace") if path.exists() else ""

    # Its addresses.

    @property
    def url(self):
        return "http://127.0.0.1:%d" % self.port

    @property
    def delivery(self):
        """The address that its answers name, with no option or request that changes it."""
        return "http://%s:%d" % (self.host, self.port + 1)

    @property
    def provider_id(self):
        if self.given_provider_id:
            return self.given_provider_id
        return (self.cache_root / ".serviceid").read_text().strip()

    # Requests.

    def request(self, method, path, **arguments):
        arguments.setdefault("timeout", 60)
        arguments.setdefault("allow_redirects", False)
        return self.session.request(method, self.url + path, **arguments)

    def get(self, path, **arguments):
        return self.request("GET", path, **arguments)

    def post(self, path, value=None, **arguments):
        """Posts a value as JSON, or, given as str or bytes, the text as it stands."""
        data = value if isinstance(value, (str, bytes)) else json.dumps(value)
        return self.request("POST", path, data=data, **arguments)

    def submit(self, description, **arguments):
        return self.post("/job", description, **arguments)

    def run(self, *commands, **keys):
        """Submits a batch; returns the id of its job."""
        reply = self.submit(dict({"commands": list(commands)}, **keys))
        assert reply.status_code == 202, (reply.status_code, self.log()[-2000:])
        return job_id(reply.text)

    def deliver(self, path, method="GET", **arguments):
        """A file below the provider's folder, from the delivery server."""
        return self.fetch("/%s/%s" % (self.provider_id, path), method, **arguments)

    def fetch(self, path, method="GET", **arguments):
        arguments.setdefault("timeout", 60)
        arguments.setdefault("allow_redirects", False)
        return self.session.request(
            method, "http://127.0.0.1:%d%s" % (self.port + 1, path), **arguments)

    def update_state(self, *uris):
        """The pairs of code and URI that the service answers for the URIs."""
        reply = self.post("/job/updateState", {"Parameters": [[0, uri] for uri in uris]})
        assert reply.status_code == 200, reply.status_code
        return reply.json()

    def jobs(self):
        """The JSON list of jobs."""
        return json.loads(self.get("/job", headers={"Accept": "application/json"}).text)

    def counters(self):
        listed = self.jobs()
        return listed["numJobs"], listed["numJobsFinished"], listed["numJobsFailed"]

    # Its jobs.

    def jobs_folder(self):
        return self.cache_root / self.provider_id

    def job_folder(self, identifier):
        return self.jobs_folder() / str(identifier)

    def uri(self, identifier):
        return "%s/%s/%s" % (self.delivery, self.provider_id, identifier)

    def state(self, identifier):
        job = self.jobs()["jobs"].get("job%s" % identifier)
        return job and job["status"]

    def stored_status(self, identifier):
        """The number in the job's ".status" file."""
        return json.loads((self.job_folder(identifier) / ".status").read_text())["status"]

    def console(self, identifier):
        path = self.job_folder(identifier) / "console.txt"
        return path.read_text(errors="replace") if path.exists() else ""

    def wait_started(self, identifier, name="gate"):
        """Until the tool `hold NAME` of the job waits at its gate."""
        path = self.job_folder(identifier) / (name + ".started")
        wait_for(path.exists, "%s to start, state %s" % (path, self.state(identifier)))

    def open_gate(self, identifier, name="gate"):
        (self.job_folder(identifier) / (name + ".go")).touch()

    def wait_done(self, *identifiers):
        """Until the jobs have ended and all that marks them unfinished has gone."""
        for identifier in identifiers:
            wait_for(lambda: self.is_done(identifier),
                     lambda: "job %s, which is %s" % (identifier, self.state(identifier)))

    def is_done(self, identifier):
        folder = self.job_folder(identifier)
        return (folder / "jobId").exists() and not (folder / ".partial").exists()


def job_id(text):
    """The id in an answer of the form ID@PROVIDER."""
    found = re.fullmatch(r"(\d+)@(.+)", text)
    assert found, text
    return int(found.group(1))


def run_program(arguments, folder, link="TranscoderService", environment=None, argv0=None,
                seconds=120):
    """Runs the program to its end and returns it completed, with its output as text."""
    values = dict(os.environ, OSTRANDHUB_DATA=str(pathlib.Path(folder) / "data"))
    values.update(environment or {})
    executable = str(link) if os.path.isabs(link) else str(BUILD / link)
    result = subprocess.run(
        [executable if argv0 is None else argv0] + [str(item) for item in arguments],
        executable=executable, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.PIPE, cwd=folder, env=values, text=True, errors="replace",
        timeout=seconds, check=False)
    report = sanitizer_report(result.stderr)
    assert not report, report
    return result
