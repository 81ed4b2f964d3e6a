"""The routes: methods, batch submission, CORS, the choice between list forms, the secure port."""

import json

import pytest

from raw_http import ask, request

CORS = "Access-Control-Allow-Origin"
CORS_HEADERS = "Access-Control-Allow-Headers"


def check_cors(reply, origin="*"):
    assert reply.headers[CORS] == origin
    assert reply.headers[CORS_HEADERS] == "content-type"
    assert "Access-Control-Allow-Methods" not in reply.headers


def check_no_cors(reply):
    assert CORS not in reply.headers
    assert CORS_HEADERS not in reply.headers


def check_refused_method(shared, method, path):
    # By hand, as client libraries write methods in upper case.
    text = request(method, path, [("Origin", "http://x")])
    reply = ask(shared.port, text, has_body=method != "HEAD")
    assert reply.code == 400
    assert reply.body == b""
    assert CORS.lower() not in reply.headers
    assert CORS_HEADERS.lower() not in reply.headers


@pytest.mark.parametrize("path", ["/job", "/job/add"])
@pytest.mark.parametrize("method", ["HEAD", "OPTIONS", "PUT", "DELETE", "PATCH", "get", "post",
                                    "BREW"])
def test_other_methods_of_the_job_route(shared, path, method):
    check_refused_method(shared, method, path)


@pytest.mark.parametrize("method", ["HEAD", "OPTIONS", "PUT", "POST", "PATCH", "delete", "BREW"])
def test_other_methods_of_a_job(shared, method):
    check_refused_method(shared, method, "/job/1")


@pytest.mark.parametrize("path", ["/job", "/job/add"])
@pytest.mark.parametrize("body", ["", " ", "{", "{} garbage", "nonsense", "[1,]", "{'a':1}",
                                  "[1e999]", "\ufeff{}", "[" * 200 + "]" * 200])
def test_body_that_is_no_json(shared, path, body):
    reply = shared.post(path, body.encode(), headers={"Origin": "http://x"})
    assert reply.status_code == 400
    assert reply.content == b""
    check_no_cors(reply)


@pytest.mark.parametrize("body", ["1", "\"text\"", "null", "true", " 1.5 \n"])
def test_json_that_is_neither_object_nor_list(shared, body):
    reply = shared.post("/job", body, headers={"Origin": "http://x"})
    assert reply.status_code == 200
    assert reply.content == b""
    assert "Content-Type" not in reply.headers
    check_cors(reply, "http://x")


def test_refused_object(shared):
    reply = shared.post("/job", {}, headers={"Origin": "http://x"})
    assert reply.status_code == 400
    assert reply.content == b""
    check_cors(reply, "http://x")


@pytest.mark.parametrize("path", ["/job", "/job/add"])
def test_both_routes_take_jobs(service, path):
    reply = service.post(path, {"commands": ["true"], "reply": "uri"})
    assert reply.status_code == 202
    assert reply.text == service.uri(1)
    assert reply.headers["Content-Type"] == "text/html"
    check_cors(reply)


@pytest.mark.parametrize("path", ["/job", "/job/add"])
def test_both_routes_list_jobs(shared, path):
    reply = shared.get(path)
    assert reply.status_code == 200
    assert reply.headers["Content-Type"] == "text/html"
    check_cors(reply)
    reply = shared.get(path, headers={"Accept": "application/json", "Origin": "null"})
    assert reply.headers["Content-Type"] == "application/json"
    check_cors(reply, "null")


@pytest.mark.parametrize("accept,content_type", [
    (None, "text/html"),
    ("*/*", "text/html"),
    ("application/json", "application/json"),
    ("application/json, text/html", "text/html"),
    ("Application/JSON", "text/html"),
    ("application/json;q=1", "text/html"),
    ("", "text/html"),
])
@pytest.mark.parametrize("path", ["/", "/job"])
def test_accept_is_compared_whole(shared, path, accept, content_type):
    # None takes the client library's own default out.
    reply = shared.get(path, headers={"Accept": accept})
    assert reply.status_code == 200
    assert reply.headers["Content-Type"] == content_type


def test_batch(service):
    batch = [{"commands": ["true"], "uid": "one", "reply": "uri"},
             {"commands": ["true"], "uid": "two"},
             {"commands": "wrong"}]
    reply = service.post("/job", batch, headers={"Origin": "http://x"})
    assert reply.status_code == 200
    assert reply.text == '[[202,"%s"],[202,"2@abc"],[400,""]]' % service.uri(1)
    # The headers of the answers inside are lost.
    assert "Content-Type" not in reply.headers
    check_cors(reply, "http://x")


