"""The listener of the running server when its port is taken: the failure is
reported once, the main loop keeps its pace (the proxy reconnect schedule
is not sped up), the port is tried again every 5 s without a line, and the
server says when it listens and then answers. Each run happens in a network
namespace of its own."""

import subprocess
import time
import unittest

import server_process as sp
import testmain

START_TIMEOUT = 15
# The error number of a taken address: EADDRINUSE, or WSAEADDRINUSE.
BIND_FAILED = "XmlRpcServer::bindAndListen: Could not bind to specified port (error %d)." % (
    10048 if sp.WINDOWS else 98)
LISTENING = "listening on port 40431"
# Time the port stays taken: long enough for two silent retries.
HOLD_SECONDS = 11


@sp.skip_unless_private_network()
class TakenPort(unittest.TestCase):
    def test_taken_port_is_retried_quietly_and_the_loop_keeps_its_pace(self):
        with sp.namespace() as ns:
            holder = ns.popen(["python3", "-c",
                               "import socket, time\n"
                               "s = socket.socket()\n"
                               "s.bind(('0.0.0.0', 40431))\n"
                               "s.listen(1)\n"
                               "print('held', flush=True)\n"
                               "time.sleep(%d)\n" % HOLD_SECONDS],
                              stdout=subprocess.PIPE)
            self.assertEqual(holder.stdout.readline(), b"held\n")
            srv = sp.start_server(ns)
            self.assertTrue(srv.out.wait_for("Starting up", START_TIMEOUT), srv.out.texts())
            holder.wait(HOLD_SECONDS + 10)
            holder.stdout.close()
            self.assertTrue(srv.out.wait_for(LISTENING, 10) or srv.err.wait_for(LISTENING, 1),
                            (srv.out.texts(), srv.err.texts()))
            r = ns.run(["python3", "-c",
                        "import xmlrpc.client\n"
                        "p = xmlrpc.client.ServerProxy('http://127.0.0.1:40431/')\n"
                        "print(len(p.system.listMethods()))\n"],
                       capture_output=True, text=True, timeout=30)
            self.assertEqual(r.returncode, 0, r.stderr)
            self.assertGreater(int(r.stdout), 3)
            elapsed = time.monotonic() - srv.started
            self.assertEqual(srv.stop(), 0)
            lines = srv.out.texts() + srv.err.texts()
            self.assertEqual(sum(BIND_FAILED in t for t in lines), 1, lines)
            self.assertEqual(sum(LISTENING in t for t in lines), 1, lines)
            # Proxy attempts keep the schedule (1.5, 4.5, 8.5, 13.5, 19.5 s, then
            # every 6 s): a loop without pass time would make thousands.
            attempts = srv.out.texts().count(sp.TRYING)
            self.assertGreaterEqual(attempts, 1)
            self.assertLessEqual(attempts, 2 + int(elapsed / 3), srv.out.texts())


if __name__ == "__main__":
    sp.run_in_private_network()
    testmain.main()
