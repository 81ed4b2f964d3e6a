"""Things that go wrong around the service: folders that vanish, disks that fill, odd tools."""

import os
import shutil
import subprocess
import threading
import time

import pytest

from disks import fill
from raw_http import Connection, request
from waiting import stays, wait_for

SPAWN_ERROR = "Error spawning process. Called tool most likely not executable or found\n"


def test_job_folder_removed_under_a_running_job(single):
    job = single.run("hold gate", "put index.x3d late", uid="u")
    single.wait_started(job)
    shutil.rmtree(single.job_folder(job))
    # The tool notices and ends; the next command has no folder to start in.
    wait_for(lambda: single.counters() == (0, 0, 1), "the job's end")
    assert single.state(job) == "ERROR"
    assert single.stdout().endswith(SPAWN_ERROR)
    assert single.get("/job/%d" % job).status_code == 200
    assert single.deliver("%d/index.x3d" % job).status_code == 404
    # The worker lives on.
    other = single.run("true")
    single.wait_done(other)
    assert single.state(other) == "CLOSED"


def test_job_folder_removed_while_the_job_waits(single):
    blocker = single.run("hold gate")
    single.wait_started(blocker)
    job = single.run("put index.x3d x")
    shutil.rmtree(single.job_folder(job))
    single.open_gate(blocker)
    wait_for(lambda: single.counters() == (0, 1, 1), "the job's end")
    assert single.state(job) == "ERROR"
    assert single.stdout().endswith(SPAWN_ERROR)
    assert not (single.run_folder / "index.x3d").exists()


def test_whole_cache_removed(service):
    shutil.rmtree(service.cache_root)
    before = service.stdout()
    job = service.run("true", "true")
    wait_for(lambda: service.counters() == (0, 0, 1), "the job's end")
    assert service.state(job) == "ERROR"
    assert service.stdout() == before + SPAWN_ERROR * 2
    assert service.get("/job").status_code == 200
    service.jobs_folder().mkdir(parents=True)
    job = service.run("true", uid="new")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"


def test_file_in_place_of_a_job_folder(service):
    (service.jobs_folder() / "1").write_text("in the way")
    assert service.run("true") == 1
    wait_for(lambda: service.counters() == (0, 0, 1), "the job's end")
    assert service.state(1) == "ERROR"
    assert service.stdout().endswith(SPAWN_ERROR)
    assert (service.jobs_folder() / "1").read_text() == "in the way"
    job = service.run("true", uid="next")
    service.wait_done(job)
    assert (job, service.state(job)) == (2, "CLOSED")


def test_folder_in_place_of_the_files_of_a_job(service):
    folder = service.job_folder(1)
    for name in ("jobId", ".partial", "console.txt", ".cookie"):
        (folder / name).mkdir(parents=True)
        (folder / name / "in the way").touch()
    service.run("put index.x3d x", cookies={"a": "b"})
    # The tool runs though its console cannot be opened.
    wait_for(lambda: service.counters() == (0, 1, 0), "the job's end")
    assert (folder / "index.x3d").read_text() == "x"
    assert service.state(1) == "CLOSED"
    assert service.get("/job/1").status_code == 200


def test_folder_in_place_of_the_state(service):
    """No disk will ever take it: the job runs all the same, and its result is given out."""
    (service.job_folder(1) / ".status" / "in the way").mkdir(parents=True)
    job = service.run("put index.x3d x")
    service.wait_done(job)
    assert (job, service.state(job)) == (1, "CLOSED")
    assert service.counters() == (0, 1, 0)
    reply = service.deliver("1/index.x3d")
    assert (reply.status_code, reply.text) == (200, "x")
    assert (service.job_folder(1) / ".status" / "in the way").is_dir()


def test_full_disk(services, small_disk):
    """A job that cannot be written down fails, and the service goes on."""
    service = services.start(cache_path=small_disk / "cache")
    trace = service.folder / "trace"
    before = service.run("put index.x3d x", uid="before")
    service.wait_done(before)
    fill(small_disk / "filler")
    # Its tool would write nothing to that disk.
    job = service.run("append %s x" % trace, uid="full")
    wait_for(lambda: service.counters() == (0, 1, 1), "the job's end")
    assert service.state(job) == "ERROR"
    assert not trace.exists()
    assert service.deliver("%d/index.x3d" % before).text == "x"
    assert service.get("/job").status_code == 200
    (small_disk / "filler").unlink()
    # Submitted again it runs, as any failed job does, and is there after a restart.
    service.run("true", uid="full")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert trace.read_text() == "x\n"
    service.stop()
    service.restart()
    assert service.state(job) == "CLOSED"