@pytest.mark.parametrize("batch,answer", [
    ([], "[]"),
    ([1], "[]"),
    ([1, {}], '[,[400,""]]'),
    ([{}, 1, {}], '[[400,""],[400,""]]'),
    (["x", None, [], {}], '[,[400,""]]'),
    ([[{}]], "[]"),
    ([{}], '[[400,""]]'),
])
def test_batch_with_elements_that_are_no_jobs(shared, batch, answer):
    reply = shared.post("/job", batch)
    assert reply.status_code == 200
    assert reply.text == answer


def test_batch_body_is_not_escaped(service):
    reply = service.post("/job", [{"resource": "model.obj", "redirect": True}])
    assert reply.status_code == 200
    page = service.uri(1) + "/index.x3d"
    assert reply.text == (
        '[[302,"<html><header><title>Moved</title></header><body><h1>Moved</h1><p>This page has '
        'moved to <a href="%s">%s</a>.</p></body></html>"]]' % (page, page))
    assert "Location" not in reply.headers
    with pytest.raises(json.JSONDecodeError):
        reply.json()


@pytest.mark.parametrize("origin", ["http://example.org", "null", "https://x:1 y", "*"])
def test_origin_comes_back(shared, origin):
    for reply in (shared.get("/", headers={"Origin": origin}),
                  shared.get("/job", headers={"Origin": origin}),
                  shared.request("DELETE", "/job/1", headers={"Origin": origin}),
                  shared.get("/job/1", headers={"Origin": origin})):
        check_cors(reply, origin)


def test_missing_origin_is_a_star(shared):
    for path in ("/", "/job", "/job/1"):
        check_cors(shared.get(path))


def test_delete_answers_and_deletes_nothing(service):
    job = service.run("true")
    service.wait_done(job)
    reply = service.request("DELETE", "/job/%d" % job)
    assert (reply.status_code, reply.content) == (200, b"")
    check_cors(reply)
    assert service.state(job) == "CLOSED"
    assert (service.job_folder(job) / ".meta").exists()
    assert service.request("DELETE", "/job/nothing").status_code == 200


@pytest.mark.parametrize("method", ["GET", "POST", "HEAD", "DELETE"])
def test_icon(shared, method):
    for send in (shared.request, lambda m, p: shared.fetch(p, m)):
        reply = send(method, "/favicon.ico")
        assert reply.status_code == 200
        assert reply.headers["Content-Type"] == "image/x-icon"
        assert reply.headers["Content-Length"] == "13752"
        assert len(reply.content) == (0 if method == "HEAD" else 13752)


def test_icon_is_one(shared):
    content = shared.get("/favicon.ico").content
    assert content == shared.fetch("/favicon.ico").content
    # Reserved, type 1, then the number of pictures, each within the file.
    assert content[:4] == b"\0\0\1\0"
    pictures = int.from_bytes(content[4:6], "little")
    assert pictures >= 2
    for index in range(pictures):
        entry = content[6 + 16 * index:22 + 16 * index]
        size, offset = (int.from_bytes(entry[i:i + 4], "little") for i in (8, 12))
        assert offset + size <= len(content)


@pytest.mark.parametrize("path", ["/nothing", "/jobs", "/favicon.icon", "/changelog",
                                  "/statistics", "/index.html", "/config/", "/Job"])
def test_unknown_path(shared, path):
    reply = shared.get(path)
    assert reply.status_code == 404
    assert reply.content == b""
    check_no_cors(reply)


@pytest.mark.parametrize("path,code", [
    ("/job/", 400), ("/job/add/1", 400), ("/job/updateState/x", 400), ("/%6Aob", 200),
    ("/job%2Fadd", 200), ("/./job", 200), ("/x/../job", 200), ("/job?x=1&x=2;=%zz", 200),
])
def test_which_page_a_path_means(shared, path, code):
    assert ask(shared.port, request("GET", path)).code == code


def test_head_of_the_front_page(shared):
    whole = shared.get("/")
    reply = shared.request("HEAD", "/")
    assert reply.status_code == 200
    assert reply.content == b""
    assert reply.headers["Content-Length"] == str(len(whole.content))


def test_server_header_is_the_realm(shared):
    assert shared.get("/").headers["Server"] == "OstrandService"
    assert shared.fetch("/").headers["Server"] == "OstrandServiceDelivery"
