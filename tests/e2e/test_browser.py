"""The pages in a real browser: what job texts put there does not run, what belongs to them does."""

import json

import pytest

from browser import Browser
from legacy import LegacyService
from page_attacks import Listener, Proxy, automatic, clickable, rebasing, refreshing
from render import RenderService
from service import Service
from waiting import wait_for

# Stands for the chart library: fills what it is given with one colour a value.
LIBRARY = """
window.libraryLoaded = true;
function Chart(context) {
    this.Pie = function (values) {
        values.forEach(function (entry, index) {
            context.fillStyle = entry.color;
            context.fillRect(index * 10, 0, 10, 10);
        });
    };
}
"""
COLOURS = [[158, 216, 0, 255], [105, 210, 231, 255], [243, 134, 48, 255]]


@pytest.fixture(scope="module")
def library(certificate):
    with Listener(certificate, LIBRARY) as made:
        yield made


@pytest.fixture(scope="module")
def browser(library):
    with Browser({"cdn.jsdelivr.net:443": library.port}) as made:
        yield made


@pytest.fixture
def listener():
    with Listener() as made:
        yield made


def address(server, path):
    return "http://127.0.0.1:%d%s" % (server.port, path)


def details(service, number):
    return "/job/%s%d" % ("abc/" if service.link == "TranscoderService" else "", number)


def add(service, uid, said="hello"):
    """A job with these texts as its uid and on its console, when it has ended; its page."""
    tool = "glimt" if isinstance(service, LegacyService) else "say"
    reply = service.post("/job", {"uid": uid, "commands": ["%s '%s'" % (tool, said)]})
    assert reply.status_code == 202
    number = int(reply.text.partition("@")[0])
    service.wait_done(number)
    return details(service, number)


def attacked(services, kind, listener):
    """A service whose front page, lists and job pages show attacks; with the pages' paths."""
    text = automatic(listener)[0]
    service = services.start("--delivery_service", "http://h/" + text, kind=kind)
    (service.run_folder / "Chart.min.js").write_text(listener.code("own-library"))
    paths = ["/", add(service, text), add(service, "console", text), "/job"]
    return service, paths + (["/job/1/path"] if kind is LegacyService else [])


@pytest.mark.parametrize("kind", [Service, LegacyService])
def test_texts_of_jobs_do_not_run(services, browser, listener, kind):
    _, inside, everything = automatic(listener)
    service, paths = attacked(services, kind, listener)
    for path in paths:
        with browser.open(address(service, path)) as tab:
            tab.settle()
            assert (path, tab.ran()) == (path, set())
            # They were there, and were refused.
            assert len(tab.complaints()) >= len(inside)
    assert listener.heard == []
    # All of them would have run.
    with Proxy(service) as bare:
        for path in paths:
            del listener.heard[:]
            with browser.open(address(bare, path)) as tab:
                listener.wait_for(everything)
                wait_for(lambda: inside <= tab.ran(), lambda: "what ran: %s" % tab.ran())


@pytest.mark.parametrize("kind", [Service, LegacyService])
def test_clicks_run_nothing(services, browser, listener, kind):
    service = services.start(kind=kind)
    path = add(service, clickable(listener))
    with browser.open(address(service, path)) as tab:
        for name in ("link", "handler", "script", "form"):
            tab.click("#" + name).settle()
        assert (tab.ran(), tab.url()) == (set(), address(service, path))
    assert listener.heard == []
    with Proxy(service) as bare, browser.open(address(bare, path)) as tab:
        for name, told in (("link", "link"), ("handler", "handler"), ("script", "form-script"),
                           ("form", "form?")):
            tab.click("#" + name)
            listener.wait_for([told])


@pytest.mark.parametrize("kind", [Service, LegacyService])
def test_pages_do_not_lead_away_by_themselves(services, browser, listener, kind):
    service = services.start(kind=kind)
    away, based = add(service, refreshing(listener)), add(service, rebasing(listener))
    with Proxy(service) as bare:
        for path in (away, "/job"):
            with browser.open(address(service, path)) as tab:
                assert tab.settle().url() == address(service, path)
        with browser.open(address(service, based)) as tab:
            link = tab.value("document.getElementById('there').href")
            assert link.startswith(address(service, "/job/"))
        assert listener.heard == []
        with browser.open(address(bare, away)):
            listener.wait_for(["refresh"])
        with browser.open(address(bare, based)) as tab:
            tab.click("#there")
            listener.wait_for(["base-there"])


@pytest.mark.parametrize("kind", [Service, LegacyService, RenderService])
def test_pages_cannot_be_framed(services, browser, kind):
    """So nobody can be made to click on a page that does not look like one."""
    service = services.start(kind=kind)
    frame = {"/frame": b"<html><body><iframe src='/job'></iframe></body></html>"}
    for guarded in (True, False):
        with Proxy(service, guarded, own=frame) as proxy, \
                browser.open(address(proxy, "/frame")) as tab:
            shown = tab.value("(inner => inner ? inner.body.innerText : '')"
                              "(document.querySelector('iframe').contentDocument)")
            assert ("Number of Jobs" in shown) != guarded
            assert bool(tab.complaints()) == guarded


