"""How jobs enter the legacy transcoder, and what it answers."""

import json
import re

import pytest

from legacy import LegacyService

MOVED = ('<html><header><title>Moved</title></header><body><h1>Moved</h1><p>This page has moved to '
         '<a href="%s">%s</a>.</p></body></html>')
REFUSED = "Z ADD job: failed, bad request\n"


@pytest.fixture(scope="module")
def service(module_services):
    """Without workers: jobs stay open."""
    return module_services.start("--worker_threads", 0, kind=LegacyService)


def without_times(log):
    return re.sub("^[^ ]*Z ", "", log, flags=re.MULTILINE)


def cors_of(reply):
    return (reply.headers.get("Access-Control-Allow-Origin"),
            reply.headers.get("Access-Control-Allow-Headers"))


CORS = ("*", "content-type")
NO_CORS = (None, None)


def check_refused(service, reply, *logged):
    assert (reply.status_code, reply.content, cors_of(reply)) == (400, b"", CORS)
    assert "Content-Type" not in reply.headers
    assert without_times(service.log()).endswith(
        "\n".join(logged + ("ADD job: failed, bad request", "")))


def last_id(service):
    return service.jobs()["numJobs"]  # No job of this file comes back.


@pytest.mark.parametrize("path", ["/job", "/job/add"])
@pytest.mark.parametrize("kind", ["tool", "batch"])
def test_answers(service, path, kind):
    for number, (reply, code, form) in enumerate([
            (None, 202, "%(id)d@%(uuid)s"), ("id", 202, "%(id)d@%(uuid)s"),
            ("origin", 202, "%(id)d@%(uuid)s"), ("uri", 202, "%(uri)s"),
            ("file", 202, "%(uri)s/index.glb"), ("redirect", 302, None)]):
        description = {"uid": "%s %s %d" % (path, kind, number), "format": "glb"}
        description.update({"resource": "m"} if kind == "tool" else {"commands": ["fettle"]})
        if reply:
            description["reply"] = reply
        answer = service.post(path, description, headers={"Origin": "http://a.b"})
        identifier = last_id(service)
        names = {"id": identifier, "uri": service.uri(identifier), "uuid": service.provider_id}
        uri = names["uri"] + "/index.glb"
        assert answer.status_code == code
        assert answer.text == (form % names if form else MOVED % (uri, uri))
        assert answer.headers["Content-Type"] == "text/html"
        assert cors_of(answer) == ("http://a.b", "content-type")
        assert answer.headers.get("Location") == (uri if code == 302 else None)
        assert answer.headers.get("Access-Control-Expose-Headers") == (
            "Location" if code == 302 else None)
        assert service.fetch("/%d/index.glb" % identifier).status_code == 202


def test_redirect_wins_over_reply(service):
    answer = service.submit({"resource": "wins", "reply": "uri", "redirect": True})
    assert answer.status_code == 302
    assert service.submit({"resource": "wins", "reply": "uri", "redirect": False}).status_code == 202


def test_file_is_the_first_jobs_form_is_the_new_ones(service):
    first = service.submit({"resource": "m", "uid": "form", "format": "html", "reply": "id"})
    identifier = int(first.text.partition("@")[0])
    total = service.jobs()["numJobs"]
    again = service.submit({"resource": "m", "uid": "form", "format": "glb", "reply": "file"})
    assert again.text == service.uri(identifier) + "/index.html"
    assert service.log().endswith("Z ADD job: failed, already exists: %d\n" % identifier)
    assert service.jobs()["numJobs"] == total
    assert json.loads((service.job_folder(identifier) / ".meta").read_text())["format"] == "html"


def test_other_methods(service):
    for method in ("PUT", "DELETE", "OPTIONS", "PATCH", "HEAD"):
        before = service.log().count(REFUSED)
        reply = service.request(method, "/job")
        assert (reply.status_code, reply.content, cors_of(reply)) == (400, b"", NO_CORS), method
        assert service.log().count(REFUSED) == before
        reply = service.request(method, "/job/add?resource=m", data="{\"resource\":\"m\"}")
        check_refused(service, reply)
        assert service.log().count(REFUSED) == before + 1


BODY_CASES = [
    (b"{", "syntax error at line 1 near: "),
    (b"", "syntax error at line 1 near: "),
    (b"\n\n  nonsense here\nmore", "syntax error at line 3 near: onsense here"),
    (b"\xef\xbb\xbf{}", None),
    (b"{\"resource\":1e999}", "syntax error: number out of range"),
]


@pytest.mark.parametrize("path", ["/job", "/job/add"])
@pytest.mark.parametrize("body, error", BODY_CASES, ids=lambda value: repr(value)[:20])
def test_body_that_is_no_json(service, path, body, error):
    reply = service.post(path, body)
    if error is None:
        assert reply.status_code == 400
        assert "JSON POST parsing error: syntax error at line 1 near: " in service.log()
    else:
        check_refused(service, reply, "JSON POST parsing error: " + error)


@pytest.mark.parametrize("body", [
    "[]", "1", "null", "\"text\"", "true", "[{\"resource\":\"m\"}]", "{}", "{\"resource\":\"\"}",
    "{\"resource\":1}", "{\"resource\":\"m\",\"format\":\"X3D\"}",
    "{\"resource\":\"m\",\"reply\":\"all\"}", "{\"resource\":\"m\",\"uid\":\"\"}",
    "{\"resource\":\"m\\n\"}", "{\"commands\":{}}", "{\"commands\":[]}",
    "{\"resource\":\"..@01234567-89ab-cdef-0123-456789abcdef\"}"])
