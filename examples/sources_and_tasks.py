#!/usr/bin/env python3
"""Describes a source (a list of files) and two tasks (copy, mail) and
prints the structs the cluster answers: what a submission is made of.

    python3 sources_and_tasks.py /media/in/a.mov /media/in/b.mov
"""

import pprint
import sys

from corvane_client import call, main


def run():
    files = sys.argv[1:] or ["/media/in/a.mov"]
    source = call("sourceCreateFileList", {"files": files})["source"]
    copy = call("taskCreateTransfer", {"destination": "/media/out", "overwrite": True})["task"]
    mail = call("taskCreateMail", {"to": ["ops@example.com"], "subject": "Encoded"})["task"]
    print("source:")
    pprint.pprint(source)
    print("tasks:")
    pprint.pprint([copy, mail])
    return 0


if __name__ == "__main__":
    sys.exit(main(run))
