"""The states of many legacy jobs in one request."""

import pytest

from legacy import LegacyService


@pytest.fixture(scope="module")
def service(module_services):
    """Holds job 1, closed; 2, error; 3, in process; 4, open; 5, canceled; 6, deleted; and, from an
    earlier process, 7, terminated and 9, marked for deletion. There is no job 8."""
    made = module_services.make(options=["--worker_threads", 1], kind=LegacyService)
    for identifier, state in ((7, 7), (9, 4)):
        folder = made.cache_root / str(identifier)
        folder.mkdir(parents=True)
        (folder / ".meta").write_text('{"resource":"old %d"}' % identifier)
        (folder / ".status").write_text('{ "status" : %d}\n' % state)
    made.start()
    for resource in ("closed", "exit-with 1", "deleted", "hold gate", "open", "canceled"):
        made.run(resource)
    made.wait_done(10, 11, 12)
    assert made.get("/job/delete?id=12").text == "ok"
    assert made.get("/job/delete?id=15").text == "ok"
    made.wait_started(13)
    return made


def ask(service, *elements, **arguments):
    reply = service.post("/job/updateState", {"Parameters": list(elements)}, **arguments)
    assert reply.status_code == 200
    return reply


EXPECTED = {7: 200, 10: 200, 13: 202, 14: 202}


def test_states(service):
    assert [service.state(number) for number in range(7, 16)] == [
        "TERMINATED", "INVALID", "MARKED FOR DELETION", "CLOSED", "ERROR", service.state(12),
        "IN PROCESS", "OPEN", "CANCELED"]
    uris = [service.uri(number) for number in range(0, 20)]
    reply = ask(service, *[[0, uri] for uri in uris], headers={"Origin": "http://a"})
    assert reply.text == "[%s]" % ",".join(
        '[%d,"%s"]' % (EXPECTED[number], service.uri(number)) for number in sorted(EXPECTED))
    assert "Content-Type" not in reply.headers
    assert reply.headers["Access-Control-Allow-Origin"] == "http://a"
    assert reply.headers["Access-Control-Allow-Headers"] == "content-type"


def test_one_slash_is_enough_and_nothing_else_is_looked_at(service):
    uris = ["/10", "x/10", "http://other/abc/10", "/+10", "/0010", "a\\\"/10"]
    assert ask(service, *[[0, uri] for uri in uris]).text == \
        "[" + ",".join('[200,"%s"]' % uri for uri in uris[:-1]) + ',[200,"a\\"/10"]]'


def test_elements_of_another_form_are_left_out(service):
    for element in (1, "x", None, [], [0], ["0", "/10"], [None, "/10"], [0, 10], {"0": "/10"},
                    [0, "10"], [0, ""]):
        assert ask(service, element).text == "[]", element
    assert ask(service, [1.5, "/10", "more"]).text == '[[200,"/10"]]'
    assert ask(service).text == "[]"
    # The comma goes by what was written.
    assert ask(service, 1, [0, "/10"], [0, "/11"], [0, "/7"]).text == '[[200,"/10"],[200,"/7"]]'


def test_numbers_without_a_job_are_left_out(service):
    for text in ("0", "-1", "-10", "8", "16", "999999", "2147483647", "-2147483648"):
        assert ask(service, [0, "/" + text]).text == "[]", text


@pytest.mark.parametrize("text", ["", "index.x3d", "10x", " 10", "0x10", "2147483648", "1e1",
                                  "99999999999999999999"])
def test_text_that_is_no_number_spoils_the_request(service, text):
    reply = service.post("/job/updateState", {"Parameters": [[0, "/10"], [0, "/1/" + text]]})
    assert (reply.status_code, reply.content) == (500, b"")
    assert ask(service, [0, "/10"]).text == '[[200,"/10"]]'


@pytest.mark.parametrize("body", ["", "{", "nonsense", "[" * 100000, "{\"a\":" * 100000,
                                  "{\"a\":1e999}", "[]", "1", "{}", "{\"Parameters\":{}}",
                                  "{\"parameters\":[]}"], ids=lambda body: body[:12])
def test_bad_bodies(service, body):
    reply = service.post("/job/updateState", body)
    assert (reply.status_code, reply.content) == (400, b"")
    assert "Access-Control-Allow-Origin" not in reply.headers


def test_method_does_not_matter(service):
    for method in ("GET", "PUT", "DELETE"):
        reply = service.request(method, "/job/updateState", data='{"Parameters":[[0,"/10"]]} rest')
        assert (reply.status_code, reply.text) == (200, '[[200,"/10"]]'), method
