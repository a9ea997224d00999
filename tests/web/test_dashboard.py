"""The dashboard in a real browser: Debian's chromium, headless, driven by
playwright-core (tests/web/dashboard_test.mjs), inside a network namespace of
the test's own, against XMLRPCServer with ClientProxySim (3 s jobs). The
screenshots are kept under the build folder (web-test/)."""

import os
import shutil
import signal
import socket
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))
import gateway  # noqa: E402
import testmain  # noqa: E402

CHROMIUM = "/usr/bin/chromium"
DRIVER = os.path.join(HERE, "node_modules", "playwright-core")
# The whole browser session; it stops by itself well before.
BROWSER_TIMEOUT = 240
SHOTS = os.path.join(gateway.BUILD_DIR, "web-test")


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


@gateway.skip_unless_private_network()
@unittest.skipIf(missing(), missing())
class Dashboard(unittest.TestCase):
    def test_the_dashboard_in_chromium(self):
        gw = gateway.Gateway(self.addCleanup, sim_args=["--job-duration-ms", "3000"])
        gw.wait_connected()
        os.makedirs(SHOTS, exist_ok=True)
        # Its own process group, so that the browser it starts goes with it.
        proc = subprocess.Popen(
            ["node", os.path.join(HERE, "dashboard_test.mjs"), gateway.URL,
             os.path.join(SOURCE, "web", "index.html"), SHOTS],
            cwd=HERE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            start_new_session=True)
        browser_pid = []

        def stop():
            for pid in browser_pid:
                try:
                    os.kill(pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            if proc.poll() is None:
                os.killpg(proc.pid, signal.SIGKILL)
                proc.wait()

        self.addCleanup(stop)
        try:
            out, _ = proc.communicate(timeout=BROWSER_TIMEOUT)
        except subprocess.TimeoutExpired:
            os.killpg(proc.pid, signal.SIGKILL)
            out, _ = proc.communicate()
            self.fail("the browser session did not end within %d s:\n%s" % (BROWSER_TIMEOUT, out))
        for line in out.splitlines():
            if line.startswith("browser-pid ") and line[12:].strip().isdigit():
                browser_pid.append(int(line[12:]))
        print(out)
        self.assertEqual(proc.returncode, 0, out)
        self.assertIn("dashboard test: all passed", out)
        self.assertTrue(os.path.getsize(os.path.join(SHOTS, "dashboard-gateway.png")) > 0)


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
