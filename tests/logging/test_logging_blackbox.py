"""Reporting and logging seen from outside: XMLRPCServer run in a network
and mount namespace of its own, with logging settings in its configuration
file; the console streams, the log files and the system log are read back.
"""

import os
import re
import socket
import subprocess
import tempfile
import time
import unittest

import programs
import testmain

BUILD_DIR = os.environ.get("XMLRPCS_BUILD_DIR", "")
SERVER = programs.binary("XMLRPCServer")
SIM = programs.binary("ClientProxySim")

# How long a server may take to show what a test waits for; the proxy
# link's first attempt comes about 1.5 s after start.
WAIT_LIMIT = 15.0
# After the awaited line, how long to look for lines that must not come.
SETTLE = 0.5

STAMP = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d"
STARTING_UP_CONSOLE = STAMP + r" <Corvane XMLRPCServer lifecycle Debug> Starting up\n"
WRONG_VERSION_CONSOLE = (STAMP + r" <Corvane XMLRPCServer protocol Error> "
                         r"Local ClientProxy has wrong protocol version\n")

# LOG_DAEMON with LOG_INFO: the event type "information" of a Debug report.
DAEMON_INFO = 3 * 8 + 6


def configuration(**logging):
    """A configuration file text: no publication, the system log off unless
    asked for, and the given logging{...} keys."""
    logging.setdefault("system-log", "false")
    keys = "".join("<%s>%s</%s>" % (k, v, k) for k, v in logging.items())
    return ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<xmlrpcserver-configuration version=\"4\"><services><xmlrpc>"
            "<active>true</active><listen-port>40431</listen-port><publish>false</publish>"
            "</xmlrpc></services><logging>%s</logging></xmlrpcserver-configuration>\n" % keys)


def read(path):
    try:
        with open(path, "r", errors="replace") as f:
            return f.read()
    except FileNotFoundError:
        return ""


def wait_for(condition, process=None, limit=WAIT_LIMIT):
    """Waits until condition() holds; gives up early once process (if
    given) has ended, since nothing more will come."""
    deadline = time.monotonic() + limit
    while time.monotonic() < deadline:
        if condition():
            return True
        if process is not None and process.poll() is not None:
            break
        time.sleep(0.05)
    return condition()


