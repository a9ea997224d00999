"""Interoperability: eleven XML-RPC client libraries, each in its own
language, against XMLRPCServer and ClientProxySim in a network namespace of
the test's own.

Every client program (clients/ and node/) takes URL, TAG and a mode:
  checks  runs the checks below and prints one line per check,
          "RESULT <check> pass", "RESULT <check> fail <why>" or
          "RESULT <check> n/a <why>" (a check the library cannot express);
  calls   makes 200 getVersion calls on one client object and prints
          "TIME <milliseconds per call>".
The checks (README.md lists what each one sends and expects):
  list-methods, method-help, get-version, submit (one submitSubmission with
  every type the library can send; this driver also compares what the
  client proxy received, from the simulator's command record), empties
  (empty strings and arrays that the proxy echoes back), multicall,
  job-life (create, submit, follow to finished, pause, resume, cancel).
The clients run their checks in parallel; the 200-call runs go one after
the other, so their times do not disturb each other and the namespace's TCP
counters tell how many connections each one opened (keep-alive).

The results land in <build>/interop/results.json and results.md;
tests/interop/update_docs.py puts the table into docs/clients.md.
XMLRPCS_INTEROP_ONLY=ruby,lua runs only those clients (while working on one).
"""

import concurrent.futures
import json
import os
import subprocess
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "e2e"))
import gateway  # noqa: E402
sys.path.insert(0, HERE)
from results_table import CHECKS, render  # noqa: E402
import testmain  # noqa: E402

CLIENTS_DIR = os.path.join(HERE, "clients")
NODE_DIR = os.path.join(HERE, "node")
WORK_DIR = os.path.join(gateway.BUILD_DIR, "interop")
RESULTS_JSON = os.path.join(WORK_DIR, "results.json")
RESULTS_MD = os.path.join(WORK_DIR, "results.md")

CALLS = 200
# Simulated jobs run this long, so a job's life takes about a second.
JOB_DURATION_MS = 300
# Generous bounds that only keep a hanging client from stalling the suite.
CHECKS_TIMEOUT = 120
CALLS_TIMEOUT = 120
BUILD_TIMEOUT = 300
# Client programs running their checks at once: the machine has two cores,
# and most clients spend their time waiting for jobs.
PARALLEL_CLIENTS = 4


class Client:
    """One client library: how to run its program and what it cannot send."""

    def __init__(self, key, title, argv, omits=(), omits_why=None, keep_alive_na=None, prepare=None,
                 known=None):
        self.key = key
        self.title = title
        self.argv = argv
        # Submission members the library has no way to write.
        self.omits = set(omits)
        self.omits_why = omits_why
        # Why the library cannot keep a connection open, if it cannot.
        self.keep_alive_na = keep_alive_na
        self.prepare = prepare
        # Checks that fail through a defect the gateway cannot mend:
        # {check: (text the failure names, why)}. They stay in the table as
        # "known"; the test fails if they pass (update the suite) or fail
        # for another reason.
        self.known = known or {}


def _newer(target, sources):
    return os.path.exists(target) and all(os.path.getmtime(target) >= os.path.getmtime(s)
                                          for s in sources)


def _build_go():
    out = os.path.join(WORK_DIR, "kolo-client")
    src = os.path.join(CLIENTS_DIR, "kolo_client.go")
    if not _newer(out, [src]):
        env = dict(os.environ, GOPATH="/usr/share/gocode", GO111MODULE="off",
                   GOCACHE=os.path.join(WORK_DIR, "go-cache"), GOFLAGS="")
        subprocess.run(["go", "build", "-o", out, src], check=True, env=env, timeout=BUILD_TIMEOUT,
                       capture_output=True)


AXMLRPC_JAR = "/usr/share/java/axmlrpc.jar"
JAVA_CLASSES = os.path.join(WORK_DIR, "java-classes")


