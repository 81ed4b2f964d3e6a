"""What the legacy transcoder's jobs, counters and folders come to, by its rules alone: a second,
simple form of its store, for an idle service and tools that have ended."""

import json
import urllib.parse

(OPEN, RUNNING, CLOSED, ERROR, MARKED, DELETED, CANCELED, TERMINATED, INVALID) = range(9)
NAMES = ("OPEN", "IN PROCESS", "CLOSED", "ERROR", "MARKED FOR DELETION", "DELETED", "CANCELED",
         "TERMINATED", "INVALID")
FORMATS = ("x3d", "html", "glb")  # each the extension of its results, too


class Description:
    """Of a job's text what counts here; `uid` is "" where the text is refused."""

    def __init__(self, text):
        try:
            keys = json.loads(text)
        except ValueError:
            keys = {}
        self.format = keys.get("format", "x3d")
        self.is_empty_batch = keys.get("commands") == []
        resource = keys.get("resource", "")
        self.succeeds = not resource.startswith("exit-with")
        formed = resource + ("" if self.format == "x3d" else "?format=" + self.format)
        self.uid = keys.get("uid", formed)


class Record:
    def __init__(self, number, folder, state, description):
        self.id, self.folder, self.state, self.description = number, folder, state, description
        self.runs = 0


class Folder:
    """What lies on the disk. `status` is None where the file is missing or makes no sense."""

    def __init__(self):
        self.meta = self.status = self.result = None
        self.partial, self.runs = False, 0


class LegacyModel:
    def __init__(self):
        self.folders = {}  # by name
        self.forget()

    def forget(self):
        self.records, self.keys, self.marked = {}, [None], []
        self.cursor = self.total = self.finished = self.failed = 0

    # What a test looks at.

    def record(self, number):
        return self.records.get(self.keys[number])

    def state(self, number):
        record = self.record(number)
        return record.state if record else INVALID

    def counters(self):
        ended = (self.finished + self.failed) % 2**32
        return self.total, ended, self.failed, (self.total - ended) % 2**32

    def json_list(self):
        last = len(self.keys) - 1
        jobs = "".join(
            "  \"job%d\" : {\n   \"resource\" : \"%s\",\n   \"status\" : \"%s\"\n  }%s\n" % (
                number, urllib.parse.quote(self.keys[number], safe="-._~"),
                NAMES[self.state(number)], "" if number == last else ",")
            for number in range(1, last + 1))
        return "{\n\"numJobs\" : %d,\n\"numJobsFinished\" : %d,\n\"jobs\": {\n%s}\n}" % (
            self.counters()[0], self.counters()[1], jobs)

    # What clients, workers and restarts do.

    def submit(self, text):
        description = Description(text)
        record = self.records.get(description.uid)
        if record and record.state not in (ERROR, DELETED, CANCELED):
            return record.id
        if not record:
            number = len(self.keys)
            record = self.records[description.uid] = Record(number, str(number), OPEN, description)
            self.keys.append(description.uid)
        self.cursor = min(self.cursor, record.id - 1)
        self.total += 1
        folder = self.folders.setdefault(record.folder, Folder())
        self.save(record, OPEN)
        folder.meta, folder.partial = text, True
        return record.id

    def delete(self, number):
        record = self.record(number) if 0 < number < len(self.keys) else None
        if record and record.state in (CLOSED, ERROR):
            self.save(record, MARKED)
            self.marked.append(number)
        elif record and record.state == OPEN:
            self.save(record, CANCELED)
        else:
            return False
        return True

    def work(self):
        """All that workers do until there is nothing left."""
        while self.marked:
            number = self.marked.pop(0)
            record, folder = self.record(number), self.folders.get(str(number))
            if folder:  # else the job stays marked
                if folder.result == record.description.format:
                    folder.result = None
                self.save(record, DELETED)
        while self.cursor < len(self.keys) - 1:
            self.cursor += 1
            record = self.record(self.cursor)
            if record and record.state == OPEN:
                self.run(record, self.folders.get(str(self.cursor)))

    def run(self, record, folder):
        self.save(record, RUNNING)
        if not record.description.is_empty_batch:
            well = bool(folder) and record.description.succeeds
            record.runs += 1
            self.finished, self.failed = self.finished + well, self.failed + (not well)
            self.save(record, CLOSED if well else ERROR)
            if well:
                folder.result = record.description.format
        if folder:
            folder.partial, folder.runs = False, record.runs

    def restart(self):
        self.forget()
        for name in sorted(self.folders, key=lambda text: (int(text), text)):
            if self.folders[name].meta is not None:
                self.load(int(name), name, self.folders[name])

    def load(self, number, name, folder):
        description = Description(folder.meta)
        state = ERROR if folder.status is None else folder.status
        record = Record(number, name, state, description)
        if not description.uid:
            self.save(record, ERROR)
        known = self.records.setdefault(description.uid, record)
        known.runs += folder.runs
        if number >= len(self.keys):
            self.records.setdefault("", Record(0, "", INVALID, Description("")))
            self.keys += [""] * (number + 1 - len(self.keys))
        self.keys[number] = description.uid
        badly = record.state in (ERROR, TERMINATED)
        self.total += 1
        self.finished, self.failed = self.finished + (not badly), self.failed + badly
        self.cursor = max(self.cursor, number)

    def clear(self):
        self.folders.clear()
        self.forget()

    def save(self, record, state):
        record.state = state
        if record.folder in self.folders:
            self.folders[record.folder].status = state
