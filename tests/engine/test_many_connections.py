"""Load test of the engine: a thousand connections at once (idle, garbage,
valid calls), then all closed; no crash, no leaked descriptor."""

import random
import resource
import selectors
import socket
import time
import unittest
import xmlrpc.client

from engine_server import (TestServer, expected_response, http_post, method_call,
                           result_body, wait_until)
import testmain

CONNECTIONS = 1000
# The test's own descriptor needs: every client socket plus a margin.
NEEDED_FDS = CONNECTIONS + 100
# Bounds on the waits; everything normally happens within a second or two.
CONNECT_SECONDS = 30
ANSWER_SECONDS = 5
DRAIN_SECONDS = 60

INT7 = "<value><i4>7</i4></value>"
ECHO = http_post(method_call("echo", INT7))
ECHO_RESPONSE = expected_response(result_body(
    "<value><array><data>%s</data></array></value>" % INT7))


def garbage(rng, i):
    """Byte sequences a careless or hostile client might send."""
    kind = i % 6
    if kind == 0:
        return bytes(rng.getrandbits(8) for _ in range(rng.randint(1, 3000)))
    if kind == 1:
        return b"GET / HTTP/1.1\r\nHost: x\r\n\r\n"
    if kind == 2:
        return b"POST / HTTP/1.1\r\nContent-length: -1\r\n\r\n<methodCall>"
    if kind == 3:
        return b"POST / HTTP/1.1\r\nContent-length: 100000\r\n\r\n" + b"<" * 500
    if kind == 4:
        return b"X-Junk: " + b"j" * 80000  # a header that never ends
    return http_post(b"<methodCall><methodName>echo</methodName><params><param><value>"
                     b"<array><data><value><struct><member><name>")


def raise_fd_limit():
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft != resource.RLIM_INFINITY and soft < NEEDED_FDS:
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(NEEDED_FDS, hard), hard))


class ManyConnectionsTest(unittest.TestCase):
    def test_thousand_connections_then_all_closed(self):
        raise_fd_limit()
        # A deep accept queue, so that the thousand connects complete in the
        # kernel while the server accepts them one per pass.
        server = TestServer("--backlog", "1024")
        try:
            self.run_load(server)
        finally:
            self.assertEqual(server.stop(), 0)

    def run_load(self, server):
        baseline = server.open_fds()
        rng = random.Random(1234)
        sel = selectors.DefaultSelector()
        socks = []
        for i in range(CONNECTIONS):
            s = socket.socket()
            s.setblocking(False)
            s.connect_ex(("127.0.0.1", server.port))
            socks.append(s)
            sel.register(s, selectors.EVENT_WRITE, i)
        pending = set(range(CONNECTIONS))
        end = time.monotonic() + CONNECT_SECONDS
        while pending and time.monotonic() < end:
            for key, _ in sel.select(timeout=1.0):
                pending.discard(key.data)
                sel.unregister(key.fileobj)
        self.assertFalse(pending, "%d connects did not complete" % len(pending))

        # A quarter each: idle, garbage, a valid call, half a header.
        valid = []
        for i, s in enumerate(socks):
            role = i % 4
            try:
                if role == 1:
                    s.send(garbage(rng, i // 4))
                elif role == 2:
                    s.send(ECHO)
                    valid.append(s)
                elif role == 3:
                    s.send(b"POST /RPC2 HTTP/1.1\r\nConte")
            except (BlockingIOError, ConnectionError):
                pass  # the server may already have dropped a garbage sender

        # Every connection is watched in every pass: each valid call is
        # answered, however many idle and half-sent connections are open.
        answered = 0
        for s in valid:
            sel.register(s, selectors.EVENT_READ, bytearray())
        end = time.monotonic() + ANSWER_SECONDS
        while time.monotonic() < end and answered < len(valid):
            events = sel.select(timeout=0.5)
            for key, _ in events:
                data = key.data
                chunk = key.fileobj.recv(65536)
                data += chunk
                if len(data) >= len(ECHO_RESPONSE) or not chunk:
                    self.assertEqual(bytes(data), ECHO_RESPONSE)
                    answered += 1
                    sel.unregister(key.fileobj)
        self.assertEqual(answered, len(valid))
        self.assertTrue(server.alive())

        for s in socks:
            s.close()
        sel.close()

        self.assertTrue(wait_until(lambda: server.open_fds() == baseline, DRAIN_SECONDS),
                        "server holds %d descriptors, %d before the load" %
                        (server.open_fds(), baseline))
        proxy = xmlrpc.client.ServerProxy(server.url())
        self.assertEqual(proxy.echo("after", 1), ["after", 1])
        proxy("close")()
        self.assertTrue(server.alive())


if __name__ == "__main__":
    testmain.main()
