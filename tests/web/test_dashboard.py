"""The dashboard in a real browser: Debian's chromium, headless, driven by
playwright-core (tests/web/dashboard_test.mjs), inside a network namespace of
the test's own, against XMLRPCServer with ClientProxySim (3 s jobs). The
screenshots and the driver's output are kept, outside the checkout, in a new
folder "xmlrpcserver-web-test-*" under the system's temporary folder; the
test prints its path.

The browser session is bounded by XMLRPCS_BROWSER_TIMEOUT seconds (default
240). Whatever the outcome, the driver and the browser are stopped by their
PIDs and the test checks that no browser process is left."""

import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))
import gateway  # noqa: E402
import testmain  # noqa: E402

CHROMIUM = "/usr/bin/chromium"
CHROMIUM_FILES = "/usr/lib/chromium/"
DRIVER = os.path.join(HERE, "node_modules", "playwright-core")
LAUNCHER = os.path.join(HERE, "browser-launcher.sh")
# The whole browser session; it ends by itself well before.
BROWSER_TIMEOUT = int(os.environ.get("XMLRPCS_BROWSER_TIMEOUT", "240"))
# The browser's own bound (browser-launcher.sh): it ends even if this script
# is killed before it can stop it.
BROWSER_LIFETIME = BROWSER_TIMEOUT + 30
# How long stopped processes get to disappear.
STOP_TIMEOUT = 10


def missing():
    if not os.path.exists(CHROMIUM):
        return "Debian's chromium is not installed (scripts/install-deps.sh installs it)"
    if not shutil.which("node"):
        return "node is not on PATH"
    if not os.path.isdir(DRIVER):
        return "playwright-core is not installed in tests/web (scripts/install-deps.sh runs npm ci)"
    return None


def exchange(raw):
    """Sends raw bytes to the server and reads until it closes or 2 s pass."""
    with socket.create_connection(("127.0.0.1", gateway.SERVER_PORT), timeout=10) as s:
        s.sendall(raw)
        s.settimeout(2)
        data = b""
        try:
            while True:
                chunk = s.recv(65536)
                if not chunk:
                    return data, True
                data += chunk
        except socket.timeout:
            return data, False


@gateway.skip_unless_private_network()
class ServedPage(unittest.TestCase):
    """The program serves web/index.html, compiled in, byte for byte."""

    @classmethod
    def setUpClass(cls):
        cls.gw = gateway.Gateway(cls.addClassCleanup)
        with open(os.path.join(SOURCE, "web", "index.html"), "rb") as f:
            cls.page = f.read()

    def test_get_answers_the_page_and_head_its_header(self):
        data, closed = exchange(b"GET / HTTP/1.0\r\nHost: x\r\n\r\n")
        self.assertTrue(closed)
        header, body = data.split(b"\r\n\r\n", 1)
        self.assertTrue(header.startswith(b"HTTP/1.1 200 OK\r\n"), header)
        self.assertIn(b"\r\nContent-Type: text/html; charset=utf-8\r\n", header)
        self.assertIn(b"\r\nContent-Length: %d" % len(self.page), header)
        self.assertEqual(body, self.page)
        head, _ = exchange(b"HEAD / HTTP/1.0\r\n\r\n")
        self.assertEqual(head, header + b"\r\n\r\n")

    def test_options_is_a_preflight_and_other_methods_405(self):
        data, closed = exchange(b"OPTIONS / HTTP/1.1\r\nOrigin: http://example.com\r\n"
                                b"Access-Control-Request-Method: POST\r\n\r\n")
        self.assertFalse(closed)  # kept alive, as HTTP/1.1 is
        self.assertTrue(data.startswith(b"HTTP/1.1 204 No Content\r\n"), data)
        self.assertIn(b"\r\nAccess-Control-Allow-Methods: POST\r\n", data)
        self.assertIn(b"\r\nAccess-Control-Allow-Headers: Content-Type\r\n", data)
        data, closed = exchange(b"DELETE / HTTP/1.1\r\n\r\n")
        self.assertTrue(closed)
        self.assertTrue(data.startswith(b"HTTP/1.1 405 Method Not Allowed\r\n"), data)

    def test_a_post_is_answered_as_before(self):
        body = (b'<?xml version="1.0"?><methodCall><methodName>nope</methodName>'
                b"<params></params></methodCall>")
        data, _ = exchange(b"POST / HTTP/1.1\r\nContent-length: %d\r\n\r\n" % len(body) + body)
        fault = (b'<?xml version="1.0"?>\r\n<methodResponse><fault>\r\n\t<value><struct>'
                 b"<member><name>faultCode</name><value><i4>-1</i4></value></member>"
                 b"<member><name>faultString</name><value>nope: unknown method name</value>"
                 b"</member></struct></value>\r\n</fault></methodResponse>\r\n")
        self.assertEqual(data, b"HTTP/1.1 200 OK\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
                               b"Access-Control-Allow-Origin: *\r\nContent-Type: text/xml\r\n"
                               b"Content-length: %d\r\n\r\n" % len(fault) + fault)


