"""Just enough msgpack and vxp framing to talk to ClientProxySim over a raw
socket from Python's standard library (no msgpack module needed)."""

import socket
import struct


def pack(value):
    """msgpack bytes of None, bool, int, float, str, bytes, list, dict."""
    if value is None:
        return b"\xc0"
    if value is True:
        return b"\xc3"
    if value is False:
        return b"\xc2"
    if isinstance(value, int):
        if 0 <= value < 128:
            return bytes([value])
        if -32 <= value < 0:
            return struct.pack("b", value)
        if value >= 0:
            return b"\xcf" + struct.pack(">Q", value)
        return b"\xd3" + struct.pack(">q", value)
    if isinstance(value, float):
        return b"\xcb" + struct.pack(">d", value)
    if isinstance(value, str):
        raw = value.encode("utf-8", "surrogateescape")  # lone surrogates: raw bytes
        return b"\xdb" + struct.pack(">I", len(raw)) + raw
    if isinstance(value, bytes):
        return b"\xc6" + struct.pack(">I", len(value)) + value
    if isinstance(value, list):
        return b"\xdd" + struct.pack(">I", len(value)) + b"".join(pack(v) for v in value)
    if isinstance(value, dict):
        out = b"\xdf" + struct.pack(">I", len(value))
        for k, v in value.items():
            out += pack(k) + pack(v)
        return out
    raise TypeError(type(value))


def unpack(data):
    """The value msgpack bytes hold; raises ValueError on leftovers."""
    value, end = _unpack(data, 0)
    if end != len(data):
        raise ValueError("stray bytes")
    return value


def _unpack(d, i):
    b = d[i]
    i += 1
    if b <= 0x7F:
        return b, i
    if b >= 0xE0:
        return b - 256, i
    if 0xA0 <= b <= 0xBF:
        n = b & 0x1F
        return d[i:i + n].decode("utf-8", "surrogateescape"), i + n
    if 0x90 <= b <= 0x9F:
        return _items(d, i, b & 0x0F)
    if 0x80 <= b <= 0x8F:
        return _pairs(d, i, b & 0x0F)
    simple = {0xC0: None, 0xC2: False, 0xC3: True}
    if b in simple:
        return simple[b], i
    ints = {0xCC: ">B", 0xCD: ">H", 0xCE: ">I", 0xCF: ">Q",
            0xD0: ">b", 0xD1: ">h", 0xD2: ">i", 0xD3: ">q", 0xCA: ">f", 0xCB: ">d"}
    if b in ints:
        size = struct.calcsize(ints[b])
        return struct.unpack(ints[b], d[i:i + size])[0], i + size
    lengths = {0xD9: ">B", 0xDA: ">H", 0xDB: ">I", 0xC4: ">B", 0xC5: ">H", 0xC6: ">I",
               0xDC: ">H", 0xDD: ">I", 0xDE: ">H", 0xDF: ">I"}
    if b in lengths:
        size = struct.calcsize(lengths[b])
        n = struct.unpack(lengths[b], d[i:i + size])[0]
        i += size
        if b in (0xD9, 0xDA, 0xDB):
            return d[i:i + n].decode("utf-8", "surrogateescape"), i + n
        if b in (0xC4, 0xC5, 0xC6):
            return bytes(d[i:i + n]), i + n
        if b in (0xDC, 0xDD):
            return _items(d, i, n)
        return _pairs(d, i, n)
    raise ValueError("msgpack byte 0x%02x not handled" % b)


def _items(d, i, n):
    out = []
    for _ in range(n):
        v, i = _unpack(d, i)
        out.append(v)
    return out, i


def _pairs(d, i, n):
    out = {}
    for _ in range(n):
        k, i = _unpack(d, i)
        v, i = _unpack(d, i)
        out[k] = v
    return out, i


def frame(body):
    return struct.pack(">I", len(body)) + body


def hello(version=1, name="raw-test"):
    return frame(pack([0, "vxp", version, name]))


def request(request_id, command, payload=None):
    """A command packet (type 2); payload maps names to encoded values."""
    return frame(pack([1, request_id, 2, command, [9, False, payload or {}]]))


class link:
    """A blocking client socket that reads whole frames."""

    def __init__(self, port, timeout=5.0):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=timeout)
        self.buf = b""

    def send(self, data):
        self.sock.sendall(data)

    def read_message(self):
        """The next decoded message, or None at end of file."""
        while True:
            if len(self.buf) >= 4:
                (n,) = struct.unpack(">I", self.buf[:4])
                if len(self.buf) >= 4 + n:
                    body, self.buf = self.buf[4:4 + n], self.buf[4 + n:]
                    return unpack(body)
            chunk = self.sock.recv(65536)
            if not chunk:
                return None
            self.buf += chunk

    def closed_by_peer(self):
        """True when the peer closes the link (reading until end of file)."""
        try:
            while self.sock.recv(65536):
                pass
            return True
        except ConnectionResetError:
            return True
        except socket.timeout:
            return False

    def close(self):
        self.sock.close()
