"""The hub: the registration document, both ways to send it, renewal, deregistration, bad hubs."""

import json
import os
import re
import subprocess

import pytest

from hubs import MulticastReceiver, RecordingHub, RudeHub
from ports import closed_port
from test_update_state import place_job
from waiting import stays, wait_for

CONFIG = {"commandWhitelist": ["one"], "envWhitelist": ["E"], "cookieWhitelist": [],
          "cookieAwareCommands": ["c"]}


def document(service, page, group="DefaultGroup", port_ssl=0, delivery=None, threads=3,
             command_list="        \"one\"\n", aware="        \"c\"\n"):
    """The text that registers the service, byte for byte; `page` is its JSON front page."""
    return (
        "{\n"
        "  \"Command\" : \"addServiceProvider\",\n"
        "  \"Group\" : \"" + group + "\",\n"
        "  \"ServiceProvider\" : \n"
        "  {\n"
        "    \"Service\"     : \"TranscoderService\",\n"
        "    \"ProviderId\"  : \"" + service.provider_id + "\",\n"
        "    \"Host\"        : \"" + service.host + "\",\n"
        "    \"MachineType\" : \"" + page["MachineType"] + "\",\n"
        "    \"CPUs\"        : \"" + page["CPUs"] + "\",\n"
        "    \"OS\"          : \"" + page["OS"] + "\",\n"
        "    \"Port\"        : " + str(service.port) + ",\n"
        "    \"PortSSL\"     : " + str(port_ssl) + ",\n"
        "    \"JobUri\"      : \"/job\",\n"
        "\n"
        "    \"Delivery\"         : \"" + (delivery or service.delivery) + "\",\n"
        "    \"NumThreads\"       : " + str(threads) + ",\n"
        "    \"transcoderConfig\" : \n"
        "    {\n"
        "      \"commandWhitelist\" : \n      [\n" + command_list + "      ],\n"
        "      \"envWhitelist\"  : \n      [\n        \"E\"\n      ],\n"
        "      \"cookieWhitelist\"  : \n      [\n\n      ],\n"
        "      \"cookieAwareCommands\"  : \n      [\n" + aware + "      ]\n"
        "    }\n"
        "  }\n"
        "}\n")


def front(service):
    return service.get("/", headers={"Accept": "application/json"}).json()


def removal(service, group="DefaultGroup"):
    return {"Command": "removeServiceProvider", "Group": group, "ProviderId": service.provider_id}


def test_document_and_deregistration(services):
    with RecordingHub() as hub:
        service = services.start(hub=hub.address, config=CONFIG)
        assert "mcast reg : 0\nip reg : %s\n" % hub.address in service.stderr()
        text, = hub.wait_for(1)
        assert text == document(service, front(service))
        method, path, headers, _, _ = hub.received[0]
        assert (method, path) == ("POST", "/serviceprovider")
        assert headers["Content-Type"] == "application/json"
        # Once, as nobody asked for renewal.
        stays(lambda: len(hub.received) == 1, "it was sent again", 1.2)
        service.stop()
        text = hub.wait_for(2)[1]
        assert json.loads(text) == removal(service)
        assert text == json.dumps(removal(service), separators=(",", ":"))
        assert hub.received[1][:2] == ("POST", "/serviceprovider")
        assert len(hub.received) == 2


def test_document_with_every_option(services):
    with RecordingHub() as hub:
        service = services.start(
            "--group", "G", "--worker_threads", 5, "--delivery_service", "http://d/e",
            hub=hub.address, host="the host", provider_id="X", config=CONFIG)
        text, = hub.wait_for(1)
        assert text == document(service, front(service), group="G", delivery="http://d/e",
                                threads=5)


def test_lists_of_several_entries(services):
    names = ["one", "two", "three", "four"]
    with RecordingHub() as hub:
        service = services.start(hub=hub.address, config=dict(CONFIG, commandWhitelist=names))
        text, = hub.wait_for(1)
        line = re.search(r"\"commandWhitelist\" : \n      \[\n(.*\n)      \],", text).group(1)
        # In whatever order the set has them.
        assert sorted(line.strip().split(", ")) == sorted('"%s"' % name for name in names)
        assert text == document(service, front(service), command_list=line)
        registered = json.loads(text)["ServiceProvider"]
        assert set(registered["transcoderConfig"]["commandWhitelist"]) == set(names)
        assert registered["CPUs"] == str(int(registered["CPUs"]))
        assert isinstance(registered["Port"], int)