def read_pid(path):
    """The PID in the file, or None while there is none."""
    try:
        with open(path) as f:
            text = f.read().strip()
    except FileNotFoundError:
        return None
    return int(text) if text.isdigit() else None


def browser_processes():
    """The chromium processes (the browser, its helpers, its crash handler)
    in this script's network namespace, which is the test's own: only the
    browser of this test can be among them. PID -> (process group, command
    line)."""
    ours = os.readlink("/proc/self/ns/net")
    found = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            if os.readlink("/proc/%s/ns/net" % entry) != ours:
                continue
            if not os.readlink("/proc/%s/exe" % entry).startswith(CHROMIUM_FILES):
                continue
            with open("/proc/%s/stat" % entry) as f:
                group = int(f.read().rsplit(")", 1)[1].split()[2])
            with open("/proc/%s/cmdline" % entry, "rb") as f:
                command = f.read().replace(b"\0", b" ").decode(errors="replace")[:120]
            found[int(entry)] = (group, command)
        except OSError:
            continue  # gone meanwhile, or a zombie (no exe any more)
    return found


def stop_session(driver, pid_file):
    """Stops the driver and the browser by their PIDs: node's process group
    (node started in a session of its own), then the browser's. The browser
    does not go with node: playwright-core starts it in a session of its
    own, whose leader's PID the launcher wrote to pid_file. Raises if a
    browser process is still there afterwards."""
    if driver.poll() is None:
        os.killpg(driver.pid, signal.SIGKILL)
        driver.wait()
    # Node is gone: the launcher either wrote its PID already or will not
    # start the browser (it checks that node is its parent).
    browser = read_pid(pid_file)
    if browser is not None:
        try:
            os.killpg(browser, signal.SIGKILL)
        except ProcessLookupError:
            pass  # it ended by itself
    # Helpers that left the browser's process group (chromium's crash
    # handlers start sessions of their own) are stopped too, by PID.
    deadline = time.monotonic() + STOP_TIMEOUT
    left = browser_processes()
    outside = sorted(pid for pid, (group, _) in left.items() if group != browser)
    if outside:
        print("stopping browser processes outside its process group: %s"
              % ", ".join(map(str, outside)))
    while left and time.monotonic() < deadline:
        for pid in left:
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        time.sleep(0.1)
        left = browser_processes()
    if left:
        raise AssertionError("browser processes still running after %d s: %r"
                             % (STOP_TIMEOUT, left))


@gateway.skip_unless_private_network()
@unittest.skipIf(missing(), missing())
class Dashboard(unittest.TestCase):
    def test_the_dashboard_in_chromium(self):
        gw = gateway.Gateway(self.addCleanup, sim_args=["--job-duration-ms", "3000"])
        gw.wait_connected()
        # The artefacts stay after the test, outside the checkout.
        shots = tempfile.mkdtemp(prefix="xmlrpcserver-web-test-")
        print("\nscreenshots and driver output: %s" % shots)
        pid_file = os.path.join(shots, "browser.pid")
        log_path = os.path.join(shots, "driver.log")
        env = dict(os.environ, XMLRPCS_BROWSER_PID_FILE=pid_file,
                   XMLRPCS_BROWSER_LIFETIME="%ds" % BROWSER_LIFETIME)
        # A file, not a pipe: nothing has to read it while the session runs.
        with open(log_path, "wb") as log:
            driver = subprocess.Popen(
                ["node", os.path.join(HERE, "dashboard_test.mjs"), gateway.URL,
                 os.path.join(SOURCE, "web", "index.html"), shots, LAUNCHER],
                cwd=HERE, stdout=log, stderr=subprocess.STDOUT, env=env,
                start_new_session=True)
        # Whatever happens below (also an interruption, which skips the
        # cleanups), the browser is stopped here.
        try:
            try:
                driver.wait(timeout=BROWSER_TIMEOUT)
                timed_out = False
            except subprocess.TimeoutExpired:
                timed_out = True
        finally:
            stop_session(driver, pid_file)
        with open(log_path, errors="replace") as f:
            out = f.read()
        print(out)
        if timed_out:
            self.fail("the browser session did not end within %d s:\n%s" % (BROWSER_TIMEOUT, out))
        self.assertEqual(driver.returncode, 0, out)
        self.assertIn("dashboard test: all passed", out)
        self.assertEqual(out.count("browser-pid %d\n" % read_pid(pid_file)), 1, out)
        self.assertTrue(os.path.getsize(os.path.join(shots, "dashboard-gateway.png")) > 0)


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