def test_no_inodes(services, small_disk):
    service = services.start(cache_path=small_disk / "cache")
    filler = small_disk / "filler"
    filler.mkdir()
    with pytest.raises(OSError):
        for number in range(1000):
            (filler / str(number)).touch()
    job = service.run("put index.x3d x", uid="u")
    wait_for(lambda: service.counters() == (0, 0, 1), "the job's end")
    assert service.state(job) == "ERROR"
    shutil.rmtree(filler)
    # Submitted again it gets the folder that it never had.
    service.run("put index.x3d x", uid="u")
    service.wait_done(job)
    assert service.counters() == (0, 1, 1)
    assert service.stored_status(job) == 3
    assert (service.job_folder(job) / ".meta").exists()


def test_read_only_cache(services, small_disk):
    service = services.start(cache_path=small_disk / "cache")
    job = service.run("put index.x3d x", uid="before")
    service.wait_done(job)
    subprocess.run(["mount", "-o", "remount,ro", str(small_disk)], check=True)
    new = service.run("true", uid="new")
    wait_for(lambda: service.counters() == (0, 1, 1), "the job's end")
    assert service.state(new) == "ERROR"
    assert service.deliver("%d/index.x3d" % job).text == "x"
    service.stop()
    # What lies there is served after a restart, too.
    service.restart()
    assert service.state(job) == "CLOSED"
    assert service.deliver("%d/index.x3d" % job).text == "x"


def test_cache_that_may_not_be_written(services, small_disk):
    subprocess.run(["mount", "-o", "remount,ro", str(small_disk)], check=True)
    service = services.make(cache_path=small_disk / "cache")
    service.launch()
    assert service.wait_for_end() == 255
    assert service.stdout().endswith("existing folders for both.\n")


def test_cache_that_cannot_be_cleared(service, small_disk):
    """The fault leaves the page; table and counters are empty by then, and the service goes on."""
    job = service.run("true", uid="u")
    service.wait_done(job)
    wait_for(lambda: service.counters()[0] == 0, "the counters")
    busy = service.job_folder(job) / "src"
    subprocess.run(["mount", "--bind", str(small_disk), str(busy)], check=True)
    try:
        reply = service.post("/config", {"clearCache": True, "deliveryPort": 1})
        assert (reply.status_code, reply.content) == (500, b"")
        assert "Access-Control-Allow-Origin" not in reply.headers
        assert service.counters() == (0, 0, 0)
        assert service.jobs()["jobs"] == {}
        # What would have followed was not done.
        assert service.get("/", headers={"Accept": "application/json"}).json()["Delivery"] == \
            service.delivery
    finally:
        subprocess.run(["umount", str(busy)], check=True)
    assert service.run("true", uid="u") == 1
    service.wait_done(1)
    assert service.state(1) == "CLOSED"


def test_log_that_cannot_be_written(services, small_disk):
    """A full log folder ends no request."""
    service = services.make()
    service.log_path = small_disk / "log"
    service.log_path.mkdir()
    fill(small_disk / "filler")
    service.start()
    assert service.submit({}).status_code == 400
    job = service.run("true")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    service.stop()


def test_log_folder_removed(service):
    shutil.rmtree(service.log_path)
    assert service.submit({}).status_code == 400
    job = service.run("true")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"


@pytest.mark.parametrize("signal_name", ["KILL", "TERM", "SEGV", "ABRT", "HUP"])
def test_tool_that_dies_of_a_signal(service, signal_name):
    job = service.run("end-by " + signal_name)
    service.wait_done(job)
    assert service.state(job) == "ERROR"
    assert service.console(job) == "about to die\n"
    assert service.counters() == (0, 0, 1)


def test_tool_killed_from_outside(single):
    job = single.run("hold gate")
    single.wait_started(job)
    for process in single.tools():
        os.kill(process, 9)
    single.wait_done(job)
    assert single.state(job) == "ERROR"


def test_children_that_a_tool_leaves_behind(service, folder):
    """The job ends with its tool; what the tool left holds neither ports nor the worker."""
    job = service.run("sh -c 'sleep 600 & echo left'")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert service.console(job) == "left\n"
    assert service.tools()
    service.kill()
    service.restart()
    assert service.state(job) == "CLOSED"


