"""The program's command line: help, unknown options, parse errors, --cfg
and the configuration checks that end the program before it serves."""

import os
import re
import subprocess
import tempfile
import unittest

from netns import NetNs
import server_process as sp
import testmain

HELP_START = "CORVANE XMLRPCSERVER"
if sp.WINDOWS:
    DEFAULT_CONFIG = "C:\\ProgramData\\Holvenmark\\Corvane 7\\XMLRPCServer.xml"
    # What to do when the configuration file cannot be made or used.
    WAYS_OUT = ("command prompt started as administrator", "%USERPROFILE%\\xmlrpcserver.xml")
else:
    DEFAULT_CONFIG = "/var/lib/Holvenmark/Corvane 7/XMLRPCServer.xml"
    WAYS_OUT = ("systemctl start xmlrpcserver", "--usecfg ~/xmlrpcserver.xml")
# Under Wine the first run in a fresh prefix may take a while.
TIMEOUT = 60 if sp.WINDOWS else 20


def run(*args, timeout=TIMEOUT):
    return subprocess.run(sp.command(sp.SERVER) + list(args), capture_output=True, text=True,
                          timeout=timeout)


class HelpAndOptions(unittest.TestCase):
    def test_help_exits_0(self):
        for opt in ("-h", "--help"):
            r = run(opt)
            self.assertEqual(r.returncode, 0, opt)
            self.assertIn(HELP_START, r.stdout)
            self.assertIn("CorvaneClientProxy.exe", r.stdout)
            self.assertIn(DEFAULT_CONFIG, r.stdout)
            self.assertEqual(r.stderr, "")

    def test_help_fits_80_columns(self):
        for line in run("--help").stdout.splitlines():
            self.assertLessEqual(len(line), 80, line)

    def test_unknown_option_prints_error_then_help_and_exits_0(self):
        r = run("--bogus")
        self.assertEqual(r.returncode, 0)
        self.assertEqual(r.stderr, "*** Error: Unknown option '--bogus'\n")
        self.assertIn(HELP_START, r.stdout)

    def test_parser_failure_exits_1(self):
        for args in (["stray"], ["--cfg=yes"]):
            r = run(*args)
            self.assertEqual(r.returncode, 1, args)
            self.assertIn("option parse error", r.stderr)
            self.assertNotIn(HELP_START, r.stdout)

    def test_cfg_prints_defaults(self):
        r = run("--cfg")
        self.assertEqual(r.returncode, 0)
        self.assertTrue(r.stdout.startswith("<?xml"))
        self.assertIn("<listen-port>40431</listen-port>", r.stdout)
        self.assertIn("<rotation-max-size>1048576</rotation-max-size>", r.stdout)
        self.assertIn("<!-- System Log", r.stdout)

    def test_cfg_with_usecfg_reads_and_writes_nothing(self):
        with tempfile.TemporaryDirectory() as d:
            missing = os.path.join(d, "x.xml")
            r = run("--cfg", "--usecfg", missing)
            self.assertEqual(r.returncode, 0)
            self.assertIn("<listen-port>40431</listen-port>", r.stdout)
            self.assertEqual(os.listdir(d), [])
            present = os.path.join(d, "y.xml")
            content = "<xmlrpcserver-configuration><services><xmlrpc><listen-port>80" \
                      "</listen-port></xmlrpc></services></xmlrpcserver-configuration>"
            with open(present, "w") as f:
                f.write(content)
            r = run("--cfg", "--usecfg", present)
            self.assertEqual(r.returncode, 0)
            self.assertIn("<listen-port>40431</listen-port>", r.stdout)
            with open(present) as f:
                self.assertEqual(f.read(), content)
            self.assertEqual(sorted(os.listdir(d)), ["y.xml"])

    def test_cfg_output_is_well_formed_xml(self):
        with tempfile.TemporaryDirectory() as d:
            path = os.path.join(d, "c.xml")
            with open(path, "w") as f:
                f.write(run("--cfg").stdout)
            r = subprocess.run(["xmllint", "--noout", path], capture_output=True, text=True)
            self.assertEqual(r.returncode, 0, r.stderr)


@unittest.skipUnless(sp.WINDOWS, "the Linux platform layer asks for no power state (a no-op)")
class PowerRequest(unittest.TestCase):
    """The program keeps the machine awake while it runs and lets it sleep
    again when it ends: SetThreadExecutionState(ES_CONTINUOUS |
    ES_SYSTEM_REQUIRED) at the start, ES_CONTINUOUS alone at the exit. Wine
    keeps no power request, but its trace (channel ntdll, class warn) shows
    each call with its flags."""

    def test_stay_awake_at_start_and_released_at_exit(self):
        env = dict(os.environ, XMLRPCS_WINEDEBUG="warn+ntdll")
        r = subprocess.run(sp.command(sp.SERVER) + ["--cfg"], capture_output=True, text=True,
                           timeout=TIMEOUT, env=env)
        self.assertEqual(r.returncode, 0, r.stderr[-2000:])
        self.assertIn("<listen-port>40431</listen-port>", r.stdout)
        states = re.findall(r"NtSetThreadExecutionState \((0x[0-9a-f]+),", r.stderr)
        self.assertEqual(states, ["0x80000001", "0x80000000"], r.stderr[-2000:])


