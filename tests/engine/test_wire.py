"""Black-box tests of the engine's HTTP framing, written as raw bytes to a
live xmlrpc-test-server over loopback."""

import socket
import subprocess
import threading
import time
import unittest

from engine_server import (ERROR_PORT_IN_USE, SERVER, TestServer, closed_by_peer, connect,
                           expected_response, fault_body, http_post, method_call, read_response,
                           read_until_closed, result_body)
import testmain

INT42 = "<value><i4>42</i4></value>"
# Longest a flooding client keeps sending when the server does not stop it.
FLOOD_SECONDS = 3
# A response several times larger than a slow reader's receive buffer, so it
# cannot leave the server in one send pass.
LARGE_TEXT = 4 * 1024 * 1024
SMALL_RCVBUF = 16 * 1024
ECHO42 = method_call("echo", INT42)
ECHO42_RESPONSE = expected_response(result_body(
    "<value><array><data>%s</data></array></value>" % INT42))


class WireTest(unittest.TestCase):
    def setUp(self):
        self.server = TestServer()
        self.socks = []

    def tearDown(self):
        for s in self.socks:
            s.close()
        self.assertEqual(self.server.stop(), 0)

    def sock(self):
        s = connect(self.server.port)
        self.socks.append(s)
        return s

    def exchange(self, raw, sock=None):
        s = sock or self.sock()
        s.sendall(raw)
        return read_response(s)

    def errors(self):
        """The server's standard error, once it has stopped."""
        self.server.stop()
        return self.server.stderr

    # --- responses, byte for byte ---

    def test_whole_response_byte_for_byte(self):
        self.assertEqual(self.exchange(http_post(ECHO42)), ECHO42_RESPONSE)

    def test_whole_fault_response_byte_for_byte(self):
        call = method_call("fault", "<value><i4>-32</i4></value>", "<value>a &amp; b</value>")
        self.assertEqual(self.exchange(http_post(call)),
                         expected_response(fault_body(-32, "a &amp; b")))

    def test_unknown_method_is_a_fault_in_a_200_response(self):
        response = self.exchange(http_post(method_call("no.such.method")))
        self.assertTrue(response.startswith(b"HTTP/1.1 200 OK\r\n"))
        self.assertIn(b"Access-Control-Allow-Origin: *\r\n", response)
        self.assertEqual(response, expected_response(
            fault_body(-1, "no.such.method: unknown method name")))

    def test_empty_method_name_faults(self):
        self.assertEqual(self.exchange(http_post(method_call("", INT42))),
                         expected_response(fault_body(-1, ": unknown method name")))

    def test_unset_result_is_an_empty_string(self):
        self.assertEqual(self.exchange(http_post(method_call("noResult"))),
                         expected_response(result_body("<value></value>")))

    def test_response_length_is_the_body_size(self):
        call = method_call("echo", "<value>%s</value>" % ("\u00e9" * 300))
        response = self.exchange(http_post(call))
        head, _, body = response.partition(b"\r\n\r\n")
        self.assertTrue(head.endswith(b"Content-length: %d" % len(body)))
        self.assertIn(("\u00e9" * 300).encode(), body)

    # --- header rules ---

    def assert_dropped(self, raw, message):
        s = self.sock()
        s.sendall(raw)
        self.assertEqual(s.recv(65536), b"")  # closed without a byte of answer
        self.assertIn(message + "\n", self.errors())

    def test_missing_content_length_is_dropped(self):
        raw = b"POST /RPC2 HTTP/1.1\r\nHost: x\r\n\r\n" + ECHO42
        self.assert_dropped(raw, "XmlRpcServerConnection::readHeader: No Content-length specified")

    def test_zero_content_length_is_dropped(self):
        self.assert_dropped(b"POST / HTTP/1.1\r\nContent-length: 0\r\n\r\n" + ECHO42,
                            "XmlRpcServerConnection::readHeader: "
                            "Invalid Content-length specified (0).")

    def test_negative_content_length_is_dropped(self):
        self.assert_dropped(b"POST / HTTP/1.1\r\nContent-length: -12\r\n\r\n" + ECHO42,
                            "XmlRpcServerConnection::readHeader: "
                            "Invalid Content-length specified (-12).")

    def test_header_name_case_is_ignored(self):
        raw = b"POST / HTTP/1.1\r\ncontent-LENGTH: %d\r\n\r\n" % len(ECHO42) + ECHO42
        self.assertEqual(self.exchange(raw), ECHO42_RESPONSE)

    def test_header_name_without_blank_is_not_recognised(self):
        raw = b"POST / HTTP/1.1\r\nContent-Length:%d\r\n\r\n" % len(ECHO42) + ECHO42
        self.assert_dropped(raw, "XmlRpcServerConnection::readHeader: No Content-length specified")

    def test_bare_line_feeds_end_the_header(self):
        raw = b"POST / HTTP/1.1\nContent-length: %d\n\n" % len(ECHO42) + ECHO42
        self.assertEqual(self.exchange(raw), ECHO42_RESPONSE)

    # --- keep-alive ---

    def test_http10_is_answered_then_closed(self):
        s = self.sock()
        self.assertEqual(self.exchange(http_post(ECHO42, "HTTP/1.0"), s), ECHO42_RESPONSE)
        self.assertTrue(closed_by_peer(s))

    def test_http10_with_keep_alive_stays_open(self):
        s = self.sock()
        raw = http_post(ECHO42, "HTTP/1.0", "Connection: keep-alive\r\n")
        for _ in range(3):
            self.assertEqual(self.exchange(raw, s), ECHO42_RESPONSE)

    def test_http11_stays_open(self):
        s = self.sock()
        for _ in range(3):
            self.assertEqual(self.exchange(http_post(ECHO42), s), ECHO42_RESPONSE)

    def test_http11_with_connection_close_is_closed(self):
        s = self.sock()
        raw = http_post(ECHO42, "HTTP/1.1", "Connection: close\r\n")
        self.assertEqual(self.exchange(raw, s), ECHO42_RESPONSE)
        self.assertTrue(closed_by_peer(s))

    def test_idle_keep_alive_connection_closed_by_client_is_silent(self):
        s = self.sock()
        self.exchange(http_post(ECHO42), s)
        s.close()
        self.socks.remove(s)
        self.exchange(http_post(ECHO42))  # the server has handled the close by now
        self.assertEqual(self.errors(), "")

    # --- bodies ---

    def test_body_in_several_pieces_is_collected(self):
        s = self.sock()
        raw = http_post(ECHO42)
        for i in range(0, len(raw), 37):
            s.sendall(raw[i:i + 37])
            time.sleep(0.02)
        self.assertEqual(read_response(s), ECHO42_RESPONSE)

    def test_bytes_beyond_the_length_are_parsed(self):
        body = method_call("echo", INT42, "<value>tail</value>")
        raw = b"POST / HTTP/1.1\r\nContent-length: 30\r\n\r\n" + body
        self.assertEqual(self.exchange(raw), expected_response(result_body(
            "<value><array><data>%s<value>tail</value></data></array></value>" % INT42)))

    def test_client_gone_mid_body_is_reported(self):
        s = self.sock()
        s.sendall(b"POST / HTTP/1.1\r\nContent-length: 900\r\n\r\n<methodCall>")
        s.shutdown(socket.SHUT_WR)
        self.assertTrue(closed_by_peer(s))
        self.assertIn("XmlRpcServerConnection::readRequest: EOF while reading request\n",
                      self.errors())

    # --- large responses ---

    def slow_reader(self):
        """A connection whose small receive buffer keeps a large response
        from leaving the server in one send pass."""
        s = socket.socket()
        s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, SMALL_RCVBUF)
        s.settimeout(10)
        s.connect(("127.0.0.1", self.server.port))
        self.socks.append(s)
        return s

    def test_large_response_is_finished_while_others_are_served(self):
        text = "L" * LARGE_TEXT
        raw = http_post(method_call("echo", "<value>%s</value>" % text))
        expected = expected_response(result_body(
            "<value><array><data><value>%s</value></data></array></value>" % text))
        slow = self.slow_reader()
        slow.sendall(raw)
        time.sleep(0.3)  # the server now waits to write the rest
        self.assertEqual(self.exchange(http_post(ECHO42)), ECHO42_RESPONSE)
        self.assertEqual(read_response(slow), expected)
        # Still open for the next call (keep-alive).
        self.assertEqual(self.exchange(http_post(ECHO42), slow), ECHO42_RESPONSE)

    def test_large_response_without_keep_alive_arrives_whole_then_closed(self):
        text = "L" * LARGE_TEXT
        raw = http_post(method_call("echo", "<value>%s</value>" % text), "HTTP/1.0")
        expected = expected_response(result_body(
            "<value><array><data><value>%s</value></data></array></value>" % text))
        slow = self.slow_reader()
        slow.sendall(raw)
        time.sleep(0.3)  # the server now waits to write the rest
        received = b""
        while True:
            chunk = slow.recv(65536)
            if not chunk:
                break
            received += chunk
        self.assertEqual(received, expected)

    # --- a zero byte in the body ---

    def test_zero_byte_in_the_body_is_a_fault_and_the_connection_stays(self):
        body = method_call("echo", "<value>a\x00b</value>")
        offset = body.index(b"\x00")
        s = self.sock()
        self.assertEqual(self.exchange(http_post(body), s), expected_response(fault_body(
            -32702, "Invalid request: zero byte at offset %d of the body" % offset)))
        self.assertEqual(self.exchange(http_post(ECHO42), s), ECHO42_RESPONSE)

    # --- hostile clients ---

    def flood(self, prefix):
        """Sends `prefix`, then bytes as fast as possible for at most
        FLOOD_SECONDS or until the server drops the connection, while normal
        calls on another connection must still be answered."""
        s = self.sock()
        stop = threading.Event()

        def pour():
            chunk = b"x" * 65536
            end = time.monotonic() + FLOOD_SECONDS
            try:
                s.sendall(prefix)
                while not stop.is_set() and time.monotonic() < end:
                    s.sendall(chunk)
            except OSError:
                pass  # dropped by the server: what the test wants

        flooder = threading.Thread(target=pour)
        flooder.start()
        try:
            calm = self.sock()
            for _ in range(20):
                self.assertEqual(self.exchange(http_post(ECHO42), calm), ECHO42_RESPONSE)
        finally:
            flooder.join()
            stop.set()
        self.assertTrue(read_until_closed(s))
        self.assertIn("XmlRpcServerConnection::readHeader: header too long", self.errors())

    def test_flooded_header_is_dropped(self):
        self.flood(b"POST / HTTP/1.1\r\nX-Flood: ")

    def test_flood_behind_a_short_body_is_dropped(self):
        self.flood(b"POST / HTTP/1.1\r\nContent-length: 100\r\n\r\n")


