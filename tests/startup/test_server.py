"""The running server: configuration files of --usecfg, the configuration
written back at start, the proxy retry schedule, active false, the proxy's
protocol version, and ending on SIGTERM and SIGINT. Every run happens in a
network namespace of its own."""

import os
import signal
import socket
import tempfile
import time
import unittest

import server_process as sp
import testmain

if sp.WINDOWS:
    # C:\ProgramData of the script's own Wine prefix.
    DEFAULT_DIR = os.path.join(os.environ.get("WINEPREFIX", ""), "drive_c", "ProgramData",
                               "Holvenmark", "Corvane 7")
else:
    DEFAULT_DIR = "/var/lib/Holvenmark/Corvane 7"
DEFAULT_FILE = DEFAULT_DIR + "/XMLRPCServer.xml"
ROOT = "xmlrpcserver-configuration"
# Time for the server to come up and write its configuration; generous for
# a loaded machine.
START_TIMEOUT = 15


# Calls getVersion with an empty struct through Python's XML-RPC client.
CALL_GET_VERSION = (
    "import xmlrpc.client\n"
    "p = xmlrpc.client.ServerProxy('http://127.0.0.1:40431/')\n"
    "print(p.getVersion({}))\n")


def config_xml(body):
    return "<%s>%s</%s>" % (ROOT, body, ROOT)


def inactive(extra=""):
    return config_xml("<services><xmlrpc><active>false</active>%s</xmlrpc></services>" % extra)


def read(path):
    with open(path) as f:
        return f.read()


def write(path, text):
    with open(path, "w") as f:
        f.write(text)


def port_open(ns, port):
    """Whether something accepts TCP connections on 127.0.0.1:port inside ns."""
    r = ns.run(["python3", "-c",
                "import socket,sys\n"
                "s=socket.socket()\n"
                "s.settimeout(2)\n"
                "sys.exit(0 if s.connect_ex(('127.0.0.1',%d))==0 else 1)" % port])
    return r.returncode == 0


