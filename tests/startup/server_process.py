"""Starting XMLRPCServer (and the client proxy simulator) for black-box
tests, and following their output line by line with arrival times."""

import os
import signal
import subprocess
import sys
import threading
import time
import unittest

from netns import NetNs, is_root

BUILD = os.environ.get("XMLRPCS_BUILD_DIR", "")
# The Windows build: its programs end in ".exe" and run through an emulator
# (scripts/wine-run.sh), set by the build's test registration.
EXE_SUFFIX = os.environ.get("XMLRPCS_EXE_SUFFIX", "")
EMULATOR = os.environ.get("XMLRPCS_EMULATOR", "")
WINDOWS = bool(EXE_SUFFIX)
SERVER = os.path.join(BUILD, "bin", "XMLRPCServer" + EXE_SUFFIX)
SIMULATOR = os.path.join(BUILD, "bin", "ClientProxySim" + EXE_SUFFIX)

if WINDOWS:
    # The whole script runs in a network namespace of its own with a Wine
    # prefix whose server runs there too (Wine's sockets are made by its
    # server): the e2e tests' gateway sets that up.
    sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
    import gateway  # noqa: E402

def command(program):
    """The argv that runs one of the build's programs (the emulator in front
    for the Windows build)."""
    return ([EMULATOR] if EMULATOR else []) + [program]

TRYING = "trying to connect to client proxy"

class Lines:
    """Collects the lines of a stream in a thread, with monotonic times."""

    def __init__(self, stream):
        self.lines = []  # (time, text)
        self.cond = threading.Condition()
        self.thread = threading.Thread(target=self._read, args=(stream,), daemon=True)
        self.thread.start()

    def _read(self, stream):
        for raw in iter(stream.readline, b""):
            with self.cond:
                self.lines.append((time.monotonic(), raw.decode(errors="replace").rstrip("\r\n")))
                self.cond.notify_all()
        with self.cond:
            self.cond.notify_all()

    def texts(self):
        with self.cond:
            return [t for _, t in self.lines]

    def wait_for(self, needle, timeout, count=1):
        """Waits until count lines contain needle; returns whether they came."""
        deadline = time.monotonic() + timeout
        with self.cond:
            while sum(needle in t for _, t in self.lines) < count:
                left = deadline - time.monotonic()
                if left <= 0:
                    return False
                self.cond.wait(left)
            return True

class Proc:
    """A process started in a namespace, its output followed."""

    def __init__(self, ns, argv, cwd=None):
        self.p = ns.popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=cwd)
        self.started = time.monotonic()
        self.out = Lines(self.p.stdout)
        self.err = Lines(self.p.stderr)

    def stop(self, sig=None, timeout=10):
        """Sends sig (to this process, by PID) and returns the exit code; kills
        it if it does not end within timeout."""
        if self.p.poll() is None:
            self.p.send_signal(STOP_SIGNAL if sig is None else sig)
            try:
                self.p.wait(timeout)
            except subprocess.TimeoutExpired:
                self.p.kill()
                self.p.wait()
        return self._finish()

    def _finish(self):
        self.out.thread.join(5)
        self.err.thread.join(5)
        self.p.stdout.close()
        self.p.stderr.close()
        return self.p.returncode

    def wait(self, timeout=30):
        try:
            self.p.wait(timeout)
        finally:
            if self.p.poll() is None:
                self.p.kill()
                self.p.wait()
        return self._finish()

def start_server(ns, *args, cwd=None):
    return Proc(ns, command(SERVER) + list(args), cwd=cwd)

def start_simulator(ns, *args):
    sim = Proc(ns, command(SIMULATOR) + list(args))
    return sim

# How a test asks the server to end: SIGTERM on Linux; on Windows there is
# no SIGTERM (Wine ends the process at once), and SIGINT reaches the
# program as Ctrl-C.
STOP_SIGNAL = signal.SIGINT if WINDOWS else signal.SIGTERM

class SameNs:
    """Stands in for NetNs in the Windows build: the script already runs in a
    namespace of its own, where the Wine server makes every socket, so a
    namespace per test would see none of them."""

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        return False

    def popen(self, argv, **kwargs):
        return subprocess.Popen(argv, **kwargs)

    def run(self, argv, **kwargs):
        return subprocess.run(argv, **kwargs)

def namespace(**kwargs):
    """A network namespace for one test (NetNs), or SameNs under Wine."""
    return SameNs() if WINDOWS else NetNs(**kwargs)

def run_in_private_network():
    """Under Wine: re-executes the script in a namespace of its own (as root)."""
    if WINDOWS:
        gateway.run_in_private_network()

def skip_unless_private_network():
    """Skips unless the tests can have their own network: a namespace per
    test (root), or under Wine the script's own namespace."""
    if WINDOWS:
        return gateway.skip_unless_private_network()
    return unittest.skipUnless(
        is_root(), "needs root: the test runs the server in a network namespace of its own "
        "(unshare -n), which only root may create")
