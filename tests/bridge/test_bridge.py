"""The method bridge seen from an XML-RPC client: the method table,
parameter handling, command checks and proxy round trips, with the server
and the client proxy simulator in a network namespace of their own."""
import json
import os
import subprocess
import sys
import tempfile
import time
import unittest

from netns import NetNs, skip_unless_root

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "startup"))
import server_process as sp  # noqa: E402
import testmain  # noqa: E402

URL = "http://127.0.0.1:40431/"
CLIENT = os.path.join(HERE, "bridge_client.py")
# Seconds for the server to come up, and for it to reach the simulator
# (its first connection attempt comes about 1.5 s after start).
START_TIMEOUT = 15
CONNECT_TIMEOUT = 20
NOT_CONNECTED = {"error": "not connected to client proxy"}

# Every method with parameters its command accepts.
VALID_CALLS = {
    "getVersion": {},
    "nodeInfoCluster": {},
    "submitBuildSubmission": {"sources": [], "tasks": []},
    "submitSubmission": {"submission": {"name": "s"}},
    "submissionRecall": {"workflow-id": "w1"},
    "taskCreateTransfer": {"destination": "/out"},
    "taskCreateUploader": {"destination": "/out"},
    "taskCreateYouTube": {"username": "u", "password": "p", "title": "t"},
    "taskCreateExecute": {"command": "/bin/true"},
    "taskCreateMail": {"to": ["ops@example.com"]},
    "taskCreateMBR": {"bitrates": [800, 1600]},
    "sourceCreateFileList": {"files": ["/in/a.mov"]},
    "sourceCreateMonitor": {"path": "/watch"},
    "sourceCreateWatchFolder": {"path": "/watch"},
    "sourceCreateEDL": {"clips": [{"file": "/in/a.mov", "in": 0, "out": 25}]},
    "sourceCreateISEQ": {"path": "/in/seq"},
    "statusTasks2": {},
    "statusWorkflows2": {},
    "statusWatchFolders": {},
    "statusBonjour": {},
    "watchFolderStart": {"monitor-id": "m1"},
    "watchFolderSetPriority": {"monitor-id": "m1", "priority": 3},
    "watchFolderStop": {"monitor-id": "m1"},
    "watchFolderRemove": {"monitor-id": "m1"},
    "jobKill": {"job-id": "j1"},
    "jobCancel": {"job-id": "j1"},
    "jobPause": {"job-id": "j1"},
    "jobResume": {"job-id": "j1"},
    "jobRequeue": {"job-id": "j1"},
    "jobSetPriority": {"job-id": "j1", "priority": 10},
    "historyRemoveWorkflow": {"workflow-ids": ["w1", "w2"]},
    "analyzeFile": {"file": "/in/a.mov"},
    "statusTasks": {},
    "statusWorkflows": {},
    "monitorList": {},
    "networkInfoBonjour": {},
    "statusMonitors": {},
    "monitorStart": {"monitor-id": "m1"},
    "monitorSetPriority": {"monitor-id": "m1", "priority": 0},
    "monitorStop": {"monitor-id": "m1"},
    "monitorRemove": {"monitor-id": "m1"},
}


def calls(ns, *pairs):
    """Runs the calls (method, [params]) inside ns; returns their outcomes."""
    r = ns.run([sys.executable, CLIENT], input=json.dumps({"url": URL, "calls": pairs}),
               capture_output=True, text=True, timeout=60)
    if r.returncode != 0:
        raise AssertionError("client failed: " + r.stderr)
    return json.loads(r.stdout)


def call(ns, method, *params):
    return calls(ns, [method, list(params)])[0]


class ServerInNamespace(unittest.TestCase):
    """XMLRPCServer in a network namespace of the class's own, with no
    proxy yet; subclasses start the proxy they need."""

    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.TemporaryDirectory(prefix="bridge-")
        cls.config = os.path.join(cls.dir.name, "XMLRPCServer.xml")
        with open(cls.config, "w") as f:
            # No DNS-SD publication: the namespace has no daemon to talk to.
            f.write("<xmlrpcserver-configuration><services><xmlrpc><publish>false</publish>"
                    "</xmlrpc></services></xmlrpcserver-configuration>")
        cls.ns = NetNs(private_dirs=["/var/lib"]).__enter__()
        cls.server = sp.start_server(cls.ns, "--usecfg", cls.config)
        if not cls.server.out.wait_for("Starting up", START_TIMEOUT):
            cls.tearDownClass()
            raise AssertionError("server did not start: %s" % cls.server.err.texts())
        cls.sim = None
        cls.wait_for_listener()

    @classmethod
    def tearDownClass(cls):
        if cls.sim:
            cls.sim.stop()
        cls.server.stop()
        cls.ns.__exit__(None, None, None)
        cls.dir.cleanup()

    @classmethod
    def wait_for_listener(cls):
        deadline = time.monotonic() + START_TIMEOUT
        while time.monotonic() < deadline:
            r = cls.ns.run([sys.executable, "-c",
                            "import socket,sys;s=socket.socket();s.settimeout(1);"
                            "sys.exit(s.connect_ex(('127.0.0.1',40431)))"])
            if r.returncode == 0:
                return
            time.sleep(0.1)
        raise AssertionError("server not listening")


