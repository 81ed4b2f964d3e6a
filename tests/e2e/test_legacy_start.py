"""How the legacy transcoder starts and ends: options, folders, ports, what it prints."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess

import pytest

from legacy import LegacyService
from service import BUILD, DATA, ROOT, run_program, sanitizer
from test_command_line import behind_banner, check_malformed
from waiting import wait_for

LINK = "TranscoderLegacyService"
HELP = (DATA / "help-legacy.txt").read_text()
BASE_MESSAGE = ("Error: cannot create base cache folders in this directory. Please use the command "
                "line to specify existing folders for both.\n")
FOLDER_MESSAGE = ("Error: cannot create cache and log folders in this directory. Please use the "
                  "command line to specify existing folders for both.\n")


@pytest.mark.parametrize("options", [
    ["--help"], ["-h", "--cache_path", "x"], ["-h", "-c", "x"], ["-h", "--cache", "x"],
    ["-h", "-t", "4096", "--delivery_port", "65535", "--disable_url_decode", "--fettle_path", "x"],
])
def test_help(folder, options):
    result = run_program(options, folder, link=LINK)
    assert result.returncode == 0
    assert behind_banner(result.stdout) == HELP
    assert result.stderr.endswith("instantiating provider TranscoderLegacyService\n")
    assert HELP.count("--cache_path") == 1
    assert os.listdir(folder) == []


@pytest.mark.parametrize("options", [
    ["-c", "a", "--cache_path", "b"], ["-t", "-1"], ["-t", "4097"], ["-t", "three"],
    ["--delivery_port", "65536"], ["--delivery_port", "-1"], ["--disable_url_decode=1"],
    ["--fettle_path"], ["--delivery", "x"],
])
def test_malformed(folder, options):
    result = run_program(options, folder, link=LINK)
    check_malformed(result, len(options) + 1, HELP)
    assert os.listdir(folder) == []


def test_chosen_by_option(folder):
    result = run_program(["--provider", LINK, "--help"], folder, link="OstrandService")
    assert behind_banner(result.stdout) == HELP


def own_network():
    """A command that runs the program where every port is free, and no other machine is heard."""
    prefix = ["unshare", "--net", "sh", "-c", "ip link set lo up && exec \"$@\"", "sh"]
    if subprocess.run(prefix + ["true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        pytest.skip("needs the right to make a network of its own")
    return prefix


def test_no_option_at_all(services):
    service = services.make(kind=LegacyService, listen_threads=None, host=None, prefix=own_network())
    service.arguments = lambda: []
    service.cache_root = service.run_folder / "transcoder" / "cache"
    service.start()
    assert behind_banner(service.stdout()) == (
        "Loading old jobs: 0\nNumber of worker threads: 3\n"
        "OstrandService listening on port: 4711 with : 256 threads\n\n"
        "OstrandServiceDelivery listening on port: 4712 with : 256 threads\n\n")
    assert service.stderr().endswith("instantiating provider TranscoderLegacyService\n"
                                     "mcast reg : 0\nip reg : localhost:8080\n")
    ask = ["nsenter", "--net=/proc/%d/ns/net" % service.process.pid, "curl", "-sS"]
    page = subprocess.run(ask + ["http://127.0.0.1:4711/"], stdout=subprocess.PIPE, check=True)
    assert b"<li>Worker threads: 3</li>" in page.stdout
    assert b"Delivery    : http://%s:4712\n" % socket.gethostname().encode() in page.stdout
    icon = subprocess.run(ask + ["http://127.0.0.1:4712/favicon.ico"], stdout=subprocess.PIPE,
                          check=True)
    assert len(icon.stdout) == 13752
    identifier = (service.cache_root / ".serviceid").read_text().strip()
    assert sorted(path.name for path in service.cache_root.iterdir()) == \
        sorted([".serviceid", "in", identifier])
    assert (service.run_folder / "transcoder" / "log" / "messages.log").is_file()
    assert "Params: number of worker threads: 3\n" in (service.run_folder / "transcoder" / "log" / "messages.log").read_text()


def delivery_line(service):
    return re.search(r"^Delivery    : (.*)$", service.get("/").text, re.MULTILINE).group(1)


@pytest.mark.parametrize("options,told", [
    ((), "http://%(machine)s:%(next)d"),
    (("--delivery_port", 8080), "http://%(machine)s:8080"),
    (("--delivery_service", "https://front/x", "--delivery_port", 8080), "https://front/x"),
])
def test_delivery_address_and_its_port(services, options, told):
    """Options change what clients are told; the server listens beside the main one whatever they
    say. --host does not reach the address."""
    service = services.start(*options, kind=LegacyService, host="elsewhere.example")
    expected = told % {"machine": socket.gethostname(), "next": service.port + 1}
    assert delivery_line(service) == expected
    assert "OstrandServiceDelivery listening on port: %d with : 8 threads\n\n" % (service.port + 1) \
        in service.stdout()
    assert service.fetch("/favicon.ico").status_code == 200
    assert service.submit({"resource": "r", "reply": "uri"}).text == expected + "/1"


def test_cache_and_log_lie_where_they_are_told(services):
    service = services.make(kind=LegacyService, provider_id="P",
                            cache_path=services.folder / "a" / "b")
    service.log_path = services.folder / "c" / "d"
    service.start()
    assert sorted(path.name for path in (services.folder / "a" / "b").iterdir()) == \
        [".serviceid", "P", "in"]
    assert (services.folder / "c" / "d" / "messages.log").is_file()
    assert os.listdir(service.run_folder) == []
    job = service.run()
    service.wait_done(job)
    assert (services.folder / "a" / "b" / "1" / "index.x3d").exists()
    assert os.listdir(services.folder / "a" / "b" / "P") == []


def test_relative_cache_path_is_resolved_at_each_use(services):
    """Jobs, pages and results find it, though tools run in other folders."""
    service = services.make(kind=LegacyService)
    arguments = service.arguments()
    arguments[arguments.index("--cache_path") + 1] = "./here"
    service.arguments = lambda: arguments
    service.cache_root = service.run_folder / "here"
    service.start()
    job = service.run("say hello")
    service.wait_done(job)
    assert service.deliver("%d/index.x3d" % job).text == "say hello"
    assert service.get("/job/%d" % job).text.endswith("</pre>\nConsole fettle : <BR> ")
    name = service.upload(b"model").text.partition("@")[0]
    assert (service.run_folder / "here" / "in" / name).read_bytes() == b"model"


def test_numeric_provider_id_shares_the_folder_of_that_job(services):
    service = services.start(kind=LegacyService, provider_id="2")
    assert (service.cache_root / "2").is_dir()
    jobs = [service.run("r%d" % number) for number in (1, 2)]
    service.wait_done(*jobs)
    assert (service.cache_root / "2" / ".meta").exists()
    service.stop()
    service.start()
    assert "Loading old jobs: 2\n" in service.stdout()


@pytest.mark.parametrize("cache", ["a-file/below", ""])
def test_base_folder_that_cannot_be_made(folder, cache):
    (folder / "a-file").write_text("in the way")
    result = run_program(["--cache_path", cache, "--log_path", "log"], folder, link=LINK)
    assert result.returncode == 255
    assert behind_banner(result.stdout) == BASE_MESSAGE


def test_upload_folder_that_cannot_be_made(folder):
    (folder / "cache").mkdir()
    (folder / "cache" / "in").symlink_to("nowhere/at/all")
    result = run_program(["--cache_path", "cache", "--log_path", "log"], folder, link=LINK)
    assert result.returncode == 255
    assert behind_banner(result.stdout) == FOLDER_MESSAGE


@pytest.mark.parametrize("step", [0, 1])
def test_port_in_use(services, step):
    """The main server's or the delivery server's: one line, and no thread stays behind."""
    service = services.make(kind=LegacyService)
    with socket.socket() as taken:
        taken.bind(("0.0.0.0", service.port + step))
        taken.listen()
        service.launch()
        assert service.wait_for_end() == 255
    assert re.search(r"^cannot listen on port %d: .+$" % (service.port + step), service.stderr(),
                     re.MULTILINE)


def test_threads_that_the_system_does_not_give(services):
    if sanitizer():
        pytest.skip("a sanitizer needs the memory that this test takes away")
    service = services.make(kind=LegacyService, options=["-t", 4096],
                            prefix=["prlimit", "--as=%d" % (1 << 30)])
    service.launch()
    assert service.wait_for_end() == 255
    assert re.search(r"^cannot start 4096 worker threads: .+$", service.stderr(), re.MULTILINE)
    assert "listening" not in service.stdout()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_signal_ends_it_in_order(services, number):
    """A tool in hand is waited for; open jobs stay open and are not taken up again."""
    service = services.start("-t", 1, kind=LegacyService)
    running = service.run("hold gate")
    waiting = service.run("later")
    service.wait_started(running)
    service.process.send_signal(number)
    wait_for(lambda: not is_open(service.port + 1), "the delivery server to close")
    assert not service.has_ended()
    service.open_gate(running)
    assert service.wait_for_end() == 0
    assert service.stored_status(running) == 2
    assert not (service.job_folder(running) / ".partial").exists()
    assert service.stored_status(waiting) == 0
    assert (service.job_folder(waiting) / ".partial").exists()
    # The framework's own end, which would say so, is not this provider's.
    assert "shutting down threads" not in service.stderr()
    service.start()
    assert service.state(waiting) == "OPEN"
    assert service.deliver("%d/index.x3d" % waiting).status_code == 202


def test_workers_go_on_until_their_turn_to_end_comes(services):
    """They are ended one by one, and those whose turn has not come still take up open jobs."""
    service = services.start("-t", 3, kind=LegacyService)
    held = [service.run("hold gate 0 %d" % number) for number in range(3)]
    for job in held:
        service.wait_started(job)
    others = [service.run("say %d" % number) for number in range(3)]
    first = first_in_turn(service, held)
    service.process.send_signal(signal.SIGTERM)
    wait_for(lambda: not is_open(service.port + 1), "the delivery server to close")
    for job in held:
        if job != first:
            service.open_gate(job)
    service.wait_done(*others)
    assert not service.has_ended()
    service.open_gate(first)
    assert service.wait_for_end() == 0
    for job in held + others:
        assert service.stored_status(job) == 2


def first_in_turn(service, jobs):
    """Of these jobs the one in the hand of the worker that was made first."""
    numbers = {int(job): int(number) for number, job in re.findall(
        r"Z (\d+) - PROC job: aquired, ID: (\d+)$", service.log(), re.MULTILINE)}
    return min(jobs, key=lambda job: numbers[job])


def is_open(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def test_signal_right_behind_the_start(services):
    for _ in range(3):
        service = services.make(kind=LegacyService)
        service.launch()
        wait_for(lambda: "instantiating provider" in service.stderr(), "the first line")
        service.process.send_signal(signal.SIGTERM)
        assert service.wait_for_end() == 0


def test_no_page_on_the_secure_server(services, certificate):
    service = services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key", certificate[1],
                             kind=LegacyService)
    assert "OstrandService ssl listening on port: %d" % service.port in service.stdout()
    for path in ("/", "/job", "/job/1", "/job/list", "/version", "/favicon.ico"):
        reply = service.session.get("https://127.0.0.1:%d%s" % (service.port - 1, path),
                                    verify=str(certificate[0]), timeout=60)
        assert (reply.status_code, reply.content) == (404, b""), path
        assert "Access-Control-Allow-Origin" not in reply.headers
    # Results come without TLS, as the address says.
    assert delivery_line(service).startswith("http://")
    assert service.fetch("/favicon.ico").status_code == 200


def test_installed_program_finds_the_files_of_its_pages(services):
    """The folder of an installation serves as the working folder."""
    if not shutil.which("cmake"):
        pytest.skip("needs cmake")
    service = services.make(kind=LegacyService)
    place = service.run_folder
    subprocess.run(["cmake", "--install", str(BUILD), "--prefix", str(place)], check=True,
                   stdout=subprocess.DEVNULL)
    for name in (LINK, "TranscoderService", "DappleRenderService"):
        assert os.readlink(place / name) == "OstrandService"
    result = run_program(["--help"], service.folder, link=str(place / LINK))
    assert behind_banner(result.stdout) == HELP
    service.start()
    assert service.get("/changelog").content == (ROOT / "CHANGELOG.md").read_bytes()
    found = re.search(r"^OSTRAND_CHART_SCRIPT:\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(),
                      re.MULTILINE)
    script = pathlib.Path(found.group(1))
    # Without the library the build leaves the file out, and says so.
    assert service.get("/chart.js").content == (script.read_bytes() if script.exists() else b"")
