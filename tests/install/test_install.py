"""What `cmake --install` lays out, the systemd unit it installs (checked
with systemd-analyze, then imitated: the unit's user, state folder, umask,
read-only file system and private /tmp), and the manual page (lint-clean,
naming every option and configuration key)."""

import os
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
import xmlrpc.client

from netns import NetNs, skip_unless_root
import testmain

BUILD = os.environ.get("XMLRPCS_BUILD_DIR", "")
SERVER = os.path.join(BUILD, "bin", "XMLRPCServer")
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
UNIT = os.path.join("lib", "systemd", "system", "xmlrpcserver.service")
MAN = os.path.join("share", "man", "man8", "XMLRPCServer.8")
# Stands in for the unit's user, which only the package makes.
STAND_IN_UID = 65534


def read_unit(path):
    """The unit's [Service] settings, each a list of values (settings may
    repeat), and its comment lines."""
    settings, comments = {}, []
    section = None
    with open(path) as f:
        for line in f:
            line = line.strip()
            if line.startswith("#"):
                comments.append(line)
            elif line.startswith("["):
                section = line
            elif "=" in line and section == "[Service]":
                key, value = line.split("=", 1)
                settings.setdefault(key, []).append(value)
    return settings, comments


def unit_words(value):
    """A list setting's items, its quotes removed as systemd removes them
    (enough for the unit's settings: no escapes)."""
    return shlex.split(value)


