#!/usr/bin/env python3
"""Prints the product and version of the cluster behind the gateway.

    python3 version.py
"""

import sys

from corvane_client import call, main


def run():
    v = call("getVersion")
    print("%s %s" % (v["product"], v["version"]))
    return 0


if __name__ == "__main__":
    sys.exit(main(run))
