"""What is told of a render job, in all forms of its path."""

import pytest

from raw_http import ask, request
from render import CORS, assert_bare, cors_of, entry, start_render
from waiting import wait_for


def test_details(services):
    service = start_render(services, entry(2, port=50000))
    assert (service.take(), service.take()) == (0, 1)
    for path in ("/job/1", "/job/1/all", "/job/01", "/job/+1", "/job//1", "/job/1/all/more",
                 "/job/%31", "/job/x/../1", "/job/./1", "/job/1?detail=dapple"):
        assert_bare(ask(service.port, request("GET", path)), 200)
    for path in ("/job/1/dapple", "/job/1/dapple/", "/job//1//dapple", "/job/1/dapple/more",
                 "/job/1/%64apple", "/job/+01/dapple?x=y"):
        reply = ask(service.port, request("GET", path))
        assert (reply.code, reply.body) == (200, b"http://127.0.0.1:50001\n"), path
        assert "content-type" not in reply.headers
        assert cors_of(reply) == CORS


@pytest.mark.parametrize("path", [
    "/job/0/", "/job/0//", "/job/0/.", "/job/0/x", "/job/0/Dapple", "/job/0/dapple%20",
    "/job/0/dapple%2e", "/job/0/x/dapple", "/job/0/all/..", "/job/0/%7edapple"])
def test_unknown_details(services, path):
    service = start_render(services, entry())
    service.take()
    assert_bare(ask(service.port, request("GET", path)), 400)


@pytest.mark.parametrize("path", ["/job/", "/job//", "/job/.", "/job/x/..", "/job/1", "/job/2",
                                  "/job/3/", "/job/1/dapple", "/job/-1", "/job/4294967295",
                                  "/job/-4294967295", "/job/%20/../"])
def test_no_such_job(services, path):
    """Slot 0 is taken, slot 1 is free, and there is none beyond."""
    service = start_render(services, entry(2))
    service.take()
    for method in ("GET", "DELETE"):
        assert_bare(ask(service.port, request(method, path)), 400)


@pytest.mark.parametrize("text", ["x", "1x", "0x0", "%201", "0%20", "1.5", "0.0", "1e0", "--1", "-",
                                  "+", "4294967296", "-4294967296", "99999999999999999999",
                                  "%c3%a4", "0,0", "nan"])
def test_ids_that_are_no_numbers(services, text):
    """An exception ends the one request: an empty answer, a line in the log, and no more."""
    service = start_render(services, entry())
    service.take()
    for method, path in (("GET", text), ("GET", text + "/dapple"), ("DELETE", text)):
        before = service.log().count("\n")
        reply = ask(service.port, request(method, "/job/" + path))
        assert (reply.code, reply.body) == (500, b""), path
        assert cors_of(reply) == {} and "content-type" not in reply.headers
        wait_for(lambda: service.log().count("\n") > before, "a line in the log")
        assert service.log().count("\n") == before + 1
    assert service.detail("0").status_code == 200
    assert not service.has_ended()


@pytest.mark.parametrize("identifier", ["-0", "+0", "00", "0000000000000000000000"])
def test_other_forms_of_an_id(services, identifier):
    service = start_render(services, entry(port=5))
    service.take()
    assert service.detail(identifier + "/dapple").text == "http://127.0.0.1:5\n"
    assert service.delete(identifier).status_code == 200


def test_only_get_and_post_on_the_page_for_adding(shared_render):
    assert shared_render.get("/job/add").text == shared_render.get("/job").text
    assert_bare(ask(shared_render.port, request("DELETE", "/job/add")), 400, cors=False)