class InstalledTree(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # The run below hides /tmp and /var/lib, where a checkout may be;
        # its namespace keeps this folder reachable.
        cls.prefix = tempfile.mkdtemp(prefix="install-test-", dir=BUILD)
        os.chmod(cls.prefix, 0o755)
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.prefix], check=True,
                       capture_output=True, timeout=120)
        cls.unit, cls.unit_comments = read_unit(os.path.join(cls.prefix, UNIT))

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.prefix)

    def path(self, *parts):
        return os.path.join(self.prefix, *parts)

    def test_the_tree_has_the_programs_beside_their_data_files(self):
        for program in ("XMLRPCServer", "ClientProxySim", "vxdatatool"):
            self.assertTrue(os.access(self.path("bin", program), os.X_OK), program)
        for data in ("etc/cdb", "etc/vxpcp", "rng/constraints.rng", "xml/core-constraints.xml"):
            self.assertTrue(os.path.isfile(self.path(data)), data)
        for doc in ("README.md", "docs/methods.md", "docs/configuration.md"):
            self.assertTrue(os.path.isfile(self.path("share/doc/xmlrpcserver", doc)), doc)
        self.assertTrue(os.path.isfile(self.path(UNIT)))
        self.assertTrue(os.path.isfile(self.path(MAN)))

    def test_the_installed_program_finds_its_data_files(self):
        with NetNs() if os.geteuid() == 0 else _Here() as ns:
            r = ns.run([self.path("bin", "XMLRPCServer"), "--cfg"], capture_output=True,
                       text=True, timeout=20)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn("<listen-port>40431</listen-port>", r.stdout)

    def test_the_unit_runs_the_installed_program_as_its_own_user_sandboxed(self):
        u = self.unit
        self.assertEqual(u["ExecStart"], [self.path("bin", "XMLRPCServer") + " --usecfg"])
        self.assertEqual(u["User"], ["xmlrpcserver"])
        self.assertEqual(u["Restart"], ["on-failure"])
        # The state folder is the program's default configuration folder,
        # and no more: /var/lib/Holvenmark is shared with other programs.
        help_text = subprocess.run([SERVER, "--help"], capture_output=True, text=True).stdout
        default = re.search(r"(/var/lib/[^\n]+)/XMLRPCServer\.xml", help_text).group(1)
        self.assertEqual(default, "/var/lib/Holvenmark/Corvane 7")
        self.assertEqual(len(u["StateDirectory"]), 1)
        self.assertEqual(["/var/lib/" + d for d in unit_words(u["StateDirectory"][0])], [default])
        for key, value in (("ProtectSystem", "strict"), ("NoNewPrivileges", "yes"),
                           ("PrivateTmp", "yes"), ("ProtectHome", "yes"),
                           ("CapabilityBoundingSet", "")):
            self.assertEqual(u[key], [value], key)
        self.assertTrue(any(c.startswith("#IPAddressDeny=") for c in self.unit_comments))
        self.assertTrue(any(c.startswith("#IPAddressAllow=") for c in self.unit_comments))

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_systemd_analyze_verifies_the_unit_and_finds_its_manual_page(self):
        env = dict(os.environ, MANPATH=self.path("share", "man"))
        r = subprocess.run(["systemd-analyze", "verify", self.path(UNIT)], capture_output=True,
                           text=True, env=env, timeout=60)
        self.assertEqual((r.returncode, r.stderr), (0, ""))

    def test_the_manual_page_is_lint_clean_and_complete(self):
        r = subprocess.run(["groff", "-man", "-ww", "-z", self.path(MAN)], capture_output=True,
                           text=True, timeout=30)
        self.assertEqual((r.returncode, r.stdout, r.stderr), (0, "", ""))
        text = subprocess.run(["groff", "-man", "-Tutf8", "-P", "-cbou", self.path(MAN)],
                              capture_output=True, text=True, timeout=30).stdout
        text = text.replace("\u2010", "-").replace("\u2212", "-")
        text = re.sub(r"-\n\s*", "-", text)
        for option in ("--cfg", "--usecfg", "--help", "--ds-enable", "--ds-disable"):
            self.assertIn(option, text)
        for section in ("OPTIONS", "CONFIGURATION", "LIMITS", "FILES", "EXIT STATUS", "SIGNALS"):
            self.assertIn("\n" + section + "\n", text)
        # Every key of the default configuration, with its default.
        cfg = subprocess.run([SERVER, "--cfg"], capture_output=True, text=True).stdout
        flat = " ".join(text.split())
        for section, body in re.findall(r"<(services|logging)>(.*?)</\1>", cfg, re.S):
            for key, default in re.findall(r"<([a-z-]+)>([^<]*)</\1>", body):
                path = "%s{xmlrpc}{%s}" % (section, key) if section == "services" \
                    else "logging{%s}" % key
                self.assertIn(path, flat)
                shown = default if default else "empty"
                self.assertRegex(flat, re.escape(path) + r" \S+( of at least \d+| \d to \d)?, "
                                 r"default " + re.escape(shown), path)

    @skip_unless_root()
    def test_the_program_serves_as_the_unit_runs_it(self):
        """The unit's user (a stand-in uid), state folder and umask, a read-only
        file system but for the state folder (/var/lib/Holvenmark beside it
        read-only too), a private /tmp, no new
        privileges, and the environment systemd gives a service."""
        u = self.unit
        (state,) = ["/var/lib/" + d for d in unit_words(u["StateDirectory"][0])]
        with NetNs(private_dirs=["/var/lib", "/tmp"], keep=[self.prefix]) as ns:
            # As systemd does: the parents as they are (made for root if
            # missing), the state folder itself for the user.
            ns.run(["mkdir", "-p", os.path.dirname(state)], check=True)
            ns.run(["mkdir", "-m", u["StateDirectoryMode"][0], state], check=True)
            ns.run(["chown", "%d:%d" % (STAND_IN_UID, STAND_IN_UID), state], check=True)
            # Only the state folder stays writable (ProtectSystem=strict):
            # not /var/lib/Holvenmark beside it, not /var/lib.
            ns.run(["mount", "--bind", state, state], check=True)
            ns.run(["mount", "-o", "remount,bind,ro", "/var/lib"], check=True)
            ns.run(["mount", "-o", "remount,bind,ro", "/"], check=True)
            sim = ns.popen([self.path("bin", "ClientProxySim"), "--job-duration-ms", "500"],
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            self.addCleanup(_stop, sim)
            exec_start = u["ExecStart"][0].split()
            env = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                   "LANG": "C.UTF-8", "USER": "xmlrpcserver", "LOGNAME": "xmlrpcserver",
                   "HOME": "/", "SHELL": "/usr/sbin/nologin"}
            umask = int(u["UMask"][0], 8)
            server = ns.popen(
                ["setpriv", "--reuid=%d" % STAND_IN_UID, "--regid=%d" % STAND_IN_UID,
                 "--clear-groups", "--no-new-privs", "--inh-caps=-all", "--bounding-set=-all",
                 "--", "sh", "-c", "umask %03o && exec \"$@\"" % umask, "sh"] + exec_start,
                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=env, cwd="/")
            self.addCleanup(_stop, server)
            reply = _call_when_up(ns, "getVersion")
            self.assertEqual(reply.get("version"), "7.0.0.0", reply)
            page = ns.run(["curl", "-s", "http://127.0.0.1:40431/"], capture_output=True,
                          text=True, timeout=20).stdout
            self.assertIn("<title>Corvane XMLRPCServer</title>", page)
            # It made its configuration in the state folder, as its user, with
            # the unit's umask.
            st = ns.run(["stat", "-c", "%u %a", state + "/XMLRPCServer.xml"],
                        capture_output=True, text=True, check=True).stdout.split()
            self.assertEqual(st, [str(STAND_IN_UID), "640"])
            server.send_signal(signal.SIGTERM)
            out, _ = server.communicate(timeout=15)
            self.assertEqual(server.returncode, 0, out)


class _Here:
    """Runs commands directly (no namespace), for users who are not root."""

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        return False

    def run(self, argv, **kwargs):
        return subprocess.run(argv, **kwargs)


def _call_when_up(ns, method, timeout=20):
    script = ("import xmlrpc.client,sys\n"
              "print(repr(getattr(xmlrpc.client.ServerProxy('http://127.0.0.1:40431/'), "
              "sys.argv[1])({})))")
    deadline = time.monotonic() + timeout
    last = None
    while time.monotonic() < deadline:
        r = ns.run(["python3", "-c", script, method], capture_output=True, text=True, timeout=20)
        if r.returncode == 0:
            reply = eval(r.stdout)  # a repr of plain Python values
            if reply.get("error") != "not connected to client proxy":
                return reply
        last = r.stderr or r.stdout
        time.sleep(0.5)
    raise AssertionError("the server did not answer %s within %d s: %s" % (method, timeout, last))


def _stop(proc):
    if proc.poll() is None:
        proc.kill()
        proc.wait()


if __name__ == "__main__":
    testmain.main()
