"""The dashboard in a real browser: Debian's chromium, headless, driven by
playwright-core (tests/web/dashboard_test.mjs), inside a network namespace of
the test's own, against XMLRPCServer with ClientProxySim (3 s jobs). The
screenshots are kept under the build folder (web-test/)."""

import os
import shutil
import signal
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))
import gateway  # noqa: E402

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
    unittest.main()
