"""XMLRPCServer with ClientProxySim behind it, for end-to-end tests.

The server always dials its client proxy at 127.0.0.1:40410, so a test
script runs whole inside a network namespace of its own: call
run_in_private_network() before unittest.main(). As root it re-executes the
script under `unshare --net` with loopback up; otherwise the tests skip
with the reason (skip_unless_private_network).
"""

import atexit
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import xmlrpc.client

BUILD_DIR = os.environ.get("XMLRPCS_BUILD_DIR", os.path.join(os.path.dirname(__file__), "..", "..", "build"))
BIN = os.path.join(BUILD_DIR, "bin")
# The Windows build: its programs end in ".exe" and run through an emulator
# (scripts/wine-run.sh), set by the build's test registration.
EXE_SUFFIX = os.environ.get("XMLRPCS_EXE_SUFFIX", "")
EMULATOR = os.environ.get("XMLRPCS_EMULATOR", "")
# How a test asks a program to end cleanly: SIGTERM on Linux; Windows has
# no SIGTERM (Wine ends the process at once), and SIGINT reaches the
# program as Ctrl-C.
STOP_SIGNAL = signal.SIGINT if EMULATOR else signal.SIGTERM
SERVER_PORT = 40431
URL = "http://127.0.0.1:%d/" % SERVER_PORT
NOT_CONNECTED = "not connected to client proxy"

# Set in the re-executed script, so it knows it runs in its own namespace.
_MARK = "XMLRPCS_E2E_PRIVATE_NETWORK"

# Generous bounds for a loaded 2-core machine: they only keep a broken run
# from hanging, they are not performance assertions.
START_TIMEOUT = 20.0
CONNECT_TIMEOUT = 30.0


def run_in_private_network():
    """Re-executes this script in a fresh network namespace (as root)."""
    if os.environ.get(_MARK) or os.geteuid() != 0:
        return
    env = dict(os.environ, **{_MARK: "1"})
    script = ("ip link set lo up && exec \"$0\" \"$@\"")
    argv = ["unshare", "--net", "sh", "-c", script, sys.executable] + sys.argv
    sys.stdout.flush()
    os.execvpe("unshare", argv, env)


def program(name):
    """The command that runs one of the build's programs (with the emulator
    in front for the Windows build)."""
    return ([EMULATOR] if EMULATOR else []) + [os.path.join(BIN, name + EXE_SUFFIX)]


def _private_wine_prefix():
    """Wine's sockets belong to its wineserver: inside the namespace the
    script needs a prefix whose server runs there too. It is a copy of
    XMLRPCS_WINE_TEMPLATE (a booted prefix) when given, else booted anew;
    its server is ended and the prefix removed when the script ends."""
    base = tempfile.mkdtemp(prefix="xmlrpcs-wine-")
    prefix = os.path.join(base, "wine")
    template = os.environ.get("XMLRPCS_WINE_TEMPLATE")
    if template and os.path.isdir(template):
        shutil.copytree(template, prefix, symlinks=True)
        # The template's server socket folder is keyed by the prefix's inode:
        # the copy gets a new one, so nothing of the template's server is used.
    os.environ["WINEPREFIX"] = prefix
    subprocess.run([EMULATOR, "--start"], check=True)

    def stop():
        subprocess.run([EMULATOR, "--stop"])
        shutil.rmtree(base, ignore_errors=True)
    atexit.register(stop)


if EMULATOR and os.environ.get(_MARK):
    _private_wine_prefix()


def skip_unless_private_network():
    return unittest.skipUnless(
        os.environ.get(_MARK),
        "needs root: the server and its client proxy run in a network namespace of the "
        "test's own (unshare --net), which only root may create")


class _TimeoutTransport(xmlrpc.client.Transport):
    """An HTTP transport whose connections give up after timeout seconds."""

    def __init__(self, timeout):
        super().__init__()
        self.timeout = timeout

    def make_connection(self, host):
        connection = super().make_connection(host)
        connection.timeout = self.timeout
        return connection


class Process:
    """A child process writing into a log file, stopped by its PID."""

    def __init__(self, argv, log_path):
        self.argv = argv
        self.log_path = log_path
        # A file, not a pipe: a pipe nobody reads would stall a chatty child.
        with open(log_path, "ab") as log:
            self.proc = subprocess.Popen(argv, stdout=log, stderr=subprocess.STDOUT)

    @property
    def pid(self):
        return self.proc.pid

    def output(self):
        with open(self.log_path, errors="replace") as f:
            return f.read()

    def wait_for_output(self, text, timeout=START_TIMEOUT):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if text in self.output():
                return
            if self.proc.poll() is not None:
                break
            time.sleep(0.05)
        raise RuntimeError("%s did not say %r: %r" % (self.argv[0], text, self.output()))

    def stop(self, sig=None, timeout=10.0):
        """Stops the process (once; later calls do nothing), by default
        with STOP_SIGNAL: under Wine a program ended by SIGTERM leaves its
        listening socket with the wineserver, and the next program on the
        port could not bind it."""
        if sig is None:
            sig = STOP_SIGNAL
        if self.proc.poll() is None:
            self.proc.send_signal(sig)
            try:
                self.proc.wait(timeout)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        return self.proc.returncode


