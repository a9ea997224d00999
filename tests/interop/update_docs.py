#!/usr/bin/env python3
"""Puts the interoperability suite's latest results table into docs/clients.md.

    python3 tests/interop/update_docs.py [RESULTS_JSON]

RESULTS_JSON defaults to build/interop/results.json, which the suite
(ctest -R interop) writes. The table replaces everything between the
"interop-table" markers of docs/clients.md.
"""

import json
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.normpath(os.path.join(HERE, "..", ".."))
sys.path.insert(0, HERE)
import results_table  # noqa: E402

BEGIN = "<!-- interop-table: begin (tests/interop/update_docs.py writes this part) -->"
END = "<!-- interop-table: end -->"


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build", "interop", "results.json")
    with open(path, encoding="utf-8") as f:
        results = json.load(f)
    table = results_table.render(results["clients"], results["calls"], results.get("seconds"))
    doc_path = os.path.join(ROOT, "docs", "clients.md")
    with open(doc_path, encoding="utf-8") as f:
        doc = f.read()
    start, end = doc.find(BEGIN), doc.find(END)
    if start < 0 or end < start:
        sys.exit("docs/clients.md has no interop-table markers")
    doc = doc[:start + len(BEGIN)] + "\n" + table + doc[end:]
    with open(doc_path, "w", encoding="utf-8") as f:
        f.write(doc)
    print("docs/clients.md: table of %d clients from %s" % (len(results["clients"]), path))


if __name__ == "__main__":
    main()
