"""What HTML pages of the main server tell browsers besides their type."""

import base64
import hashlib
import re

_COMMON = ("default-src 'none'; img-src 'self'; base-uri 'none'; form-action 'none'; "
           "frame-ancestors 'none'; ")
HTML_HEADERS = {
    "Content-Security-Policy": _COMMON + "sandbox",
    "X-Content-Type-Options": "nosniff",
    "Referrer-Policy": "no-referrer",
}


def hash_source(text):
    digest = hashlib.sha256(text.encode()).digest()
    return "'sha256-%s'" % base64.b64encode(digest).decode()


def statistics_headers(page):
    """Those of the legacy transcoder's statistics: of all scripts and styles only the page's own."""
    library, = re.findall(r"<script src=\"([^\"]*)\">", page)
    script, = re.findall(r"<script>(.*?)</script>", page, re.DOTALL)
    style, = re.findall(r"<style>(.*?)</style>", page, re.DOTALL)
    policy = _COMMON + "script-src %s %s; style-src %s; sandbox allow-scripts" % (
        library, hash_source(script), hash_source(style))
    return dict(HTML_HEADERS, **{"Content-Security-Policy": policy})


def safety_of(reply):
    """The ones that a reply has, of `requests` or by hand."""
    return {name: reply.headers[key] for name in HTML_HEADERS
            for key in (name, name.lower()) if key in reply.headers}
