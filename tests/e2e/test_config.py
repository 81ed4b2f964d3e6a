"""The configuration file, the addresses of the delivery server, and POST /config."""

import socket

import pytest

from raw_http import ask, request
from service import run_program
from test_pages import JSON
from waiting import wait_for

REFRESH = "<HEAD>\n<meta http-equiv=\"refresh\" content=\"0; url=/index.html\"/>\n</HEAD>\n"


def delivery_of(service):
    return service.get("/", headers=JSON).json()["Delivery"]


# The file.

def test_missing_file(services):
    service = services.start(config=None)
    assert "init with config file : %s\n" % service.config_path() in service.stderr()
    assert service.submit({"commands": ["true"]}).status_code == 400
    assert service.submit({"commands": ["fettle"]}).status_code == 202


@pytest.mark.parametrize("content", [
    b"", b" \n\t", b"nonsense", b"{", b"{} trailing", b"{\"commandWhitelist\":[1e999]}",
    b"[" * 200 + b"]" * 200, b"\xff\xfe",
])
def test_unusable_file_ends_the_start(services, content):
    service = services.make(config=content)
    service.launch()
    assert service.wait_for_end() == 255
    assert "init with config file : %s\n" % service.config_path() in service.stderr()
    assert "listening" not in service.stdout()


def test_folder_in_place_of_the_file_ends_the_start(services):
    service = services.make(config=None)
    service.config_path().mkdir(parents=True)
    service.launch()
    assert service.wait_for_end() == 255
    assert "init with config file : %s\n" % service.config_path() in service.stderr()


@pytest.mark.parametrize("content,code", [
    ({}, 400), ({"commandWhitelist": ["say"]}, 202), ({"commandWhitelist": []}, 400),
    ({"commandwhitelist": ["say"]}, 400), ({"commandWhitelist": ["*"]}, 202),
    ({"commandWhitelist": ["say*"]}, 400), ({"other": 1, "commandWhitelist": ["x", "say"]}, 202),
    ({"commandWhitelist": [1, "say", None]}, 202),
])
def test_which_tools_a_file_allows(services, content, code):
    service = services.start(config=content)
    assert service.submit({"commands": ["say x"]}).status_code == code
    # A list in the file takes the place of the default one.
    allowed = "commandWhitelist" not in content or "*" in content["commandWhitelist"]
    assert service.submit({"commands": ["fettle"]}).status_code == (202 if allowed else 400)


@pytest.mark.parametrize("key", ["commandWhitelist", "envWhitelist", "cookieWhitelist",
                                 "cookieAwareCommands"])
@pytest.mark.parametrize("value", ["text", 1, {}, None, True, [1]])
def test_value_of_the_wrong_type(services, key, value):
    service = services.start(config={key: value})
    line = "transcoder config: %s is no list of strings\n" % key
    wait_for(lambda: line in service.log(), "the line in the log")
    if value != [1]:
        # The set stays at its default.
        assert service.submit({"commands": ["fettle"]}).status_code == 202


def test_place_of_the_file(folder):
    """The folder of the hub's data comes from the environment, first of all from its own name."""
    def config_path(**values):
        unset = {"OSTRANDHUB_DATA": "", "XDG_DATA_HOME": "", "HOME": ""}
        cache = ["--cache_path", "cache", "--log_path", "log"]
        # A configuration that can't be used ends the start behind the line that names it.
        result = run_program(cache, folder, environment=dict(unset, **values))
        assert result.returncode == 255
        return next(line.partition(" : ")[2] for line in result.stderr.splitlines()
                    if line.startswith("init with config file"))

    for name, below in (("OSTRANDHUB_DATA", ""), ("XDG_DATA_HOME", "/ostrandhub"),
                        ("HOME", "/.local/share/ostrandhub")):
        path = folder / name
        wanted = "%s%s/config/transcoderconfig.json" % (path, below)
        (folder / wanted).parent.mkdir(parents=True)
        (folder / wanted).write_text("unusable")
        assert config_path(**{name: str(path)}) == wanted
    both = {"OSTRANDHUB_DATA": str(folder / "OSTRANDHUB_DATA"),
            "XDG_DATA_HOME": str(folder / "XDG_DATA_HOME"), "HOME": str(folder / "HOME")}
    assert config_path(**both).startswith(str(folder / "OSTRANDHUB_DATA"))
    del both["OSTRANDHUB_DATA"]
    assert config_path(**both).startswith(str(folder / "XDG_DATA_HOME"))


