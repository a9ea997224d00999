"""The Debian package: what it holds, and a real `dpkg -i` in a mount
namespace whose /etc, dpkg database and system folders are private copies,
after which the service's user exists and the program runs the way the unit
runs it; then `dpkg --purge`. Nothing of it reaches the machine."""

import os
import re
import signal
import subprocess
import tempfile
import time
import unittest

from netns import NetNs, skip_unless_root
import testmain

BUILD = os.environ.get("XMLRPCS_BUILD_DIR", "")
# Folders dpkg and the package's scripts write to: each gets a private copy
# inside the namespace, on a scratch tmpfs that goes with the namespace.
COPIED = ["/etc", "/var/lib/dpkg", "/lib/systemd/system", "/usr/share/man/man8"]
# Folders that start empty (/var/lib but for the dpkg database copied back).
EMPTY = ["/opt", "/var/log", "/var/cache", "/var/lib", "/tmp"]
SCRATCH = "/mnt"

def build_package(out_dir):
    env = dict(os.environ, XMLRPCS_PACKAGE_LAYOUT="1")
    subprocess.run(["cpack", "-G", "DEB", "-B", out_dir], cwd=BUILD, env=env, check=True,
                   capture_output=True, timeout=300)
    (deb,) = [f for f in os.listdir(out_dir) if f.endswith(".deb")]
    return os.path.join(out_dir, deb)


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.out = tempfile.mkdtemp(prefix="package-test-", dir=BUILD)
        cls.deb = build_package(cls.out)

    @classmethod
    def tearDownClass(cls):
        subprocess.run(["rm", "-rf", cls.out], check=True)

    def test_the_package_holds_the_tree_the_unit_and_the_manual_page(self):
        listing = subprocess.run(["dpkg-deb", "-c", self.deb], capture_output=True, text=True,
                                 check=True).stdout
        paths = {line.split()[-1].lstrip(".") for line in listing.splitlines()}
        for path in ("/opt/corvane/bin/XMLRPCServer", "/opt/corvane/bin/ClientProxySim",
                     "/opt/corvane/bin/vxdatatool", "/opt/corvane/etc/cdb",
                     "/opt/corvane/etc/vxpcp", "/opt/corvane/xml/core-constraints.xml",
                     "/opt/corvane/rng/constraints.rng", "/lib/systemd/system/xmlrpcserver.service",
                     "/usr/share/man/man8/XMLRPCServer.8",
                     "/opt/corvane/share/doc/xmlrpcserver/docs/methods.md"):
            self.assertIn(path, paths)
        control = subprocess.run(["dpkg-deb", "-f", self.deb, "Depends"], capture_output=True,
                                 text=True, check=True).stdout
        self.assertIn("adduser", control)
        with tempfile.TemporaryDirectory() as d:
            subprocess.run(["dpkg-deb", "-e", self.deb, d], check=True)
            for script in ("postinst", "prerm", "postrm"):
                r = subprocess.run(["sh", "-n", os.path.join(d, script)], capture_output=True)
                self.assertEqual(r.returncode, 0, script)

    @skip_unless_root()
    def test_dpkg_install_makes_the_user_and_the_service_runs(self):
        with NetNs() as ns:
            ns.run(["mount", "-t", "tmpfs", "tmpfs", SCRATCH], check=True)
            for i, d in enumerate(COPIED):
                ns.run(["cp", "-a", d, "%s/%d" % (SCRATCH, i)], check=True)
            # The build folder may be under one of the folders hidden below.
            deb = os.path.join(SCRATCH, os.path.basename(self.deb))
            ns.run(["cp", self.deb, deb], check=True)
            for d in EMPTY:
                ns.run(["mount", "-t", "tmpfs", "tmpfs", d], check=True)
            for i, d in enumerate(COPIED):
                ns.run(["mkdir", "-p", d], check=True)
                ns.run(["mount", "--bind", "%s/%d" % (SCRATCH, i), d], check=True)

            started = time.monotonic()
            r = ns.run(["dpkg", "-i", deb], capture_output=True, text=True, timeout=120)
            self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
            user = ns.run(["getent", "passwd", "xmlrpcserver"], capture_output=True, text=True)
            self.assertEqual(user.returncode, 0)
            fields = user.stdout.strip().split(":")
            self.assertLess(int(fields[2]), 1000)  # a system user
            self.assertEqual(fields[6], "/usr/sbin/nologin")

            # What systemd does for the unit: the state folder for the user,
            # then ExecStart as that user.
            unit = open_in(ns, "/lib/systemd/system/xmlrpcserver.service")
            exec_start = re.search(r"^ExecStart=(.*)$", unit, re.M).group(1).split()
            state = "/var/lib/" + re.search(r"^StateDirectory=(.*)$", unit, re.M).group(1)
            ns.run(["install", "-d", "-o", "xmlrpcserver", "-g", "xmlrpcserver", "-m", "0750",
                    state], check=True)
            sim = ns.popen(["/opt/corvane/bin/ClientProxySim"], stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL)
            self.addCleanup(stop, sim)
            server = ns.popen(["setpriv", "--reuid=xmlrpcserver", "--regid=xmlrpcserver",
                               "--init-groups", "--no-new-privs", "--"] + exec_start,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            self.addCleanup(stop, server)
            wait_for_version(ns)
            elapsed = time.monotonic() - started
            print("\npackage -> serving service: %.1f s" % elapsed)
            self.assertTrue(ns.run(["test", "-f", state + "/Corvane 7/XMLRPCServer.xml"]).returncode
                            == 0)
            server.send_signal(signal.SIGTERM)
            out, _ = server.communicate(timeout=15)
            self.assertEqual(server.returncode, 0, out)

            r = ns.run(["dpkg", "--purge", "corvane-xmlrpcserver"], capture_output=True,
                       text=True, timeout=120)
            self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
            self.assertNotEqual(ns.run(["test", "-e", "/opt/corvane/bin/XMLRPCServer"]).returncode,
                                0)
            self.assertNotEqual(ns.run(["test", "-e", state]).returncode, 0)


def open_in(ns, path):
    return ns.run(["cat", path], capture_output=True, text=True, check=True).stdout


def wait_for_version(ns, timeout=20):
    script = ("import xmlrpc.client\n"
              "print(xmlrpc.client.ServerProxy('http://127.0.0.1:40431/').getVersion({}))")
    deadline = time.monotonic() + timeout
    out = ""
    while time.monotonic() < deadline:
        r = ns.run(["python3", "-c", script], capture_output=True, text=True, timeout=20)
        out = r.stdout + r.stderr
        if r.returncode == 0 and "7.0.0.0" in r.stdout:
            return
        time.sleep(0.3)
    raise AssertionError("the service did not answer getVersion: " + out)


def stop(proc):
    if proc.poll() is None:
        proc.kill()
        proc.wait()


if __name__ == "__main__":
    testmain.main()