class UnwritableConfigurationFile(unittest.TestCase):
    """A configuration file that cannot be made: the program's own exception
    line, then the path it tried and what to do instead."""

    def check(self, r, path, verb):
        self.assertEqual(r.returncode, 1, r.stderr)
        lines = r.stderr.splitlines()
        self.assertTrue(lines[0].startswith("exception: "), r.stderr)
        self.assertEqual(lines[1], "XMLRPCServer: could not %s the configuration file '%s'."
                         % (verb, path))
        self.assertIn(WAYS_OUT[0], lines[2])
        self.assertIn("--usecfg FILE", lines[3])
        self.assertIn(WAYS_OUT[1], lines[3])
        self.assertEqual(len(lines), 4, r.stderr)

    def test_a_folder_that_cannot_be_made_names_the_path_and_the_ways_out(self):
        with tempfile.TemporaryDirectory() as d:
            blocker = os.path.join(d, "not-a-folder")
            open(blocker, "w").close()
            path = os.path.join(blocker, "Corvane 7", "XMLRPCServer.xml")
            self.check(run("--usecfg", path), path, "create")

    def test_permission_denied_for_an_ordinary_user(self):
        if sp.WINDOWS:
            self.skipTest("Wine runs every program as one user with the Unix rights of the "
                          "caller: there is no other user to be denied")
        if os.geteuid() != 0:
            self.skipTest("needs root to run the program as the unprivileged user 'nobody'")
        with tempfile.TemporaryDirectory() as d:
            os.chmod(d, 0o755)  # nobody may enter but not write
            path = os.path.join(d, "Holvenmark", "Corvane 7", "XMLRPCServer.xml")
            r = subprocess.run(["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups",
                                sp.SERVER, "--usecfg", path],
                               capture_output=True, text=True, timeout=20)
            self.assertIn("Permission denied", r.stderr.splitlines()[0])
            self.check(r, path, "create")
        with tempfile.TemporaryDirectory() as d:
            path = os.path.join(d, "XMLRPCServer.xml")
            with open(path, "w") as f:
                f.write("<xmlrpcserver-configuration/>")
            os.chmod(path, 0o600)  # root's alone: nobody cannot read it
            os.chmod(d, 0o755)
            r = subprocess.run(["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups",
                                sp.SERVER, "--usecfg", path],
                               capture_output=True, text=True, timeout=20)
            self.check(r, path, "use")


@unittest.skipUnless(sp.WINDOWS or os.geteuid() == 0,
                     "needs root: the test runs the server in a network namespace of its own "
                     "(unshare -n), which only root may create")
class ConfigurationChecks(unittest.TestCase):
    def run_in_ns(self, path):
        if sp.WINDOWS:
            # Wine's sockets are made by its wineserver, outside any namespace
            # the program could be put in; the program refuses the file before
            # it opens a socket, so it runs as it is.
            return subprocess.run(sp.command(sp.SERVER) + ["--usecfg", path],
                                  capture_output=True, text=True, timeout=TIMEOUT)
        with NetNs() as ns:
            return ns.run([sp.SERVER, "--usecfg", path], capture_output=True, text=True,
                          timeout=30)

    def write(self, d, body):
        path = os.path.join(d, "XMLRPCServer.xml")
        with open(path, "w") as f:
            f.write("<xmlrpcserver-configuration>%s</xmlrpcserver-configuration>" % body)
        return path

    def test_listen_port_0_is_read_then_refused_naming_the_key(self):
        with tempfile.TemporaryDirectory() as d:
            path = self.write(d, "<services><xmlrpc><listen-port>0</listen-port></xmlrpc>"
                              "</services>")
            r = self.run_in_ns(path)
            self.assertEqual(r.returncode, 1)
            self.assertRegex(r.stderr, r"exception: invalid configuration \("
                             r"services\{xmlrpc\}\{listen-port\}: [^)]*\)\n")
            # It was read, not moved aside.
            self.assertEqual(os.listdir(d), ["XMLRPCServer.xml"])

    def test_other_out_of_range_values_are_refused(self):
        for key, value in (("rotation-max-size", "1023"),
                           ("system-log-report-verbosity", "8")):
            with tempfile.TemporaryDirectory() as d:
                path = self.write(d, "<logging><%s>%s</%s></logging>" % (key, value, key))
                r = self.run_in_ns(path)
                self.assertEqual(r.returncode, 1, key)
                self.assertIn("exception: invalid configuration (logging{%s}" % key, r.stderr)


if __name__ == "__main__":
    testmain.main()