# The addresses.

@pytest.mark.parametrize("options,address", [
    ([], "http://127.0.0.1:{next}"),
    (["--delivery_port", "9000"], "http://127.0.0.1:9000"),
    (["--delivery_service", "http://10.1.2.3:80"], "http://10.1.2.3:80"),
    (["--delivery_service", "not looked into"], "not looked into"),
    (["--delivery_service", "http://x", "--delivery_port", "9000"], "http://x"),
    (["--external_ip", "10.0.0.1"], "http://127.0.0.1:{next}"),
    (["--ssl"], "http://127.0.0.1:{next}"),
])
def test_address_at_the_start(services, options, address):
    service = services.start(*options)
    assert delivery_of(service) == address.format(next=service.port + 1)
    assert service.fetch("/favicon.ico").status_code == 200


def test_options_without_effect(services):
    service = services.start("--fettle_path", "/no/such/fettle", "--disable_url_decode")
    job = service.run("say x")
    service.wait_done(job)
    assert service.state(job) == "CLOSED"
    assert ask(service.port + 1, request("GET", "/%61bc/1/jobId")).body == b"1@abc"


# POST /config.

def check_done(reply):
    assert (reply.status_code, reply.text) == (200, REFRESH)
    assert reply.headers["Access-Control-Allow-Origin"] == "http://x"
    assert reply.headers["Access-Control-Allow-Headers"] == "content-type"
    assert "Content-Type" not in reply.headers


def configure(service, value):
    return service.post("/config", value, headers={"Origin": "http://x"})


@pytest.mark.parametrize("value,address", [
    ({"deliveryPort": 8181}, "http://{name}:8181"),
    ({"deliveryPort": 8181.9}, "http://{name}:8181"),
    ({"deliveryPort": 0}, "http://{name}:0"),
    ({"deliveryPort": -1}, "http://{name}:-1"),
    ({"deliveryPort": 1000000}, "http://{name}:1000000"),
    ({"deliveryPort": "8181"}, "http://{name}:"),
    ({"deliveryPort": None}, "http://{name}:"),
    ({"deliveryPort": True}, "http://{name}:"),
    ({"deliveryPort": 1, "deliveryHost": "h"}, "http://h:1"),
    ({"deliveryPort": 1, "deliveryHost": 7}, "http://{name}:1"),
    ({"deliveryPort": 1, "deliveryHost": ""}, "http://:1"),
    ({"deliveryPort": 1, "deliveryHost": "localip"}, "http://10.0.0.1:1"),
    ({"deliveryPort": 1, "deliveryHost": "LocalIP"}, "http://LocalIP:1"),
    ({"deliveryPort": 1, "deliveryProto": "https"}, "https://{name}:1"),
    ({"deliveryPort": 1, "deliveryProto": 1}, "http://{name}:1"),
    ({"deliveryProto": "https"}, "https://{name}:{next}"),
    ({"deliveryProto": None}, "http://{name}:{next}"),
    ({"deliveryProto": ""}, "://{name}:{next}"),
    ({"deliveryProto": "https", "deliveryHost": "localip"}, "https://10.0.0.1:{next}"),
    ({"service": "TranscoderService", "deliveryPort": 5}, "http://{name}:5"),
    ({"service": 1, "deliveryPort": 5}, "http://{name}:5"),
    ({"deliveryHost": "h"}, None),
    ({}, None),
    ({"threads": 8}, None),
    ({"unknown": {}}, None),
])
def test_new_address(services, value, address):
    service = services.start("--external_ip", "10.0.0.1")
    before = delivery_of(service)
    assert before == "http://127.0.0.1:%d" % (service.port + 1)
    check_done(configure(service, value))
    wanted = before if address is None else address.format(
        name=socket.gethostname(), next=service.port + 1)
    assert delivery_of(service) == wanted
    assert service.submit({"commands": ["true"], "reply": "uri"}).text == wanted + "/abc/1"
    assert "Delivery    : %s\n" % wanted in service.get("/").text