def _build_java():
    src = os.path.join(CLIENTS_DIR, "AxmlrpcClient.java")
    if not _newer(os.path.join(JAVA_CLASSES, "AxmlrpcClient.class"), [src]):
        subprocess.run(["javac", "-encoding", "UTF-8", "-cp", AXMLRPC_JAR, "-d", JAVA_CLASSES, src],
                       check=True, timeout=BUILD_TIMEOUT, capture_output=True)


def _check_node_modules():
    for pkg in ("xmlrpc", "davexmlrpc"):
        if not os.path.isdir(os.path.join(NODE_DIR, "node_modules", pkg)):
            raise RuntimeError("tests/interop/node/node_modules/%s is missing: run "
                               "scripts/install-deps.sh (it runs npm ci there)" % pkg)


def _script(name):
    return os.path.join(CLIENTS_DIR, name)


NO_KEEP_ALIVE_LUA = "LuaSocket's http.request opens a new connection for every call"
NO_KEEP_ALIVE_TCL = "xmlrpc::call opens a new socket for every call and has no client object"

KOLO_QUOTES = ("kolo/xmlrpc writes \" and ' as the character references &#34; and &#39; (Go's "
               "xml.Escape), which the gateway keeps as written")
KOLO_EMPTY_STRING = ("kolo/xmlrpc's decoder drops the rest of an array or struct after an empty "
                     "untyped string, <value></value>, the way the gateway writes one")

CLIENTS = [
    Client("python", "Python xmlrpc.client", [sys.executable, _script("python_client.py")]),
    Client("ruby", "Ruby xmlrpc", ["ruby", _script("ruby_client.rb")]),
    Client("rpc-xml", "Perl RPC::XML", ["perl", _script("rpc_xml_client.pl")]),
    Client("xmlrpc-lite", "Perl XMLRPC::Lite", ["perl", _script("xmlrpc_lite_client.pl")]),
    Client("frontier", "Perl Frontier::Client", ["perl", _script("frontier_client.pl")]),
    Client("axmlrpc", "Java aXMLRPC",
           ["java", "-cp", JAVA_CLASSES + ":" + AXMLRPC_JAR, "AxmlrpcClient"], prepare=_build_java),
    Client("kolo", "Go kolo/xmlrpc", [os.path.join(WORK_DIR, "kolo-client")], prepare=_build_go,
           known={"submit": ("&#34;q&#34; &#39;a&#39;", KOLO_QUOTES),
                  "empties": ('Files:[]string{"a", ""}', KOLO_EMPTY_STRING)}),
    Client("tcl", "Tcl xmlrpc", ["tclsh", _script("tcl_client.tcl")],
           keep_alive_na=NO_KEEP_ALIVE_TCL),
    Client("lua", "Lua xmlrpc", ["lua5.1", _script("lua_client.lua")],
           omits=("when", "blob", "empty-blob"),
           omits_why="the library has no encoder for dateTime and base64 values",
           keep_alive_na=NO_KEEP_ALIVE_LUA),
    Client("node-xmlrpc", "Node xmlrpc", ["node", os.path.join(NODE_DIR, "xmlrpc_client.js")],
           prepare=_check_node_modules),
    Client("davexmlrpc", "Node davexmlrpc", ["node", os.path.join(NODE_DIR, "davexmlrpc_client.js")],
           prepare=_check_node_modules),
]


if os.environ.get("XMLRPCS_INTEROP_ONLY"):
    _only = os.environ["XMLRPCS_INTEROP_ONLY"].split(",")
    CLIENTS = [c for c in CLIENTS if c.key in _only]


def submission_name(tag):
    return tag + " <b>&amp;</b> \"q\" 'a' café 日本"


