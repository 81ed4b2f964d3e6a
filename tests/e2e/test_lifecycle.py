"""Start and end: folders, start lines, exit codes, signals, busy ports, restarts."""

import contextlib
import os
import re
import shutil
import signal
import socket
import time

import pytest

from ports import free_port
from raw_http import Connection, request
from service import BUILD, run_program, sanitizer
from waiting import stays, wait_for

BASE_MESSAGE = ("Error: cannot create base cache folders in this directory. Please use the command "
                "line to specify existing folders for both.\n")
LOG_MESSAGE = ("Error: cannot create log folders in this directory. Please use the command line to "
               "specify existing folders for both.\n")
TITLE = "       -= Ostrand Service 1.0 =-\n\n"


def own_output(text):
    """Standard output behind the banner."""
    return text.partition(TITLE)[2]


def test_lines_of_a_start_and_an_end(service):
    port = service.port
    lines = ("Loading old jobs: 0\n"
             "OstrandService listening on port: %d with : 8 threads\n\n"
             "OstrandServiceDelivery listening on port: %d with : 8 threads\n" % (port, port + 1))
    # Written to a file, and there while the service runs.
    assert own_output(service.stdout()) == lines
    begin = ("instantiating provider TranscoderService\nmcast reg : 0\nip reg : %s\n"
             "init with config file : %s\n" % (service.hub, service.config_path()))
    assert service.stderr().endswith(begin)
    assert ("Params: listening on port %d\n" % port) in service.log()
    service.stop()
    assert own_output(service.stdout()) == lines
    assert service.stderr().endswith(begin + "shutting down threads\n")


def test_folders_are_made_and_named_by_the_provider_id(services):
    service = services.make(provider_id="P", cache_path=services.folder / "a" / "b" / "x")
    service.log_path = services.folder / "c" / "d"
    service.start()
    assert (services.folder / "a" / "b" / "x" / "P").is_dir()
    assert (services.folder / "c" / "d" / "messages.log").is_file()
    # Nothing is left in the folder that the service was started in.
    assert os.listdir(service.run_folder) == []


def test_default_folders_and_addresses(services):
    """With no options but a port: the folders below the current one, every default value."""
    service = services.make(provider_id=None, listen_threads=None, host=None)
    service.arguments = lambda: ["-p", str(service.port)]
    service.cache_root = service.run_folder / "transcoder" / "cache"
    service.start()
    assert "mcast reg : 0\nip reg : localhost:8080\n" in service.stderr()
    assert "OstrandService listening on port: %d with : 256 threads\n\n" % service.port in \
        service.stdout()
    identifier = (service.cache_root / ".serviceid").read_text().strip()
    assert re.fullmatch("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", identifier)
    assert (service.cache_root / identifier).is_dir()
    assert (service.run_folder / "transcoder" / "log" / "messages.log").is_file()
    reply = service.submit({"commands": ["true"], "reply": "uri"})
    assert reply.text == "http://%s:%d/%s/1" % (socket.gethostname(), service.port + 1, identifier)


def test_identifier_survives_a_restart(services):
    service = services.start(provider_id=None)
    identifier = service.provider_id
    done = service.run("true")
    service.wait_done(done)
    service.stop()
    service.restart()
    assert service.provider_id == identifier
    assert service.state(done) == "CLOSED"


def test_short_identifier(services):
    service = services.start("--shortuuid", provider_id=None)
    whole = (service.cache_root / ".serviceid").read_text().strip()
    assert len(whole) == 36
    assert sorted(entry.name for entry in service.cache_root.iterdir()) == \
        sorted([".serviceid", whole[:8]])
    assert service.submit({"commands": ["true"]}).text == "1@" + whole[:8]


def test_identifier_file_that_holds_none_is_replaced(services):
    service = services.make(provider_id=None)
    service.cache_root.mkdir(parents=True)
    (service.cache_root / ".serviceid").write_text("not an identifier")
    service.start()
    assert re.fullmatch("[0-9a-f-]{36}", service.provider_id)