class Gateway:
    """Starts ClientProxySim (with the given options) and XMLRPCServer."""

    def __init__(self, add_cleanup, sim_args=(), start_sim=True):
        """add_cleanup: a test's addCleanup or a class's addClassCleanup;
        everything started is stopped through it, by PID."""
        self.add_cleanup = add_cleanup
        self.sim_args = list(sim_args)
        self.sim = None
        self.server = None
        self._proxy = None
        self.dir = tempfile.TemporaryDirectory(prefix="xmlrpcs-e2e-")
        add_cleanup(self.dir.cleanup)
        self.record = os.path.join(self.dir.name, "record.jsonl")
        if start_sim:
            self.start_sim()
        self.start_server()

    def start_sim(self, extra=()):
        argv = program("ClientProxySim") + ["--record", self.record] + self.sim_args + list(extra)
        self.sim = Process(argv, os.path.join(self.dir.name, "sim.log"))
        self.add_cleanup(self.sim.stop)
        self.sim.wait_for_output("listening")
        return self.sim

    def start_server(self):
        cfg = os.path.join(self.dir.name, "XMLRPCServer.xml")
        text = subprocess.run(program("XMLRPCServer") + ["--cfg"], check=True,
                              capture_output=True, text=True).stdout
        # No DNS-SD announcement from tests.
        text = text.replace("<publish>true</publish>", "<publish>false</publish>")
        with open(cfg, "w") as f:
            f.write(text)
        self.server = Process(program("XMLRPCServer") + ["--usecfg", cfg],
                              os.path.join(self.dir.name, "server.log"))
        self.add_cleanup(self.server.stop)
        self.add_cleanup(self._close_proxy)
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            try:
                # A time-out of its own: a listener that accepts but never
                # answers (one left behind by an earlier program) must not
                # hang the test.
                with xmlrpc.client.ServerProxy(URL, transport=_TimeoutTransport(5.0)) as probe:
                    probe.system.listMethods()
                return
            except OSError:
                time.sleep(0.1)
        raise RuntimeError("XMLRPCServer did not answer within %.0f s: %s"
                           % (START_TIMEOUT, self.server.output()))

    def proxy(self):
        """One client for the whole test, so calls reuse a kept-alive link."""
        if self._proxy is None:
            self._proxy = xmlrpc.client.ServerProxy(URL)
        return self._proxy

    def _close_proxy(self):
        if self._proxy is not None:
            self._proxy("close")()
            self._proxy = None

    def wait_connected(self, timeout=CONNECT_TIMEOUT):
        """Polls getVersion until it comes back without an error member."""
        deadline = time.monotonic() + timeout
        reply = None
        while time.monotonic() < deadline:
            reply = self.proxy().getVersion()
            if "error" not in reply:
                return reply
            time.sleep(0.25)
        raise AssertionError("the server did not reach the client proxy: %r" % (reply,))

    def wait_link_up(self, timeout=CONNECT_TIMEOUT):
        """Waits until calls stop answering "not connected to client proxy"
        and returns the first reply that does not (for a slow proxy that may
        itself be an error)."""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            reply = self.proxy().getVersion()
            if reply.get("error") != NOT_CONNECTED:
                return reply
            time.sleep(0.25)
        raise AssertionError("the server did not reach the client proxy")

    def recorded_commands(self):
        """The commands the simulator received, in order (JSON lines)."""
        if not os.path.exists(self.record):
            return []
        with open(self.record) as f:
            return [json.loads(line) for line in f if line.strip()]


# A call each method's command accepts, for tests that care about what
# happens after the check (the proxy's absence, its answers).
_TRANSFER = {"destination": "/media/out", "type": "transfer"}
_FILES = {"files": ["/media/in/a.mov"], "type": "file-source"}
VALID_PARAMS = {
    "getVersion": {},
    "nodeInfoCluster": {},
    "submitBuildSubmission": {"sources": [_FILES], "tasks": [_TRANSFER]},
    "submitSubmission": {"submission": {"name": "one", "sources": [_FILES], "tasks": [_TRANSFER]}},
    "submissionRecall": {"workflow-id": "wf-1"},
    "taskCreateTransfer": {"destination": "/media/out"},
    "taskCreateUploader": {"destination": "/media/out"},
    "taskCreateYouTube": {"username": "me", "password": "pw", "title": "Demo"},
    "taskCreateExecute": {"command": "/bin/true"},
    "taskCreateMail": {"to": ["ops@example.com"]},
    "taskCreateMBR": {"bitrates": [800]},
    "sourceCreateFileList": {"files": ["/media/in/a.mov"]},
    "sourceCreateMonitor": {"path": "/media/watch"},
    "sourceCreateWatchFolder": {"path": "/media/watch"},
    "sourceCreateEDL": {"clips": [{"file": "/media/in/a.mov", "in": 0, "out": 25}]},
    "sourceCreateISEQ": {"path": "/media/seq"},
    "statusTasks2": {},
    "statusWorkflows2": {},
    "statusWatchFolders": {},
    "statusBonjour": {},
    "watchFolderStart": {"monitor-id": "mon-1"},
    "watchFolderSetPriority": {"monitor-id": "mon-1", "priority": 3},
    "watchFolderStop": {"monitor-id": "mon-1"},
    "watchFolderRemove": {"monitor-id": "mon-1"},
    "jobKill": {"job-id": "job-1"},
    "jobCancel": {"job-id": "job-1"},
    "jobPause": {"job-id": "job-1"},
    "jobResume": {"job-id": "job-1"},
    "jobRequeue": {"job-id": "job-1"},
    "jobSetPriority": {"job-id": "job-1", "priority": 3},
    "historyRemoveWorkflow": {"workflow-ids": ["wf-1"]},
    "analyzeFile": {"file": "/media/in/a.mov"},
    "statusTasks": {},
    "statusWorkflows": {},
    "monitorList": {},
    "networkInfoBonjour": {},
    "statusMonitors": {},
    "monitorStart": {"monitor-id": "mon-1"},
    "monitorSetPriority": {"monitor-id": "mon-1", "priority": 3},
    "monitorStop": {"monitor-id": "mon-1"},
    "monitorRemove": {"monitor-id": "mon-1"},
}