@sp.skip_unless_private_network()
class ConfigurationFile(unittest.TestCase):
    def start_and_stop(self, ns, *args):
        """Runs the server until it has started up, then stops it."""
        srv = sp.start_server(ns, *args)
        started = srv.out.wait_for("Starting up", START_TIMEOUT)
        # The configuration is written after start-up; the first connection
        # attempt comes after it.
        srv.out.wait_for(sp.TRYING, START_TIMEOUT)
        code = srv.stop()
        self.assertTrue(started, "no start-up line; stderr: %s" % srv.err.texts())
        self.assertEqual(code, 0, srv.err.texts())
        return srv

    def test_usecfg_without_argument_creates_the_default_file(self):
        with sp.namespace(private_dirs=["/var/lib"]) as ns:
            self.assertFalse(ns.run(["test", "-e", DEFAULT_DIR]).returncode == 0)
            self.start_and_stop(ns, "--usecfg")
            r = ns.run(["cat", DEFAULT_FILE], capture_output=True, text=True)
            self.assertEqual(r.returncode, 0)
            self.assertIn("<listen-port>40431</listen-port>", r.stdout)
            self.assertIn("<!-- Log to file", r.stdout)

    def test_existing_empty_file_gets_the_defaults(self):
        with tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
            path = os.path.join(d, "XMLRPCServer.xml")
            write(path, "")
            self.start_and_stop(ns, "--usecfg", path)
            text = read(path)
            self.assertIn("<active>true</active>", text)
            self.assertIn("<listen-port>40431</listen-port>", text)
            self.assertEqual(os.listdir(d), ["XMLRPCServer.xml"])

    def test_unusable_file_is_moved_aside_and_replaced_by_defaults(self):
        cases = {
            "not well-formed": "<xmlrpcserver-configuration><services>",
            "wrong root": "<other-configuration/>",
            "unreadable value": config_xml("<logging><log-to-file>maybe</log-to-file></logging>"),
        }
        for name, broken in cases.items():
            with self.subTest(name), tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
                path = os.path.join(d, "XMLRPCServer.xml")
                backup = os.path.join(d, "XMLRPCServer.old.xml")
                write(path, broken)
                write(backup, "an older backup")
                srv = self.start_and_stop(ns, "--usecfg", path)
                self.assertEqual(read(backup), broken)
                self.assertIn("<listen-port>40431</listen-port>", read(path))
                self.assertTrue(any("XMLRPCServer.old.xml" in line for line in srv.err.texts()),
                                srv.err.texts())

    def test_backup_that_cannot_be_removed_ends_with_exit_1(self):
        with tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
            path = os.path.join(d, "XMLRPCServer.xml")
            write(path, "<not-a-configuration")
            # A non-empty directory in the backup's place cannot be removed.
            backup = os.path.join(d, "XMLRPCServer.old.xml")
            os.mkdir(backup)
            write(os.path.join(backup, "keep"), "x")
            r = ns.run(sp.command(sp.SERVER) + ["--usecfg", path], capture_output=True,
                       text=True, timeout=60)
            self.assertEqual(r.returncode, 1)
            self.assertRegex(r.stderr, r"exception: failed to remove old config file backup "
                             r"\(.+\)\n")
            # The broken file is left where it was.
            self.assertEqual(read(path), "<not-a-configuration")

    def test_partial_file_is_merged_and_written_back_in_full(self):
        with tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
            path = os.path.join(d, "XMLRPCServer.xml")
            write(path, inactive("<listen-port>8080</listen-port>"))
            self.start_and_stop(ns, "--usecfg", path)
            text = read(path)
            self.assertIn("<active>false</active>", text)
            self.assertIn("<listen-port>8080</listen-port>", text)
            # Keys the file lacked are back at their defaults.
            self.assertIn("<publish>true</publish>", text)
            self.assertIn("<rotation-max-files>5</rotation-max-files>", text)
            self.assertIn("<system-log-report-verbosity>5</system-log-report-verbosity>", text)

    def test_file_is_rewritten_at_every_start(self):
        with tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
            path = os.path.join(d, "XMLRPCServer.xml")
            write(path, inactive())
            self.start_and_stop(ns, "--usecfg", path)
            first = read(path)
            write(path, inactive("<listen-port>9090</listen-port>"))
            self.start_and_stop(ns, "--usecfg", path)
            second = read(path)
            self.assertNotEqual(first, second)
            self.assertIn("<listen-port>9090</listen-port>", second)
            self.assertIn("<log-directory></log-directory>", second)