@pytest.mark.parametrize("cache,message", [
    ("a-file/below", BASE_MESSAGE), ("", BASE_MESSAGE), ("a-file", LOG_MESSAGE),
])
def test_cache_that_cannot_be_made(folder, cache, message):
    (folder / "a-file").write_text("in the way")
    result = run_program(["--log_path", "log", "--cache_path", cache, "--port", "1"], folder)
    assert result.returncode == 255
    assert own_output(result.stdout) == message
    assert (folder / "a-file").read_text() == "in the way"


def test_log_folder_that_cannot_be_made(folder):
    (folder / "a-file").write_text("in the way")
    result = run_program(["--log_path", "a-file/log", "--cache_path", "cache"], folder)
    assert result.returncode == 255
    assert own_output(result.stdout) == LOG_MESSAGE
    assert "mcast reg" not in result.stderr


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_signal_ends_the_service_in_order(service, number):
    service.stop(number)
    assert service.stderr().endswith("shutting down threads\n")


@pytest.mark.parametrize("sign", [
    "Providers\n", "mcast reg : 0\n", "init with config file", "OstrandService listening on port",
])
@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_early_signal_ends_the_service_in_order(services, sign, number):
    """A stop request that comes before anyone waits for it is remembered."""
    service = services.make()
    service.launch()
    wait_for(lambda: sign in service.stderr() + service.stdout(), sign, step=0.001)
    service.stop(number)
    assert service.stderr().endswith("shutting down threads\n")


def test_second_signal_while_the_service_ends(single):
    job = single.run("hold gate")
    single.wait_started(job)
    single.process.send_signal(signal.SIGTERM)
    wait_for(lambda: "shutting down threads\n" in single.stderr(), "the workers' end to begin")
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGTERM):
        single.process.send_signal(number)
    # It waits for its tool, however often it is asked.
    stays(lambda: not single.has_ended(), "ended before its tool", 0.3)
    single.open_gate(job)
    single.stop()
    assert single.stored_status(job) == 3


def test_signals_of_the_process(service):
    with open("/proc/%d/status" % service.process.pid) as status:
        ignored = next(int(line.split()[1], 16) for line in status if line.startswith("SigIgn:"))
    assert ignored & (1 << (signal.SIGPIPE - 1))


def test_idle_connections_do_not_delay_the_end(service):
    with contextlib.ExitStack() as open_connections:
        for port in (service.port, service.port + 1):
            for _ in range(20):
                open_connections.enter_context(Connection(port))
            busy = open_connections.enter_context(Connection(port))
            busy.send(request("GET", "/favicon.ico"))
            assert busy.reply().code == 200
        assert service.stop() < 10


def listen_on(address, port):
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    listener = socket.socket(family, socket.SOCK_STREAM)
    if family == socket.AF_INET6:
        listener.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
    listener.bind((address, port))
    listener.listen()
    return listener


@pytest.mark.parametrize("address", ["0.0.0.0", "::", "127.0.0.1"])
@pytest.mark.parametrize("step", [0, 1])
def test_busy_port(services, address, step):
    service = services.make()
    port = service.port + step
    with listen_on(address, port):
        service.launch()
        assert service.wait_for_end() == 255
    lines = [line for line in service.stderr().splitlines() if "cannot listen" in line]
    assert len(lines) == 1
    assert re.fullmatch(r"cannot listen on port %d: \S.*" % port, lines[0])
    assert service.stderr().count("terminate called") == 0
    name = "OstrandService" if step == 0 else "OstrandServiceDelivery"
    assert "%s listening" % name not in service.stdout()
    # The way is free afterwards: nothing was left behind.
    service.start()


def test_busy_delivery_port_leaves_waiting_jobs_alone(services):
    service = services.start("--worker_threads", 0)
    job = service.run("put ran yes")
    service.stop()
    service.options = []
    with listen_on("0.0.0.0", service.port + 1):
        service.launch()
        assert service.wait_for_end() == 255
    assert service.stored_status(job) == 0
    assert not (service.job_folder(job) / "ran").exists()