def test_default_lists(services):
    with RecordingHub() as hub:
        services.start(hub=hub.address, config=None)
        lists = json.loads(hub.wait_for(1)[0])["ServiceProvider"]["transcoderConfig"]
        assert sorted(lists.pop("commandWhitelist")) == ["fettle", "fettle.exe", "glimt"]
        assert lists == {"envWhitelist": [], "cookieWhitelist": [], "cookieAwareCommands": []}


def test_document_follows_no_configuration_at_run_time(services):
    with RecordingHub() as hub:
        service = services.start("--refresh", 1, hub=hub.address, config=CONFIG)
        first, = hub.wait_for(1)
        service.post("/config", {"deliveryPort": 1})
        count = len(hub.received)
        assert hub.wait_for(count + 2)[-1] == first


def test_renewal(services):
    with RecordingHub() as hub:
        service = services.start("--refresh", 1, hub=hub.address)
        texts = hub.wait_for(4)
        assert len(set(texts)) == 1
        times = [entry[4] for entry in hub.received]
        # Three renewals take three seconds. On a busy machine the first message may be seen late, and
        # the next ones are then closer to it.
        assert times[3] - times[0] > 2.5, times
        service.stop()
        assert json.loads(hub.received[-1][3]) == removal(service)


def test_renewal_goes_on_after_failures(services):
    with RecordingHub(code=500) as hub:
        service = services.start("--refresh", 1, hub=hub.address)
        hub.wait_for(3)
        wait_for(lambda: service.log().count("hub %s: " % hub.address) >= 2, "lines in the log")


def test_only_the_low_half_of_the_interval_counts(services):
    """65537 seconds are one, and 65536 none."""
    with RecordingHub() as hub, RecordingHub() as other:
        services.start("--refresh", 65536, hub=other.address)
        services.start("--refresh", 65537, hub=hub.address)
        hub.wait_for(3)
        assert len(other.received) == 1


def test_what_is_escaped_and_what_is_not(services):
    """A quote breaks the registration, and that is accepted; the deregistration it does not."""
    with RecordingHub() as hub:
        config = dict(CONFIG, cookieAwareCommands=["c\""])
        service = services.start("--group", "a\"b\\c", hub=hub.address, host="h\"", config=config)
        text, = hub.wait_for(1)
        assert text.startswith("{\n  \"Command\" : \"addServiceProvider\",\n"
                               "  \"Group\" : \"a\"b\\c\",\n")
        assert "    \"Host\"        : \"h\"\",\n" in text
        assert "      [\n        \"c\"\"\n      ]\n" in text
        with pytest.raises(json.JSONDecodeError):
            json.loads(text)
        service.stop()
        last = json.loads(hub.received[-1][3])
        assert (last["Command"], last["Group"]) == ("removeServiceProvider", "a\"b\\c")


def test_identifier_of_the_document(services):
    with RecordingHub() as hub:
        service = services.start("--shortuuid", provider_id=None, hub=hub.address)
        whole = (service.cache_root / ".serviceid").read_text().strip()
        registered = json.loads(hub.wait_for(1)[0])["ServiceProvider"]
        assert registered["ProviderId"] == whole[:8]
        service.stop()
        assert json.loads(hub.received[-1][3])["ProviderId"] == whole[:8]


def test_identifier_with_a_quote(services):
    """It breaks the registration, and the hub is told the end of the same."""
    config = dict(CONFIG, envWhitelist=["ProviderId"])
    with RecordingHub() as hub:
        service = services.start(provider_id="a\"b", hub=hub.address, config=config)
        assert "    \"ProviderId\"  : \"a\"b\",\n" in hub.wait_for(1)[0]
        service.stop()
        assert json.loads(hub.received[-1][3])["ProviderId"] == "a\"b"


def test_secure_port_is_announced_with_the_flag_alone(services, certificate):
    """With --ssl the hub is asked over TLS, and one whose certificate nobody vouches for is not
    told anything."""
    with RecordingHub(certificate=certificate) as hub:
        service = services.start("--ssl", hub=hub.address)
        wait_for(lambda: "hub %s: " % hub.address in service.log(), "the line in the log")
        assert hub.received == []
        assert front(service)["PortSSL"] == service.port - 1
        service.stop()
        assert hub.received == []


