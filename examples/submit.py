#!/usr/bin/env python3
"""Submits a workflow that copies files to a destination; prints its id and
its jobs' ids.

    python3 submit.py NAME DESTINATION FILE...
    python3 submit.py nightly /media/out /media/in/a.mov /media/in/b.mov
"""

import sys

from corvane_client import call, main


def run():
    if len(sys.argv) < 4:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    name, destination, files = sys.argv[1], sys.argv[2], sys.argv[3:]
    source = call("sourceCreateFileList", {"files": files})["source"]
    copy = call("taskCreateTransfer", {"destination": destination})["task"]
    made = call("submitBuildSubmission",
                {"name": name, "priority": 5, "sources": [source], "tasks": [copy]})
    print("workflow %s, jobs %s" % (made["workflow-id"], " ".join(made["job-ids"])))
    return 0


if __name__ == "__main__":
    sys.exit(main(run))