def test_no_descriptor_leaks(service):
    def descriptors():
        return len(os.listdir("/proc/%d/fd" % service.process.pid))

    def settle():
        service.session.close()
        return descriptors()

    def round_of_jobs(name):
        jobs = [service.run(line, uid="%s %d %s" % (name, number, line)) for number in range(10)
                for line in ("true", "false", "nothing-of-this-name")]
        service.wait_done(*jobs)
        service.deliver("1/.meta")
        service.deliver("1/nothing")
        service.submit({})
        service.get("/job/1")

    round_of_jobs("first")
    before = settle()
    for number in range(4):
        round_of_jobs("more %d" % number)
    wait_for(lambda: settle() <= before + 3, lambda: "descriptors: %d, first %d"
             % (descriptors(), before))


def test_no_zombies(service):
    jobs = [service.run("true", uid=str(number)) for number in range(30)]
    service.wait_done(*jobs)

    def zombies():
        found = []
        for entry in os.listdir("/proc"):
            if entry.isdigit():
                try:
                    with open("/proc/%s/stat" % entry) as stat:
                        state, parent = stat.read().rpartition(")")[2].split()[:2]
                except OSError:
                    continue
                if state == "Z" and int(parent) == service.process.pid:
                    found.append(entry)
        return found

    wait_for(lambda: zombies() == [], lambda: "zombies: %s" % zombies())


def test_large_output_of_a_tool(service):
    job = service.run("sh -c 'head -c 20000000 /dev/zero | tr \"\\\\0\" x'")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert (service.job_folder(job) / "console.txt").stat().st_size == 20000000
    assert len(service.get("/job/1").content) > 20000000


def test_tool_does_not_wait_for_input(service):
    job = service.run("cat", "wc -c")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert service.console(job) == "0\n"


def test_long_command_line(service):
    """Beyond what the system takes it cannot be started; the service goes on."""
    job = service.run("true " + "x" * 5_000_000, uid="long")
    service.wait_done(job)
    assert service.state(job) == "ERROR"
    assert service.console(job) == SPAWN_ERROR
    job = service.run("true " + "x" * 50_000, uid="fits")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"


def test_large_batches(service):
    commands = ["true"] * 200
    job = service.run(*commands, uid="many commands")
    reply = service.post("/job", [{"commands": ["true"], "uid": str(n)} for n in range(300)])
    assert reply.text.count("202") >= 300
    wait_for(lambda: service.counters() == (0, 301, 0), "all of them")
    assert service.state(job) == "CLOSED"


def test_everything_at_once(service):
    """Clients of every route while jobs run: nothing but proper answers."""
    stop = threading.Event()
    faults = []

    def client(method, path, body, codes, port):
        with Connection(port) as connection:
            while not stop.is_set():
                connection.send(request(method, path, body=body))
                reply = connection.reply(has_body=method != "HEAD")
                if reply.code not in codes:
                    faults.append((method, path, reply.code))
                if (method, path) == ("POST", "/job"):
                    # Or the jobs come faster than they can run.
                    time.sleep(0.02)

    wishes = [
        ("GET", "/", "", {200}, 0), ("GET", "/job", "", {200}, 0), ("GET", "/job/1", "", {200}, 0),
        ("POST", "/config", '{"deliveryPort":1}', {200}, 0),
        ("POST", "/config", '{"deliveryProto":"https","deliveryHost":"a-rather-long-name"}', {200}, 0),
        ("POST", "/job/updateState", '{"Parameters":[[0,"x/abc/1"],[0,"x/abc/2"]]}', {200}, 0),
        ("POST", "/job", '{"commands":["true"],"rerun":true,"reply":"uri"}', {202}, 0),
        ("POST", "/job", '{"commands":["false"],"uid":"failing"}', {202}, 0),
        ("DELETE", "/job/1", "", {200}, 0),
        ("GET", "/abc/1/index.x3d", "", {200, 202, 404}, 1), ("HEAD", "/abc/1/.meta", "", {200, 202}, 1),
    ]
    service.run("true")
    threads = [threading.Thread(target=client, args=wish[:4] + (service.port + wish[4],))
               for wish in wishes]
    for thread in threads:
        thread.start()
    stays(lambda: not faults and not service.has_ended(), lambda: faults, 3)
    stop.set()
    for thread in threads:
        thread.join()
    assert faults == []
    wait_for(lambda: service.counters()[0] == 0, lambda: "the jobs: %s" % (service.counters(),))
    service.stop()