def expected_submission(client):
    """The submission as the simulator records it: a dateTime has no
    property form, so it arrives as a member without a value (null)."""
    full = {
        "name": submission_name(client.key),
        "priority": 7,
        "sources": [{"type": "file-source", "files": ["/media/in/a.mov"]}],
        "tasks": [{"type": "transfer", "destination": "/media/out"}],
        "ints": [0, -1, 2147483647, -2147483648],
        "yes": True,
        "no": False,
        "ratio": 2.5,
        "small": -0.125,
        "when": None,
        "blob": {"binary": "0001feff62696e617279"},
        "nested": {"level": 1, "inner": {"level": 2, "items": [1, "two", [3.5, {"four": False}]]}},
        "empty-string": "",
        "empty-array": [],
        "empty-struct": {},
        "empty-blob": {"binary": ""},
    }
    return {k: v for k, v in full.items() if k not in client.omits}


def parse_results(output):
    results = {}
    for line in output.splitlines():
        if line.startswith("RESULT "):
            parts = line.split(" ", 3)
            if len(parts) >= 3:
                results[parts[1]] = (parts[2], parts[3] if len(parts) > 3 else "")
    return results


def tcp_passive_opens():
    """Connections accepted in this network namespace so far."""
    with open("/proc/net/snmp") as f:
        rows = [line.split() for line in f if line.startswith("Tcp:")]
    return int(rows[1][rows[0].index("PassiveOpens")])


