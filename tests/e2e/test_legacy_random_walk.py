"""Random submissions, deletions, clearings, restarts and damage between them: whatever comes of
them, the legacy transcoder tells what its rules say."""

import json
import os
import random
import shutil

import pytest

from legacy import LegacyService
from legacy_model import FORMATS, INVALID, NAMES, LegacyModel
from waiting import wait_for


class Walk:
    def __init__(self, service, seed):
        self.service, self.model, self.random = service, LegacyModel(), random.Random(seed)
        self.threads = 0
        self.steps = []  # for who reads of a failure

    def live(self):
        """One life of the service."""
        self.threads = self.random.choice([0, 1, 3])
        self.steps.append("start with %d threads" % self.threads)
        self.service.options = ["--allowReconfig", 1, "-t", self.threads]
        self.service.start()
        self.model.restart()
        assert "Loading old jobs: %d\n" % self.model.total in self.service.stdout()
        self.check()
        for _ in range(self.random.randint(3, 9)):
            self.random.choices([self.submit, self.delete, self.clear], [65, 33, 2])[0]()
            if self.threads:
                self.model.work()
            wait_for(self.is_settled, lambda: "%s\nafter %s, not %s" % (
                self.model.json_list(), self.steps, self.service.get("/job/list/json").text))
        self.check()
        self.service.stop()

    def submit(self):
        name, chance = self.random.choice("abcdef"), self.random.random()
        keys = {"resource": self.random.choice(["say ", "say ", "exit-with 1 "]) + name,
                "format": self.random.choice(FORMATS + ("x3d",))}
        if chance < 0.4:
            keys["uid"] = name
        if chance < 0.1:
            keys = {"commands": [], "uid": name}
        reply = self.random.choice(["id", "uri", "file"])
        text = json.dumps(dict(keys, reply=reply))
        self.steps.append(text)
        answer = self.service.submit(text)
        number = self.model.submit(text)
        uri = self.service.uri(number)
        assert (answer.status_code, answer.text) == (202, {
            "id": "%d@%s" % (number, self.service.provider_id), "uri": uri,
            "file": uri + "/index." + self.format_of(number)}[reply]), self.steps

    def delete(self):
        number = self.random.randint(0, len(self.model.keys))
        self.steps.append("delete %d" % number)
        code = self.service.get("/job/delete?id=%d" % number).status_code
        assert code == (202 if self.model.delete(number) else 400), self.steps

    def clear(self):
        self.steps.append("clear")
        assert self.service.post("/reconfig", {"clearCache": True}).status_code == 200
        self.model.clear()

    def format_of(self, number):
        record = self.model.record(number)
        return record.description.format if record else "x3d"

    def is_settled(self):
        return (self.service.get("/job/list/json").text == self.model.json_list() and
                all((self.service.cache_root / name / ".partial").exists() == folder.partial
                    and self.stored_runs(name) == folder.runs
                    for name, folder in self.model.folders.items()))

    def stored_runs(self, name):
        path = self.service.cache_root / name / ".timings"
        return len(json.loads(path.read_text())["timings"]) if path.exists() else 0

    def check(self):
        model, service = self.model, self.service
        assert service.get("/job/list/json").text == model.json_list(), self.steps
        assert service.counters() == model.counters(), self.steps
        assert service.get("/job/list/cached").text == "[%s]\n" % ",".join(
            "\"%s\"" % key for key in model.keys[1:])
        rows = service.get("/job/list").text
        for number in range(1, len(model.keys)):
            told = "job %d after %s" % (number, self.steps)
            state, record = model.state(number), model.record(number)
            assert service.state(number) == NAMES[state], told
            assert ("<a href='../job/%d'>" % number in rows) == (state != INVALID), told
            assert service.get("/job/%d/result" % number).text == "%s/index.%s" % (
                service.uri(number), self.format_of(number)), told
            page = service.get("/job/%d" % number).text
            assert page.count("  overall time     : ") == (record.runs if record else 0), told
            code = {0: 202, 1: 202, 2: 200, 7: 200}.get(state)
            uri = service.uri(number)
            assert service.update_state(uri) == ([[code, uri]] if code else []), told
        for name, folder in model.folders.items():
            self.check_folder(name, folder)

    def check_folder(self, name, folder):
        path, told = self.service.cache_root / name, "folder %s after %s" % (name, self.steps)
        assert (path / ".meta").read_text() == folder.meta, told
        if folder.status is not None:
            assert (path / ".status").read_text() == "{ \"status\" : %d}\n" % folder.status, told
        for extension in FORMATS:
            code = 202 if folder.partial else 200 if folder.result == extension else 404
            reply = self.service.deliver("%s/index.%s" % (name, extension))
            assert reply.status_code == code, told

    def damage(self):
        """What may happen to folders while no service runs."""
        name = self.random.choice(sorted(self.model.folders) or ["none"])
        folder, path = self.model.folders.get(name), self.service.cache_root / name
        if folder is None:
            return
        kind = self.random.choice(["state", "state", "no state", "text", "gone", "times", "name"])
        self.steps.append("%s of %s" % (kind, name))
        if kind == "state":
            state = self.random.choice(list(range(9)) + [12, -1])
            (path / ".status").write_text("{ \"status\" : %d}\n" % state)
            folder.status = state if 0 <= state <= 8 else None
        elif kind == "no state":
            (path / ".status").unlink(missing_ok=True)
            folder.status = None
        elif kind == "text":
            (path / ".meta").write_text("{")
            folder.meta = "{"
        elif kind == "gone":
            shutil.rmtree(path)
            del self.model.folders[name]
        elif kind == "times":
            (path / ".timings").unlink(missing_ok=True)
            folder.runs = 0
        else:
            self.rename(name)

    def rename(self, name):
        number = self.random.randint(1, 20)
        if all(int(other) != number for other in self.model.folders):
            new = self.random.choice(["%d", "+%d", "0%d"]) % number
            os.rename(self.service.cache_root / name, self.service.cache_root / new)
            self.model.folders[new] = self.model.folders.pop(name)


@pytest.mark.parametrize("seed", range(int(os.environ.get("OSTRAND_WALKS", "3"))))
def test_random_walk(services, seed):
    walk = Walk(services.make(kind=LegacyService), seed)
    for _ in range(5):
        walk.live()
        for _ in range(walk.random.randint(0, 2)):
            walk.damage()
