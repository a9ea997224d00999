"""A private Avahi world for one test: a network namespace of its own with
only a loopback interface, a D-Bus system bus on a socket in a temporary
folder, and an avahi-daemon on that bus. Nothing leaves the namespace and
nothing of the machine's own bus or daemon is touched.

Every process is started by the sandbox and stopped by its PID; the
namespace and the folder are removed by close(), which tests register with
addCleanup so that it also runs when a test fails.
"""

import itertools
import os
import shutil
import signal
import subprocess
import tempfile
import time

SERVICE_TYPE = "_corvane-xmlrpc._tcp"

# avahi-daemon prints this once it serves D-Bus clients (about 1 s).
_DAEMON_READY = "Server startup complete"
# Bounds for the sandbox's own waits; generous for a loaded 2-core machine.
_START_PATIENCE_S = 15.0
_STOP_PATIENCE_S = 10.0

_BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus"/>
  </policy>
  <!-- Avahi's own policy: who may own org.freedesktop.Avahi and call it. -->
  <includedir>/usr/share/dbus-1/system.d</includedir>
</busconfig>
"""

_AVAHI_CONFIG = """[server]
use-ipv4=yes
use-ipv6=no
allow-interfaces={interfaces}
{host_name}
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
"""

_counter = itertools.count()


def unavailable_reason():
    """Why no sandbox can be made here, or None when one can."""
    if os.geteuid() != 0:
        return "needs root to create a network namespace (ip netns add)"
    for tool in ("ip", "unshare", "dbus-daemon", "avahi-daemon", "avahi-browse"):
        if shutil.which(tool) is None and not os.path.exists("/usr/sbin/" + tool):
            return "needs %s (scripts/install-deps.sh installs it)" % tool
    return None


def stop_process(process, patience=_STOP_PATIENCE_S):
    """Stops one process that the sandbox started: SIGTERM, then SIGKILL."""
    if process is None or process.poll() is not None:
        return
    process.terminate()
    try:
        process.wait(patience)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


class Sandbox:
    """A namespace with its bus; the Avahi daemon comes and goes on demand."""

    def __init__(self):
        self.name = "vxnet-avahi-%d-%d" % (os.getpid(), next(_counter))
        self.dir = tempfile.mkdtemp(prefix="vxnet-avahi-")
        self.bus_socket = os.path.join(self.dir, "bus")
        self.env = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS="unix:path=" + self.bus_socket)
        self.bus = None
        self.daemon = None
        self._daemon_log = None
        self._daemon_starts = 0
        self._namespace_made = False
        self._children = []
        self._closers = []

    # -- set-up and tear-down -------------------------------------------------

    def create_namespace(self):
        """Makes the namespace with its loopback up. Raises RuntimeError."""
        made = subprocess.run(["ip", "netns", "add", self.name], capture_output=True, text=True)
        if made.returncode != 0:
            raise RuntimeError("ip netns add %s: %s" % (self.name, made.stderr.strip()))
        self._namespace_made = True
        subprocess.run(["ip", "-n", self.name, "link", "set", "lo", "up"], check=True)

    def start_bus(self):
        config = os.path.join(self.dir, "bus.conf")
        with open(config, "w") as f:
            f.write(_BUS_CONFIG.format(socket=self.bus_socket))
        log = open(os.path.join(self.dir, "bus.log"), "w")
        self.bus = subprocess.Popen(
            self.netns_command(["dbus-daemon", "--config-file=" + config, "--nofork"]),
            stdout=log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        log.close()
        self._wait_for(lambda: os.path.exists(self.bus_socket), "the D-Bus socket", self.bus)

    def stop_bus(self):
        """Stops the bus and removes its socket, as on a machine without one."""
        stop_process(self.bus)
        self.bus = None
        if os.path.exists(self.bus_socket):
            os.unlink(self.bus_socket)

    def start_daemon(self, interfaces="lo", host_name=None):
        """Starts avahi-daemon in the foreground, serving the given interfaces
        (comma-separated) under host_name (default: the machine's), and
        waits until it serves."""
        config = os.path.join(self.dir, "avahi-daemon.conf")
        with open(config, "w") as f:
            f.write(_AVAHI_CONFIG.format(
                interfaces=interfaces,
                host_name="host-name=" + host_name if host_name else ""))
        self._daemon_starts += 1
        self._daemon_log = os.path.join(self.dir, "avahi-%d.log" % self._daemon_starts)
        log = open(self._daemon_log, "w")
        # A private /run for its pid file and socket, so it never meets the
        # machine's own daemon (or another test's).
        script = ("mount -t tmpfs tmpfs /run && mkdir -p /run/avahi-daemon && "
                  "exec avahi-daemon -f \"$0\" --no-drop-root --no-chroot --no-rlimits")
        self.daemon = subprocess.Popen(
            self.netns_command(["unshare", "-m", "sh", "-c", script, config]),
            stdout=log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, env=self.env)
        log.close()
        self._wait_for(lambda: _DAEMON_READY in self._read(self._daemon_log),
                       "avahi-daemon's start-up", self.daemon)

    def stop_daemon(self):
        stop_process(self.daemon)
        self.daemon = None

    def freeze_daemon(self):
        os.kill(self.daemon.pid, signal.SIGSTOP)

    def thaw_daemon(self):
        os.kill(self.daemon.pid, signal.SIGCONT)

    def close(self):
        """Stops everything the sandbox started and removes the namespace."""
        for closer in reversed(self._closers):
            closer()
        for process in reversed(self._children):
            stop_process(process)
        if self.daemon is not None:
            # A frozen daemon would not see SIGTERM until thawed.
            if self.daemon.poll() is None:
                os.kill(self.daemon.pid, signal.SIGCONT)
            self.stop_daemon()
        stop_process(self.bus)
        if self._namespace_made:
            subprocess.run(["ip", "netns", "del", self.name], capture_output=True)
        shutil.rmtree(self.dir, ignore_errors=True)

    def link_to(self, other, interface="mdns0"):
        """Joins this namespace and other's by a veth pair named interface at
        both ends, with link-local addresses, so that their daemons meet
        over multicast DNS. The pair goes with the namespaces."""
        subprocess.run(["ip", "link", "add", interface, "netns", self.name, "type", "veth",
                        "peer", "name", interface, "netns", other.name], check=True)
        for sandbox, address in ((self, "169.254.77.1/24"), (other, "169.254.77.2/24")):
            subprocess.run(["ip", "-n", sandbox.name, "addr", "add", address, "dev", interface],
                           check=True)
            subprocess.run(["ip", "-n", sandbox.name, "link", "set", interface, "up"], check=True)

    # -- running things inside ------------------------------------------------

    def netns_command(self, argv):
        return ["ip", "netns", "exec", self.name] + list(argv)

    def spawn(self, argv, **kwargs):
        """Starts argv inside the namespace on the sandbox's bus; stopped by close()."""
        kwargs.setdefault("env", self.env)
        process = subprocess.Popen(self.netns_command(argv), **kwargs)
        self._children.append(process)
        return process

    def on_close(self, closer):
        """Has close() call closer first, before it stops the processes."""
        self._closers.append(closer)

    def run(self, argv, timeout=30, **kwargs):
        kwargs.setdefault("env", self.env)
        return subprocess.run(self.netns_command(argv), capture_output=True, text=True,
                              timeout=timeout, **kwargs)

    def browse(self):
        """The resolved services of SERVICE_TYPE as a set of (name, port)."""
        found = self.run(["avahi-browse", "-rpt", SERVICE_TYPE]).stdout
        services = set()
        for line in found.splitlines():
            fields = line.split(";")
            # =;interface;protocol;name;type;domain;host;address;port;txt
            if len(fields) >= 9 and fields[0] == "=" and fields[4] == SERVICE_TYPE:
                services.add((_unescape(fields[3]), int(fields[8])))
        return services

    def browse_txt(self, name):
        """The TXT field of the resolved service called name, or None."""
        found = self.run(["avahi-browse", "-rpt", SERVICE_TYPE]).stdout
        for line in found.splitlines():
            fields = line.split(";")
            if len(fields) >= 10 and fields[0] == "=" and _unescape(fields[3]) == name:
                return fields[9]
        return None

    def wait_until(self, predicate, patience):
        """Polls predicate (about every 0.25 s) until it is true or patience
        seconds have passed; returns its last value."""
        deadline = time.monotonic() + patience
        while True:
            value = predicate()
            if value or time.monotonic() >= deadline:
                return value
            time.sleep(0.25)

    def daemon_log(self):
        return self._read(self._daemon_log) if self._daemon_log else ""

    # -- helpers --------------------------------------------------------------

    @staticmethod
    def _read(path):
        try:
            with open(path, errors="replace") as f:
                return f.read()
        except OSError:
            return ""

    def _wait_for(self, ready, what, process):
        deadline = time.monotonic() + _START_PATIENCE_S
        while not ready():
            if process.poll() is not None:
                raise RuntimeError("%s: the process ended with %s" % (what, process.returncode))
            if time.monotonic() >= deadline:
                raise RuntimeError("%s did not happen within %.0f s" % (what, _START_PATIENCE_S))
            time.sleep(0.05)


def _unescape(text):
    """Undoes avahi-browse -p's escaping of names ("\\032" for a space)."""
    out = []
    i = 0
    while i < len(text):
        if text[i] == "\\" and len(text[i + 1:i + 4]) == 3 and text[i + 1:i + 4].isdigit():
            out.append(chr(int(text[i + 1:i + 4])))
            i += 4
        elif text[i] == "\\" and i + 1 < len(text):
            out.append(text[i + 1])
            i += 2
        else:
            out.append(text[i])
            i += 1
    return "".join(out)
