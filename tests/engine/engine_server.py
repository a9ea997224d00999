"""Starts and stops xmlrpc-test-server for the engine's black-box tests, and
speaks raw HTTP to it over loopback."""

import errno
import os
import signal
import socket
import subprocess
import tempfile
import time

BUILD_DIR = os.environ.get("XMLRPCS_BUILD_DIR", "build")
# The Windows build: its programs end in ".exe" and run through an emulator
# (scripts/wine-run.sh), set by the build's test registration.
EXE_SUFFIX = os.environ.get("XMLRPCS_EXE_SUFFIX", "")
EMULATOR = os.environ.get("XMLRPCS_EMULATOR", "")
UNDER_WINE = bool(EMULATOR)
SERVER = ([EMULATOR] if EMULATOR else []) + [
    os.path.join(BUILD_DIR, "bin", "xmlrpc-test-server" + EXE_SUFFIX)]
# The error number a failed bind reports when the port is taken (Winsock's
# WSAEADDRINUSE in the Windows build).
ERROR_PORT_IN_USE = 10048 if EXE_SUFFIX == ".exe" else errno.EADDRINUSE
# Wine's SIGINT handler turns the signal into the console's Ctrl-C event,
# which the Windows program stops on; SIGTERM would end it at once.
STOP_SIGNAL = signal.SIGINT if UNDER_WINE else signal.SIGTERM

# Bounds for waiting on the server; a healthy server answers in milliseconds.
START_TIMEOUT = 10.0
IO_TIMEOUT = 10.0


class TestServer:
    """One xmlrpc-test-server process on a port the system picked."""

    def __init__(self, *args):
        # Standard error goes to a file: a pipe nobody reads would block the
        # server once a flood of error lines has filled it.
        self.err_file = tempfile.TemporaryFile()
        self.proc = subprocess.Popen([*SERVER, "--port", "0", *args],
                                     stdout=subprocess.PIPE, stderr=self.err_file)
        # Log lines (at a raised verbosity) may come before the port.
        self.head = ""
        line = ""
        while not line.startswith("port "):
            line = self.proc.stdout.readline().decode()
            self.head += line
            if not line:
                self.proc.kill()
                raise RuntimeError("test server did not start: %r" % self.head)
        self.port = int(line.split()[1])
        self.stdout = self.stderr = None

    @property
    def pid(self):
        return self.proc.pid

    def url(self):
        return "http://127.0.0.1:%d/RPC2" % self.port

    def open_fds(self):
        """The server's open descriptors; None under Wine, where the
        wineserver holds a Windows program's sockets, not its process."""
        if UNDER_WINE:
            return None
        return len(os.listdir("/proc/%d/fd" % self.pid))

    def alive(self):
        return self.proc.poll() is None

    def stop(self):
        """Stops the server (by its PID) and keeps what it printed."""
        if self.stdout is not None:
            return self.proc.returncode
        if self.proc.poll() is None:
            self.proc.send_signal(STOP_SIGNAL)
        try:
            out, _ = self.proc.communicate(timeout=START_TIMEOUT)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            out, _ = self.proc.communicate()
        self.err_file.seek(0)
        self.stdout = self.head + out.decode()
        self.stderr = self.err_file.read().decode(errors="replace")
        self.err_file.close()
        return self.proc.returncode


def connect(port):
    s = socket.create_connection(("127.0.0.1", port), timeout=IO_TIMEOUT)
    s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return s


def method_call(name, *values):
    """An XML-RPC call body with the given <value> texts as parameters."""
    params = "".join("<param>%s</param>" % v for v in values)
    return ('<?xml version="1.0"?>\r\n<methodCall><methodName>%s</methodName>\r\n'
            '<params>%s</params></methodCall>\r\n' % (name, params)).encode()


def http_post(body, version="HTTP/1.1", extra=""):
    head = ("POST /RPC2 %s\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n%s"
            "Content-length: %d\r\n\r\n" % (version, extra, len(body)))
    return head.encode() + body


def expected_response(body):
    head = ("HTTP/1.1 200 OK\r\nServer: Corvane-XMLRPCServer/7.0\r\n"
            "Access-Control-Allow-Origin: *\r\nContent-Type: text/xml\r\n"
            "Content-length: %d\r\n\r\n" % len(body))
    return head.encode() + body


def result_body(value_xml):
    return ('<?xml version="1.0"?>\r\n<methodResponse><params><param>\r\n\t%s'
            '\r\n</param></params></methodResponse>\r\n' % value_xml).encode()


def fault_body(code, message):
    return ('<?xml version="1.0"?>\r\n<methodResponse><fault>\r\n\t'
            '<value><struct><member><name>faultCode</name><value><i4>%d</i4></value></member>'
            '<member><name>faultString</name><value>%s</value></member></struct></value>'
            '\r\n</fault></methodResponse>\r\n' % (code, message)).encode()


def read_response(sock):
    """Reads one response by its Content-length; b"" if the server closed
    without answering."""
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = sock.recv(65536)
        if not chunk:
            return data
        data += chunk
    head, _, body = data.partition(b"\r\n\r\n")
    length = None
    for line in head.split(b"\r\n"):
        if line.lower().startswith(b"content-length: "):
            length = int(line[16:])
    assert length is not None, head
    while len(body) < length:
        chunk = sock.recv(65536)
        if not chunk:
            break
        body += chunk
    return head + b"\r\n\r\n" + body


def closed_by_peer(sock):
    """True once the server has closed its end (reads end of file)."""
    try:
        return sock.recv(1) == b""
    except ConnectionResetError:
        return True


def read_until_closed(sock):
    """Reads and discards whatever the server still sends; True once it has
    closed its end, False if it keeps the connection open past the time-out."""
    try:
        while sock.recv(65536):
            pass
        return True
    except ConnectionResetError:
        return True
    except socket.timeout:
        return False


def wait_until(predicate, timeout=IO_TIMEOUT, step=0.05):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        if predicate():
            return True
        time.sleep(step)
    return predicate()
