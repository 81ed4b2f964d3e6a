"""The legacy transcoder with everything asked of it at once: nothing breaks, and a sanitizer finds
nothing in what it wrote."""

import json
import random
import threading
import time

from legacy import LegacyService
from raw_http import ask, request
from waiting import wait_for

SECONDS = 2.5
PAGES = ["/", "/job", "/job/list", "/job/list/json", "/job/list/cached", "/job/list/open",
         "/statistics", "/version", "/changelog", "/chart.js", "/settings"]


class Crowd:
    """Clients that each repeat an action for some time; what goes wrong in one is kept."""

    def __init__(self):
        self.end = time.monotonic() + SECONDS
        self.faults = []
        self.threads = []

    def add(self, action):
        def repeat():
            number = 0
            try:
                while time.monotonic() < self.end and not self.faults:
                    action(number)
                    number += 1
            except Exception as fault:  # pylint: disable=broad-except
                self.faults.append(fault)
        self.threads.append(threading.Thread(target=repeat))
        self.threads[-1].start()

    def finish(self):
        for thread in self.threads:
            thread.join()
        assert not self.faults, self.faults


def test_everything_at_once(services):
    """Pages, submissions, deletions, uploads and results, while workers and the delivery address
    change and the cache is cleared again and again."""
    service = services.start("--allowReconfig", 1, kind=LegacyService, listen_threads=16)
    chance = random.Random(20261121)

    def fetch(method, path, codes, body="", port=service.port, headers=()):
        reply = ask(port, request(method, path, headers, body))
        assert reply.code in codes, (method, path, reply)
        return reply

    def submit(number):
        resource = "exit-with 1 %d" % number if number % 5 == 0 else "say %d" % (number % 40)
        # A clearing may remove the folders of a job that is being taken in.
        fetch("POST", "/job", (202, 302, 500),
              json.dumps({"resource": resource, "reply": chance.choice(["file", "id", "uri"])}))

    def delete(_):
        fetch("GET", "/job/delete?id=%d" % chance.randrange(1, 30), (202, 400))

    def change(number):
        wish = [{"threads": 1 + number % 5}, {"deliveryPort": number},
                {"clearCache": True}, {"deliveryProto": "https", "deliveryLocalhost": 1}][number % 4]
        fetch("POST", "/reconfig", (200, 500), json.dumps(wish))

    def look(number):
        fetch("GET", PAGES[number % len(PAGES)], (200,))
        fetch("GET", "/job/%d" % chance.randrange(1, 30), (200, 404))
        uris = [[0, "x/%d" % job] for job in range(1, 30)]
        fetch("POST", "/job/updateState", (200,), json.dumps({"Parameters": uris}))

    def use_results(_):
        for path in ("/%d/index.x3d" % chance.randrange(1, 30), "/in", "/.serviceid"):
            fetch("GET", path, (200, 202, 404), port=service.port + 1)
        fetch("POST", "/", (200,), "model", service.port + 1, [("Content-Type", "text/plain")])

    crowd = Crowd()
    for action in (submit, submit, submit, delete, change, change, look, look, use_results):
        crowd.add(action)
    crowd.finish()

    fetch("POST", "/reconfig", (200,), json.dumps({"clearCache": True, "threads": 3}))
    assert service.counters() == (0, 0, 0, 0)
    jobs = [service.run("say last %d" % number) for number in range(3)]
    assert jobs == [1, 2, 3]
    wait_for(lambda: service.counters() == (3, 3, 0, 0), lambda: "the last jobs: %s" % (
        service.counters(),))
    assert [service.state(job) for job in jobs] == ["CLOSED"] * 3
