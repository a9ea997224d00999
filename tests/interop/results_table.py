"""The results table of the interoperability suite, as Markdown: written by
test_interop.py beside its JSON results, and put into docs/clients.md by
update_docs.py."""

import html

CHECKS = ["list-methods", "method-help", "get-version", "submit", "empties", "multicall",
          "job-life", "keep-alive"]


def client_seconds(seconds):
    """A client's time in the run: its checks and its 200-call run (and
    building it, when that took a moment)."""
    parts = ["%s %.2f s" % (what, seconds[what]) for what in ("checks", "calls") if what in seconds]
    if seconds.get("prepare", 0) >= 0.5:
        parts.append("build %.1f s" % seconds["prepare"])
    return ", ".join(parts) if parts else "did not run"


def render(rows, calls, seconds=None):
    """rows: {client key: {"title", "checks": {check: [state, why]}, "ms_per_call",
    "connections", "notes": [text], "seconds": {"prepare", "checks", "calls"}}} in
    the order of the table; seconds: the suite's times, as test_interop.py
    records them."""
    head = ["client"] + CHECKS + ["ms per call", "connections for %d calls" % calls]
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    notes = []
    for row in rows.values():
        cells = [row["title"]]
        for check in CHECKS:
            state, why = row["checks"].get(check, ("fail", "no result"))
            cells.append(state)
            if state != "pass" and why:
                notes.append("- %s, %s (%s): %s" % (row["title"], check, state,
                                                    html.escape(why, quote=False)))
        notes += ["- %s, %s" % (row["title"], html.escape(n, quote=False)) for n in row.get("notes", [])]
        ms = row.get("ms_per_call")
        cells.append("%.2f" % ms if ms is not None else "-")
        cells.append(str(row.get("connections", "-")))
        lines.append("| " + " | ".join(cells) + " |")
    if seconds:
        notes.append(
            "- The run that made this table took %.0f s: the checks %.0f s (%d clients at a time), "
            "the %d-call runs %.0f s (one after the other). Per client: %s." % (
                seconds["total"], seconds["checks"], seconds["parallel_clients"], calls,
                seconds["calls"],
                "; ".join("%s %s" % (row["title"], client_seconds(row.get("seconds", {})))
                          for row in rows.values())))
    return "\n".join(lines) + "\n" + ("\n" + "\n".join(notes) + "\n" if notes else "")