@skip_unless_root()
class Bridge(ServerInNamespace):

    @classmethod
    def start_simulator(cls):
        """Starts the simulator once and waits until the server reaches it."""
        if cls.sim:
            return
        cls.sim = sp.start_simulator(cls.ns)
        deadline = time.monotonic() + CONNECT_TIMEOUT
        while time.monotonic() < deadline:
            if call(cls.ns, "getVersion") != {"result": NOT_CONNECTED}:
                return
            time.sleep(0.25)
        raise AssertionError("server never reached the simulator")

    # Ordered by name: the not-connected checks run before the simulator
    # starts (test_1...), the round trips after it (test_3...).

    def test_0_list_methods_has_all_41_and_the_engines_own(self):
        names = call(self.ns, "system.listMethods")["result"]
        self.assertEqual(set(VALID_CALLS) - set(names), set())
        self.assertIn("system.methodHelp", names)
        self.assertEqual(len(VALID_CALLS), 41)

    def test_0_method_help_of_job_cancel(self):
        self.assertEqual(
            call(self.ns, "system.methodHelp", "jobCancel"),
            {"result": "Cacncel jobs (Corresponding vxp_clientproxy.xml command: "
                       "'proxy.node.job.cancel')"})

    def test_1_proxy_down_every_method_answers_not_connected(self):
        if self.sim:
            self.skipTest("the simulator is already running")
        out = calls(self.ns, *[[m, [p]] for m, p in VALID_CALLS.items()])
        for (method, _), outcome in zip(VALID_CALLS.items(), out):
            self.assertEqual(outcome, {"result": NOT_CONNECTED}, method)

    def test_2_wrong_input_string(self):
        out = call(self.ns, "jobPause", "abc")["result"]
        self.assertEqual(list(out), ["error"])
        self.assertTrue(out["error"].startswith("Wrong input, expected a struct. got "))
        self.assertEqual(out["error"], "Wrong input, expected a struct. got string: \nabc")

    def test_2_wrong_input_int_and_array(self):
        self.assertEqual(call(self.ns, "jobPause", 5)["result"],
                         {"error": "Wrong input, expected a struct. got int: \n5"})
        self.assertEqual(call(self.ns, "jobPause", [1, "a"])["result"],
                         {"error": "Wrong input, expected a struct. got list: \n[1, a]"})

    def test_2_malformed_method_names_method_and_property(self):
        self.assertEqual(
            call(self.ns, "jobSetPriority", {"job-id": "j1", "priority": 11})["result"],
            {"error": "Malformed method jobSetPriority (priority: 11 is out of range, expected "
                      "an integer from 0 to 10)"})
        out = call(self.ns, "taskCreateTransfer", {})["result"]
        self.assertTrue(out["error"].startswith(
            "Malformed method taskCreateTransfer (destination: missing"), out)
        out = call(self.ns, "nodeInfoCluster", {"target-node-info": {"port": 0}})["result"]
        self.assertTrue(out["error"].startswith(
            "Malformed method nodeInfoCluster (target-node-info{port}: 0 is out of range"), out)

    def test_2_server_sets_iid_and_persistent_whatever_the_caller_sent(self):
        # A wrong kind for iid would be refused if it reached the check.
        out = call(self.ns, "nodeInfoCluster",
                   {"target-node-info": {"iid": 5, "persistent": "no", "host": "alpha"}})
        self.assertNotIn("Malformed", json.dumps(out))

    def test_3_get_version_without_parameters(self):
        self.start_simulator()
        out = call(self.ns, "getVersion")["result"]
        self.assertEqual(out.get("product"), "Corvane Client Proxy", out)
        self.assertEqual(out.get("version"), "7.0.0.0")

    def test_3_extra_parameters_and_a_datetime_first_parameter(self):
        self.start_simulator()
        plain = call(self.ns, "getVersion")
        self.assertIn("product", plain["result"])
        self.assertEqual(call(self.ns, "getVersion", {}, 5, "x"), plain)
        self.assertEqual(call(self.ns, "getVersion", {"__datetime__": "20261122T10:00:00"}), plain)

    def test_3_uploader_and_transfer_send_the_same_command(self):
        self.start_simulator()
        params = {"destination": "/out"}
        a = call(self.ns, "taskCreateTransfer", params)
        b = call(self.ns, "taskCreateUploader", params)
        self.assertEqual(a, b)
        self.assertNotIn("Malformed", json.dumps(a))
        if "error" in a["result"]:
            self.assertIn("proxy.task.create.transfer", a["result"]["error"])


