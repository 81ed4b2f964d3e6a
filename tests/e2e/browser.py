"""A real browser, driven over its own protocol: pages loaded, links clicked, what it says of them."""

import json
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

from waiting import PATIENCE, wait_for

_OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-breakpad", "--disable-dev-shm-usage", "--remote-debugging-pipe"]


class Browser:
    """Chromium with a profile of its own. It finds no other host than this one; a server on this
    machine that stands for another is named by `hosts`, "name:port" to its own port."""

    def __init__(self, hosts=None):
        assert shutil.which("chromium"), "no browser here: scripts/install-deps installs one"
        self.profile = tempfile.TemporaryDirectory(prefix="ostrand-browser.")
        rules = ["MAP %s 127.0.0.1:%d" % pair for pair in (hosts or {}).items()]
        rules += ["MAP * ~NOTFOUND", "EXCLUDE 127.0.0.1"]
        requests, self.commands = os.pipe()
        self.messages, answers = os.pipe()
        self.pending = b""
        self.number = 0
        self.events = []
        # It reads commands from file 3 and writes answers and events to file 4.
        self.process = subprocess.Popen(
            ["bash", "-c", "exec \"$@\" 3<&%d 4>&%d" % (requests, answers), "browser", "chromium",
             "--user-data-dir=" + self.profile.name, "--ignore-certificate-errors",
             "--host-resolver-rules=" + ", ".join(rules)] + _OPTIONS,
            pass_fds=(requests, answers), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, start_new_session=True,
            env=dict(os.environ, HOME=self.profile.name))
        os.close(requests)
        os.close(answers)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.call("Browser.close")
            self.process.wait(PATIENCE)
        finally:
            os.close(self.commands)
            os.close(self.messages)
            try:
                os.killpg(self.process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            self.process.wait()
            wait_for(self.has_left, "the browser's processes to end")
            self.profile.cleanup()

    def has_left(self):
        mark = os.fsencode(self.profile.name)
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open("/proc/%s/cmdline" % name, "rb") as line:
                    if mark in line.read():
                        return False
            except OSError:
                pass
        return True

    def call(self, method, session=None, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        os.write(self.commands, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + PATIENCE
        while True:
            answer = self.receive(end - time.monotonic())
            assert answer, "the browser does not answer to " + method
            if answer.get("id") == self.number:
                assert "error" not in answer, (method, parameters, answer["error"])
                return answer["result"]
            self.events.append(answer)

    def receive(self, seconds):
        """The next message, None where none comes in time."""
        while b"\0" not in self.pending:
            if not select.select([self.messages], [], [], max(0, seconds))[0]:
                return None
            data = os.read(self.messages, 1 << 20)
            assert data, "the browser has ended"
            self.pending += data
        message, self.pending = self.pending.split(b"\0", 1)
        return json.loads(message)

    def collect(self, seconds=0):
        """Takes the events that have come, and those of so many seconds."""
        end = time.monotonic() + seconds
        while True:
            event = self.receive(end - time.monotonic())
            if event is None:
                return
            self.events.append(event)

    def open(self, url):
        return Tab(self).open(url)


class Tab:
    """A tab, to be used with `with`."""

    def __init__(self, browser):
        self.browser = browser
        self.target = browser.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = browser.call("Target.attachToTarget", targetId=self.target,
                                    flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Audits"):
            self.call(domain + ".enable")
        self.call("Emulation.setFocusEmulationEnabled", enabled=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.browser.call("Target.closeTarget", targetId=self.target)
        self.browser.events.clear()

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def open(self, url):
        self.call("Page.navigate", url=url)
        return self.wait_loaded(1)

    def seen(self, method):
        """The parameters of the events of this kind."""
        return [event["params"] for event in self.browser.events
                if event["method"] == method and event.get("sessionId") == self.session]

    def wait_loaded(self, count):
        """Until so many pages have been loaded, one after the other."""
        def loaded():
            self.browser.collect()
            return len(self.seen("Page.loadEventFired")) >= count
        wait_for(loaded, lambda: "page %d of %s" % (count, self.url()))
        return self

    def settle(self):
        """Gives what a page might still do its time."""
        self.browser.collect(0.3)
        return self

    def value(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        assert "exceptionDetails" not in result, result
        return result["result"].get("value")

    def url(self):
        return self.value("location.href")

    def ran(self):
        """The names that injected scripts have left."""
        return set(self.value("window.ran || []"))

    def click(self, selector):
        """As a person does it, in the middle of the element."""
        x, y = self.value(
            "(box => [box.x + box.width / 2, box.y + box.height / 2])((element => { "
            "element.scrollIntoView(); return element.getBoundingClientRect(); })"
            "(document.querySelector(%s)))" % json.dumps(selector))
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)
        return self

    def complaints(self):
        """What the browser has refused for the sake of a policy, for its console."""
        self.browser.collect()
        found = [entry["entry"]["text"] for entry in self.seen("Log.entryAdded")
                 if entry["entry"]["source"] == "security"]
        return found + [issue["issue"] for issue in self.seen("Audits.issueAdded")
                        if "SecurityPolicy" in issue["issue"]["code"]]

    def exceptions(self):
        self.browser.collect()
        return [thrown["exceptionDetails"]["exception"]["description"].splitlines()[0]
                for thrown in self.seen("Runtime.exceptionThrown")]
