"""The hub stand-in of examples/: it takes registrations both ways and passes jobs on."""

import contextlib
import json
import re
import socket
import subprocess

import pytest
import requests

from ports import closed_port
from service import ROOT
from waiting import wait_for

HUB = ROOT / "examples" / "hub"


class ExampleHub:
    def __init__(self, folder, *options):
        self.output = folder / "hub.out"
        with open(self.output, "wb") as out:
            self.process = subprocess.Popen(
                [str(HUB), "--host", "127.0.0.1", "--port", "0"] + [str(item) for item in options],
                stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT)
        wait_for(lambda: self.process.poll() is not None or "hub listening" in self.text(),
                 lambda: "the hub: " + self.text())
        self.address = re.search(r"^hub listening on (\S+)$", self.text(), re.MULTILINE).group(1)

    def text(self):
        return self.output.read_text()

    def url(self, path):
        return "http://%s%s" % (self.address, path)

    def providers(self):
        reply = requests.get(self.url("/serviceprovider"), timeout=60)
        assert reply.status_code == 200
        return reply.json()

    def job(self, query, description, **headers):
        return requests.post(self.url("/job?" + query), data=json.dumps(description),
                             headers=headers, timeout=60, allow_redirects=False)

    def stop(self):
        self.process.terminate()
        wait_for(lambda: self.process.poll() is not None, "the hub's end")
        return self.process.returncode


@contextlib.contextmanager
def running(folder, *options):
    hub = ExampleHub(folder, *options)
    try:
        yield hub
    finally:
        if hub.process.poll() is None:
            hub.process.kill()
        hub.process.wait()


def test_registration_job_and_removal(services, folder):
    with running(folder, "--mport", 0) as hub:
        assert hub.providers() == []
        service = services.start(hub=hub.address)
        wait_for(hub.providers, "the registration")
        provider, = hub.providers()
        assert (provider["Service"], provider["ProviderId"], provider["Port"], provider["Group"]) \
            == ("TranscoderService", "abc", service.port, "DefaultGroup")
        reply = hub.job("service=TranscoderService", {"commands": ["put index.x3d x"], "reply": "uri"})
        assert (reply.status_code, reply.text) == (202, service.uri(1))
        service.wait_done(1)
        assert service.deliver("1/index.x3d").text == "x"
        reply = hub.job("provider=abc", {"resource": "m.obj", "redirect": True})
        assert reply.status_code == 302
        assert reply.headers["Location"] == service.uri(2) + "/index.x3d"
        assert hub.job("service=TranscoderService", {}).status_code == 400
        assert hub.job("service=Other", {}).status_code == 503
        assert hub.job("provider=xyz", {}).status_code == 503
        assert hub.job("", {}).status_code == 400
        service.stop()
        assert hub.providers() == []
        assert hub.job("service=TranscoderService", {}).status_code == 503
        assert hub.stop() == 0


def test_answer_on_the_host_of_the_client(services, folder):
    with running(folder, "--mport", 0) as hub:
        service = services.start("--replyorigin", hub=hub.address)
        wait_for(hub.providers, "the registration")
        reply = hub.job("service=TranscoderService", {"commands": ["true"]}, Host="front.example:80")
        assert reply.text == "http://front.example:%d/abc/1" % (service.port + 1)


def test_multicast(services, folder):
    port = closed_port()
    with running(folder, "--group", "224.21.12.98", "--mport", port) as hub:
        service = services.start("--mcastreg", "--maddr", "224.21.12.98", "--mport", port, "--mttl", 0)
        wait_for(hub.providers, "the registration")
        assert hub.providers()[0]["Port"] == service.port
        service.stop()
        wait_for(lambda: not hub.providers(), "the removal")


def test_machine_without_multicast(services, folder):
    """203.0.113.9 is the address of no interface, as on a machine without a network."""
    with running(folder, "--interface", "203.0.113.9", "--mport", closed_port()) as hub:
        assert "hub receives no multicast on 224.21.12.68:" in hub.text()
        services.start(hub=hub.address)
        wait_for(hub.providers, "the direct registration")


def test_port_in_use(folder):
    with running(folder, "--mport", 0) as hub:
        result = subprocess.run([str(HUB), "--host", "127.0.0.1", "--port",
                                 hub.address.split(":")[1], "--mport", "0"],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                check=False, timeout=60)
    assert result.returncode == 1
    assert result.stderr == "hub: cannot listen on %s: Address already in use\n" % hub.address


def test_provider_that_died_is_not_listed(services, folder):
    with running(folder, "--mport", 0) as hub:
        first = services.start(hub=hub.address, provider_id="first")
        second = services.start(hub=hub.address, provider_id="second")
        wait_for(lambda: len(hub.providers()) == 2, "both registrations")
        first.kill()
        assert [provider["ProviderId"] for provider in hub.providers()] == ["second"]
        # A job goes to the one that lives.
        reply = hub.job("service=TranscoderService", {"commands": ["true"]})
        assert reply.text == "1@second"
        first.restart()
        wait_for(lambda: len(hub.providers()) == 2, "the registration after the restart")
        second.stop()
        assert [provider["ProviderId"] for provider in hub.providers()] == ["first"]


@pytest.mark.parametrize("document", [
    "nonsense", "[]", "{}", "{\"Command\":\"addServiceProvider\",\"Group\":\"g\"}",
    "{\"Command\":\"other\",\"Group\":\"g\"}", "{\"Command\":\"addServiceProvider\",\"Group\":[]}",
    "{\"Command\":\"removeServiceProvider\",\"Group\":\"g\",\"ProviderId\":[]}",
    "{\"Command\":\"addServiceProvider\",\"Group\":\"g\",\"ServiceProvider\":{\"Service\":\"s\"}}",
])
def test_refused_documents(folder, document):
    with running(folder, "--mport", 0) as hub:
        reply = requests.post(hub.url("/serviceprovider"), data=document, timeout=60)
        assert reply.status_code == 400
        assert hub.providers() == []


def test_unknown_paths_and_help(folder):
    with running(folder, "--mport", 0) as hub:
        assert requests.get(hub.url("/nothing"), timeout=60).status_code == 404
        assert requests.post(hub.url("/nothing"), data="x", timeout=60).status_code == 404
        host, port = hub.address.split(":")
        with socket.create_connection((host, int(port))) as stranger:
            stranger.sendall(b"POST /job HTTP/1.1\r\nHost: x\r\n\r\n")
            assert b" 411 " in stranger.recv(1000)
    result = subprocess.run([str(HUB), "--help"], stdout=subprocess.PIPE, check=True, text=True)
    for word in ("--port", "--group", "--mport", "/serviceprovider", "/job"):
        assert word in result.stdout
