"""Texts that run in a browser where nothing keeps them from it, a listener that hears of each, and a
proxy that takes from pages what keeps them from it."""

import http.server

import requests

from local_server import LocalServer
from page_headers import HTML_HEADERS
from waiting import wait_for


class _Handler(http.server.BaseHTTPRequestHandler):
    timeout = 30

    def answer(self, content, kind, headers=(), code=200):
        self.send_response(code)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def log_message(self, *arguments):
        pass


class Listener(LocalServer):
    """Keeps the names of all that was asked of it. Whatever that is, the answer is a script that
    does the same as the attacks."""

    def __init__(self, certificate=None, script=None):
        self.heard = []
        listener = self

        class Handler(_Handler):
            def do_GET(self):
                name = self.path.strip("/").replace("/", "-")
                listener.heard.append(name)
                content = listener.code("from-" + name) if script is None else script
                self.answer(content.encode(), "text/javascript",
                            [("Access-Control-Allow-Origin", "*")])
            do_POST = do_GET

        super().__init__(Handler, certificate)

    @property
    def url(self):
        return "http://127.0.0.1:%d" % self.port

    def code(self, name):
        """A script that tells the listener, and then the page, that it runs. Free of quotes."""
        return ("new Image().src=`%s/%s`;(top.ran=top.ran||[]).push(`%s`)"
                % (self.url, name, name))

    def wait_for(self, names):
        wait_for(lambda: set(names) <= set(self.heard),
                 lambda: "%s to run" % sorted(set(names) - set(self.heard)))


class Proxy(LocalServer):
    """Hands on what the service answers to GET, without the headers that HTML pages carry unless
    `guarded`. `change` makes the body that is handed on; `own` are HTML pages of the proxy's own."""

    def __init__(self, service, guarded=False, change=lambda body: body, own=None):
        class Handler(_Handler):
            def do_GET(self):
                if own and self.path in own:
                    self.answer(own[self.path], "text/html")
                    return
                reply = requests.get("http://127.0.0.1:%d%s" % (service.port, self.path),
                                     allow_redirects=False, timeout=60)
                kept = [(name, reply.headers[name]) for name in HTML_HEADERS
                        if guarded and name in reply.headers]
                self.answer(change(reply.content),
                            reply.headers.get("Content-Type", "text/plain"), kept,
                            reply.status_code)

        super().__init__(Handler)


# What runs as soon as it is shown. The page's own text stands on both sides: lists show the ends of
# a long uid alone, and half of an attack could hide the others.
def automatic(listener):
    elements = {
        "script": "<script>CODE</script>",
        "module": "<script type=\"module\">CODE</script>",
        "svg-script": "<svg><script>CODE</script></svg>",
        "svg-load": "</title></textarea><svg onload=\"CODE\"></svg>",
        "image-error": "<img src=\"/none\" onerror=\"CODE\">",
        "details-toggle": "<details open ontoggle=\"CODE\"></details>",
        "input-focus": "<input autofocus onfocus=\"CODE\">",
        "audio-error": "<audio src=\"/none\" onerror=\"CODE\"></audio>",
        "animation": "<style>@keyframes k{to{left:1px}}</style>"
                     "<b style=\"animation:k 1ms\" onanimationstart=\"CODE\">b</b>",
        "body-show": "<body onpageshow=\"CODE\">",
        "frame-url": "<iframe src=\"javascript:CODE\"></iframe>",
        "frame-text": "<iframe srcdoc=\"<script>CODE</script>\"></iframe>",
    }
    outside = {
        "frame-data": "<iframe src=\"data:text/html,<script>CODE</script>\"></iframe>",
        "object-data": "<object data=\"data:text/html,<script>CODE</script>\"></object>",
        "frame": "<iframe src=\"URL\"></iframe>",
        "embedded": "<embed src=\"URL\">",
        "library": "<script src=\"URL\"></script>",
        "sheet": "<link rel=\"stylesheet\" href=\"URL\">",
        "sheet-import": "<style>@import \"URL\";</style>",
        "foreign-image": "<img src=\"URL\">",
    }
    text = "\"></td></tr></table><b>%s</b>" % ("before " * 6)
    for name, element in dict(elements, **outside).items():
        text += element.replace("CODE", listener.code(name)).replace(
            "URL", "%s/%s" % (listener.url, name))
    return text + "behind " * 6, set(elements) | {"from-library"}, \
        set(elements) | set(outside) | {"from-library"}


# What runs when somebody clicks.
def clickable(listener):
    return ("\"><a id=\"link\" href=\"javascript:CODE1\">link</a><br>"
            "<b id=\"handler\" onclick=\"CODE2\">bold</b><br>"
            "<form action=\"javascript:CODE3\"><button id=\"script\">run</button></form>"
            "<form action=\"%s/form\"><button id=\"form\">send</button></form>" % listener.url
            ).replace("CODE1", listener.code("link")).replace(
                "CODE2", listener.code("handler")).replace("CODE3", listener.code("form-script"))


def refreshing(listener):
    return "\"><meta http-equiv=\"refresh\" content=\"0;url=%s/refresh\">" % listener.url


def rebasing(listener):
    return "\"><base href=\"%s/base/\"><a id=\"there\" href=\"there\">there</a>" % listener.url