def test_busy_secure_port(services, certificate):
    service = services.make(options=["--ssl", "--ssl-cert", certificate[0], "--ssl-key",
                                     certificate[1]])
    with listen_on("0.0.0.0", service.port - 1):
        service.launch()
        assert service.wait_for_end() == 255
    assert re.search(r"^cannot listen on port %d: \S" % (service.port - 1), service.stderr(),
                     re.MULTILINE)


def test_port_that_is_not_permitted(folder):
    with open("/proc/sys/net/ipv4/ip_unprivileged_port_start") as limit:
        port = min(1023, int(limit.read()) - 1)
    if port < 1:
        pytest.skip("this machine lets everybody listen on every port")
    arguments = [str(BUILD / "TranscoderService"), "--port", str(port), "--cache_path", "cache"]
    if os.geteuid() == 0:
        arguments = ["--bounding-set=-net_bind_service", "--inh-caps=-net_bind_service"] + arguments
        result = run_program(arguments, folder, link=shutil.which("setpriv"))
    else:
        result = run_program(arguments[1:], folder)
    assert result.returncode == 255
    assert re.search(r"^cannot listen on port %d: \S" % port, result.stderr, re.MULTILINE)


@pytest.mark.parametrize("link", ["TranscoderService", "TranscoderLegacyService"])
def test_jobs_folder_that_cannot_be_read(folder, link):
    """Ids of jobs that were not seen would be given away again."""
    jobs = folder / "transcoder" / "cache"
    if link == "TranscoderService":
        jobs = jobs / "P"
    jobs.mkdir(parents=True)
    jobs.chmod(0o333)
    arguments = [str(BUILD / link), "--port", str(free_port()), "--providerid", "P"]
    if os.geteuid() == 0:
        rights = "-dac_override,-dac_read_search"
        arguments = ["--bounding-set=" + rights, "--inh-caps=" + rights] + arguments
        result = run_program(arguments, folder, link=shutil.which("setpriv"))
    else:
        result = run_program(arguments[1:], folder, link=link)
    jobs.chmod(0o777)
    assert result.returncode == 255
    assert re.search(r"\ncannot read old jobs : .*Permission denied.*\n$", result.stderr)
    assert result.stdout.endswith("\nLoading old jobs: \n")


@pytest.mark.skipif(sanitizer() != "", reason="a sanitizer needs the memory that this test takes away")
def test_not_one_thread(services):
    # Each thread would get more stack than there is memory.
    service = services.make(prefix=["prlimit", "--as=%d" % 2**30, "--stack=%d" % 2**31])
    service.launch()
    assert service.wait_for_end() == 255
    assert service.stderr().endswith("\ncannot start a thread: Resource temporarily unavailable\n")
    assert service.stdout() == ""


def test_secure_server_without_a_certificate(services):
    service = services.start("--ssl")
    assert ("OstrandService listening on port: %d with : 8 threads\n\n"
            "OstrandService ssl no certificate given\n\n"
            "OstrandServiceDelivery listening" % service.port) in service.stdout()
    assert service.get("/").status_code == 200
    with pytest.raises(ConnectionRefusedError):
        Connection(service.port - 1)
    service.stop()


@pytest.mark.parametrize("given", ["--ssl-cert", "--ssl-key"])
def test_secure_server_with_half_a_certificate(services, certificate, given):
    service = services.start("--ssl", given, certificate[given == "--ssl-key"])
    assert "OstrandService ssl no certificate given\n\n" in service.stdout()


def test_line_of_the_secure_server_repeats_the_plain_one(services, certificate):
    service = services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key", certificate[1])
    line = "listening on port: %d with : 8 threads\n\n" % service.port
    assert "OstrandService %sOstrandService ssl %sOstrandServiceDelivery" % (line, line) in \
        service.stdout()


@pytest.mark.parametrize("threads", [0, -3, 1, 300])
def test_number_of_listening_threads_is_printed_as_given(services, threads):
    service = services.start(listen_threads=threads)
    assert "OstrandService listening on port: %d with : %d threads\n\n" % (
        service.port, threads) in service.stdout()
    assert service.get("/").status_code == 200
    assert service.fetch("/favicon.ico").status_code == 200


