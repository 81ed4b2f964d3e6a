"""What is measured, by name, and the table of what came out."""

import dataclasses
import statistics
import typing

ROW_NAMES = ("accepted-32", "accepted-256", "result-1k", "result-1m", "sizes", "jobs-2", "jobs-8",
             "queues", "blocked", "idle", "hostile", "submit", "reload", "table", "growth",
             "legacy-list", "legacy-jobs")

BEGIN = "<!-- FIGURES: "
END = "<!-- END OF FIGURES -->"


@dataclasses.dataclass
class Result:
    """The rounds of one row. Without a peer, what counts is the figure itself."""

    what: str
    unit: str
    ours: typing.List[float]
    peer: typing.List[float]
    wanted: typing.Optional[float]  # None: nothing but the figure
    at_most: bool = False  # else `wanted` is the least

    def value(self):
        middle = statistics.median(self.ours)
        return middle / statistics.median(self.peer) if self.peer else middle

    def verdict(self):
        if self.wanted is None:
            return "-"
        met = self.value() <= self.wanted if self.at_most else self.value() >= self.wanted
        return "met" if met else "missed"


def matching(words):
    """The rows that are named, whole or by what stands before the dash; all for no word."""
    return [name for name in ROW_NAMES
            if not words or name in words or name.split("-")[0] in words]


def _figure(value):
    return "{:,.0f}".format(value) if value >= 100 else "{:.2f}".format(value)


def figures(values, unit):
    """The median and, in brackets, the least and the greatest."""
    if not values:
        return "-"
    return "%s %s (%s-%s)" % (_figure(statistics.median(values)), unit, _figure(min(values)),
                              _figure(max(values)))


def table(results):
    """The results as a Markdown table."""
    lines = ["| measurement | ours: median (least-greatest) | peer: median (least-greatest) | "
             "ratio | wanted | |",
             "|---|---|---|---|---|---|"]
    for result in results:
        bound = "at most" if result.at_most else "at least"
        ratio = "%.2f" % result.value() if result.peer else "-"
        wanted = "-" if result.wanted is None else "%s %g%s" % (
            bound, result.wanted, "" if result.peer else " " + result.unit)
        lines.append("| %s | %s | %s | %s | %s | %s |" % (
            result.what, figures(result.ours, result.unit), figures(result.peer, result.unit),
            ratio, wanted, result.verdict()))
    return "\n".join(lines)


def write(path, text):
    """Replaces what stands between the two marks of a file."""
    content = path.read_text(encoding="utf-8")
    begin = content.index("\n", content.index(BEGIN)) + 1
    end = content.index(END)
    path.write_text(content[:begin] + "\n" + text + "\n\n" + content[end:], encoding="utf-8")
