"""Black-box tests of the value reader through a live xmlrpc-test-server:
hostile nesting costs little CPU, and the empty-element, boolean-word and
ISO 8601 spellings of other clients arrive whole."""

import os
import time
import unittest

from engine_server import (TestServer, connect, expected_response, fault_body, http_post,
                           method_call, read_response, result_body)
import testmain

HERE = os.path.dirname(os.path.abspath(__file__))
# The stream that made a 4.8 KB multicall cost a second of server CPU; the
# fuzz seed has two control bytes in front of it.
SLOW_SEED = os.path.join(HERE, "..", "..", "fuzz", "corpus", "connection",
                         "slow_nested_multicall")
# Generous bounds of server CPU: the reader needs well under a millisecond
# for these, and needed seconds to hours before it read in linear time.
REPRO_CPU_SECONDS = 0.25
GROWN_CPU_SECONDS = 0.5
GROWN_SIZE = 64 * 1024
EMPTY_ARRAY_RESULT = result_body("<value><array><data></data></array></value>")


def server_cpu_seconds(pid):
    """User plus system CPU time of the process so far."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def slow_body():
    """The body of the slow request: everything after its header."""
    with open(SLOW_SEED, "rb") as f:
        stream = f.read()[2:]
    return stream.partition(b"\r\n\r\n")[2]


class HostileNestingTest(unittest.TestCase):
    def setUp(self):
        self.server = TestServer()

    def tearDown(self):
        self.assertEqual(self.server.stop(), 0)

    def exchange_measured(self, raw):
        sock = connect(self.server.port)
        try:
            before = server_cpu_seconds(self.server.pid)
            sock.sendall(raw)
            response = read_response(sock)
            return response, server_cpu_seconds(self.server.pid) - before
        finally:
            sock.close()

    def test_the_slow_multicall_is_answered_at_once(self):
        response, cpu = self.exchange_measured(http_post(slow_body()))
        self.assertEqual(response, expected_response(EMPTY_ARRAY_RESULT))
        self.assertLess(cpu, REPRO_CPU_SECONDS)

    def test_the_slow_stream_as_recorded_is_answered_at_once(self):
        with open(SLOW_SEED, "rb") as f:
            response, cpu = self.exchange_measured(f.read()[2:])
        self.assertTrue(response.startswith(b"HTTP/1.1 200 OK\r\n"), response[:200])
        self.assertLess(cpu, REPRO_CPU_SECONDS)

    def test_the_slow_pattern_grown_to_64_kb_costs_little(self):
        head, _, rest = slow_body().partition(b"<params>")
        unit = b"<params>" + rest.split(b"<params>")[0]
        body = head
        while len(body) + len(unit) <= GROWN_SIZE:
            body += unit
        response, cpu = self.exchange_measured(http_post(body))
        # Grown, the broken structs nest deeper than the reader's limit: the
        # parameter cannot be read, and the multicall says so.
        self.assertEqual(response, expected_response(fault_body(
            -1, "system.multicall: Invalid argument (expected an array)")))
        self.assertLess(cpu, GROWN_CPU_SECONDS)

    def test_deep_broken_nesting_of_64_kb_costs_little(self):
        level = "<value><array><data><value><struct><member><name>m</name>"
        body = method_call("echo", level * (GROWN_SIZE // len(level) - 2))
        response, cpu = self.exchange_measured(http_post(body))
        # Too deep a value is kept as an invalid parameter; echo answers the
        # parameters it got.
        self.assertTrue(response.startswith(b"HTTP/1.1 200 OK\r\n"), response[:200])
        self.assertLess(cpu, GROWN_CPU_SECONDS)


# The echo of a struct whose members name, text, files, options and blob are
# empty, however they were spelt, beside count = 3.
EMPTY_MEMBERS_ECHOED = ("<value><array><data><value><struct>"
                        "<member><name>blob</name><value><base64></base64></value></member>"
                        "<member><name>count</name><value><i4>3</i4></value></member>"
                        "<member><name>files</name><value><array><data></data></array></value>"
                        "</member>"
                        "<member><name>name</name><value></value></member>"
                        "<member><name>options</name><value><struct></struct></value></member>"
                        "<member><name>text</name><value></value></member>"
                        "</struct></value></data></array></value>")


class OtherClientsSpellingsTest(unittest.TestCase):
    def setUp(self):
        self.server = TestServer()
        self.sock = connect(self.server.port)

    def tearDown(self):
        self.sock.close()
        self.assertEqual(self.server.stop(), 0)

    def exchange(self, body):
        self.sock.sendall(http_post(body))
        return read_response(self.sock)

    def test_a_struct_with_empty_members_arrives_whole(self):
        # As Ruby's xmlrpc, Perl's XMLRPC::Lite, Java's aXMLRPC and Node's
        # xmlrpc write an empty string, array, struct and binary.
        sent = ("<value><struct>"
                "<member><name>name</name><value/></member>"
                "<member><name>text</name><value><string/></value></member>"
                "<member><name>files</name><value><array><data/></array></value></member>"
                "<member><name>options</name><value><struct /></value></member>"
                "<member><name>blob</name><value><base64/></value></member>"
                "<member><name>count</name><value><int>3</int></value></member>"
                "</struct></value>")
        self.assertEqual(self.exchange(method_call("echo", sent)),
                         expected_response(result_body(EMPTY_MEMBERS_ECHOED)))

    def test_empty_elements_with_blanks_before_the_slash_arrive(self):
        # As Perl's XMLRPC::Lite writes them: "<string />", with a blank.
        sent = ("<value><struct>"
                "<member><name>name</name><value /></member>"
                "<member><name>text</name><value><string /></value></member>"
                "<member><name>files</name><value><array><data\t/></array></value></member>"
                "<member><name>options</name><value><struct\n/></value></member>"
                "<member><name>blob</name><value><base64 /></value></member>"
                "<member><name>count</name><value><int>3</int></value></member>"
                "</struct></value>")
        self.assertEqual(self.exchange(method_call("echo", sent)),
                         expected_response(result_body(EMPTY_MEMBERS_ECHOED)))

    def test_boolean_words_and_iso_dates_arrive(self):
        sent = ("<value><struct>"
                "<member><name>on</name><value><boolean> True </boolean></value></member>"
                "<member><name>off</name><value><boolean>false</boolean></value></member>"
                "<member><name>when</name><value><dateTime.iso8601>2024-01-02T03:04:05.000Z"
                "</dateTime.iso8601></value></member>"
                "<member><name>basic</name><value><dateTime.iso8601>20240102T030405"
                "</dateTime.iso8601></value></member>"
                "</struct></value>")
        echoed = ("<value><array><data><value><struct>"
                  "<member><name>basic</name><value><dateTime.iso8601>20240102T03:04:05"
                  "</dateTime.iso8601></value></member>"
                  "<member><name>off</name><value><boolean>0</boolean></value></member>"
                  "<member><name>on</name><value><boolean>1</boolean></value></member>"
                  "<member><name>when</name><value><dateTime.iso8601>20240102T03:04:05"
                  "</dateTime.iso8601></value></member>"
                  "</struct></value></data></array></value>")
        self.assertEqual(self.exchange(method_call("echo", sent)),
                         expected_response(result_body(echoed)))

    def test_a_multicall_with_an_empty_struct_answers_every_call(self):
        calls = ("<value><array><data>"
                 "<value><struct><member><name>methodName</name><value>echo</value></member>"
                 "<member><name>params</name><value><array><data><value><struct/></value>"
                 "</data></array></value></member></struct></value>"
                 "<value><struct><member><name>methodName</name><value>echo</value></member>"
                 "<member><name>params</name><value><array><data/></array></value></member>"
                 "</struct></value>"
                 "<value><struct><member><name>methodName</name><value>echo</value></member>"
                 "<member><name>params</name><value><array><data><value><i4>7</i4></value>"
                 "</data></array></value></member></struct></value>"
                 "</data></array></value>")
        result = ("<value><array><data>"
                  "<value><array><data><value><array><data><value><struct></struct></value>"
                  "</data></array></value></data></array></value>"
                  "<value><array><data><value><array><data></data></array></value>"
                  "</data></array></value>"
                  "<value><array><data><value><array><data><value><i4>7</i4></value>"
                  "</data></array></value></data></array></value>"
                  "</data></array></value>")
        self.assertEqual(self.exchange(method_call("system.multicall", calls)),
                         expected_response(result_body(result)))

    def test_empty_params_element_is_a_call_without_parameters(self):
        body = (b'<?xml version="1.0"?><methodCall><methodName>fault</methodName>'
                b'<params/></methodCall>')
        # fault reads its parameters 0 and 1: without them, code 0 and "".
        self.assertEqual(self.exchange(body), expected_response(fault_body(0, "")))

    def test_empty_params_element_with_blanks_is_the_parameter_list(self):
        # The empty element is read as the call's parameter list, with or
        # without blanks before "/>": a second list after it is not read (a
        # reader that took "<params />" for something else would go on to
        # find that one and echo its 7).
        late = b"<params><param><value><i4>7</i4></value></param></params>"
        for params in (b"<params/>", b"<params />", b"<params \t\r\n/>"):
            body = (b'<?xml version="1.0"?><methodCall><methodName>echo</methodName>' + params +
                    late + b'</methodCall>')
            # echo answers the parameters it got: none, which it writes as
            # an empty value.
            self.assertEqual(self.exchange(body), expected_response(result_body(
                "<value></value>")), params)
        # The same second list after a params element that is not empty is
        # read: the check above can tell.
        body = (b'<?xml version="1.0"?><methodCall><methodName>echo</methodName><params x/>' +
                late + b'</methodCall>')
        self.assertEqual(self.exchange(body), expected_response(result_body(
            "<value><array><data><value><i4>7</i4></value></data></array></value>")))

    def test_nil_still_drops_its_struct(self):
        sent = ("<value><struct><member><name>a</name><value><i4>1</i4></value></member>"
                "<member><name>b</name><value><nil/></value></member></struct></value>")
        # The struct cannot be read: echo gets one invalid parameter and
        # answers it as nothing at all.
        self.assertEqual(self.exchange(method_call("echo", sent)),
                         expected_response(result_body(
                             "<value><array><data></data></array></value>")))


if __name__ == "__main__":
    testmain.main()
