"""Run processes in a fresh network namespace (and mount namespace).

The server always dials 127.0.0.1:40410 and listens on fixed ports, so every
test that starts it gets a loopback of its own: nothing it does can meet
another test or another person's processes on this machine.

    from netns import NetNs, skip_unless_root

    @skip_unless_root()
    class T(unittest.TestCase):
        def test_x(self):
            with NetNs(private_dirs=["/var/lib"]) as ns:
                sim = ns.popen([sim_path], stdout=subprocess.PIPE)
                ns.run(["curl", "-s", "http://127.0.0.1:40431/"])

A namespace is held open by one small process ("sleep") made with
unshare(1); the processes of the test join it with nsenter(1). The holder is
stopped, by its PID, when the with-block ends, and ends by itself after
max_life seconds in any case. Needs root (unshare and nsenter of network
namespaces): use skip_unless_root() so tests say why they skip.
"""

import os
import subprocess
import time
import unittest

# A namespace outlives no test by more than this many seconds, even if the
# test is killed before it can stop the holder.
DEFAULT_MAX_LIFE = 600

# How long to wait for the holder to have made its namespaces.
READY_TIMEOUT = 10.0
# Where kept paths wait while private directories are mounted over them
# (an empty directory on every Debian system; only the namespace sees it).
PARK = "/mnt"


def is_root():
    return os.geteuid() == 0


def skip_unless_root():
    """A unittest skip decorator for tests that need network namespaces."""
    return unittest.skipUnless(
        is_root(), "needs root: the test runs the server in a network namespace of its own "
        "(unshare -n), which only root may create")


class NetNs:
    """A network namespace with loopback up and, optionally, tmpfs mounted
    over some directories so that files written there stay inside.

    Paths in keep stay reachable at their own names even when one of the
    private directories holds them: a checkout (and so the build folder)
    may well live under /tmp."""

    def __init__(self, private_dirs=(), max_life=DEFAULT_MAX_LIFE, keep=()):
        self.private_dirs = list(private_dirs)
        self.keep = [os.path.realpath(p) for p in keep]
        self.max_life = max_life
        self.holder = None

    @property
    def pid(self):
        return self.holder.pid

    def __enter__(self):
        # unshare without --fork execs sleep in the same process, so the
        # holder's PID is the namespace's.
        self.holder = subprocess.Popen(
            ["unshare", "--net", "--mount", "--propagation", "private", "sleep",
             str(self.max_life)])
        try:
            self._wait_ready()
            self.run(["ip", "link", "set", "lo", "up"], check=True)
            self._mount_private_dirs()
        except BaseException:
            self._stop_holder()
            raise
        return self

    def __exit__(self, *exc):
        self._stop_holder()
        return False

    def _mount_private_dirs(self):
        hidden = [p for p in self.keep
                  if any(p == d or p.startswith(d.rstrip("/") + "/") for d in self.private_dirs)]
        if hidden:
            # A bind mount holds on to the directory itself, not to its
            # name: park each kept path on a scratch tmpfs, hide the
            # private directories, then put the paths back where they were.
            self.run(["mount", "-t", "tmpfs", "tmpfs", PARK], check=True)
            for i, p in enumerate(hidden):
                self.run(["mkdir", "%s/%d" % (PARK, i)], check=True)
                self.run(["mount", "--bind", p, "%s/%d" % (PARK, i)], check=True)
        for d in self.private_dirs:
            self.run(["mount", "-t", "tmpfs", "tmpfs", d], check=True)
        for i, p in enumerate(hidden):
            self.run(["mkdir", "-p", p], check=True)
            self.run(["mount", "--bind", "%s/%d" % (PARK, i), p], check=True)

    def command(self, argv):
        """argv prefixed so that it runs inside the namespaces."""
        return ["nsenter", "-t", str(self.pid), "-n", "-m", "--"] + list(argv)

    def popen(self, argv, **kwargs):
        """Starts argv inside the namespaces. nsenter execs argv, so the
        returned process's PID is argv's own: signals reach it directly."""
        return subprocess.Popen(self.command(argv), **kwargs)

    def run(self, argv, **kwargs):
        return subprocess.run(self.command(argv), **kwargs)

    def _wait_ready(self):
        ours = os.readlink("/proc/self/ns/net")
        deadline = time.monotonic() + READY_TIMEOUT
        while time.monotonic() < deadline:
            if self.holder.poll() is not None:
                raise RuntimeError("unshare failed (exit %d)" % self.holder.returncode)
            try:
                if os.readlink("/proc/%d/ns/net" % self.pid) != ours:
                    return
            except OSError:
                pass
            time.sleep(0.01)
        raise RuntimeError("network namespace not ready after %.0f s" % READY_TIMEOUT)

    def _stop_holder(self):
        if self.holder and self.holder.poll() is None:
            self.holder.kill()
            self.holder.wait()
