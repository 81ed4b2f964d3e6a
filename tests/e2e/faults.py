"""Faults of the system around the program: named calls that fail at a rate, by a library that is
preloaded into it (tests/faults). They are set and changed while the program runs."""

import collections
import errno
import mmap
import pathlib
import struct

from service import BUILD, sanitizer

LIBRARY = BUILD / "ostrand_faults.so"

# Places in which a call may fail.
CACHE, LOG, CLIENTS, OUTGOING, PROCESS = 1, 2, 4, 8, 16

NO_SPACE = (errno.ENOSPC, errno.EIO)
NO_FILES = (errno.EMFILE, errno.ENFILE)
READ_ONLY = (errno.EROFS,)

# Where a kind acts unless told otherwise. The names are those that the library asks for.
KINDS = {
    "open": CACHE, "open.write": CACHE, "read": CACHE, "read.short": CACHE, "write": CACHE,
    "write.short": CACHE, "stream": CACHE, "close": CACHE, "mkdir": CACHE, "rename": CACHE,
    "unlink": CACHE, "look": CACHE, "readdir": CACHE, "delay": CACHE,
    "accept": CLIENTS, "narrow": CLIENTS, "send": CLIENTS, "recv": CLIENTS,
    "send.short": OUTGOING, "recv.short": OUTGOING, "socket": OUTGOING, "connect": OUTGOING,
    "poll": PROCESS, "spawn": PROCESS, "thread": PROCESS, "wait": PROCESS, "pidfd": PROCESS,
}

_HEADER = struct.Struct("=8sIIqQIIQ16x")
_ENTRY = struct.Struct("=16sII4iQQ8x")
_MAGIC = b"OSTRFLT1"
_ON, _CLOCK, _ATTACHED, _DELAY, _READINGS = 8, 16, 32, 36, 40
_RATE, _PLACES, _ERRORS, _SEEN, _STRUCK = 16, 20, 24, 40, 48

TOTALS = collections.Counter()  # of the tables that are used no more


class Faults:
    """The table of one service. All faults are off until they are set, and the whole table until
    `begin`."""

    def __init__(self, folder, cache, log, seed=1):
        self.path = pathlib.Path(folder) / "faults"
        self.folders = "%s:%s" % (cache, log)
        self.places = {name: _HEADER.size + number * _ENTRY.size
                       for number, name in enumerate(KINDS)}
        with open(self.path, "wb") as file:
            file.write(_HEADER.pack(_MAGIC, 0, len(KINDS), 0, seed, 0, 0, 0))
            for name, where in KINDS.items():
                file.write(_ENTRY.pack(name.encode(), 0, where, 0, 0, 0, 0, 0, 0))
        with open(self.path, "r+b") as file:
            self.memory = mmap.mmap(file.fileno(), 0)

    def add_to(self, environment):
        """Adds what the service is to be started with."""
        assert LIBRARY.exists(), "no library of faults at %s" % LIBRARY
        environment.update({"LD_PRELOAD": str(LIBRARY), "OSTRAND_FAULTS_TABLE": str(self.path),
                            "OSTRAND_FAULTS_FOLDERS": self.folders})
        if sanitizer() == "address":
            # The sanitizer insists on being the first library; what it replaces is replaced all the
            # same, since the calls of this one go on to it.
            environment["ASAN_OPTIONS"] = ":".join(
                filter(None, [environment.get("ASAN_OPTIONS"), "verify_asan_link_order=0"]))

    def set(self, name, rate, *errors, where=None):
        """The share of calls that fail, 0 to 1, and up to four errors that they fail with."""
        errors = errors or (errno.EIO,)
        place = self.places[name]
        struct.pack_into("=I", self.memory, place + _PLACES, where or KINDS[name])
        struct.pack_into("=4i", self.memory, place + _ERRORS,
                         *(errors + (0,) * (4 - len(errors))))
        struct.pack_into("=I", self.memory, place + _RATE, round(rate * 1_000_000))
        return self

    def begin(self):
        self._write("=I", _ON, 1)

    def end(self):
        self._write("=I", _ON, 0)

    def __enter__(self):
        self.begin()
        return self

    def __exit__(self, *_):
        self.end()

    def set_delay(self, seconds):
        self._write("=I", _DELAY, round(seconds * 1_000_000))

    def set_clock(self, seconds):
        """Sets the time of day so many seconds off the true one, at once."""
        self._write("=q", _CLOCK, seconds)

    def clock_readings(self):
        """Readings of a time of day that was off."""
        return self._read("=Q", _READINGS)

    def is_attached(self):
        """True as soon as a program has taken the table."""
        return self._read("=I", _ATTACHED) == 1

    def struck(self, *names):
        """Calls of these kinds that were made to fail."""
        return sum(self._read("=Q", self.places[name] + _STRUCK) for name in names)

    def seen(self, name):
        return self._read("=Q", self.places[name] + _SEEN)

    def retire(self):
        """Adds what was struck to TOTALS; the table is used no more."""
        TOTALS.update(self.all_struck())
        self.memory.close()

    def all_struck(self):
        return {name: self.struck(name) for name in KINDS if self.struck(name)}

    def _write(self, form, place, value):
        struct.pack_into(form, self.memory, place, value)

    def _read(self, form, place):
        return struct.unpack_from(form, self.memory, place)[0]


def make_benign(service):
    """Faults that nobody may notice, on from the start: calls that are interrupted, that transfer a
    part only or take longer, and clients that have gone before they are accepted."""
    faults = Faults(service.folder, service.cache_root, service.log_path)
    everywhere = CACHE | LOG
    for name, rate in (("read", 0.1), ("write", 0.1)):
        faults.set(name, rate, errno.EINTR, where=everywhere)
    for name in ("read.short", "write.short"):
        faults.set(name, 0.3, where=everywhere)
    for name in ("send.short", "recv.short", "narrow"):
        faults.set(name, 0.5)
    faults.set("accept", 0.2, errno.EAGAIN, errno.ECONNABORTED)
    for name in ("poll", "wait"):
        faults.set(name, 0.1, errno.EINTR)
    faults.set("delay", 0.02).set_delay(0.002)
    faults.begin()
    return faults