def test_description_that_is_refused(service, body):
    total = service.jobs()["numJobs"]
    check_refused(service, service.submit(body), "JSON POST parsing error: job desc not valid")
    assert service.log().splitlines()[-3].partition("Z ")[2].startswith("job refused: ")
    assert service.jobs()["numJobs"] == total


@pytest.mark.parametrize("bracket", [b"[", b"{\"a\":"])
def test_64_mib_of_brackets(service, bracket):
    size = 64 << 20
    reply = service.submit((bracket * (size // len(bracket) + 1))[:size])
    check_refused(service, reply, last_error(service))
    # The log gets a piece of the line.
    assert len(last_error(service)) == len("JSON POST parsing error: ") + 65536
    assert service.submit(b"x" * (size + 1)).status_code == 413


def last_error(service):
    """What the log tells of the body that was refused last."""
    line = service.log().splitlines()[-2].partition("Z ")[2]
    assert line.startswith("JSON POST parsing error: syntax error at line 1 near: "), line[:100]
    return line


@pytest.mark.parametrize("body", [
    b'{"resource":"kept 1"}', b'{ "resource" : "kept 2",\r\n  "more": [1, 2.50, "\\/"] }\r\n  ',
    b'{"resource":"kept 3"}\0behind', '{"resource":"kept 4 ä"}'.encode(),
    b'{"resource":"kept 5","resource":"kept 6"}'])
def test_meta_is_the_body_byte_for_byte(service, body):
    reply = service.submit(body)
    assert reply.status_code == 202
    assert (service.job_folder(last_id(service)) / ".meta").read_bytes() == body


def form_meta(service, query):
    """The description that a form becomes."""
    assert service.submit_form(query).code in (202, 302), query
    return (service.job_folder(last_id(service)) / ".meta").read_text()


def test_forms(service):
    assert form_meta(service, "resource=f1") == '{"resource":"f1"}'
    assert form_meta(service, "reply=file&redirect=true&format=html&options=screenshot&ops=a%2Cb"
                     "&resource=a/f%2F2&other=x&uid=u&suffix=s") == (
        '{"format":"html","ops":"a%2Cb","options":"screenshot","redirect":true,"reply":"file",'
        '"resource":"a\\/f\\/2"}')
    for number, value in enumerate(("True", "false", "", "1", "true%20")):
        assert form_meta(service, "resource=f3-%d&redirect=%s" % (number, value)) \
            == '{"resource":"f3-%d"}' % number
    # An empty value is one, and of two the first counts.
    assert form_meta(service, "resource=f4&ops=&options") \
        == '{"ops":"","options":"","resource":"f4"}'
    assert form_meta(service, "resource=f5&resource=f6") == '{"resource":"f5"}'


def test_only_the_resource_of_a_form_is_decoded_once(service):
    assert form_meta(service, "resource=a+%41%2541%zz%4") == '{"resource":"a+A%41%zz%4"}'
    assert form_meta(service, "resource=d1&ops=%72euse&options=screenshot%2CduplicateTextures") \
        == '{"ops":"%72euse","options":"screenshot%2CduplicateTextures","resource":"d1"}'
    for query, reason in (("resource=a%00", "uid with a control character"),
                          ("resource=a%0A", "uid with a control character"),
                          ("resource=%22", "resource with a double quote or a backslash at its end"),
                          ("resource=a%5C@01234567-89ab-4def-8123-456789abcdef",
                           "resource with a double quote or a backslash at its end"),
                          ("resource=m&format=%78%33%64", "unknown format: %78%33%64"),
                          ("resource=m&reply=fil%65", "unknown reply: fil%65"),
                          ("resource=", "no resource"), ("resource", "no resource"),
                          ("ops=reuse&format=html", "no resource"), ("", "no resource")):
        assert service.submit_form(query).code == 400
        assert without_times(service.log()).endswith(
            "job refused: %s\nJSON POST parsing error: job desc not valid\n"
            "ADD job: failed, bad request\n" % reason)


def test_decoding_can_be_switched_off(services):
    service = services.start("--disable_url_decode", "--worker_threads", 0, kind=LegacyService)
    assert form_meta(service, "resource=%41%2f") == '{"resource":"%41%2f"}'
    assert service.get("/job/list/json").text.count('"resource" : "%2541%252f"') == 1


def test_get_lists_and_get_add_submits(service):
    total = service.jobs()["numJobs"]
    assert "<table" in service.get("/job?resource=listed").text
    assert service.jobs()["numJobs"] == total
    assert service.get("/job/add?resource=listed").text == "%d@%s" % (total + 1,
                                                                      service.provider_id)


def test_formed_uid_is_the_identity(service):
    first = service.run("same", ops="reuse")
    assert service.run("same", ops="reuse", format="x3d", reply="id", rerun=True) == first
    assert service.submit_form("ops=reuse&resource=same").body.startswith(b"%d@" % first)
    assert service.run("same") == first + 1


def test_upload_is_taken_by_its_name_alone(services):
    service = services.start(kind=LegacyService)
    name = service.upload("text").text
    assert name.endswith("@" + service.provider_id)
    file = name.partition("@")[0]
    job = service.run("../x/%s@%s" % (file, service.provider_id))
    service.wait_done(job)
    assert service.calls(job)[0][1] == str((service.cache_root / "in" / file).resolve())
    assert service.get("/job/1").text.count(
        "<li>Resource: ../x/%s@%s</li>" % (file, service.provider_id)) == 1
    assert service.run("user@host") == job + 1
    service.wait_done(job + 1)
    assert service.calls(job + 1)[0][1] == "user@host"
