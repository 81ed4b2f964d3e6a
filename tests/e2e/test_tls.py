"""The servers with TLS: certificate options, routes of the secure port, versions, strangers."""

import re
import socket
import ssl
import subprocess
import warnings

import pytest

from raw_http import Connection, ask, request
from waiting import wait_for


@pytest.fixture
def secure(services, certificate):
    return services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key", certificate[1])


def secure_ask(port, context, text, **settings):
    return ask(port, text, tls=context, **settings)


def test_jobs_over_tls(secure, context):
    body = '{"commands":["say hello"],"reply":"uri"}'
    reply = secure_ask(secure.port - 1, context, request("POST", "/job", body=body))
    assert (reply.code, reply.body.decode()) == (202, secure.uri(1))
    secure.wait_done(1)
    page = secure_ask(secure.port - 1, context, request("GET", "/job/1"))
    assert page.body == secure.get("/job/1").content
    for path in ("/", "/job"):
        reply = secure_ask(secure.port - 1, context, request("GET", path))
        assert (reply.code, reply.body) == (200, secure.get(path).content)
    assert reply.headers["server"] == "OstrandService"


@pytest.mark.parametrize("method,path,code", [
    # These fall to the pattern that catches every job; what stands behind it is no number.
    ("POST", "/job/add", 400), ("GET", "/job/add", 400), ("POST", "/job/updateState", 400),
    ("GET", "/job/updateState", 400), ("DELETE", "/job/1", 200),
    ("GET", "/favicon.ico", 404), ("POST", "/config", 404), ("GET", "/config", 404),
    ("GET", "/nothing", 404),
])
def test_routes_of_the_secure_port(secure, context, method, path, code):
    body = "{}" if method == "POST" else ""
    reply = secure_ask(secure.port - 1, context, request(method, path, body=body))
    assert reply.code == code
    if method == "POST":
        assert "access-control-allow-origin" not in reply.headers


def test_pages_announce_the_secure_port(secure):
    front = secure.get("/", headers={"Accept": "application/json"}).json()
    assert front["PortSSL"] == secure.port - 1


def test_keep_alive_and_pipelining(secure, context):
    with Connection(secure.port - 1, tls=context) as connection:
        connection.send(request("GET", "/") * 30)
        for _ in range(30):
            assert connection.reply().code == 200
        connection.send(request("GET", "/", [("Connection", "close")]))
        assert connection.reply().code == 200
        assert connection.closed()


def test_delivery_over_tls(services, certificate, context):
    service = services.start("--delivery-cert", certificate[0], "--delivery-key", certificate[1])
    job = service.run("put index.x3d " + "x" * 50000)
    service.wait_done(job)
    reply = secure_ask(service.port + 1, context, request("GET", "/abc/1/index.x3d"))
    assert (reply.code, reply.body) == (200, b"x" * 50000)
    reply = secure_ask(service.port + 1, context, request("HEAD", "/abc/1/index.x3d"),
                       has_body=False)
    assert (reply.code, "content-length" in reply.headers) == (200, False)
    # Without --ssl only that server is secure, and the address told to clients stays as it was.
    assert service.get("/").status_code == 200
    assert service.submit({"commands": ["true"], "reply": "uri"}).text == service.uri(2)


def test_one_pair_serves_both(services, certificate, context):
    service = services.start("--ssl", "--delivery-cert", certificate[0], "--delivery-key",
                             certificate[1])
    assert "OstrandService ssl listening on port: %d with : 8 threads\n\n" % service.port in \
        service.stdout()
    assert secure_ask(service.port - 1, context, request("GET", "/")).code == 200
    assert secure_ask(service.port + 1, context, request("GET", "/favicon.ico")).code == 200


def make_pair(folder, name, *options):
    paths = folder / (name + ".cert"), folder / (name + ".key")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-days", "2", "-subj",
                    "/CN=localhost", "-out", str(paths[0]), "-keyout", str(paths[1])]
                   + list(options), check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    return paths


@pytest.mark.parametrize("fault", ["missing", "empty", "garbage", "other key", "encrypted",
                                   "folder"])
@pytest.mark.parametrize("options", [("--ssl-cert", "--ssl-key"),
                                     ("--delivery-cert", "--delivery-key")])
