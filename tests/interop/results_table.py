"""The results table of the interoperability suite, as Markdown: written by
test_interop.py beside its JSON results, and put into docs/clients.md by
update_docs.py."""

import html

CHECKS = ["list-methods", "method-help", "get-version", "submit", "empties", "multicall",
          "job-life", "keep-alive"]


def render(rows, calls):
    """rows: {client key: {"title", "checks": {check: [state, why]}, "ms_per_call",
    "connections", "notes": [text]}} in the order of the table."""
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
    return "\n".join(lines) + "\n" + ("\n" + "\n".join(notes) + "\n" if notes else "")
