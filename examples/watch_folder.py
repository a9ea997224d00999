#!/usr/bin/env python3
"""Makes a watch folder on a directory of the cluster's machine, starts it,
and prints each workflow it makes from a new file, until the time is up or
Ctrl-C; then stops and removes the watch folder.

    python3 watch_folder.py DIRECTORY [PATTERN [SECONDS]]
    python3 watch_folder.py /media/watch '*.mov' 60
"""

import sys
import time

from corvane_client import call, main

POLL_SECONDS = 0.5


def run():
    if not 2 <= len(sys.argv) <= 4:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    path = sys.argv[1]
    pattern = sys.argv[2] if len(sys.argv) > 2 else "*"
    seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 60.0
    source = call("sourceCreateWatchFolder", {"path": path, "file-pattern": pattern})["source"]
    copy = call("taskCreateTransfer", {"destination": "/media/out"})["task"]
    made = call("submitBuildSubmission", {"name": "watch " + path, "sources": [source],
                                          "tasks": [copy]})
    monitor = made["monitor-ids"][0]
    call("watchFolderStart", {"monitor-id": monitor})
    print("watching %s for %s as %s" % (path, pattern, monitor), flush=True)
    seen = set()
    deadline = time.monotonic() + seconds
    try:
        while time.monotonic() < deadline:
            status = call("statusWatchFolders", {"monitor-ids": [monitor]})["monitors"][0]
            new = [w for w in status["workflow-ids"] if w not in seen]
            if new:
                found = call("statusWorkflows2", {"workflow-ids": new})["workflows"]
                for w in found:
                    print("%s: %s" % (w["workflow-id"], w["name"]), flush=True)
                seen.update(new)
            time.sleep(POLL_SECONDS)
    except KeyboardInterrupt:
        pass
    call("watchFolderStop", {"monitor-id": monitor})
    call("watchFolderRemove", {"monitor-id": monitor})
    print("removed %s after %d workflow(s)" % (monitor, len(seen)))
    return 0


if __name__ == "__main__":
    sys.exit(main(run))
