"""Programs that leave a mark when they run, so that a test can tell that they did not, and ways to
ask for them."""

ZERO = "\0"


class Stand:
    """A transcoder with programs of its own on its PATH: `tool` writes down its arguments, `evil`
    and all else that is called like it leave a mark."""

    def __init__(self, services, listed=("tool", "plant"), start=True, path=None, **settings):
        self.services = services
        self.root = services.folder
        self.marks = self.root / "marks"
        self.bin = self.root / "bin"
        self.marks.mkdir(exist_ok=True)
        self.program(self.bin / "tool", "printf '%s\\n' \"$@\" >>tool.ran")
        # plant NAME...: programs of these names in the job's folder, which leave a mark.
        self.program(self.bin / "plant", "for name; do\n"
                     "  mkdir -p \"$(dirname \"$name\")\"\n"
                     "  cp %s/bin/evil \"$name\"\ndone" % self.root)
        self.program(self.bin / "evil")
        settings.setdefault("config", {"commandWhitelist": list(listed)})
        self.service = services.make(
            environment={"PATH": path or "%s:/usr/bin:/bin" % self.bin}, **settings)
        self.program(self.service.run_folder / "evil")
        self.program(self.service.run_folder / "sub" / "evil")
        if start:
            self.service.start()

    def program(self, path, text=None):
        """A script; without a text one that leaves its own name among the marks."""
        path.parent.mkdir(parents=True, exist_ok=True)
        mark = ": >%s/$(echo \"$0\" | tr / _)" % self.marks
        path.write_text("#!/bin/sh\n%s\n" % (mark if text is None else text))
        path.chmod(0o755)

    def marked(self):
        return sorted(path.name for path in self.marks.iterdir())

    def codes(self, lines):
        """The code for a batch of each of the lines alone, all submitted in one request."""
        batch = [{"commands": [line], "uid": "line %d" % number}
                 for number, line in enumerate(lines)]
        reply = self.service.submit(batch)
        assert reply.status_code == 200
        return [code for code, _ in reply.json()]

    def reopen(self, identifier):
        """Makes an ended job one that waits, while the service does not run."""
        folder = self.service.job_folder(identifier)
        (folder / ".status").write_text('{ "status" : 0 }\n')
        (folder / ".partial").touch()

    def arguments(self, identifier):
        """What `tool` was called with in the job's folder, a line each."""
        path = self.service.job_folder(identifier) / "tool.ran"
        return path.read_text().splitlines() if path.exists() else []


# Of these each would run `evil`, or a mark-leaving program called otherwise, if it were taken.
REFUSED = [
    "evil", "./evil", "../run/evil", "sub/evil", "./sub/evil", "sub/../evil", "sub//evil",
    "'evil'", "\"evil\"", "e\"vi\"l", "''evil", "\\evil", "ev\\il", " evil", "\tevil", "\nevil",
    "\r\nevil x", "evil\ttool", "'' tool", "'tool", "tool \\", "tool' evil", "env tool", "env evil",
    "sh -c evil", "/bin/sh -c evil", "A=b evil", "PATH=. tool", "exec evil", "evil;tool",
    "tool;evil", "tool|evil", "tool&evil", "tool&&evil", "tool>x", "$(evil)", "`evil`", "$IFS$evil",
    "tool\vevil", "tool\fevil", "tool\u00a0evil", "tool\u200b", "\ufefftool", "tool\u2028evil",
    "tool" + ZERO, "tool" + ZERO + "evil", "evil" + ZERO + "tool", "./tool", "../bin/tool",
    "tool/", "tool/../evil", "TOOL", "Tool", "tool.exe", "tool2", "too", "plan", "*", "t*", "?ool",
    ".\\evil", "C:\\evil", "evil.exe", "/proc/self/exe", "/proc/self/cwd/evil", "~/evil", ".", "..",
    "/", "-", "--", "tool\\ x", "'tool x'", "\\\ntool",
]

# Descriptions on the disk that must not be taken up again.
META = [
    '{"commands":["evil"],"uid":"u"}', '{"commands":["tool a","evil"],"uid":"u"}',
    '{"commands":["./evil"],"uid":"u"}', '{"commands":["tool\\u0000evil"],"uid":"u"}',
    '{"commands":["tool a"],"environment":{"PATH":"."},"uid":"u"}',
    '{"commands":["tool a"],"commands":["evil"],"uid":"u"}', '{"commands":["tool a"],"uid":"u"',
    '[{"commands":["tool a"],"uid":"u"}]', '{"commands":["tool a"],"uid":""}',
]
