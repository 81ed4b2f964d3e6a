"""Rows against other job queues: the same jobs, from the first submission to the last end."""

import contextlib
import os
import shutil
import subprocess
import time

import job_rows
import machine
import peers
from common import in_turns
from ports import free_port
from report import Result
from waiting import wait_for

WORKERS = 2

_TASKS = """
import subprocess
from celery import Celery
app = Celery("tasks", broker="redis://127.0.0.1:{port}/0", backend="redis://127.0.0.1:{port}/1")

@app.task
def work(number):
    return subprocess.run(["true"]).returncode
"""

_CLIENT = """
import sys, time
from celery import group
from tasks import work
if work.delay(0).get(timeout=60) != 0:
    sys.exit("the worker does not work")
begin = time.monotonic()
results = group(work.s(number) for number in range({count})).apply_async().get(timeout=600)
print(time.monotonic() - begin)
sys.exit(any(results) or len(results) != {count})
"""


def queues(settings):
    count = settings.size(2000, 400)
    if settings.install:
        machine.install(("gearmand", "gearman-job-server"), ("gearman", "gearman-tools"),
                        ("tsp", "task-spooler"), ("redis-server", "redis-server"),
                        ("celery", "celery"), ("celery", "python3-redis"))
    others = (("gearmand", gearman), ("task-spooler", spooler), ("Celery with redis", celery))
    # The others keep their jobs in memory, but for what task-spooler writes of each.
    places = [("folders on the disk", None)]
    if settings.memory:
        places.append(("folders in memory", settings.memory))
    sides = [lambda below=below: job_rows.rate(settings, WORKERS, count, below)
             for _, below in places]
    rivals = [(name, 1.5, lambda side=side: count / side(settings, count))
              for name, side in others]
    rivals.append(("the bare start of as many", None, lambda: bare_starts(settings, count)))
    figures = in_turns(settings, *sides, *(side for _, _, side in rivals))
    what = "{:,} jobs of `true`, {} workers, {}; peer: {}"
    return [Result(what.format(count, WORKERS, place, name), "jobs/s", ours, theirs, wanted)
            for (place, _), ours in zip(places, figures)
            for (name, wanted, _), theirs in zip(rivals, figures[len(places):])]


def bare_starts(settings, count):
    """Tools that end a second, where nothing is done but starting them: the bound of all queues."""
    done = subprocess.run([str(settings.build / "bench" / "spawn_bench"), str(count), str(WORKERS),
                           "true"], check=True, stdout=subprocess.PIPE, text=True)
    return float(done.stdout)


def program(name):
    return shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")


def gearman(settings, count):
    """The server with its command-line client and workers, which start a tool a job."""
    folder = settings.folder()
    folder.mkdir()
    port = str(free_port())
    client = ["gearman", "-h", "127.0.0.1", "-p", port, "-f", "work"]
    with contextlib.ExitStack() as stack:
        server = [program("gearmand"), "-L", "127.0.0.1", "-p", port, "-l", str(folder / "log")]
        stack.enter_context(peers.running(server, int(port)))
        for _ in range(WORKERS):
            stack.enter_context(peers.running(client + ["-w", "--", "true"]))

        def status():
            """Waiting and running jobs, and workers."""
            told = subprocess.run(["gearadmin", "-h", "127.0.0.1", "-p", port, "--status"],
                                  stdout=subprocess.PIPE, check=True, text=True).stdout
            return next((line.split()[1:] for line in told.splitlines()
                         if line.startswith("work\t")), None)

        wait_for(lambda: status() == ["0", "0", str(WORKERS)], "the workers")
        begin = time.monotonic()
        subprocess.run(client + ["-b", "-n"], input="x\n" * count, text=True, check=True,
                       stdout=subprocess.DEVNULL)
        while status()[0] != "0":
            time.sleep(0.005)
        return time.monotonic() - begin


def spooler(settings, count):
    folder = settings.folder()
    folder.mkdir()
    variables = dict(os.environ, TS_SOCKET=str(folder / "socket"), TMPDIR=str(folder),
                     TS_MAXFINISHED=str(count))

    def tsp(*words):
        return subprocess.run(["tsp", *words], env=variables, check=True, stdout=subprocess.PIPE,
                              text=True).stdout

    tsp("-S", str(WORKERS))
    try:
        begin = time.monotonic()
        for _ in range(count):
            tsp("-n", "true")
        while tsp().count("finished") < count:
            time.sleep(0.05)
        return time.monotonic() - begin
    finally:
        tsp("-K")


def celery(settings, count):
    folder = settings.folder()
    folder.mkdir()
    port = free_port()
    (folder / "tasks.py").write_text(_TASKS.format(port=port))
    (folder / "client.py").write_text(_CLIENT.format(count=count))
    with contextlib.ExitStack() as stack:
        stack.enter_context(peers.running(
            ["redis-server", "--port", str(port), "--bind", "127.0.0.1", "--dir", str(folder)],
            port, stdout=subprocess.DEVNULL))
        stack.enter_context(peers.running(
            ["/usr/bin/python3", "-m", "celery", "-A", "tasks", "worker", "-c", str(WORKERS), "-l",
             "ERROR"], cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        done = subprocess.run(["/usr/bin/python3", "client.py"], cwd=folder, stdout=subprocess.PIPE,
                              check=True, text=True)
        return float(done.stdout)
