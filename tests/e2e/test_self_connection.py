"""The gateway never takes a connection to itself for its client proxy.

When nothing listens on 127.0.0.1:40410 and the kernel picks 40410 as the
local port of the gateway's own connection attempt, TCP joins the socket to
itself (a self-connection) and the gateway would read back its own hello.
The test makes that certain: in its own network namespace it narrows the
ephemeral port range to the one port 40410, so every attempt of the
reconnect schedule is such a self-connection. The gateway must answer every
call with "not connected to client proxy" and go on with its schedule.
"""

import http.client
import os
import subprocess
import sys
import time
import unittest
import xmlrpc.client

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gateway  # noqa: E402
import testmain  # noqa: E402

PORT_RANGE = "/proc/sys/net/ipv4/ip_local_port_range"


class FixedSourcePortTransport(xmlrpc.client.Transport):
    """Connects from a port of its own choosing, outside the narrowed
    ephemeral range, so the test's own calls never take port 40410."""

    def __init__(self, source_port):
        super().__init__()
        self.source_port = source_port

    def make_connection(self, host):
        self._connection = host, http.client.HTTPConnection(
            host, source_address=("127.0.0.1", self.source_port))
        return self._connection[1]


@gateway.skip_unless_private_network()
class SelfConnection(unittest.TestCase):
    def test_a_connection_to_itself_is_refused_and_the_schedule_goes_on(self):
        gw = gateway.Gateway(self.addCleanup, start_sim=False)
        with open(PORT_RANGE) as f:
            saved = f.read().split()
        # Only in this namespace: the setting is per network namespace.
        subprocess.run(["sysctl", "-q", "-w", "net.ipv4.ip_local_port_range=40410 40410"],
                       check=True)
        self.addCleanup(lambda: subprocess.run(
            ["sysctl", "-q", "-w", "net.ipv4.ip_local_port_range=%s %s" % tuple(saved)]))
        tries_before = gw.server.output().count("trying to connect to client proxy")
        # Three attempts of the schedule (gaps of 3 to 6 s).
        deadline = time.monotonic() + 25
        while (gw.server.output().count("trying to connect to client proxy") < tries_before + 3
               and time.monotonic() < deadline):
            time.sleep(0.2)
        output = gw.server.output()
        self.assertGreaterEqual(output.count("trying to connect to client proxy"), tries_before + 3,
                                output)
        self.assertNotIn("connected to client proxy at", output)
        # The attempts did reach themselves, and were refused for it.
        self.assertIn("reached itself", output)
        for source_port in (50001, 50002, 50003):
            with xmlrpc.client.ServerProxy(gateway.URL,
                                           transport=FixedSourcePortTransport(source_port)) as p:
                self.assertEqual(p.getVersion(), {"error": gateway.NOT_CONNECTED})


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
