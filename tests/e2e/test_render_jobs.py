"""Submission of render jobs over HTTP: what is accepted, and which slot a job gets."""

import json

import pytest

from raw_http import ask, request
from render import assert_bare, entry, start_render


def test_a_job_from_end_to_end(services):
    service = start_render(services, entry(exe="sh -c 'echo up; hold gate; echo down'", port=50007))
    reply = service.submit({"class": "opengl", "output": "framebuffer"})
    assert (reply.status_code, reply.text) == (200, "http://127.0.0.1:%d/job/0\n" % service.port)
    assert reply.headers["Content-Type"] == "text/plain"
    assert reply.headers["Access-Control-Allow-Origin"] == "*"
    assert reply.headers["Access-Control-Allow-Headers"] == "content-type"
    service.wait_started(0)
    assert service.rows() == {0: ("See Resource", "IN PROCESS")}
    assert service.counters() == (1, 0, 0)
    assert service.detail("0/dapple").text == "http://127.0.0.1:50007\n"
    service.open_gate(0)
    service.wait_state(0, "CLOSED")
    service.wait_counters(0, 1, 0)
    assert service.console(0) == "up\ngate\ndown\n"
    assert service.rows() == {0: ("See Resource", "CLOSED")}


@pytest.mark.parametrize("path", ["/job", "/job/add"])
def test_both_pages_take_jobs(services, path):
    service = start_render(services, entry(2))
    reply = service.post(path, {})
    assert (reply.status_code, reply.text) == (200, "http://127.0.0.1:%d/job/0\n" % service.port)


@pytest.mark.parametrize("description", [
    {"class": None}, {"class": 1}, {"class": ["opengl"]}, {"class": {}}, {"class": True},
    {"output": None}, {"output": 2.5}, {"output": []}, {"environment": None},
    {"environment": "A=b"}, {"environment": []}, {"environment": {"A": 1}},
    {"environment": {"A": "b", "B": None}}, {"class": "opengl", "output": False}])
def test_refused_descriptions(shared_render, description):
    body = json.dumps(description)
    assert_bare(ask(shared_render.port, request("POST", "/job", body=body)), 400)
    assert "job refused: " in shared_render.log()
    assert shared_render.rows() == {}


@pytest.mark.parametrize("body", ["", "{", "nonsense", "{}{}", "[{}", "\0", "{\"a\":1e999}",
                                  "[" * 200 + "]" * 200])
def test_bodies_that_are_no_json(shared_render, body):
    assert_bare(ask(shared_render.port, request("POST", "/job", body=body)), 400, cors=False)
    assert shared_render.rows() == {}


@pytest.mark.parametrize("body", ["5", "\"opengl\"", "null", "true"])
def test_json_that_is_no_job(shared_render, body):
    assert_bare(ask(shared_render.port, request("POST", "/job", body=body)), 200)
    assert shared_render.rows() == {}


@pytest.mark.parametrize("method, path", [
    ("PUT", "/job"), ("DELETE", "/job"), ("OPTIONS", "/job"), ("get", "/job"), ("HEAD", "/job/0"),
    ("POST", "/job/0"), ("PUT", "/job/0"), ("OPTIONS", "/job/0"), ("delete", "/job/0")])
def test_other_methods(shared_render, method, path):
    reply = ask(shared_render.port, request(method, path), has_body=method != "HEAD")
    assert_bare(reply, 400, cors=False)


def test_unknown_keys_stay_in_the_description(services):
    service = start_render(services, entry())
    service.take(model="a/b.obj", n=1e20, half=0.5, list=[1, {"b": None}], zeta=True)
    assert service.meta(0) == ("{\"half\":0.5,\"list\":[1,{\"b\":null}],\"model\":\"a\\/b.obj\","
                               "\"n\":1e+20,\"zeta\":true}")


def test_origin_is_echoed(services):
    service = start_render(services, entry())
    for reply in (service.submit({}, headers={"Origin": "http://me"}),
                  service.submit({}, headers={"Origin": "http://me"}),
                  service.get("/job/0/dapple", headers={"Origin": "http://me"}),
                  service.get("/job/7", headers={"Origin": "http://me"})):
        assert reply.headers["Access-Control-Allow-Origin"] == "http://me"


def test_host_of_the_answers(services):
    service = start_render(services, entry(port=1), host="render.example")
    assert service.submit({}).text == "http://render.example:%d/job/0\n" % service.port
    assert service.detail("0/dapple").text == "http://render.example:1\n"


# Slots.

def test_slots_are_given_in_order_until_the_last(services):
    service = start_render(services, entry(2))
    assert service.take() == 0
    assert service.take() == 1
    assert_bare(ask(service.port, request("POST", "/job", body="{}")), 503)
    assert sorted(service.rows()) == [0, 1]
    assert service.counters() == (2, 0, 0)
    service.wait_started(0)
    service.wait_started(1)


def test_classes_and_outputs(services):
    service = start_render(services, entry(outputs=["image"]), entry(**{"class": "ray"}),
                    entry(outputs=["video", "image"]), entry(**{"class": ""}))
    assert service.take(output="video") == 2
    assert service.take(**{"class": "ray"}) == 1
    assert service.refused(**{"class": "ray"})
    assert service.refused(output="video")
    assert service.take(output="image") == 0
    assert service.refused(output="image")
    assert service.refused()
    assert service.take(**{"class": ""}) == 3


@pytest.mark.parametrize("description", [
    {"class": "OpenGL"}, {"class": "opengl "}, {"class": "open"}, {"class": "opengl\0"},
    {"class": ""}, {"output": "Framebuffer"}, {"output": ""}, {"output": "frame"},
    {"output": "framebuffer\0"}])
def test_class_and_output_are_compared_exactly(shared_render, description):
    assert shared_render.refused(**description)
    assert shared_render.rows() == {}


def test_found_slots_are_told_of(services):
    """A line for each free slot of the class, whether its outputs fit or not."""
    service = start_render(services, entry(3), entry(outputs=["image"]), entry(**{"class": "ray"}))

    def lines_of(action):
        before = len(service.stderr())
        action()
        return service.stderr()[before:].count("found slot\n")
    assert lines_of(lambda: service.refused(output="video")) == 4
    assert lines_of(lambda: service.take(output="image")) == 4
    assert lines_of(lambda: service.take()) == 1
    assert lines_of(lambda: service.refused(output="image")) == 2
    assert lines_of(lambda: service.refused(**{"class": "cpu"})) == 0


def test_no_slot_with_the_output(services):
    service = start_render(services, entry())
    before = len(service.stderr())
    assert service.refused(output="image")
    assert service.stderr()[before:].endswith("\nfound slot\n")
    assert service.take() == 0


def test_lists_of_jobs(services):
    """The framework's form: bodies as they stand, with a line end in them."""
    service = start_render(services, entry(2))
    reply = service.post("/job/add", [{}, 5, {"class": 1}, {}, {}])
    own = "http://127.0.0.1:%d/job/" % service.port
    assert reply.text == ("[[200,\"%s0\n\"],[400,\"\"],[200,\"%s1\n\"],[503,\"\"]]" % (own, own))
    assert reply.status_code == 200
    assert "Content-Type" not in reply.headers
