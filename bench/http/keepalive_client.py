#!/usr/bin/env python3
"""Sends N XML-RPC calls over C keep-alive connections, the two calls of
xmlrpc.lua in turn (system.listMethods and an echo of a small struct), one
outstanding call per connection, and checks that each is answered 200.

    keepalive_client.py PORT N [C]
"""
import socket
import sys


def request(name, params):
    body = ('<?xml version="1.0"?>\r\n<methodCall><methodName>' + name +
            '</methodName>\r\n<params>' + params + '</params></methodCall>\r\n').encode()
    return (b"POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\n"
            b"Content-Length: %d\r\n\r\n" % len(body)) + body


REQUESTS = [
    request("system.listMethods", ""),
    request("echo", "<param><value><struct>"
            "<member><name>job</name><value><i4>1234</i4></value></member>"
            "<member><name>name</name><value><string>clip-0042.mxf</string></value></member>"
            "<member><name>priority</name><value><double>0.5</double></value></member>"
            "<member><name>urgent</name><value><boolean>1</boolean></value></member>"
            "</struct></value></param>"),
]


def read_response(sock, pending):
    """Reads one response; returns the bytes that came after it."""
    while True:
        end = pending.find(b"\r\n\r\n")
        if end >= 0:
            header = pending[:end].lower()
            at = header.find(b"content-length:")
            length = int(header[at + 15:].split(b"\r\n")[0])
            if len(pending) >= end + 4 + length:
                if not pending.startswith(b"HTTP/1.1 200"):
                    raise SystemExit("unexpected answer: %r" % pending[:80])
                return pending[end + 4 + length:]
        data = sock.recv(65536)
        if not data:
            raise SystemExit("the server closed the connection")
        pending += data


def main():
    port, total = int(sys.argv[1]), int(sys.argv[2])
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    socks = [socket.create_connection(("127.0.0.1", port)) for _ in range(count)]
    for s in socks:
        s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    pending = [b""] * count
    sent = 0
    while sent < total:
        batch = min(count, total - sent)
        for i in range(batch):
            socks[i].sendall(REQUESTS[(sent + i) % 2])
        for i in range(batch):
            pending[i] = read_response(socks[i], pending[i])
        sent += batch
    for s in socks:
        s.close()


if __name__ == "__main__":
    main()
