"""What a tool is given: its words, its environment, its signals."""

import json
import os
import signal

from waiting import wait_for


def test_words_of_a_command_line(service):
    cases = [
        ("plain two", ["plain", "two"]),
        ("'single \"q\" \\' x", ["single \"q\" \\", "x"]),
        ("\"double \\\" \\\\ \\n 'q'\"", ["double \" \\ \\n 'q'"]),
        ("a\\ b \\'c", ["a b", "'c"]),
        ("'' \"\"", ["", ""]),
        ("join'ed 'wo\"rd s\"", ["joined word s"]),
        ("$HOME ~ * `id` $(id) ; && | > x # y", ["$HOME", "~", "*", "`id`", "$(id)", ";", "&&", "|",
                                                 ">", "x", "#", "y"]),
        ("  many   blanks  ", ["many", "blanks"]),
        ("ünï-code", ["ünï-code"]),
    ]
    for number, (words, wanted) in enumerate(cases, 1):
        job = service.run("arguments out " + words, uid=str(number))
        service.wait_done(job)
        assert json.loads((service.job_folder(job) / "out").read_text()) == wanted


def test_what_a_tool_inherits(services):
    service = services.start("--ssl", config={"commandWhitelist": ["*"]})
    clients = [service.session.get(service.url + "/favicon.ico", stream=True) for _ in range(3)]
    job = service.run("inherited seen", "signals which")
    service.wait_done(job)
    del clients
    folder = service.job_folder(job)
    seen = json.loads((folder / "seen").read_text())
    assert seen["folder"] == str(folder)
    assert seen["group"] == seen["process"], "a process group of its own"
    assert seen["SigBlk"] == 0
    console = str(folder / "console.txt")
    # Descriptor 3 or so is the one by which the tool itself lists them, gone when it looks.
    assert seen["descriptors"] == {"0": "/dev/null", "1": console, "2": console}
    signals = dict(line.split() for line in (folder / "which").read_text().splitlines())
    # The C library's starting of processes leaves its own two signals, 32 and 33, ignored.
    ignored = int(signals["SigIgn:"], 16) & ~(3 << 31)
    assert (int(signals["SigBlk:"], 16), ignored) == (0, 0)
    with open("/proc/self/limits") as limits:
        soft = next(line.split()[3] for line in limits if line.startswith("Max open files"))
    assert seen["files"] == int(soft), "the limit that the service itself was started with"


def test_program_with_a_slash(service):
    """Looked for below the service's own folder first, then below the job's."""
    script = "#!/bin/sh\necho %s >&2\n"
    own = service.run_folder / "bin" / "tool"
    own.parent.mkdir()
    own.write_text(script % "of the service")
    own.chmod(0o755)
    job = service.run("bin/tool")
    service.wait_done(job)
    assert service.console(job) == "of the service\n"
    job = service.run("hold gate", "src/tool")
    service.wait_started(job)
    tool = service.job_folder(job) / "src" / "tool"
    tool.write_text(script % "of the job")
    tool.chmod(0o755)
    service.open_gate(job)
    service.wait_done(job)
    assert service.console(job) == "gate\nof the job\n"


def test_interrupt_of_the_terminal_does_not_reach_a_tool(single):
    """The tool is in no group that a terminal would signal along with the service's."""
    job = single.run("hold gate")
    single.wait_started(job)
    tool = single.tools()[0]
    assert os.getpgid(tool) != os.getpgid(single.process.pid)
    single.process.send_signal(signal.SIGINT)
    wait_for(lambda: "shutting down threads" in single.stderr(), "the end to begin")
    single.open_gate(job)
    single.stop()
    assert single.stored_status(job) == 3