@gateway.skip_unless_private_network()
class Interop(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        os.makedirs(WORK_DIR, exist_ok=True)
        cls.rows = {c.key: {"title": c.title, "checks": {}, "ms_per_call": None, "notes": []}
                    for c in CLIENTS}
        for c in CLIENTS:
            if c.omits:
                cls.rows[c.key]["notes"].append("submit: n/a for %s: %s" % (", ".join(sorted(c.omits)),
                                                                            c.omits_why))
        ready = []
        for c in CLIENTS:
            try:
                if c.prepare:
                    c.prepare()
                ready.append(c)
            except (RuntimeError, OSError, subprocess.SubprocessError) as e:
                detail = getattr(e, "stderr", b"") or b""
                why = ("could not prepare the client: %s %s" % (e, detail.decode(errors="replace"))).strip()
                cls.rows[c.key]["checks"] = {k: ("fail", why) for k in CHECKS}
        cls.gw = gateway.Gateway(cls.addClassCleanup, sim_args=["--job-duration-ms", str(JOB_DURATION_MS)])
        cls.gw.wait_connected()
        started = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(PARALLEL_CLIENTS) as pool:
            for c, out in zip(ready, pool.map(cls.run_checks, ready)):
                cls.rows[c.key]["checks"].update(out)
        cls.checks_seconds = time.monotonic() - started
        records = cls.gw.recorded_commands()
        for c in ready:
            cls.compare_recorded_submission(c, records)
        for c in ready:
            cls.run_calls(c)
        for c in ready:
            cls.mark_known(c)
        cls.write_results()

    @classmethod
    def run_client(cls, client, mode, timeout):
        try:
            done = subprocess.run(client.argv + [gateway.URL, client.key, mode], capture_output=True,
                                  timeout=timeout)
        except subprocess.TimeoutExpired as e:
            return None, "no answer within %d s; output: %r" % (timeout, e.stdout)
        except OSError as e:
            return None, "cannot run %s (run scripts/install-deps.sh): %s" % (client.argv[0], e)
        out = done.stdout.decode(errors="replace")
        log = os.path.join(WORK_DIR, "%s-%s.log" % (client.key, mode))
        with open(log, "w") as f:
            f.write("exit %d\n--- stdout\n%s\n--- stderr\n%s" % (
                done.returncode, out, done.stderr.decode(errors="replace")))
        if done.returncode != 0:
            return out, "exit %d: %s" % (done.returncode, done.stderr.decode(errors="replace")[-400:])
        return out, None

    @classmethod
    def run_checks(cls, client):
        out, problem = cls.run_client(client, "checks", CHECKS_TIMEOUT)
        results = parse_results(out or "")
        for check in CHECKS[:-1]:
            if check not in results:
                results[check] = ("fail", "no result: %s" % (problem or "the program said nothing"))
        return results

    @classmethod
    def compare_recorded_submission(cls, client, records):
        """The client says its submission was accepted; the simulator's record
        says what arrived, member by member."""
        checks = cls.rows[client.key]["checks"]
        state, why = checks.get("submit", ("fail", ""))
        name = submission_name(client.key)
        got = [r["properties"]["submission"] for r in records
               if r["command"] == "proxy.node.submit.submission"
               and isinstance(r["properties"].get("submission"), dict)
               and str(r["properties"]["submission"].get("name")).startswith(client.key + " <b>")]
        if state == "pass" and len(got) != 1:
            checks["submit"] = ("fail", "%d recorded submissions named like %r" % (len(got), name))
            return
        if not got:
            # The client has reported the failure; say whether the proxy saw it.
            checks["submit"] = ("fail", "%s; the proxy received no submission named like %r" % (why, name))
            return
        want = expected_submission(client)
        wrong = sorted(k for k in set(want) | set(got[0]) if want.get(k, "absent") != got[0].get(k, "absent"))
        if wrong:
            checks["submit"] = ("fail", "%sthe proxy received other values for %s: %s" % (
                why + "; " if state == "fail" else "", ", ".join(wrong),
                json.dumps({k: got[0].get(k, "absent") for k in wrong}, ensure_ascii=False)))

    @classmethod
    def run_calls(cls, client):
        row = cls.rows[client.key]
        before = tcp_passive_opens()
        out, problem = cls.run_client(client, "calls", CALLS_TIMEOUT)
        connections = tcp_passive_opens() - before
        times = [line.split()[1] for line in (out or "").splitlines() if line.startswith("TIME ")]
        if problem or not times:
            row["checks"]["keep-alive"] = ("fail", problem or "no TIME line")
            return
        row["ms_per_call"] = float(times[0])
        row["connections"] = connections
        if client.keep_alive_na:
            row["checks"]["keep-alive"] = ("n/a", "%s (%d connections for %d calls)" % (
                client.keep_alive_na, connections, CALLS))
        elif connections == 1:
            row["checks"]["keep-alive"] = ("pass", "1 connection for %d calls" % CALLS)
        else:
            row["checks"]["keep-alive"] = ("fail", "%d connections for %d calls" % (connections, CALLS))

    @classmethod
    def mark_known(cls, client):
        checks = cls.rows[client.key]["checks"]
        for check, (text, why) in client.known.items():
            state, detail = checks.get(check, ("fail", ""))
            if state == "fail" and text in detail:
                checks[check] = ("known", why)
                cls.rows[client.key].setdefault("known_details", {})[check] = detail

    @classmethod
    def write_results(cls):
        with open(RESULTS_JSON, "w") as f:
            json.dump({"checks": CHECKS, "calls": CALLS, "clients": cls.rows}, f, indent=1,
                      ensure_ascii=False)
        with open(RESULTS_MD, "w") as f:
            f.write(render(cls.rows, CALLS))

    def assert_client(self, client):
        row = self.rows[client.key]
        self.assertEqual(sorted(row["checks"]), sorted(CHECKS))
        failed = {k: v[1] for k, v in row["checks"].items() if v[0] not in ("pass", "n/a", "known")}
        self.assertEqual(failed, {}, "%s: failed checks" % row["title"])
        mended = sorted(k for k in client.known if row["checks"][k][0] != "known")
        self.assertEqual(mended, [], "%s: known failures that no longer happen; take them out of "
                         "the suite's list and docs/clients.md" % row["title"])


def _add_client_test(client):
    def test(self):
        self.assert_client(client)
    test.__name__ = "test_" + client.key.replace("-", "_")
    setattr(Interop, test.__name__, test)


for _c in CLIENTS:
    _add_client_test(_c)


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
