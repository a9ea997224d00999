"""DNS-SD publication seen from a real Avahi daemon.

Each test makes its own network namespace with a private D-Bus system bus
and avahi-daemon (see avahi_sandbox), publishes through the vxnet-publish-probe
program or through XMLRPCServer, and looks with avahi-browse. Each test uses
ports or names of its own, since a withdrawn service stays visible a moment.
"""

import os
import queue
import subprocess
import sys
import threading
import time
import unittest
import xml.etree.ElementTree as ElementTree

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import avahi_sandbox  # noqa: E402
import testmain  # noqa: E402

BIN = os.path.join(os.environ.get("XMLRPCS_BUILD_DIR", "build"), "bin")
PROBE = os.path.join(BIN, "vxnet-publish-probe")
SERVER = os.path.join(BIN, "XMLRPCServer")

# How long a browser may take to see a service come or go. Announcing takes
# Avahi about a second (probing then announcing); a withdrawn service is
# forgotten within about a second as well.
APPEAR_PATIENCE_S = 10.0
# A negative result is trusted only after this long without the service.
ABSENT_WATCH_S = 3.0
# Bound on waiting for a line from a probe; only a broken one takes this long.
LINE_PATIENCE_S = 10.0
# A probe must end this long after SIGTERM even with a frozen daemon, which
# would hold a D-Bus call for 25 s if the program waited on it.
STOP_PATIENCE_S = 8.0


class Probe:
    """vxnet-publish-probe running in the sandbox, its output lines queued."""

    def __init__(self, sandbox, *args):
        with open(os.path.join(sandbox.dir, "probe.stderr"), "a") as errors:
            self.process = sandbox.spawn([PROBE] + [str(a) for a in args],
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=errors, text=True, bufsize=1)
        self.lines = queue.Queue()
        self.seen = []
        self._pump_thread = threading.Thread(target=self._pump, daemon=True)
        self._pump_thread.start()
        sandbox.on_close(self.close)

    def close(self):
        """Stops the probe if it still runs and releases its pipes."""
        avahi_sandbox.stop_process(self.process)
        self._pump_thread.join(LINE_PATIENCE_S)
        for stream in (self.process.stdin, self.process.stdout):
            try:
                stream.close()
            except OSError:
                pass  # a pipe to a process that has gone

    def _pump(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))
        self.lines.put(None)

    def wait_for_line(self, prefix, patience=LINE_PATIENCE_S):
        """The first new line starting with prefix; None at end or after patience."""
        deadline = time.monotonic() + patience
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                return None
            try:
                line = self.lines.get(timeout=left)
            except queue.Empty:
                return None
            if line is None:
                self.lines.put(None)
                return None
            self.seen.append(line)
            if line.startswith(prefix):
                return line

    def ping(self):
        """True when the probe's main thread answers a ping."""
        self.process.stdin.write("ping\n")
        self.process.stdin.flush()
        return self.wait_for_line("pong") == "pong"

    def terminate(self):
        """SIGTERM by PID; returns the exit code, or None if it did not end."""
        self.process.terminate()
        try:
            return self.process.wait(STOP_PATIENCE_S)
        except subprocess.TimeoutExpired:
            return None


class SandboxTestCase(unittest.TestCase):
    """Makes the namespace and bus; the daemon is started by each test."""

    def setUp(self):
        reason = avahi_sandbox.unavailable_reason()
        if reason:
            self.skipTest(reason)
        self.sandbox = avahi_sandbox.Sandbox()
        self.addCleanup(self.sandbox.close)
        try:
            self.sandbox.create_namespace()
        except RuntimeError as e:
            self.skipTest("cannot create a network namespace: %s" % e)
        self.sandbox.start_bus()

    def assertAppears(self, name_port):
        found = self.sandbox.wait_until(lambda: name_port in self.sandbox.browse(),
                                        APPEAR_PATIENCE_S)
        self.assertTrue(found, "%s not announced; seen: %s\ndaemon log:\n%s" % (
            name_port, self.sandbox.browse(), self.sandbox.daemon_log()))

    def assertAbsent(self, match):
        """No announced service satisfies match over ABSENT_WATCH_S."""
        deadline = time.monotonic() + ABSENT_WATCH_S
        while time.monotonic() < deadline:
            seen = self.sandbox.browse()
            hits = [s for s in seen if match(s)]
            self.assertFalse(hits, "unexpectedly announced: %s" % hits)
            time.sleep(0.25)

    def assertGone(self, name_port):
        gone = self.sandbox.wait_until(lambda: name_port not in self.sandbox.browse(),
                                       APPEAR_PATIENCE_S)
        self.assertTrue(gone, "%s still announced" % (name_port,))