class LoggingTest(unittest.TestCase):
    def test_verbosity_zero_prints_nothing_on_stdout(self):
        server = TestServer()
        with connect(server.port) as s:
            s.sendall(http_post(ECHO42))
            self.assertEqual(read_response(s), ECHO42_RESPONSE)
        self.assertEqual(server.stop(), 0)
        self.assertEqual(server.stdout, "port %d\n" % server.port)
        self.assertEqual(server.stderr, "")

    def test_verbosity_five_logs_every_recv(self):
        server = TestServer("--verbosity", "5")
        with connect(server.port) as s:
            s.sendall(http_post(ECHO42))
            self.assertEqual(read_response(s), ECHO42_RESPONSE)
        self.assertEqual(server.stop(), 0)
        raw = http_post(ECHO42)
        self.assertIn("XmlRpcSocket::nbRead: read/recv returned %d.\n" % len(raw), server.stdout)
        self.assertIn("XmlRpcSocket::nbRead: read/recv returned 0.\n", server.stdout)

    def test_bind_on_a_port_in_use_prints_one_line(self):
        holder = socket.socket()
        holder.bind(("0.0.0.0", 0))
        holder.listen(1)
        try:
            port = holder.getsockname()[1]
            done = subprocess.run([*SERVER, "--port", str(port)], capture_output=True,
                                  timeout=30)
        finally:
            holder.close()
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.decode(),
                         "XmlRpcServer::bindAndListen: Could not bind to specified port "
                         "(error %d).\n" % ERROR_PORT_IN_USE)
        self.assertEqual(done.stdout, b"")


if __name__ == "__main__":
    testmain.main()
