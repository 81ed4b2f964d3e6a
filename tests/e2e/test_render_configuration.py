"""The configuration of the render provider: its file, every key, and the slots that come of it."""

import json
import os
import signal
import socket

import pytest

from hubs import RecordingHub
from render import RenderService, entry, table
from service import DATA, run_program, sanitizer
from test_command_line import behind_banner
from waiting import stays

TEXT_KEYS = {"class": "class", "exe": "app", "portOpt": "portOpt", "classOpt": "classOpt",
             "gpuOpt": "gpuOpt", "cpuOpt": "cpuOpt", "outOpt": "outOpt", "addOpt": "addOpt"}
NUMBER_KEYS = ("gpus", "cpus", "port")
LARGEST, LEAST = 2**31 - 1, -2**31


def table_of(services, config):
    """The table of a service with this configuration."""
    return services.start(kind=RenderService, config=config).table()


def raw_config(entry_text):
    return ('{"renderer":[{"displays":[":0.0"],%s}]}' % entry_text).encode()


def ends_with_failure(services, config=None, folder=None):
    """Starts a service that can't use its configuration; returns what it wrote."""
    service = services.make(kind=RenderService, config=config)
    if folder:
        service.config_path().mkdir(parents=True)
    service.launch()
    assert service.wait_for_end() == 255
    assert "listening" not in service.stdout()
    begin = ("mcast reg : 0\nip reg : %s\ninit with config file : %s\n"
             % (service.hub, service.config_path()))
    found = service.stderr().partition(begin)
    assert found[1], service.stderr()
    return found[2]


def test_lines_of_a_start_and_an_end(services):
    service = services.start(kind=RenderService, renderers=[entry(2, exe="app a")])
    slot = {"app": "app a", "display": ":0"}
    expected = table(slot, dict(slot, display=":1", port=42001))
    begin = ("instantiating provider DappleRenderService\nmcast reg : 0\nip reg : %s\n"
             "init with config file : %s\n" % (service.hub, service.config_path()))
    assert service.stderr().endswith(begin + expected)
    assert service.stdout().endswith(
        "OstrandService listening on port: %d with : 8 threads\n\n" % service.port)
    assert service.stdout().count("listening") == 1
    service.stop()
    assert service.stderr().endswith(begin + expected + "shutting down threads\n")


def test_default_folders(services):
    service = services.make(kind=RenderService, provider_id=None, listen_threads=None, host=None)
    service.arguments = lambda: ["-p", str(service.port)]
    service.cache_root = service.run_folder / "dapple" / "cache"
    service.start()
    assert (service.run_folder / "dapple" / "log" / "messages.log").is_file()
    assert service.jobs_folder().is_dir()
    assert sorted(os.listdir(service.run_folder)) == ["dapple"]


def test_help(folder):
    result = run_program(["--help"], folder, link="DappleRenderService")
    assert result.returncode == 0
    assert behind_banner(result.stdout) == (DATA / "help-render.txt").read_text()


def test_no_hub_is_told(services):
    with RecordingHub() as hub:
        service = services.start("--refresh", 1, kind=RenderService, hub=hub.address)
        service.take()
        service.wait_started(0)
        stays(lambda: not hub.received, "the hub was told", 1.5)
        service.end_tools()
        service.stop()
        assert hub.received == []


def test_busy_port(services):
    """The end comes before any worker runs."""
    with socket.socket(socket.AF_INET) as other:
        service = services.make(kind=RenderService)
        other.bind(("0.0.0.0", service.port))
        other.listen()
        service.launch()
        assert service.wait_for_end() == 255
    assert "\ncannot listen on port %d: " % service.port in service.stderr()
    assert "num renderer slots" not in service.stderr()


def test_there_are_no_options_of_its_own(services):
    service = services.start("--provider", "DappleRenderService", kind=RenderService,
                             link="OstrandService")
    assert service.table() == table({"app": "hold gate", "display": ":0"})
    for option in ("--worker_threads=2", "--delivery_port=3"):
        result = run_program([option], service.folder, link="DappleRenderService")
        assert result.returncode == 255
        assert "Malformed options, sorry:\n" in result.stderr