def trusting(certificate):
    """A command that runs the program where the system's store holds that certificate alone."""
    store = "/etc/ssl/certs/ca-certificates.crt"
    script = "mount --bind %s %s && exec \"$@\"" % (certificate, store)
    prefix = ["unshare", "--mount", "sh", "-c", script, "sh"]
    if not os.path.exists(store) or subprocess.run(
            prefix + ["true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        pytest.skip("needs the right to mount over " + store)
    return prefix


def test_hub_over_tls(services, certificate):
    with RecordingHub(certificate=certificate) as hub:
        service = services.start("--ssl", hub=hub.address, config=CONFIG,
                                 prefix=trusting(certificate[0]))
        text, = hub.wait_for(1)
        assert text == document(service, front(service), port_ssl=service.port - 1)
        service.stop()
        assert json.loads(hub.received[-1][3]) == removal(service)


def test_registered_when_everything_is_up(services):
    """The document comes when delivery and workers are there: a hub may answer with a job."""
    with RecordingHub() as hub:
        service = services.make(hub=hub.address)
        place_job(service, 1, 3)
        service.launch()
        hub.wait_for(1)
        assert service.is_listening()
        assert service.fetch("/favicon.ico").status_code == 200


@pytest.mark.parametrize("way", ["-m", "--mcastreg"])
def test_multicast(services, way):
    port = closed_port()
    group = "224.21.12.99"
    with MulticastReceiver(group, port) as receiver, RecordingHub() as hub:
        service = services.start(way, "--maddr", group, "--mport", port, "--mttl", 0, "--refresh", 1,
                                 hub=hub.address, config=CONFIG)
        assert "mcast reg : 1\n" in service.stderr()
        text = receiver.receive()
        assert text == document(service, front(service))
        assert receiver.receive() == text, "the renewal"
        service.stop()
        last = receiver.receive()
        while last == text:
            last = receiver.receive()
        assert json.loads(last) == removal(service)
        # Of the two ways only one is taken.
        assert hub.received == []


@pytest.mark.parametrize("address", ["nonsense", "300.1.1.1", "", "10.1.2.3.4"])
def test_multicast_address_that_is_none(services, address):
    service = services.start("--mcastreg", "--maddr", address)
    wait_for(lambda: "Z hub :" in service.log(), "the line in the log")
    assert "Z hub: no multicast address: %s\n" % address in service.log()
    assert service.stop() < 10


@pytest.mark.parametrize("manner", ["silent", "garbage", "closing"])
def test_rude_hub(services, manner):
    """Neither start nor end waits for it, and jobs run meanwhile."""
    with RudeHub(manner) as hub:
        service = services.start(hub=hub.address)
        wait_for(lambda: hub.connections, "the connection")
        job = service.run("true")
        service.wait_done(job)
        if manner != "silent":
            wait_for(lambda: "hub %s: " % hub.address in service.log(), "the line in the log")
        assert service.stop() < 10


def test_slow_hub_is_told_of_the_end(services):
    """A registration that is still under way is given up for the deregistration."""
    with RudeHub("waking") as hub:
        service = services.start(hub=hub.address)
        wait_for(lambda: hub.connections, "the registration")
        assert service.stop() < 10
        wait_for(lambda: hub.received, "the deregistration")
        assert json.loads(hub.received[0].partition(b"\r\n\r\n")[2]) == removal(service)


def test_silent_hub_is_given_up(services):
    with RudeHub("silent") as hub:
        service = services.start(hub=hub.address)
        wait_for(lambda: re.search(r"Z hub %s: \S" % re.escape(hub.address), service.log()),
                 "the line in the log")


@pytest.mark.parametrize("address", [
    "127.0.0.1:1", "no-such-host.invalid:80", "127.0.0.1", "127.0.0.1:99999", "127.0.0.1:port", ":",
    "http://127.0.0.1:1", "[::1]:1", "[::1", "a b", "127.0.0.1:1/path?x", "@",
])
def test_address_that_leads_nowhere(services, address):
    service = services.start(hub=address)
    assert "ip reg : %s\n" % address in service.stderr()
    job = service.run("true")
    service.wait_done(job)
    assert service.stop() < 10
    lines = re.findall(r"Z hub .*: \S.*", service.log())
    assert lines
    # What never registered is not deregistered: one line for the one attempt.
    assert len(lines) <= 2


def test_hub_that_comes_later(services):
    """A failed registration is tried again with the next renewal."""
    port = closed_port()
    address = "127.0.0.1:%d" % port
    service = services.start("--refresh", 1, hub=address)
    wait_for(lambda: "hub %s: " % address in service.log(), "the line in the log")
    with RecordingHub(port=port) as hub:
        assert json.loads(hub.wait_for(1)[0])["Command"] == "addServiceProvider"
        service.stop()
        assert json.loads(hub.received[-1][3]) == removal(service)