def test_address_with_the_option_of_the_port(services):
    service = services.start("--delivery_port", 9000)
    check_done(configure(service, {"deliveryProto": "https", "deliveryHost": "localip"}))
    # Without an external address the machine's name stands for it.
    assert delivery_of(service) == "https://%s:9000" % socket.gethostname()


def test_new_address_is_kept_by_no_restart(service):
    before = delivery_of(service)
    check_done(configure(service, {"deliveryPort": 8181}))
    service.stop()
    service.restart()
    assert delivery_of(service) == before


def test_threads_stay(services):
    service = services.start("--worker_threads", 2)
    check_done(configure(service, {"threads": 8}))
    assert service.get("/", headers=JSON).json()["NumThreads"] == 2


@pytest.mark.parametrize("body,message", [
    ("", "JSON POST parsing error: syntax error at line 1 near: "),
    ("nonsense", "JSON POST parsing error: syntax error at line 1 near: "),
    ("{\n\"deliveryPort\":8181,\n}", "JSON POST parsing error: syntax error at line 3 near: "),
    ("[]", None), ("1", None), ("null", None), ("\"x\"", None),
    ("{\"service\":\"OtherService\",\"deliveryPort\":8181}",
     "looking for wrong service : OtherService\n"),
    ("{\"service\":\"%s%n\",\"deliveryPort\":8181}", "looking for wrong service : %s%n\n"),
    ("{\"service\":\"\",\"deliveryPort\":8181}", "looking for wrong service : \n"),
    ("{\"service\":\"transcoderservice\",\"deliveryPort\":8181}",
     "looking for wrong service : transcoderservice\n"),
])
def test_refused(service, body, message):
    before, written = delivery_of(service), service.stderr()
    reply = configure(service, body)
    assert (reply.status_code, reply.content) == (400, b"")
    assert reply.headers["Access-Control-Allow-Origin"] == "http://x"
    assert delivery_of(service) == before
    added = service.stderr()[len(written):]
    if message is None:
        assert added == ""
    else:
        assert added.startswith(message)
        assert added.endswith("\n")


def test_number_that_is_too_large(service):
    before = delivery_of(service)
    reply = configure(service, "{\"deliveryPort\":1e999}")
    assert (reply.status_code, reply.content) == (400, b"")
    assert delivery_of(service) == before


@pytest.mark.parametrize("number", ["1e20", "-1e20", "1e300"])
def test_port_beyond_every_integer(service, number):
    check_done(configure(service, "{\"deliveryPort\":%s}" % number))
    address = delivery_of(service)
    assert address.startswith("http://%s:" % socket.gethostname())
    # Digits, whatever they are: no exponent, no fraction.
    assert address.rpartition(":")[2].lstrip("-").isdigit()


@pytest.mark.parametrize("body", [
    "{\"deliveryPort\":8181} trailing", "{\"deliveryPort\":8181}\0{", "{\"deliveryPort\":8181}}",
])
def test_text_behind_the_object_is_not_looked_at(service, body):
    check_done(configure(service, body))
    assert delivery_of(service).endswith(":8181")


@pytest.mark.parametrize("method", ["GET", "PUT", "DELETE", "OPTIONS", "HEAD"])
def test_other_methods(service, method):
    before = delivery_of(service)
    reply = service.request(method, "/config", data="{\"deliveryPort\":8181}",
                            headers={"Origin": "http://x"})
    assert (reply.status_code, reply.content) == (400, b"")
    assert reply.headers["Access-Control-Allow-Origin"] == "http://x"
    assert delivery_of(service) == before


@pytest.mark.parametrize("option", ["false", "true"])
def test_reconfiguration_option_is_not_consulted(services, option):
    service = services.start("--allowReconfig", option)
    check_done(configure(service, {"deliveryPort": 8181}))
    assert delivery_of(service).endswith(":8181")
