"""The Debian package: what it holds, and a real `dpkg -i` in a mount
namespace whose /etc, dpkg database and system folders are private copies,
after which the service's user exists and the program runs the way the unit
runs it; then `dpkg --purge`, which removes this program's files and leaves
those of other Holvenmark programs. Nothing of it reaches the machine."""

import os
import re
import shlex
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
HOLVENMARK = "/var/lib/Holvenmark"
# Files of other Holvenmark programs on the node, which a purge must leave.
OTHERS = [HOLVENMARK + "/Other Program/settings.xml",
          HOLVENMARK + "/Corvane 7/OtherProgram.xml",
          HOLVENMARK + "/Corvane 7/Logs/OtherProgram.log"]
# What the service writes in its state folder besides its configuration:
# the configuration's backup, the log file, its rotated copies, the
# re-directed standard streams.
OWN_EXTRA = ["XMLRPCServer.old.xml", "Logs/XMLRPCServer.log", "Logs/XMLRPCServer.1.log",
             "Logs/XMLRPCServer.12.log", "Logs/XMLRPCServer.stdout"]

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

            # Other Holvenmark programs were there before.
            for path in OTHERS:
                ns.run(["mkdir", "-p", os.path.dirname(path)], check=True)
                ns.run(["sh", "-c", 'echo other > "$1"', "sh", path], check=True)

            # What systemd does for the unit: the state folder for the user
            # (its parents as they are; what is in it too, as the folder's
            # owner was another), then ExecStart as that user.
            unit = open_in(ns, "/lib/systemd/system/xmlrpcserver.service")
            exec_start = re.search(r"^ExecStart=(.*)$", unit, re.M).group(1).split()
            (state,) = ["/var/lib/" + d for d in
                        shlex.split(re.search(r"^StateDirectory=(.*)$", unit, re.M).group(1))]
            self.assertEqual(state, HOLVENMARK + "/Corvane 7")
            ns.run(["chown", "-R", "xmlrpcserver:xmlrpcserver", state], check=True)
            ns.run(["chmod", "0750", state], check=True)
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
            self.assertTrue(exists(ns, state + "/XMLRPCServer.xml"))
            server.send_signal(signal.SIGTERM)
            out, _ = server.communicate(timeout=15)
            self.assertEqual(server.returncode, 0, out)
            own = [state + "/XMLRPCServer.xml"] + self.write_own_files(ns, state)

            # A purge removes this program's files only; the folders that
            # still hold other programs' files stay.
            self.purge(ns)
            self.assertFalse(exists(ns, "/opt/corvane/bin/XMLRPCServer"))
            for path in own:
                self.assertFalse(exists(ns, path), path)
            for path in OTHERS:
                self.assertEqual(open_in(ns, path), "other\n", path)

            # Alone on the node, it leaves no folder behind.
            ns.run(["rm", "-r", HOLVENMARK + "/Other Program"] + OTHERS[1:], check=True)
            r = ns.run(["dpkg", "-i", deb], capture_output=True, text=True, timeout=120)
            self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
            ns.run(["install", "-d", "-o", "xmlrpcserver", "-g", "xmlrpcserver", "-m", "0750",
                    state], check=True)
            ns.run(["sh", "-c", 'echo config > "$1"', "sh", state + "/XMLRPCServer.xml"],
                   check=True)
            self.write_own_files(ns, state)
            self.purge(ns)
            self.assertFalse(exists(ns, HOLVENMARK))

    def write_own_files(self, ns, state):
        """Writes the files the service makes besides its configuration, as
        its user; returns their paths."""
        paths = [state + "/" + name for name in OWN_EXTRA]
        ns.run(["setpriv", "--reuid=xmlrpcserver", "--regid=xmlrpcserver", "--init-groups", "--",
                "sh", "-c", 'mkdir -p "$1/Logs" && shift && for f; do echo own > "$f"; done',
                "sh", state] + paths, check=True)
        return paths

    def purge(self, ns):
        r = ns.run(["dpkg", "--purge", "corvane-xmlrpcserver"], capture_output=True,
                   text=True, timeout=120)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)


def exists(ns, path):
    return ns.run(["test", "-e", path]).returncode == 0


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
