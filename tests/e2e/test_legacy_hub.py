"""The legacy transcoder and its hub: the document by multicast, its renewal and its end."""

import json
import socket

import pytest

from hubs import MulticastReceiver, RecordingHub
from legacy import LegacyService
from waiting import wait_for

GROUP = "239.255.77.77"


def document(service, identifier, group="DefaultGroup"):
    """The text that registers the service, byte for byte."""
    return (
        "{\n"
        "  \"Command\" : \"addServiceProvider\",\n"
        "  \"Group\" : \"" + group + "\",\n"
        "  \"ServiceProvider\" : \n"
        "  {\n"
        "    \"Service\"    : \"TranscoderService\",\n"
        "    \"ProviderId\" : \"" + identifier + "\",\n"
        "    \"Host\"       : \"" + socket.gethostname() + "\",\n"
        "    \"Port\"       : " + str(service.port) + ",\n"
        "    \"DataPort\"   : " + str(service.port + 1) + ",\n"
        "    \"JobUri\"     : \"/job\"\n"
        "  }\n"
        "}\n")


def removal(identifier, group="DefaultGroup"):
    return {"Command": "removeServiceProvider", "Group": group, "ProviderId": identifier}


def whole_identifier(service):
    return (service.cache_root / ".serviceid").read_text().strip()


def test_document_and_deregistration(services):
    service = services.make(kind=LegacyService)
    with MulticastReceiver(GROUP, service.multicast_port) as receiver:
        service.start()
        assert receiver.receive() == document(service, whole_identifier(service))
        identifier = whole_identifier(service)
        service.stop()
        text = receiver.receive()
        assert text == json.dumps(removal(identifier), separators=(",", ":"))


@pytest.mark.parametrize("options,provider_id", [
    (["--shortuuid", "--group", "G"], None), (["--delivery_port", 8080, "--group", "G"], "P"),
])
def test_options_that_do_not_reach_it(services, options, provider_id):
    """Neither the short identifier nor the one from the options, nor the host's given name, the
    delivery port or the hub's own address."""
    with RecordingHub() as hub:
        service = services.make(kind=LegacyService, options=options, provider_id=provider_id,
                                host="elsewhere.example", hub=hub.address)
        with MulticastReceiver(GROUP, service.multicast_port) as receiver:
            service.start()
            identifier = whole_identifier(service)
            assert len(identifier) == 36
            assert receiver.receive() == document(service, identifier, "G")
            service.stop()
            assert json.loads(receiver.receive()) == removal(identifier, "G")
        assert hub.received == []


def test_registered_when_results_are_served(services):
    service = services.make(kind=LegacyService)
    with MulticastReceiver(GROUP, service.multicast_port) as receiver:
        service.launch()
        receiver.receive()
        assert service.fetch("/favicon.ico").status_code == 200
        assert service.upload(b"x").text.endswith("@" + whole_identifier(service))


def test_renewal(services):
    service = services.make(kind=LegacyService, options=["--refresh", 65537])
    other = services.make(kind=LegacyService, options=["--refresh", 65536])
    with MulticastReceiver(GROUP, service.multicast_port) as receiver, \
            MulticastReceiver(GROUP, other.multicast_port) as silent:
        other.start()
        service.start()
        first = receiver.receive()
        # Of the interval the low half counts: one second, and none.
        assert receiver.receive() == first
        silent.receive()
        with pytest.raises(TimeoutError):
            silent.receive(0.3)


@pytest.mark.parametrize("address", ["nonsense", "300.1.1.1", "", "10.1.2.3"])
def test_address_that_is_no_group(services, address):
    service = services.make(kind=LegacyService)
    service.options[service.options.index(GROUP)] = address
    service.start()
    wait_for(lambda: "Z hub " in service.log(), "the line in the log")
    job = service.run()
    service.wait_done(job)
    assert service.stop() < 10


def test_quote_in_the_group(services):
    """It breaks the registration, and that is accepted; the deregistration it does not."""
    service = services.make(kind=LegacyService, options=["--group", "a\"b\\c"])
    with MulticastReceiver(GROUP, service.multicast_port) as receiver:
        service.start()
        identifier = whole_identifier(service)
        assert receiver.receive() == document(service, identifier, "a\"b\\c")
        service.stop()
        assert json.loads(receiver.receive()) == removal(identifier, "a\"b\\c")


def test_deregistered_before_the_jobs_in_hand_have_ended(services):
    service = services.make(kind=LegacyService)
    with MulticastReceiver(GROUP, service.multicast_port) as receiver:
        service.start()
        receiver.receive()
        job = service.run("hold gate")
        service.wait_started(job)
        service.process.terminate()
        assert json.loads(receiver.receive())["Command"] == "removeServiceProvider"
        assert not service.has_ended()
        service.open_gate(job)
        assert service.wait_for_end() == 0