@unittest.skipUnless(os.path.exists(SERVER), "XMLRPCServer is not built in " + BUILD_DIR)
@programs.skip_unless_private_network()
class LoggingBlackBox(unittest.TestCase):

    def setUp(self):
        self.dir = tempfile.TemporaryDirectory(prefix="logging-blackbox.")
        self.addCleanup(self.dir.cleanup)
        self.ns = programs.namespace(max_life=120)
        self.ns.__enter__()
        self.addCleanup(self.ns.__exit__, None, None, None)
        self.out_path = self.path("stdout")
        self.err_path = self.path("stderr")

    def path(self, *names):
        return os.path.join(self.dir.name, *names)

    def start_server(self, **logging):
        """Starts the server in the namespace with the logging keys given;
        it is stopped (by its PID) when the test ends."""
        cfg = self.path("XMLRPCServer.xml")
        with open(cfg, "w") as f:
            f.write(configuration(**logging))
        out = open(self.out_path, "wb")
        err = open(self.err_path, "wb")
        self.addCleanup(out.close)
        self.addCleanup(err.close)
        server = self.ns.popen(programs.command(SERVER) + ["--usecfg", cfg], stdout=out,
                               stderr=err, stdin=subprocess.DEVNULL)
        self.addCleanup(self.stop, server)
        self.server = server
        return server

    def wait_for(self, condition):
        """wait_for, giving up when the server has ended."""
        return wait_for(condition, self.server)

    def said(self):
        return "stdout:\n%s\nstderr:\n%s" % (read(self.out_path), read(self.err_path))

    @staticmethod
    def stop(process):
        if process.poll() is None:
            process.kill()
        process.wait()

    def test_console_lines_go_to_the_stream_of_their_severity(self):
        if not os.path.exists(SIM):
            self.skipTest("ClientProxySim is not built in " + BUILD_DIR)
        # A proxy that announces another protocol version makes the server
        # report an Error at each connection attempt.
        sim = self.ns.popen(programs.command(SIM) + ["--protocol", "999"],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(self.stop, sim)
        self.start_server()
        self.assertTrue(self.wait_for(lambda: "wrong protocol version" in read(self.err_path)),
                        self.said())
        out, err = read(self.out_path), read(self.err_path)
        # Debug on standard output, Error on standard error; each line whole.
        self.assertRegex(out, "^" + STARTING_UP_CONSOLE)
        self.assertRegex(err, "^" + WRONG_VERSION_CONSOLE)
        self.assertNotIn("Starting up", err)
        self.assertNotIn("wrong protocol version", out)

    def test_file_lines_in_a_created_log_directory(self):
        logs = self.path("a", "b", "logs")
        self.start_server(**{"log-to-file": "true", "log-to-file-report-verbosity": "7",
                             "log-directory": logs})
        log_file = os.path.join(logs, "XMLRPCServer.log")
        self.assertTrue(self.wait_for(lambda: "Starting up" in read(log_file)),
                        self.said())
        self.assertRegex(read(log_file), "^" + STAMP + r" \(debug\) Starting up\n")
        # The reports of the platform libraries arrive too: the proxy link's.
        self.assertTrue(self.wait_for(lambda: "(debug) cannot connect" in read(log_file)),
                        self.said())
        self.assertEqual(sorted(os.listdir(logs)), ["XMLRPCServer.log"])

    def test_no_file_when_file_logging_is_off(self):
        logs = self.path("logs")
        self.start_server(**{"log-to-file": "false", "log-to-file-report-verbosity": "7",
                             "log-directory": logs})
        self.assertTrue(self.wait_for(lambda: "cannot connect" in read(self.out_path)),
                        self.said())
        self.assertFalse(os.path.exists(logs))

    def test_file_verbosity_filters_lines(self):
        logs = self.path("logs")
        self.start_server(**{"log-to-file": "true", "log-to-file-report-verbosity": "6",
                             "log-directory": logs})
        self.assertTrue(self.wait_for(lambda: "cannot connect" in read(self.out_path)),
                        self.said())
        # The file exists from set-up on, but no Debug line passes 6.
        self.assertEqual(read(os.path.join(logs, "XMLRPCServer.log")), "")

    def test_streams_re_directed_into_the_stdout_file(self):
        logs = self.path("logs")
        self.start_server(**{"stdout-stderr-re-direct": "true", "log-directory": logs})
        target = os.path.join(logs, "XMLRPCServer.stdout")
        self.assertTrue(self.wait_for(lambda: "cannot connect" in read(target)),
                        self.said())
        self.assertRegex(read(target), "^" + STARTING_UP_CONSOLE)
        time.sleep(SETTLE)
        self.assertEqual(read(self.out_path), "")
        self.assertEqual(read(self.err_path), "")

    def test_a_log_directory_that_cannot_be_made_ends_the_start(self):
        with open(self.path("plain-file"), "w") as f:
            f.write("x")
        server = self.start_server(**{"log-to-file": "true",
                                      "log-directory": self.path("plain-file", "logs")})
        self.assertEqual(server.wait(timeout=WAIT_LIMIT), 1)
        self.assertRegex(read(self.err_path),
                         r"exception: boost::filesystem::create_directories: .*plain-file/logs")
        self.assertNotIn("Starting up", read(self.out_path))

    # --- the system log: a socket of the test's own at /dev/log ---

    def private_dev_log(self):
        """Binds a datagram socket here and mounts it over /dev/log inside
        the namespace (on an overlay of /dev, so the host's /dev stays as
        it is). Returns the socket."""
        if programs.WINDOWS:
            self.skipTest("the Windows program reports to the event log, which Wine keeps "
                          "nowhere it could be read back (event_log_tests covers the sink "
                          "through its seam)")
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(sock.close)
        sock_path = self.path("log.sock")
        sock.bind(sock_path)
        sock.setblocking(False)
        overlay = self.path("overlay")
        script = ("set -e; mount -t tmpfs tmpfs {o}; mkdir {o}/upper {o}/work; "
                  "mount -t overlay overlay"
                  " -o lowerdir=/dev,upperdir={o}/upper,workdir={o}/work /dev; "
                  "rm -f /dev/log; touch /dev/log; mount --bind {s} /dev/log").format(
                      o=overlay, s=sock_path)
        os.mkdir(overlay)
        self.ns.run(["sh", "-c", script], check=True)
        return sock

    @staticmethod
    def datagrams(sock):
        got = []
        while True:
            try:
                got.append(sock.recv(65536).decode(errors="replace"))
            except BlockingIOError:
                return got

    def test_system_log_takes_the_reports_its_verbosity_lets_through(self):
        sock = self.private_dev_log()
        logs = self.path("logs")
        self.start_server(**{"system-log": "true", "system-log-report-verbosity": "7",
                             "log-to-file": "true", "log-to-file-report-verbosity": "7",
                             "log-directory": logs})
        log_file = os.path.join(logs, "XMLRPCServer.log")
        # The system log is served before the file: once the file has the
        # line, the datagram has been sent.
        self.assertTrue(self.wait_for(lambda: "Starting up" in read(log_file)),
                        self.said())
        got = self.datagrams(sock)
        self.assertTrue(got, "nothing arrived at /dev/log")
        match = re.match(r"<(\d+)>.{15} Corvane XMLRPCServer\[(\d+)\]: (.*)$", got[0])
        self.assertIsNotNone(match, got[0])
        self.assertEqual(int(match.group(1)), DAEMON_INFO)
        self.assertEqual(match.group(3), "Corvane XMLRPCServer lifecycle Debug: Starting up")

    def test_system_log_off_takes_nothing_whatever_the_verbosity(self):
        sock = self.private_dev_log()
        logs = self.path("logs")
        self.start_server(**{"system-log": "false", "system-log-report-verbosity": "7",
                             "log-to-file": "true", "log-to-file-report-verbosity": "7",
                             "log-directory": logs})
        log_file = os.path.join(logs, "XMLRPCServer.log")
        self.assertTrue(self.wait_for(lambda: "cannot connect" in read(log_file)),
                        self.said())
        self.assertEqual(self.datagrams(sock), [])


if __name__ == "__main__":
    programs.run_in_private_network()
    testmain.main()