@unittest.skipUnless(os.path.exists(PROBE), "vxnet-publish-probe is not built")
class ProbePublicationTest(SandboxTestCase):

    def test_publishes_the_type_on_its_port(self):
        self.sandbox.start_daemon()
        probe = Probe(self.sandbox, "--txt", "path=/RPC2", avahi_sandbox.SERVICE_TYPE, 41001,
                      "probe-port")
        self.assertEqual(probe.wait_for_line("published"), "published probe-port")
        self.assertAppears(("probe-port", 41001))
        self.assertEqual(self.sandbox.browse_txt("probe-port"), '"path=/RPC2"')

    def test_default_name_is_the_host_name(self):
        self.sandbox.start_daemon()
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41002)
        line = probe.wait_for_line("published")
        self.assertIsNotNone(line, probe.seen)
        host = os.uname().nodename.split(".")[0]
        self.assertEqual(line, "published " + host)
        self.assertAppears((host, 41002))

    def test_port_above_65535_is_announced_as_its_low_16_bits(self):
        self.sandbox.start_daemon()
        Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 65536 + 41003, "probe-wide")
        self.assertAppears(("probe-wide", 41003))

    def test_destruction_withdraws_the_service(self):
        self.sandbox.start_daemon()
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41004, "probe-withdraw")
        self.assertAppears(("probe-withdraw", 41004))
        self.assertEqual(probe.terminate(), 0)
        self.assertIn("withdrawn", probe.seen + [probe.wait_for_line("withdrawn")])
        self.assertGone(("probe-withdraw", 41004))

    def test_without_any_daemon_the_publisher_runs_and_answers(self):
        # The bus is there, the Avahi daemon is not.
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41005, "probe-alone")
        self.assertEqual(probe.wait_for_line("ready"), "ready")
        self.assertEqual(probe.wait_for_line("not-published"),
                         "not-published waiting for the Avahi daemon")
        self.assertTrue(probe.ping())
        self.assertIsNone(probe.process.poll())
        self.assertEqual(probe.terminate(), 0)

    def test_without_a_system_bus_the_publisher_runs_and_answers(self):
        self.sandbox.stop_bus()
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41006, "probe-nobus")
        line = probe.wait_for_line("not-published")
        self.assertIsNotNone(line, probe.seen)
        self.assertIn("cannot reach the system bus", line)
        self.assertTrue(probe.ping())
        self.assertEqual(probe.terminate(), 0)

    def test_daemon_started_after_the_publisher_gets_the_service(self):
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41007, "probe-late")
        self.assertEqual(probe.wait_for_line("not-published"),
                         "not-published waiting for the Avahi daemon")
        self.sandbox.start_daemon()
        self.assertAppears(("probe-late", 41007))
        self.assertTrue(probe.ping())

    def test_restarted_daemon_gets_the_service_again(self):
        self.sandbox.start_daemon()
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41008, "probe-restart")
        self.assertAppears(("probe-restart", 41008))
        self.sandbox.stop_daemon()
        self.assertIsNotNone(probe.wait_for_line("not-published"), probe.seen)
        self.sandbox.start_daemon()
        self.assertIsNotNone(probe.wait_for_line("published probe-restart"), probe.seen)
        self.assertAppears(("probe-restart", 41008))
        self.assertTrue(probe.ping())

    def test_name_collision_gives_the_second_publisher_an_alternative_name(self):
        self.sandbox.start_daemon()
        first = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41009, "probe-twin")
        self.assertEqual(first.wait_for_line("published"), "published probe-twin")
        second = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41010, "probe-twin")
        self.assertEqual(second.wait_for_line("published"), "published probe-twin #2")
        self.assertAppears(("probe-twin", 41009))
        self.assertAppears(("probe-twin #2", 41010))

    def test_name_taken_by_another_host_gives_an_alternative_name(self):
        # A second namespace with a daemon of its own, on a link with ours.
        other = avahi_sandbox.Sandbox()
        self.addCleanup(other.close)
        other.create_namespace()
        other.start_bus()
        self.sandbox.link_to(other)
        self.sandbox.start_daemon(interfaces="mdns0", host_name="alpha")
        other.start_daemon(interfaces="mdns0", host_name="beta")
        first = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41012, "probe-net")
        self.assertEqual(first.wait_for_line("published"), "published probe-net")
        second = Probe(other, avahi_sandbox.SERVICE_TYPE, 41013, "probe-net")
        self.assertEqual(second.wait_for_line("published"), "published probe-net #2",
                         second.seen)
        self.assertIn('not-published the name "probe-net" is taken on the network', second.seen)
        # Seen from this host: its own service and the other host's.
        self.assertAppears(("probe-net", 41012))
        self.assertAppears(("probe-net #2", 41013))

    def test_frozen_daemon_holds_up_neither_start_nor_stop(self):
        self.sandbox.start_daemon()
        self.sandbox.freeze_daemon()
        probe = Probe(self.sandbox, avahi_sandbox.SERVICE_TYPE, 41011, "probe-frozen")
        self.assertEqual(probe.wait_for_line("ready"), "ready")
        self.assertTrue(probe.ping())
        # The frozen daemon holds the publication's call: nothing was told yet.
        self.assertEqual(probe.seen, ["ready", "pong"])
        self.assertEqual(probe.terminate(), 0, "the publisher did not end promptly: %s"
                         % probe.seen)
        self.sandbox.thaw_daemon()
        self.assertGone(("probe-frozen", 41011))


