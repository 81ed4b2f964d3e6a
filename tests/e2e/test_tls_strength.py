"""What the servers with TLS agree to: strong ciphers and curves in the server's order, no secret that
outlives a connection by long, nothing that is there for old clients alone."""

import shutil
import socket
import ssl
import subprocess
import warnings
import xml.etree.ElementTree

import pytest

from raw_http import Connection, request
from service import sanitizer

CIPHERS_12 = ["ECDHE-RSA-AES128-GCM-SHA256", "ECDHE-RSA-AES256-GCM-SHA384",
              "ECDHE-RSA-CHACHA20-POLY1305"]
CIPHERS_13 = ["TLS_AES_128_GCM_SHA256", "TLS_AES_256_GCM_SHA384", "TLS_CHACHA20_POLY1305_SHA256"]
GROUPS = {"x25519", "secp256r1 (NIST P-256)", "secp384r1 (NIST P-384)"}


@pytest.fixture(scope="module")
def both(module_services, certificate):
    return module_services.start("--ssl", "--ssl-cert", certificate[0], "--ssl-key",
                                 certificate[1], "--delivery-cert", certificate[0],
                                 "--delivery-key", certificate[1])


@pytest.fixture(params=["secure", "delivery"])
def tls_port(both, request):
    return both.port + (1 if request.param == "delivery" else -1)


def offer(certificate, version, ciphers="ALL:@SECLEVEL=0"):
    """A client of this version alone, which itself refuses nothing."""
    context = ssl.create_default_context(cafile=str(certificate[0]))
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        context.minimum_version = context.maximum_version = version
    context.set_ciphers(ciphers)
    return context


def agreed(port, context):
    """The cipher that both sides take; None if the server refuses."""
    try:
        with Connection(port, tls=context) as connection:
            connection.send(request("GET", "/favicon.ico"))
            assert connection.reply().code in (200, 404)
            assert connection.socket.compression() is None
            return connection.socket.cipher()[0]
    except (ssl.SSLError, ConnectionError) as refused:
        assert "NO_CIPHERS" not in str(refused)
        return None


@pytest.mark.parametrize("version,works", [
    (ssl.TLSVersion.TLSv1, False), (ssl.TLSVersion.TLSv1_1, False),
    (ssl.TLSVersion.TLSv1_2, True), (ssl.TLSVersion.TLSv1_3, True),
])
def test_version(tls_port, certificate, version, works):
    assert bool(agreed(tls_port, offer(certificate, version))) == works


def test_every_cipher_of_the_library(tls_port, certificate):
    """One at a time: those with forward secrecy that authenticate what they encrypt, no others."""
    everything = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    everything.set_ciphers("ALL:COMPLEMENTOFALL:@SECLEVEL=0")
    # A client without such secrets can't offer those of shared keys and passwords.
    names = [cipher["name"] for cipher in everything.get_ciphers()
             if cipher["protocol"] != "TLSv1.3"
             and not {"PSK", "SRP"} & set(cipher["name"].split("-"))]
    assert len(names) > 60 and set(CIPHERS_12) < set(names)
    taken = [name for name in names
             if agreed(tls_port, offer(certificate, ssl.TLSVersion.TLSv1_2, name + ":@SECLEVEL=0"))]
    assert sorted(taken) == sorted(CIPHERS_12)


def test_order_is_the_servers(tls_port, certificate):
    for names in (CIPHERS_12, CIPHERS_12[::-1][1:], CIPHERS_12[1:] + CIPHERS_12[:1]):
        context = offer(certificate, ssl.TLSVersion.TLSv1_2, ":".join(names))
        assert agreed(tls_port, context) == CIPHERS_12[0]
    # Who names it first has no hardware for the others.
    context = offer(certificate, ssl.TLSVersion.TLSv1_2, ":".join(CIPHERS_12[::-1]))
    assert agreed(tls_port, context) == CIPHERS_12[2]
    assert agreed(tls_port, offer(certificate, ssl.TLSVersion.TLSv1_3)) == CIPHERS_13[0]


@pytest.mark.parametrize("version", [ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3])
@pytest.mark.parametrize("curve,works", [("prime256v1", True), ("secp384r1", True),
                                         ("secp521r1", False)])
def test_curve(tls_port, certificate, version, curve, works):
    context = offer(certificate, version)
    context.set_ecdh_curve(curve)
    assert bool(agreed(tls_port, context)) == works


@pytest.mark.parametrize("version", [ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3])
def test_session_is_resumed_without_a_ticket(tls_port, certificate, version):
    """Also after an end without a farewell, as clients have it."""
    context = offer(certificate, version)
    session = None
    for number in range(3):
        with socket.create_connection(("127.0.0.1", tls_port), timeout=60) as plain, \
                context.wrap_socket(plain, server_hostname="localhost", session=session) as channel:
            channel.sendall(request("GET", "/favicon.ico").encode())
            assert channel.recv(65536).startswith(b"HTTP/1.1 ")
            assert channel.session_reused == (number > 0)
            session = channel.session
            if version == ssl.TLSVersion.TLSv1_2:
                assert not session.has_ticket and session.timeout <= 7200


def test_no_renegotiation(tls_port, certificate):
    with subprocess.Popen(
            ["openssl", "s_client", "-connect", "127.0.0.1:%d" % tls_port, "-tls1_2", "-CAfile",
             str(certificate[0])], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True) as client:
        text, _ = client.communicate("R\n", timeout=60)
    assert "RENEGOTIATING" in text and "no renegotiation" in text
    assert "Secure Renegotiation IS supported" in text


@pytest.mark.parametrize("options", [("--ssl-cert", "--ssl-key"),
                                     ("--delivery-cert", "--delivery-key")])
def test_weak_key_ends_the_start(services, folder, options):
    cert, key = folder / "cert", folder / "key"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:1024", "-nodes", "-days", "2",
                    "-subj", "/CN=localhost", "-out", str(cert), "-keyout", str(key)],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    service = services.make(options=["--ssl", options[0], cert, options[1], key])
    service.launch()
    assert service.wait_for_end() == 255
    assert "cannot use certificate %s: ee key too small" % cert in service.stderr()


@pytest.mark.skipif(sanitizer() != "", reason="the same in every build")
def test_scanner_finds_nothing_weak(tls_port):
    assert shutil.which("sslscan"), "no scanner here: scripts/install-deps installs one"
    found = subprocess.run(["sslscan", "--xml=-", "--no-colour", "127.0.0.1:%d" % tls_port],
                           check=True, stdout=subprocess.PIPE, timeout=120).stdout
    test = xml.etree.ElementTree.fromstring(found).find("ssltest")
    protocols = {(entry.get("type"), entry.get("version")): entry.get("enabled")
                 for entry in test.findall("protocol")}
    assert protocols == {("ssl", "2"): "0", ("ssl", "3"): "0", ("tls", "1.0"): "0",
                         ("tls", "1.1"): "0", ("tls", "1.2"): "1", ("tls", "1.3"): "1"}
    ciphers = [(entry.get("sslversion"), entry.get("cipher")) for entry in test.findall("cipher")]
    assert ciphers == [("TLSv1.3", name) for name in CIPHERS_13] + \
        [("TLSv1.2", name) for name in CIPHERS_12]
    assert {entry.get("strength") for entry in test.findall("cipher")} <= {"strong", "acceptable"}
    assert {entry.get("name") for entry in test.findall("group")} == GROUPS
    assert test.find("renegotiation").get("supported") == "0"
    assert test.find("compression") is None or test.find("compression").get("supported") == "0"
    assert all(entry.get("vulnerable") == "0" for entry in test.findall("heartbleed"))
