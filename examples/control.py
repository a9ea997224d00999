#!/usr/bin/env python3
"""Pauses, resumes or cancels a job, or cancels a whole workflow; prints the
state it is in afterwards.

    python3 control.py pause JOB-ID
    python3 control.py resume JOB-ID
    python3 control.py cancel JOB-ID
    python3 control.py cancel-workflow WORKFLOW-ID
"""

import sys

from corvane_client import call, main

JOB_METHODS = {"pause": "jobPause", "resume": "jobResume", "cancel": "jobCancel"}


def run():
    if len(sys.argv) != 3 or sys.argv[1] not in list(JOB_METHODS) + ["cancel-workflow"]:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    action, target = sys.argv[1], sys.argv[2]
    if action == "cancel-workflow":
        reply = call("submissionRecall", {"workflow-id": target})
        print("%s: cancelled %s" % (target, " ".join(reply["cancelled-job-ids"]) or "nothing"))
    else:
        reply = call(JOB_METHODS[action], {"job-id": target})
        print("%s: %s" % (target, reply["state"]))
    return 0


if __name__ == "__main__":
    sys.exit(main(run))