def write_server_config(sandbox, port=None, active=None, publish=None):
    """Writes the server's default configuration (from XMLRPCServer --cfg) to
    a file with the given settings changed; returns its path."""
    made = subprocess.run([SERVER, "--cfg"], capture_output=True, text=True, timeout=30)
    if made.returncode != 0:
        raise RuntimeError("XMLRPCServer --cfg failed: %s" % made.stderr)
    root = ElementTree.fromstring(made.stdout)
    # Keep the test's runs out of the machine's system log.
    _find_section(root, ["logging", "system-log"]).text = "false"
    xmlrpc = _find_section(root, ["services", "xmlrpc"])
    for key, value in (("listen-port", port), ("active", active), ("publish", publish)):
        if value is None:
            continue
        element = _find_section(xmlrpc, [key])
        element.text = str(value).lower() if isinstance(value, bool) else str(value)
    path = os.path.join(sandbox.dir, "XMLRPCServer.xml")
    ElementTree.ElementTree(root).write(path, encoding="utf-8", xml_declaration=True)
    return path


def _find_section(element, names):
    for name in names:
        child = element.find(name)
        if child is None:
            raise RuntimeError("no <%s> in the configuration that --cfg printed" % name)
        element = child
    return element


@unittest.skipUnless(os.path.exists(SERVER), "XMLRPCServer is not built")
class ServerPublicationTest(SandboxTestCase):

    def start_server(self, **settings):
        """Starts the server on a configuration with settings changed and
        waits until it is past its construction (its listener, when active,
        answers; otherwise it has written its configuration back)."""
        config = write_server_config(self.sandbox, **settings)
        written = os.stat(config).st_mtime_ns
        with open(os.path.join(self.sandbox.dir, "server.log"), "w") as log:
            self.server = self.sandbox.spawn([SERVER, "--usecfg", config], stdout=log,
                                             stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        # The configuration is written back last in construction.
        rewritten = self.sandbox.wait_until(
            lambda: self.server.poll() is not None or os.stat(config).st_mtime_ns != written,
            APPEAR_PATIENCE_S)
        self.assertTrue(rewritten, "the server did not rewrite its configuration")
        self.assertIsNone(self.server.poll(), "the server ended:\n" + self.server_output())
        return self.server

    def assertAppears(self, name_port):
        try:
            super().assertAppears(name_port)
        except AssertionError as e:
            raise AssertionError("%s\nserver output:\n%s" % (e, self.server_output()))

    def server_output(self):
        with open(os.path.join(self.sandbox.dir, "server.log"), errors="replace") as f:
            return f.read()

    def test_default_configuration_publishes_on_40431(self):
        self.sandbox.start_daemon()
        self.start_server()
        host = os.uname().nodename.split(".")[0]
        self.assertAppears((host, 40431))

    def test_configured_port_is_published(self):
        self.sandbox.start_daemon()
        self.start_server(port=41021)
        host = os.uname().nodename.split(".")[0]
        self.assertAppears((host, 41021))

    def test_port_above_65535_is_published_as_its_low_16_bits(self):
        self.sandbox.start_daemon()
        self.start_server(port=65536 + 41022)
        host = os.uname().nodename.split(".")[0]
        self.assertAppears((host, 41022))

    def test_stopping_the_server_withdraws_the_service(self):
        self.sandbox.start_daemon()
        server = self.start_server(port=41023)
        host = os.uname().nodename.split(".")[0]
        self.assertAppears((host, 41023))
        server.terminate()
        server.wait(STOP_PATIENCE_S)
        self.assertGone((host, 41023))

    def test_publish_false_publishes_nothing(self):
        self.sandbox.start_daemon()
        server = self.start_server(port=41024, publish=False)
        self.assertAbsent(lambda s: True)
        self.assertAnswers(41024)
        self.assertIsNone(server.poll(), self.server_output())

    def test_active_false_publishes_nothing(self):
        self.sandbox.start_daemon()
        server = self.start_server(port=41025, active=False, publish=True)
        self.assertAbsent(lambda s: True)
        self.assertIsNone(server.poll(), self.server_output())

    def test_taken_port_is_announced_only_once_listening(self):
        # Another process holds the port for a few seconds; the server
        # reports the failed bind once, tries again every 5 s without a
        # line, announces nothing meanwhile, and once it listens says so,
        # announces and answers.
        self.sandbox.start_daemon()
        holder = self.sandbox.spawn([sys.executable, "-c",
                                     "import socket, time\n"
                                     "s = socket.socket()\n"
                                     "s.bind(('0.0.0.0', 41025))\n"
                                     "s.listen(1)\n"
                                     "print('held', flush=True)\n"
                                     "time.sleep(7)\n"],
                                    stdout=subprocess.PIPE)
        self.assertEqual(holder.stdout.readline(), b"held\n")
        self.start_server(port=41025)
        self.assertAbsent(lambda s: s[1] == 41025)
        holder.wait(15)
        holder.stdout.close()
        host = os.uname().nodename.split(".")[0]
        self.assertAppears((host, 41025))
        self.assertAnswers(41025)
        output = self.server_output()
        self.assertEqual(output.count("XmlRpcServer::bindAndListen: Could not bind to specified "
                                      "port (error 98)."), 1, output)
        self.assertEqual(output.count("listening on port 41025"), 1, output)

    def assertAnswers(self, port):
        """The server answers system.listMethods on port with a method list."""
        script = ("import sys, time, xmlrpc.client\n"
                  "proxy = xmlrpc.client.ServerProxy('http://127.0.0.1:%d')\n"
                  "for _ in range(40):\n"
                  "    try:\n"
                  "        print(len(proxy.system.listMethods()))\n"
                  "        sys.exit(0)\n"
                  "    except OSError:\n"
                  "        time.sleep(0.25)\n"
                  "sys.exit('no answer')\n" % port)
        answered = self.sandbox.run([sys.executable, "-c", script])
        self.assertEqual(answered.returncode, 0, "%s\nserver output:\n%s" % (
            answered.stderr, self.server_output()))
        self.assertGreater(int(answered.stdout), 0)

    def test_without_any_daemon_the_server_runs_and_answers(self):
        self.start_server(port=41026)
        self.assertAnswers(41026)
        self.assertIsNone(self.server.poll(), self.server_output())

    def test_without_a_system_bus_the_server_runs_and_answers(self):
        self.sandbox.stop_bus()
        self.start_server(port=41027)
        self.assertAnswers(41027)
        self.assertIsNone(self.server.poll(), self.server_output())


if __name__ == "__main__":
    testmain.main()
