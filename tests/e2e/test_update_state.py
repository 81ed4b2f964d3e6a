"""POST /job/updateState: how far a list of results has come."""

import json

import pytest


def place_job(service, identifier, status, uid=None):
    """A job folder as a service of the same provider leaves it."""
    folder = service.job_folder(identifier)
    folder.mkdir(parents=True)
    (folder / ".meta").write_text(
        json.dumps({"commands": ["true"], "uid": uid or "job %s" % identifier}))
    (folder / ".status").write_text('{ "status" : %s }\n' % status)
    return folder


@pytest.fixture
def known(services):
    """A service with no workers and one job in each state that a reload leaves alone."""
    service = services.make(options=["--worker_threads", 0])
    for number in range(10):
        place_job(service, number + 1, number)
    return service.start()


def test_code_of_each_state(known):
    # OPEN, and IN PROCESS which the reload made OPEN; CLOSED; TERMINATED counts as done.
    codes = {1: 202, 2: 202, 3: 404, 4: 200, 5: 404, 6: 404, 7: 404, 8: 200, 9: 404, 10: 404}
    uris = [known.uri(number) for number in codes]
    assert known.update_state(*uris) == [[code, uri] for code, uri in zip(codes.values(), uris)]


def test_running_and_finished(single):
    job = single.run("hold gate")
    single.wait_started(job)
    assert single.update_state(single.uri(job)) == [[202, single.uri(job)]]
    single.open_gate(job)
    single.wait_done(job)
    assert single.update_state(single.uri(job)) == [[200, single.uri(job)]]


def test_form_of_the_answer(known):
    text = json.dumps({"Parameters": [[0, known.uri(1)], [0, known.uri(4)]]})
    reply = known.post("/job/updateState", text, headers={"Origin": "http://x"})
    assert reply.status_code == 200
    assert reply.text == '[[202,"%s"],[200,"%s"]]' % (known.uri(1), known.uri(4))
    assert reply.headers["Content-Type"] == "application/json"
    assert reply.headers["Access-Control-Allow-Origin"] == "http://x"
    assert reply.headers["Access-Control-Allow-Headers"] == "content-type"


def test_empty_list(known):
    reply = known.post("/job/updateState", {"Parameters": []})
    assert (reply.status_code, reply.text) == (200, "[]")
    assert reply.headers["Access-Control-Allow-Origin"] == "*"


@pytest.mark.parametrize("method", ["GET", "PUT", "DELETE", "POST"])
def test_method_does_not_matter(known, method):
    body = json.dumps({"Parameters": [[0, known.uri(4)]]})
    reply = known.request(method, "/job/updateState", data=body)
    assert reply.json() == [[200, known.uri(4)]]


@pytest.mark.parametrize("body", [
    "", "nonsense", "{} trailing", "[]", "[[0,\"x\"]]", "1", "null", "{}", "{\"parameters\":[]}",
    "{\"Parameters\":{}}", "{\"Parameters\":null}", "{\"Parameters\":\"x\"}",
    "{\"Parameters\":[1e999]}",
])
def test_body_of_the_wrong_shape(shared, body):
    reply = shared.post("/job/updateState", body, headers={"Origin": "http://x"})
    assert (reply.status_code, reply.content) == (400, b"")
    assert "Access-Control-Allow-Origin" not in reply.headers


def test_elements_that_are_left_out(known):
    done = known.uri(4)
    elements = [
        1, None, "text", {}, [], [0], ["0", done], [None, done], [0, 1], [0, None], [0, [done]],
        [0, "no slash"], [0, "one/4"], [0, ""], [0, "abc/4"],
        # One slash, and it comes first.
        [0, "/"], [0, "/4"], [0, "/abc"], [0, "//4"],
        [0, "http://h/other/4"], [0, "http://h/ABC/4"], [0, "http://h/abc /4"],
        # A result file has the id where the provider should be.
        [0, done + "/index.x3d"],
        # Of a foreign provider nothing else is looked at.
        [0, "http://h/other/xyz"],
        [0, "http://h/abc/0"], [0, "http://h/abc/11"], [0, "http://h/abc/-1"],
        [0, "http://h/abc/2147483647"], [0, "http://h/abc/-2147483648"],
    ]
    reply = known.post("/job/updateState", {"Parameters": elements})
    assert (reply.status_code, reply.text) == (200, "[]")
    # They leave no comma behind either.
    mixed = [[0, "x"], [1.5, done], 7, [-3, done, "more", 1], [0]]
    reply = known.post("/job/updateState", {"Parameters": mixed})
    assert reply.text == '[[200,"%s"],[200,"%s"]]' % (done, done)


@pytest.mark.parametrize("uri,code", [
    ("/abc/4", 200), ("abc//abc/4", 200), ("https://elsewhere:1/x/y/abc/4", 200),
    ("http://h/abc/+4", 200), ("http://h/abc/04", 200), ("http://h/abc/1", 202),
])
def test_address_in_front_does_not_matter(known, uri, code):
    assert known.update_state(uri) == [[code, uri]]


def test_uri_comes_back_unescaped(known):
    uri = "http://h/\"quoted\"/abc/4"
    reply = known.post("/job/updateState", {"Parameters": [[0, uri]]})
    assert reply.text == '[[200,"%s"]]' % uri


@pytest.mark.parametrize("text", [
    "xyz", "", " 4", "4 ", "4x", "0x4", "4.0", "1e0", "99999999999", "2147483648", "-2147483649",
    "--4", "+",
])
def test_last_component_that_is_no_number(known, text):
    """The fault leaves the page, and the front answers for it; the service goes on."""
    parameters = [[0, known.uri(4)], [0, "http://h/abc/" + text]]
    reply = known.post("/job/updateState", {"Parameters": parameters},
                       headers={"Origin": "http://x"})
    assert (reply.status_code, reply.content) == (500, b"")
    assert "Access-Control-Allow-Origin" not in reply.headers
    assert known.update_state(known.uri(4)) == [[200, known.uri(4)]]


def test_holes_of_the_table(services):
    service = services.make(options=["--worker_threads", 0])
    place_job(service, 5, 3)
    service.start()
    uris = [service.uri(number) for number in range(8)]
    assert service.update_state(*uris) == [[200, service.uri(5)]]


def test_many_elements(known):
    uris = [known.uri(1 + number % 10) for number in range(5000)]
    answer = known.update_state(*uris)
    assert [uri for _, uri in answer] == uris