def test_unused_keys_have_defaults(services):
    assert table_of(services, {"renderer": [{"displays": [":0.0"]}]}) == table({})


def test_every_key(services):
    given = {"class": "ray", "gpus": 2, "cpus": 3, "port": 4, "outputs": ["image", "video"],
             "displays": [":7"], "exe": "app -x", "portOpt": "-p", "classOpt": "-c",
             "gpuOpt": "-g", "cpuOpt": "-u", "outOpt": "-o", "addOpt": "-a"}
    slot = dict(given, app="app -x", display=":7")
    assert table_of(services, {"renderer": [given]}) == table(slot)


@pytest.mark.parametrize("wrong", ["null", "true", "false", "0", "7.5", "{}", "{\"a\":\"b\"}",
                                   "[]", "[\"a\"]"])
def test_text_keys_of_another_type(services, wrong):
    text = ",".join("\"%s\":%s" % (key, wrong) for key in TEXT_KEYS)
    assert table_of(services, raw_config(text)) == table({})


@pytest.mark.parametrize("wrong", ["null", "true", "false", "\"2\"", "\"\"", "{}", "[]", "[2]"])
def test_number_keys_of_another_type(services, wrong):
    text = ",".join("\"%s\":%s" % (key, wrong) for key in NUMBER_KEYS)
    assert table_of(services, raw_config(text)) == table({})


@pytest.mark.parametrize("wrong", ["null", "true", "7", "\"image\"", "{\"0\":\"image\"}"])
def test_outputs_of_another_type(services, wrong):
    assert table_of(services, raw_config("\"outputs\":" + wrong)) == table({})


@pytest.mark.parametrize("number, read", [
    ("42000.9", 42000), ("-1.9", -1), ("-0.9", 0), ("-0", 0), ("0", 0), ("0.5", 0), ("1e3", 1000),
    ("1E+3", 1000), ("12345e-2", 123), ("2147483647", LARGEST), ("2147483648", LARGEST),
    ("4294967296", LARGEST), ("9007199254740993", LARGEST), ("1e20", LARGEST), ("1e308", LARGEST),
    ("-2147483648", LEAST), ("-2147483649", LEAST), ("-1e20", LEAST), ("1e-320", 0)])
def test_numbers_in_every_form(services, number, read):
    text = ",".join("\"%s\":%s" % (key, number) for key in NUMBER_KEYS)
    assert table_of(services, raw_config(text)) == table(
        {"gpus": read, "cpus": read, "port": read})


def test_texts_are_taken_as_they_are(services):
    given = {key: "ä \"%s\" " + key for key in TEXT_KEYS}
    slot = {field: given[key] for key, field in TEXT_KEYS.items()}
    assert table_of(services, {"renderer": [dict(given, displays=[":0.0"])]}) == table(slot)


def test_empty_texts_are_texts(services):
    config = {"renderer": [dict({key: "" for key in TEXT_KEYS}, displays=[""])]}
    assert table_of(services, config) == table(
        dict({field: "" for field in TEXT_KEYS.values()}, display=""))


@pytest.mark.parametrize("outputs, behind", [
    ([], []), (["image"], ["image"]), (["framebuffer"], ["framebuffer"]),
    (["b", "b", "a"], ["b", "b", "a"]), ([1, "a", None, ["b"], True, {}, "", "c"], ["a", "", "c"])])
def test_outputs_are_added_to_the_frame_buffer(services, outputs, behind):
    config = {"renderer": [{"displays": [":0.0"], "outputs": outputs}]}
    assert table_of(services, config) == table({"outputs": behind})


def test_keys_of_other_names_are_not_read(services):
    others = {key: "x" for key in ("app", "className", "display", "Class", "output", "port ", "",
                                   "renderer")}
    assert table_of(services, {"renderer": [dict(others, displays=[":0.0"])],
                               "port": 7, "class": "x"}) == table({})


