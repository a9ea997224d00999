"""Starting XMLRPCServer (and the client proxy simulator) for black-box
tests, and following their output line by line with arrival times."""

import subprocess
import threading
import time

import programs

BUILD = programs.BUILD
WINDOWS = programs.WINDOWS
SERVER = programs.binary("XMLRPCServer")
SIMULATOR = programs.binary("ClientProxySim")
command = programs.command
namespace = programs.namespace
run_in_private_network = programs.run_in_private_network
skip_unless_private_network = programs.skip_unless_private_network

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
            self.p.send_signal(programs.STOP_SIGNAL if sig is None else sig)
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