def test_restart_after_kill(services):
    """The ports are free at once, with connections open and a tool of the dead service alive."""
    service = services.start("--worker_threads", 1)
    job = service.run("hold gate")
    service.wait_started(job)
    with Connection(service.port) as first, Connection(service.port + 1) as second:
        for connection in (first, second):
            connection.send(request("GET", "/favicon.ico"))
            assert connection.reply().code == 200
        service.kill()
        assert service.tools(), "the tool outlives its service"
        # The tool of the first life and that of the second wait in one folder for one gate.
        service.restart()
        service.open_gate(job)
    service.wait_done(job)
    assert service.stored_status(job) == 3


def test_restart_right_behind_a_stop(services):
    service = services.start()
    for _ in range(3):
        with Connection(service.port) as connection:
            connection.send(request("GET", "/"))
            assert connection.reply().code == 200
            service.stop()
            service.restart()


def test_stop_waits_for_the_running_tool_and_drops_the_waiting_jobs(single):
    running = single.run("hold gate")
    waiting = [single.run("put ran yes", uid="waiting %d" % number) for number in range(3)]
    single.wait_started(running)
    single.process.send_signal(signal.SIGTERM)
    wait_for(lambda: "shutting down threads\n" in single.stderr(), "the workers' end to begin")
    # Results are gone as well while the tool is waited for.
    for port in (single.port, single.port + 1):
        with pytest.raises(OSError):
            Connection(port, timeout=2).close()
    single.open_gate(running)
    single.stop()
    assert single.stored_status(running) == 3
    assert not (single.job_folder(running) / ".partial").exists()
    for job in waiting:
        assert single.stored_status(job) == 0
        assert (single.job_folder(job) / ".partial").exists()
        assert not (single.job_folder(job) / "ran").exists()
    single.restart()
    single.wait_done(*waiting)
    for job in waiting:
        assert (single.job_folder(job) / "ran").read_text() == "yes"


def test_load_is_recorded(service):
    path = service.log_path / "systeminfo.csv"
    wait_for(lambda: path.exists() and len(path.read_text().splitlines()) >= 4, "three samples")
    lines = path.read_text().splitlines()
    assert lines[0] == "time,cpu_percent,load1,mem_used_kib,mem_total_kib,rss_kib"
    for line in lines[1:3]:
        fields = line.split(",")
        assert len(fields) == 6
        assert all(re.fullmatch(r"\d+(\.\d+)?", field) for field in fields[1:]), line
    service.stop()
    service.restart()
    before = len(lines)
    wait_for(lambda: len(path.read_text().splitlines()) > before, "a sample of the second life")
    assert path.read_text().count("cpu_percent") == 1, "the second life adds to the file"


def test_message_log_form(service):
    service.submit({"commands": []})
    service.submit({"commands": ["true"], "uid": "a\nforged line"})
    for line in service.log().splitlines():
        assert re.match(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z ", line), line


@pytest.mark.parametrize("closed", ["<&-", "2>&-", "<&- 2>&-"])
def test_without_standard_descriptors(services, closed):
    """What is meant for standard error never gets into a file or connection of the service."""
    service = services.start(prefix=["sh", "-c", 'exec "$0" "$@" %s' % closed])
    job = service.run("put file text")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    service.stop()
    for line in service.log().splitlines():
        assert re.match(r"\d{4}-\d\d-\d\dT", line), line


def test_stop_with_an_unreachable_hub_is_quick(services):
    service = services.start()
    begin = time.monotonic()
    service.stop()
    assert time.monotonic() - begin < 10


def test_two_services_side_by_side(services):
    first, second = services.start(), services.start()
    jobs = first.run("put who first"), second.run("put who second")
    for service, job in zip((first, second), jobs):
        service.wait_done(job)
    assert first.deliver("1/who").text == "first"
    assert second.deliver("1/who").text == "second"
