"""The gateway when its client proxy is absent, slow or dies mid-call:
every method answers with an `error` member, nothing hangs, and the server
finds the proxy again once it is back."""

import os
import signal
import sys
import threading
import time
import unittest
import xmlrpc.client

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gateway  # noqa: E402
import testmain  # noqa: E402

# The server waits this long for a reply before answering with an error.
SEND_TIMEOUT = 5.0


@gateway.skip_unless_private_network()
class ProxyAbsent(unittest.TestCase):
    def test_every_method_answers_not_connected_at_once(self):
        gw = gateway.Gateway(self.addCleanup, start_sim=False)
        s = gw.proxy()
        methods = [m for m in s.system.listMethods() if not m.startswith("system.")]
        self.assertEqual(sorted(methods), sorted(gateway.VALID_PARAMS))
        for name in methods:
            with self.subTest(method=name):
                started = time.monotonic()
                reply = getattr(s, name)(gateway.VALID_PARAMS[name])
                took = time.monotonic() - started
                self.assertEqual(reply, {"error": gateway.NOT_CONNECTED})
                # Far below the send time-out: nothing was sent or waited for.
                self.assertLess(took, SEND_TIMEOUT / 2)


@gateway.skip_unless_private_network()
class SlowProxy(unittest.TestCase):
    def test_a_reply_later_than_the_time_out_gives_an_error_and_the_server_goes_on(self):
        gw = gateway.Gateway(self.addCleanup, sim_args=["--delay-ms", "6000"])
        reply = gw.wait_link_up()
        self.assertEqual(list(reply), ["error"])
        self.assertIn("timed out", reply["error"])
        # The server serves the next call, and the late reply is not taken
        # for the answer to another one.
        self.assertIn("getVersion", gw.proxy().system.listMethods())
        reply = gw.proxy().jobPause({"job-id": "job-1"})
        self.assertEqual(list(reply), ["error"])
        self.assertIn("timed out", reply["error"])


@gateway.skip_unless_private_network()
class ProxyDiesMidCall(unittest.TestCase):
    def test_a_lost_link_gives_an_error_and_the_server_reconnects(self):
        gw = gateway.Gateway(self.addCleanup, sim_args=["--delay-ms", "2000"])
        first = gw.wait_link_up()
        self.assertNotIn("error", first)

        result = {}

        def call():
            with xmlrpc.client.ServerProxy(gateway.URL) as p:
                result["reply"] = p.getVersion()

        caller = threading.Thread(target=call)
        caller.start()
        # Kill the proxy while the call waits for its delayed reply.
        deadline = time.monotonic() + 10
        while len(gw.recorded_commands()) < 2 and time.monotonic() < deadline:
            time.sleep(0.05)
        gw.sim.stop(signal.SIGKILL)
        caller.join(2 * SEND_TIMEOUT)
        self.assertFalse(caller.is_alive())
        self.assertEqual(list(result["reply"]), ["error"])
        self.assertIn("lost", result["reply"]["error"])

        # While the proxy is away, calls say so at once.
        self.assertEqual(gw.proxy().getVersion(), {"error": gateway.NOT_CONNECTED})

        gw.sim_args = []
        gw.start_sim()
        reply = gw.wait_connected()
        self.assertEqual(reply["version"], "7.0.0.0")


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