def test_pair_that_cannot_be_used_ends_the_start(services, folder, certificate, options, fault):
    cert, key = certificate
    if fault == "missing":
        key = folder / "nothing"
    elif fault in ("empty", "garbage"):
        cert = folder / "cert"
        cert.write_text("" if fault == "empty" else "-----BEGIN CERTIFICATE-----\nnonsense\n")
    elif fault == "other key":
        key = make_pair(folder, "other", "-nodes")[1]
    elif fault == "encrypted":
        cert, key = make_pair(folder, "locked", "-passout", "pass:secret")
    else:
        cert = folder
    service = services.make(options=["--ssl", options[0], cert, options[1], key])
    service.launch()
    assert service.wait_for_end() == 255
    lines = re.findall(r"^cannot use (?:certificate|key) (.+?): \S.*$", service.stderr(),
                       re.MULTILINE)
    assert len(lines) == 1
    assert lines[0] in (str(cert), str(key))
    # Never a plain server in its place.
    assert "ssl listening" not in service.stdout()
    assert options[0] == "--ssl-cert" or "Delivery listening" not in service.stdout()


@pytest.mark.parametrize("version,works", [
    (ssl.TLSVersion.TLSv1_1, False), (ssl.TLSVersion.TLSv1_2, True), (ssl.TLSVersion.TLSv1_3, True),
])
def test_versions(secure, certificate, version, works):
    context = ssl.create_default_context(cafile=str(certificate[0]))
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        context.minimum_version = version
        context.maximum_version = version
    # The client side must not be what refuses the old version.
    context.set_ciphers("ALL:@SECLEVEL=0")
    if works:
        assert secure_ask(secure.port - 1, context, request("GET", "/")).code == 200
    else:
        with pytest.raises((ssl.SSLError, ConnectionError)) as refused:
            secure_ask(secure.port - 1, context, request("GET", "/"))
        assert "NO_CIPHERS" not in str(refused.value)


def test_strangers(secure, context):
    """Plain HTTP, garbage and silence end that one connection and no other."""
    with Connection(secure.port - 1, tls=context) as good:
        silent = Connection(secure.port - 1)
        for text in (request("GET", "/"), "\x16\x03\x01\xff\xff" + "x" * 300, "\0" * 1000):
            with Connection(secure.port - 1) as stranger:
                stranger.send(text)
                while stranger.receive():
                    pass
                # An alert at most, never a page.
                assert b"200" not in stranger.pending and b"Ostrand" not in stranger.pending
        # TLS on the plain port.
        with pytest.raises((ssl.SSLError, ConnectionError, EOFError)):
            secure_ask(secure.port, context, request("GET", "/"))
        good.send(request("GET", "/"))
        assert good.reply().code == 200
        silent.close()
    assert secure.get("/").status_code == 200


def test_client_that_does_not_trust_the_certificate(secure):
    with pytest.raises(ssl.SSLCertVerificationError):
        secure_ask(secure.port - 1, ssl.create_default_context(), request("GET", "/"))
    assert secure.get("/").status_code == 200


def test_stop_with_open_connections(secure, context):
    with Connection(secure.port - 1, tls=context) as idle, \
            socket.create_connection(("127.0.0.1", secure.port - 1)):
        idle.send(request("GET", "/"))
        assert idle.reply().code == 200
        assert secure.stop() < 15


def test_restart_with_open_connections(secure, context):
    with Connection(secure.port - 1, tls=context) as idle:
        idle.send(request("GET", "/"))
        assert idle.reply().code == 200
        secure.kill()
        secure.restart()
    assert secure_ask(secure.port - 1, context, request("GET", "/")).code == 200


def test_large_upload_and_download(services, certificate, context):
    service = services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key", certificate[1],
                             "--delivery-cert", certificate[0], "--delivery-key", certificate[1])
    uid = "u" * 5_000_000
    with Connection(service.port - 1, tls=context) as connection:
        connection.send(request("POST", "/job", body='{"commands":["true"],"uid":"%s"}' % uid))
        assert connection.reply().code == 202
    content = bytes(range(256)) * 40_000
    (service.jobs_folder() / "big").write_bytes(content)
    assert secure_ask(service.port + 1, context, request("GET", "/abc/big")).body == content
    wait_for(lambda: service.counters() == (0, 1, 0), "the job")