@pytest.mark.parametrize("kind", [Service, LegacyService, RenderService])
def test_walk_through_the_pages(services, browser, kind):
    """From link to link, as a person does it, without a complaint of the browser."""
    service = services.start(kind=kind)
    if kind is RenderService:
        service.take(**{"class": "opengl"})
    else:
        add(service, "a job")
    with browser.open(address(service, "/")) as tab:
        assert "Host Name" in tab.value("document.body.innerText")
        tab.click("a[href*='job']").wait_loaded(2)
        assert tab.url() == address(service, "/job/list" if kind is LegacyService else "/job")
        assert "Number of Jobs" in tab.value("document.body.innerText")
        link = "a[href^='../job/']"
        number = tab.value("document.querySelector(\"%s\").innerText" % link)
        # Colours and borders are attributes, which no policy minds.
        assert tab.value("getComputedStyle(document.querySelector('td')).backgroundColor") == \
            "rgb(0, 0, 0)"
        tab.click(link).wait_loaded(3)
        assert tab.url().endswith("/" + number)
        if kind is not RenderService:
            assert "a job" in tab.value("document.body.innerText")
            assert "hello" in tab.value("document.body.innerText")
        assert tab.complaints() == [] and tab.exceptions() == []


def test_statistics_run_their_own_scripts(services, browser, library):
    """The other providers link such a page too, and have none."""
    service = services.start(kind=LegacyService)
    add(service, "a job")
    del library.heard[:]
    with browser.open(address(service, "/job/list")) as tab:
        tab.click("a[href='../statistics']").wait_loaded(2)
        assert tab.url() == address(service, "/statistics")
        assert library.heard == ["npm-chart.js@1.1.1-Chart.min.js"]
        assert tab.value("window.libraryLoaded") is True
        values = json.loads(tab.value("JSON.stringify(data_jobstatus)"))
        assert [entry["value"] for entry in values] == [1, 0, 0]
        # The page has never had a canvas: its script gets as far as that.
        assert tab.exceptions() == [
            "TypeError: Cannot read properties of null (reading 'getContext')"]
        assert tab.complaints() == []
    with browser.open(address(service, "/settings")) as tab:
        assert tab.complaints() == [] and tab.exceptions() == []


def test_statistics_draw_where_there_is_a_canvas(services, browser, listener):
    """And run nothing besides, should another text ever come to stand there."""
    service = services.start(kind=LegacyService)
    text, inside, everything = automatic(listener)

    def change(body):
        more = b"<canvas id=\"canvas_jobstatus\"></canvas>" + text.encode()
        return body.replace(b"<div id=\"container\">", more + b"<div id=\"container\">")
    pixels = ("JSON.stringify([0, 1, 2].map(index => Array.from(document.getElementById("
              "'canvas_jobstatus').getContext('2d').getImageData(index * 10 + 5, 5, 1, 1).data)))")
    with Proxy(service, guarded=True, change=change) as proxy:
        with browser.open(address(proxy, "/statistics")) as tab:
            tab.settle()
            assert tab.ran() == set() and listener.heard == []
            assert json.loads(tab.value(pixels)) == COLOURS
            assert len(tab.complaints()) >= len(inside) and tab.exceptions() == []
    with Proxy(service, change=change) as bare, browser.open(address(bare, "/statistics")) as tab:
        listener.wait_for(everything)
        wait_for(lambda: inside <= tab.ran(), lambda: "what ran: %s" % tab.ran())


def test_results_run_their_scripts(services, browser, listener):
    """A viewer in a result has to work, also for who comes from a link or is sent by an answer."""
    service = services.make(kind=LegacyService)
    service.options += ["--delivery_service", "http://127.0.0.1:%d" % (service.port + 1)]
    service.start()
    page = add(service, "<a href='http://127.0.0.1:%d/1/index.html'>there</a>" % (service.port + 1))
    form = "resource=model&format=html&reply=redirect"
    assert service.submit_form(form).code == 302
    service.wait_done(2)
    content = "<script>%s</script>" % listener.code("result")
    for number in (1, 2):
        (service.job_folder(number) / "index.html").write_text(content)
    with browser.open(address(service, page)) as tab:
        tab.click("a").wait_loaded(2)
        assert tab.url().endswith("/1/index.html")
        listener.wait_for(["result"])
    del listener.heard[:]
    with browser.open(address(service, "/job/add?" + form)) as tab:
        listener.wait_for(["result"])
        assert tab.url().endswith("/2/index.html")
        assert tab.complaints() == []