def test_the_last_of_equal_keys_counts(services):
    assert table_of(services, raw_config("\"port\":1,\"port\":2")) == table({"port": 2})


def test_displays_become_slots_with_ports_running_up(services):
    config = {"renderer": [{"port": 50000, "displays": [":0.0", ":0.1", ":0.0"]}]}
    assert table_of(services, config) == table(
        {"port": 50000}, {"port": 50001, "display": ":0.1"}, {"port": 50002})


def test_entries_are_independent(services):
    config = {"renderer": [
        {"class": "a", "gpus": 8, "port": 7, "outputs": ["x"], "displays": [":1", ":2"]},
        {"displays": [":3"]},
        {"outputs": ["y"], "displays": [":4"]}]}
    first = {"class": "a", "gpus": 8, "outputs": ["x"]}
    assert table_of(services, config) == table(
        dict(first, port=7, display=":1"), dict(first, port=8, display=":2"), {"display": ":3"},
        {"display": ":4", "outputs": ["y"]})


def test_displays_that_are_no_text_are_skipped(services):
    config = {"renderer": [{"displays": [1, ":1", None, [":2"], {}, True, ":3"]}]}
    assert table_of(services, config) == table({"display": ":1"}, {"display": ":3", "port": 42001})


@pytest.mark.parametrize("port, ports", [
    (LARGEST - 1, [LARGEST - 1, LARGEST, LARGEST]), (1e20, [LARGEST] * 3), (-1, [-1, 0, 1]),
    (-1e20, [LEAST, LEAST + 1, LEAST + 2]), (65535, [65535, 65536, 65537])])
def test_ports_at_the_ends_of_the_range(services, port, ports):
    config = {"renderer": [{"port": port, "displays": [":0.0"] * 3}]}
    assert table_of(services, config) == table(*[{"port": number} for number in ports])


@pytest.mark.parametrize("config", [
    b"{}", b"[]", b"5", b"0", b"-1e3", b"null", b"true", b"\"renderer\"", b" {}\r\n",
    b"{\"renderer\":[]}", b"{\"renderer\":null}", b"{\"renderer\":5}", b"{\"renderer\":\"x\"}",
    b"{\"renderer\":{\"displays\":[\":0\"]}}", b"{\"Renderer\":[{\"displays\":[\":0\"]}]}",
    b"[{\"renderer\":[{\"displays\":[\":0\"]}]}]", b"{\"renderer\":[{}]}",
    b"{\"renderer\":[{\"displays\":[]}]}", b"{\"renderer\":[{\"displays\":\":0\"}]}",
    b"{\"renderer\":[{\"displays\":null}]}", b"{\"renderer\":[{\"displays\":{\"a\":\":0\"}}]}",
    b"{\"renderer\":[{\"displays\":[0]}]}", b"{\"renderer\":[null,5,\"x\",[],[\":0\"],true]}"])
def test_no_slots(services, config):
    service = services.start(kind=RenderService, config=config)
    assert service.table() == table()
    assert service.refused()
    assert service.detail("0").status_code == 400
    assert service.rows() == {}


def test_entries_that_are_no_objects_leave_the_others_alone(services):
    config = {"renderer": [5, {"displays": [":1"]}, None, "x", [], {"displays": [":2"]}]}
    assert table_of(services, config) == table({"display": ":1"}, {"display": ":2"})


def test_no_file(services):
    assert ends_with_failure(services) == "dapple config file not found\n"


def test_a_folder_for_a_file(services):
    assert ends_with_failure(services, folder=True) == ""


@pytest.mark.parametrize("text", [
    b"", b" \n", b"{", b"}", b"{\"renderer\":[}", b"nonsense", b"{} {}", b"{'renderer':[]}",
    b"{\"renderer\":[],}", b"{\"port\":1e999}", b"\xef\xbb\xbf{}", b"\0",
    b"[" * 200 + b"]" * 200, b"{\"a\":" * 200 + b"1" + b"}" * 200, b"{\"renderer\":[]}x"])