@sp.skip_unless_private_network()
class MainLoop(unittest.TestCase):
    def test_proxy_absent_retry_schedule(self):
        # Attempts are due at nominal 1.5, 4.5, 8.5 and 13.5 s. A turn never
        # takes less than its nominal 500 ms, so within 11 s there can be at
        # most three; a slow machine may see fewer, but not none.
        with sp.namespace() as ns:
            srv = sp.start_server(ns)
            self.assertTrue(srv.out.wait_for("Starting up", START_TIMEOUT))
            # Meanwhile a method answers at once with the error member.
            r = ns.run(["python3", "-c", CALL_GET_VERSION], capture_output=True, text=True,
                       timeout=30)
            self.assertEqual(r.returncode, 0, r.stderr)
            self.assertEqual(r.stdout.strip(), "{'error': 'not connected to client proxy'}")
            time.sleep(max(0.0, 11 - (time.monotonic() - srv.started)))
            srv.stop()
            times = [t - srv.started for t, text in srv.out.lines if text == sp.TRYING]
            self.assertGreaterEqual(len(times), 2, srv.out.texts())
            self.assertLessEqual(len(times), 3, srv.out.texts())
            self.assertGreaterEqual(times[0], 1.4)
            # The gaps grow: 3 s, then 4 s (each at least its nominal length).
            self.assertGreaterEqual(times[1] - times[0], 2.9)
            if len(times) == 3:
                self.assertGreaterEqual(times[2] - times[1], 3.9)

    def test_listener_on_the_configured_port(self):
        with tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
            path = os.path.join(d, "XMLRPCServer.xml")
            write(path, config_xml("<services><xmlrpc><listen-port>8181</listen-port>"
                                   "<publish>false</publish></xmlrpc></services>"))
            srv = sp.start_server(ns, "--usecfg", path)
            self.assertTrue(srv.out.wait_for(sp.TRYING, START_TIMEOUT))
            self.assertTrue(port_open(ns, 8181))
            self.assertFalse(port_open(ns, 40431))
            self.assertEqual(srv.stop(), 0)

    def test_active_false_listens_nowhere_and_still_dials_the_proxy(self):
        with tempfile.TemporaryDirectory() as d, sp.namespace() as ns:
            path = os.path.join(d, "XMLRPCServer.xml")
            write(path, inactive())
            srv = sp.start_server(ns, "--usecfg", path)
            self.assertTrue(srv.out.wait_for(sp.TRYING, START_TIMEOUT), srv.out.texts())
            self.assertFalse(port_open(ns, 40431))
            r = ns.run(["ss", "-Htln"], capture_output=True, text=True)
            self.assertEqual(r.stdout.strip(), "", "something listens: " + r.stdout)
            self.assertEqual(srv.stop(), 0)

    def test_ds_disable_silences_the_console_reports(self):
        with sp.namespace() as ns:
            srv = sp.start_server(ns, "--ds-disable", "XMLRPCServer")
            self.assertTrue(srv.out.wait_for(sp.TRYING, START_TIMEOUT), srv.err.texts())
            self.assertEqual(srv.stop(), 0)
            self.assertFalse(any("Starting up" in t for t in srv.out.texts()), srv.out.texts())

    def test_sigterm_and_sigint_end_cleanly(self):
        for sig in (signal.SIGTERM, signal.SIGINT):
            if sp.WINDOWS and sig == signal.SIGTERM:
                # Not passed silently: the subtest shows as skipped.
                with self.subTest(sig.name):
                    self.skipTest("Windows has no SIGTERM: Wine ends the process at once; "
                                  "SIGINT reaches the program as Ctrl-C")
                continue
            with self.subTest(sig.name), sp.namespace() as ns:
                srv = sp.start_server(ns)
                self.assertTrue(srv.out.wait_for("Starting up", START_TIMEOUT))
                self.assertTrue(port_open(ns, 40431))
                began = time.monotonic()
                code = srv.stop(sig, timeout=10)
                self.assertEqual(code, 0, srv.err.texts())
                # One turn at most (plus a possible connection attempt).
                self.assertLess(time.monotonic() - began, 5)
                self.assertFalse(port_open(ns, 40431))
                self.assertEqual([e for e in srv.err.texts() if "exception" in e], [])


@sp.skip_unless_private_network()
@unittest.skipUnless(os.path.exists(sp.SIMULATOR), "the client proxy simulator is not built")
class WithProxy(unittest.TestCase):
    def test_connects_once_and_stops_trying(self):
        with sp.namespace() as ns:
            sim = sp.start_simulator(ns)
            time.sleep(0.5)
            srv = sp.start_server(ns)
            self.assertTrue(srv.out.wait_for(sp.TRYING, START_TIMEOUT))
            # Connected at the first attempt: no second attempt follows while
            # the link stays up (the next would come 3 s later).
            time.sleep(5)
            self.assertEqual(srv.out.texts().count(sp.TRYING), 1, srv.out.texts())
            self.assertEqual(srv.stop(), 0)
            sim.stop()

    def test_wrong_protocol_version_reported_at_every_attempt(self):
        with sp.namespace() as ns:
            sim = sp.start_simulator(ns, "--protocol", "999")
            time.sleep(0.5)
            srv = sp.start_server(ns)
            self.assertTrue(srv.err.wait_for("Local ClientProxy has wrong protocol version",
                                             START_TIMEOUT + 5, count=2),
                            srv.err.texts())
            errors = [t for t in srv.err.texts()
                      if "Local ClientProxy has wrong protocol version" in t]
            self.assertIn("Error>", errors[0])
            self.assertGreaterEqual(srv.out.texts().count(sp.TRYING), 2)
            self.assertEqual(srv.stop(), 0)
            sim.stop()


if __name__ == "__main__":
    sp.run_in_private_network()
    testmain.main()
