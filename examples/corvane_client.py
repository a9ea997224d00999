"""What the example scripts share: the server's address and a call that
turns a reply's `error` member into an exception.

The address is http://127.0.0.1:40431/ unless CORVANE_XMLRPC_URL says
otherwise."""

import os
import sys
import xmlrpc.client

URL = os.environ.get("CORVANE_XMLRPC_URL", "http://127.0.0.1:40431/")


class CorvaneError(Exception):
    """The `error` member of a reply: the gateway's or the cluster's refusal."""


def server():
    return xmlrpc.client.ServerProxy(URL)


def call(method, params=None):
    """Calls one method with its struct; returns the reply, raises
    CorvaneError when the reply carries an `error` member."""
    reply = getattr(server(), method)(params or {})
    if "error" in reply:
        raise CorvaneError("%s: %s" % (method, reply["error"]))
    return reply


def main(run):
    """Runs run(), turning refusals and an unreachable server into a message
    and exit code 1."""
    try:
        return run()
    except CorvaneError as e:
        print("error:", e, file=sys.stderr)
    except OSError as e:
        print("error: cannot reach %s (%s)" % (URL, e), file=sys.stderr)
    return 1
