#!/usr/bin/env python3
"""Follows a workflow until it ends, with a progress bar on the terminal.
Exits 0 when it finished, 1 when it failed or was cancelled.

    python3 follow.py WORKFLOW-ID
"""

import sys
import time

from corvane_client import call, main

ENDED = {"finished", "failed", "cancelled"}
WIDTH = 40  # characters of the bar
POLL_SECONDS = 0.5


def bar(fraction):
    done = int(round(fraction * WIDTH))
    return "[" + "#" * done + "-" * (WIDTH - done) + "] %3d %%" % round(fraction * 100)


def run():
    if len(sys.argv) != 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    workflow_id = sys.argv[1]
    while True:
        found = call("statusWorkflows2", {"workflow-ids": [workflow_id]})["workflows"]
        if not found:
            print("no workflow %s" % workflow_id, file=sys.stderr)
            return 1
        w = found[0]
        # \r puts the bar back at the start of its line.
        sys.stdout.write("\r%s %s %-9s" % (workflow_id, bar(w["progress"]), w["state"]))
        sys.stdout.flush()
        if w["state"] in ENDED:
            print()
            return 0 if w["state"] == "finished" else 1
        time.sleep(POLL_SECONDS)


if __name__ == "__main__":
    sys.exit(main(run))