ECHO_PROXY = os.path.join(sp.BUILD, "bin", "bridge_echo_proxy")
# The echo proxy's own lifetime: longer than this class needs, bounded.
ECHO_LIFETIME = "100"


@skip_unless_root()
class SentCommands(ServerInNamespace):
    """With a proxy that answers each request with what it received."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.sim = sp.Proc(cls.ns, [ECHO_PROXY, "40410", ECHO_LIFETIME])
        deadline = time.monotonic() + CONNECT_TIMEOUT
        while time.monotonic() < deadline:
            if "command" in call(cls.ns, "getVersion").get("result", {}):
                return
            time.sleep(0.25)
        cls.tearDownClass()
        raise AssertionError("server never reached the echo proxy")

    def sent(self, method, *params):
        out = call(self.ns, method, *params)["result"]
        self.assertEqual(set(out), {"command", "type", "payload"}, out)
        self.assertEqual(out["type"], 2)
        return out["command"], out["payload"]

    def test_get_version_without_parameters_sends_empty_properties(self):
        self.assertEqual(self.sent("getVersion"), ("proxy.general.version", {}))

    def test_node_command_completes_the_callers_target_node_info(self):
        command, payload = self.sent(
            "jobPause", {"job-id": "j1", "target-node-info": {"iid": "other", "host": "alpha"}})
        self.assertEqual(command, "proxy.node.job.pause")
        self.assertEqual(payload, {"job-id": "j1", "target-node-info": {
            "host": "alpha", "iid": "XMLRPC", "persistent": True}})

    def test_node_command_without_target_node_info_gets_iid_and_persistent(self):
        self.assertEqual(self.sent("nodeInfoCluster"), (
            "proxy.node.info.cluster",
            {"target-node-info": {"iid": "XMLRPC", "persistent": True}}))

    def test_generic_command_gets_no_target_node_info(self):
        self.assertEqual(self.sent("statusBonjour", {"cluster": "main"}),
                         ("proxy.status.bonjour", {"cluster": "main"}))

    def test_uploader_and_transfer_send_the_same_command(self):
        params = {"destination": "/out", "overwrite": True}
        self.assertEqual(self.sent("taskCreateUploader", params),
                         ("proxy.task.create.transfer", params))
        self.assertEqual(self.sent("taskCreateTransfer", params),
                         ("proxy.task.create.transfer", params))

    def test_every_method_sends_its_command(self):
        expected = {
            "getVersion": "proxy.general.version", "jobKill": "proxy.node.job.cancel",
            "jobCancel": "proxy.node.job.cancel", "monitorList": "proxy.node.monitor.list",
            "statusMonitors": "proxy.node.status.monitors",
            "statusWatchFolders": "proxy.node.status.monitors",
            "sourceCreateMonitor": "proxy.source.create.monitor-source",
            "networkInfoBonjour": "proxy.network.info.bonjour",
            "statusBonjour": "proxy.status.bonjour",
            "monitorSetPriority": "proxy.node.monitor.set-priority",
            "analyzeFile": "proxy.analyze.file",
        }
        out = calls(self.ns, *[[m, [p]] for m, p in VALID_CALLS.items()])
        seen = {}
        for (method, _), outcome in zip(VALID_CALLS.items(), out):
            self.assertIn("command", outcome["result"], (method, outcome))
            seen[method] = outcome["result"]["command"]
        for method, command in expected.items():
            self.assertEqual(seen[method], command, method)
        self.assertEqual(len(set(seen.values())), 33)

    def test_extra_parameters_are_ignored(self):
        self.assertEqual(self.sent("jobResume", {"job-id": "j9"}, "more", 7, [1]),
                         self.sent("jobResume", {"job-id": "j9"}))

    def test_values_reach_the_proxy_with_their_kinds(self):
        command, payload = self.sent("statusTasks2", {
            "job-ids": ["a", "b"], "states": [], "max-results": 10, "offset": 0})
        self.assertEqual(payload["job-ids"], ["a", "b"])
        self.assertEqual(payload["states"], [])  # empty array, empty list, empty array
        self.assertEqual(payload["max-results"], 10)

    def test_datetime_member_arrives_as_a_key_without_value(self):
        # The key is there with no value, which "name" does not allow.
        out = call(self.ns, "taskCreateTransfer", {
            "destination": "/out", "name": {"__datetime__": "20261122T10:00:00"}})["result"]
        self.assertEqual(out, {"error": "Malformed method taskCreateTransfer (name: no value, "
                                        "expected any text)"})


if __name__ == "__main__":
    testmain.main()
