"""Black-box tests of the engine with Python's standard XML-RPC client:
introspection, faults, multicall, value round trips and keep-alive reuse."""

import datetime
import unittest
import xmlrpc.client

from engine_server import TestServer
import testmain

METHODS = ["echo", "fault", "noResult", "sleep", "system.listMethods", "system.methodHelp",
           "system.multicall"]


class ClientTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = TestServer()

    @classmethod
    def tearDownClass(cls):
        code = cls.server.stop()
        assert code == 0, code
        assert cls.server.stderr == "", cls.server.stderr

    def setUp(self):
        self.proxy = xmlrpc.client.ServerProxy(self.server.url())

    def tearDown(self):
        self.proxy("close")()

    def assertFault(self, code, message, call, *args):
        with self.assertRaises(xmlrpc.client.Fault) as caught:
            call(*args)
        self.assertEqual(caught.exception.faultCode, code)
        self.assertEqual(caught.exception.faultString, message)

    # --- introspection ---

    def test_list_methods(self):
        self.assertEqual(self.proxy.system.listMethods(), METHODS)

    def test_method_help(self):
        self.assertEqual(self.proxy.system.methodHelp("echo"), "Answer the parameters as an array")
        self.assertEqual(self.proxy.system.methodHelp("noResult"), "")
        self.assertEqual(self.proxy.system.methodHelp("system.listMethods"),
                         "List all methods available on a server as an array of strings")

    def test_method_help_faults(self):
        help_ = self.proxy.system.methodHelp
        self.assertFault(-1, "system.methodHelp: Invalid argument type", help_)
        self.assertFault(-1, "system.methodHelp: Invalid argument type", help_, 3)
        self.assertFault(-1, "system.methodHelp: Unknown method name", help_, "nothing")
        self.assertFault(-1, "system.methodHelp: Unknown method name", help_, "system.multicall")

    # --- faults ---

    def test_fault_with_its_code(self):
        self.assertFault(4711, "custom <failure> & more", self.proxy.fault, 4711,
                         "custom <failure> & more")
        self.assertFault(-1, "negative", self.proxy.fault, -1, "negative")

    def test_unknown_method(self):
        self.assertFault(-1, "missing.method: unknown method name", self.proxy.missing.method)

    def test_type_error_in_a_method_is_a_fault(self):
        self.assertFault(-1, "type error", self.proxy.fault, "not an int", "x")

    # --- values ---

    def test_values_round_trip_through_echo(self):
        when = datetime.datetime(2012, 3, 4, 5, 6, 7)
        values = [True, False, 7, -2147483648, 2.5, "text <&> 'q' \"d\"", "",
                  ["nested", [1, 2]], {"b": 1, "a": {"deep": "x"}},
                  xmlrpc.client.Binary(bytes(range(256)) * 3),
                  xmlrpc.client.DateTime(when)]
        answer = self.proxy.echo(*values)
        self.assertEqual(answer[:9], values[:9])
        self.assertEqual(answer[9].data, values[9].data)
        self.assertEqual(answer[10].value, "20120304T05:06:07")

    def test_zero_byte_in_a_string_is_a_fault_and_the_connection_goes_on(self):
        body = xmlrpc.client.dumps(("a\x00b",), "echo").encode()
        with self.assertRaises(xmlrpc.client.Fault) as caught:
            self.proxy.echo("a\x00b")
        self.assertEqual(caught.exception.faultCode, -32702)
        self.assertEqual(caught.exception.faultString,
                         "Invalid request: zero byte at offset %d of the body" %
                         body.index(b"\x00"))
        self.assertEqual(self.proxy.echo("a"), ["a"])

    def test_no_result_is_an_empty_string(self):
        self.assertEqual(self.proxy.noResult(), "")

    def test_sleeping_method_answers(self):
        self.assertTrue(self.proxy.sleep(0.05))

    # --- multicall ---

    def test_multicall_with_mixed_entries(self):
        calls = [
            {"methodName": "echo", "params": [1, "two"]},
            {"methodName": "echo"},  # no params
            {"methodName": "fault", "params": [12, "twelve"]},
            {"methodName": "no.such", "params": []},
            {"methodName": "system.listMethods", "params": []},
            "not a struct",
        ]
        bad = ("system.multicall: Invalid argument (expected a struct with members "
               "methodName and params)")
        self.assertEqual(self.proxy.system.multicall(calls), [
            [[1, "two"]],
            {"faultCode": -1, "faultString": bad},
            {"faultCode": 12, "faultString": "twelve"},
            {"faultCode": -1, "faultString": "no.such: unknown method name"},
            [METHODS],
            {"faultCode": -1, "faultString": bad},
        ])

    def test_multicall_through_the_standard_helper(self):
        multi = xmlrpc.client.MultiCall(self.proxy)
        multi.echo(5)
        multi.system.methodHelp("echo")
        multi.fault(3, "three")
        results = multi()
        self.assertEqual(results[0], [5])
        self.assertEqual(results[1], "Answer the parameters as an array")
        with self.assertRaises(xmlrpc.client.Fault) as caught:
            results[2]
        self.assertEqual(caught.exception.faultCode, 3)

    def test_multicall_with_a_non_array_parameter(self):
        self.assertFault(-1, "system.multicall: Invalid argument (expected an array)",
                         self.proxy.system.multicall, 42)

    # --- connections ---

    def test_keep_alive_reuses_one_connection(self):
        self.proxy.echo(0)
        baseline = self.server.open_fds()
        if baseline is None:
            self.skipTest("the server's descriptors cannot be counted under Wine: the "
                          "wineserver holds a Windows program's sockets")  # listener, std streams and this connection
        for i in range(200):
            self.assertEqual(self.proxy.echo(i, {"i": i}), [i, {"i": i}])
        self.assertEqual(self.server.open_fds(), baseline)

    def test_several_clients_interleaved(self):
        proxies = [xmlrpc.client.ServerProxy(self.server.url()) for _ in range(5)]
        for i in range(20):
            for n, p in enumerate(proxies):
                self.assertEqual(p.echo(i, n), [i, n])
        for p in proxies:
            p("close")()


if __name__ == "__main__":
    testmain.main()
