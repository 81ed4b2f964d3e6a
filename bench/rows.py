"""The rows of the table by name: each measures ours and the peer in turns and returns Results."""

import delivery_rows
import growth_rows
import hostile_rows
import job_rows
import legacy_rows
import machine
import queue_rows
import table_rows
from report import figures

_ROWS = {
    "accepted-32": lambda settings: delivery_rows.accepted(settings, 32),
    "accepted-256": lambda settings: delivery_rows.accepted(settings, 256),
    "result-1k": lambda settings: delivery_rows.finished(settings, "1 KiB", 1024, 32, 0.8),
    "result-1m": lambda settings: delivery_rows.finished(settings, "1 MiB", 1024 * 1024, 8, 0.9),
    "sizes": delivery_rows.sizes,
    "jobs-2": lambda settings: job_rows.jobs(settings, 2),
    "jobs-8": lambda settings: job_rows.jobs(settings, 8),
    "queues": queue_rows.queues,
    "blocked": delivery_rows.blocked,
    "idle": delivery_rows.idle,
    "hostile": hostile_rows.hostile,
    "submit": job_rows.submission,
    "reload": job_rows.reload,
    "table": table_rows.table,
    "growth": growth_rows.growth,
    "legacy-list": legacy_rows.lists,
    "legacy-jobs": legacy_rows.legacy_jobs,
}


def measure(name, settings):
    """Measures one row, prints it as it comes, and returns its results."""
    before = machine.load()
    results = _ROWS[name](settings)
    for result in results:
        peer = ", peer %s, ratio %.2f" % (figures(result.peer, result.unit),
                                          result.value()) if result.peer else ""
        print("%s: %s%s; load before: %.1f" % (result.what, figures(result.ours, result.unit),
                                               peer, before), flush=True)
    return results