def test_what_is_no_json(services, text):
    assert ends_with_failure(services, config=text) == ""


def test_a_named_pipe_for_a_file(services):
    """Nobody writes into it: it must not hold up the start."""
    service = services.make(kind=RenderService, config=None)
    service.config_path().parent.mkdir(parents=True)
    os.mkfifo(service.config_path())
    service.launch()
    assert service.wait_for_end(seconds=30) == 255


def test_a_link_to_nothing_is_no_file(services):
    service = services.make(kind=RenderService, config=None)
    service.config_path().parent.mkdir(parents=True)
    service.config_path().symlink_to("nowhere")
    service.launch()
    assert service.wait_for_end() == 255
    assert service.stderr().endswith("dapple config file not found\n")


def test_nesting_that_is_still_json(services):
    config = b"{\"renderer\":[{\"displays\":[\":0.0\"]}],\"deep\":" + b"[" * 90 + b"]" * 90 + b"}"
    assert table_of(services, config) == table({})


@pytest.mark.parametrize("config, line", [
    ({"renderer": []}, ""), (None, "dapple config file not found\n"), (b"{", "")])
def test_the_file_is_read_even_if_the_folders_fail(services, config, line):
    service = services.make(kind=RenderService, config=config)
    service.cache_root.symlink_to("nowhere/at/all")
    service.launch()
    assert service.wait_for_end() == 255
    assert service.stdout().endswith(
        "Error: cannot create base cache folders in this directory. Please use the command line to "
        "specify existing folders for both.\n")
    assert service.stderr().endswith(
        "instantiating provider DappleRenderService\ninit with config file : %s\n%s"
        % (service.config_path(), line))


def test_hundreds_of_slots(services):
    """A worker for each."""
    count = 300
    service = services.start(kind=RenderService, renderers=[entry(count)])
    with open("/proc/%d/status" % service.process.pid) as status:
        threads = int(next(line for line in status if line.startswith("Threads:")).split()[1])
    assert threads > count
    assert service.table().count("Renderer : ") == count
    assert service.detail("%d" % (count - 1)).status_code == 400
    service.stop()


def million_displays():
    return json.dumps({"renderer": [{"displays": [":0"] * 1000000}]}).encode()


def test_a_million_displays(services):
    """More workers than there are threads: one line, and an end in order."""
    if sanitizer():
        pytest.skip("the checkers need terabytes of addresses, and themselves end a program that runs "
                    "out of threads")
    # Room for some hundred threads.
    service = services.make(kind=RenderService, config=million_displays(),
                            prefix=["prlimit", "--as=%d" % 2**32])
    service.launch()
    assert service.wait_for_end(seconds=300) == 255
    last = service.stderr().splitlines()[-2:]
    assert last[0] == "shutting down threads"
    assert last[1].startswith("cannot start 1000000 worker threads: "), last
    assert "num renderer slots" not in service.stderr()


def test_hub_data_folder(services):
    """Where the file is looked for."""
    service = services.make(kind=RenderService, config=None)
    home = service.folder / "home"
    path = home / ".local/share/ostrandhub/config/dappleconfig.json"
    path.parent.mkdir(parents=True)
    path.write_text(json.dumps({"renderer": [entry()]}))
    service.extra_environment = {"OSTRANDHUB_DATA": "", "XDG_DATA_HOME": "", "HOME": str(home)}
    service.start()
    assert "init with config file : %s\n" % path in service.stderr()


def test_the_file_is_read_once(services):
    service = services.start(kind=RenderService)
    service.write_config({"renderer": [entry(5)]})
    assert service.take() == 0
    assert service.refused()
    service.wait_started(0)
    service.end_tools()
    service.stop(signal.SIGINT)
    service.restart()
    assert service.table().startswith("num renderer slots : 5\n")
