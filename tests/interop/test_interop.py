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

A check that passes only through a workaround of the client program (a
behaviour of its library that would otherwise change the data without an
error) shows as "workaround", with what the program does as its note; a
failure listed as known shows as "known" only when it is that failure word
for word.

The results land in <build>/interop/results.json and results.md;
tests/interop/update_docs.py puts the table into docs/clients.md. At the
end the suite prints (to standard error) how long it took, in all and per
client; results.md has the same as its last note.
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
from results_table import CHECKS, client_seconds, render  # noqa: E402
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
                 workarounds=None, known=None):
        self.key = key
        self.title = title
        self.argv = argv
        # Submission members the library has no way to write.
        self.omits = set(omits)
        self.omits_why = omits_why
        # Why the library cannot keep a connection open, if it cannot.
        self.keep_alive_na = keep_alive_na
        self.prepare = prepare
        # Checks that pass only because the client program works around a
        # behaviour of its library that would otherwise change the data
        # without an error: {check: what the program does, and what happens
        # without it}. They show as "workaround" in the table, with the text
        # as a note, so that nobody reads them as working out of the box.
        self.workarounds = workarounds or {}
        # Checks that fail through a defect of the library the gateway cannot
        # mend: {check: (the failure, word for word, why)}. Such a check is
        # "known" only when its failure is exactly the one given (for submit,
        # with the driver's comparison of what the proxy received): any other
        # difference, or one more, leaves it a failure. The test also fails
        # when a known check passes (update the suite then).
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

# What the client programs do beyond calling their library with its own
# value types, where leaving it out changes the data without an error.
TEXT_FOR_MARKUP_NODE = (
    "strings holding < or & are sent as a custom type with the string tag (class Text, in the "
    "library's section of docs/clients.md); as plain strings the package writes them as CDATA "
    "sections, which the gateway reads as empty strings, without an error")
UTF8_STRINGS_FRONTIER = (
    "texts are sent as $s->string(encode_utf8($text)); as plain Perl strings every character "
    "beyond ASCII goes out as a character reference (caf&#233;), which the gateway keeps as "
    "written, so the proxy gets the reference instead of the character")
TYPED_STRINGS_LITE = (
    "texts are typed, XMLRPC::Data->type(string => $text); untyped, a text with a character "
    "beyond printable ASCII up to U+00FF (café) goes out as base64 of its Latin-1 bytes and "
    "reaches the proxy as binary data, without an error (one beyond U+00FF, as 日本, makes the "
    "call die: \"Wide character in subroutine entry\")")
NO_STRING_DECODE_AXMLRPC = (
    "the client sets FLAGS_NO_STRING_DECODE; without it aXMLRPC decodes the entities of a "
    "reply's strings twice, so the name's text &amp; is read back as &")
MENDING_KOLO_REQUEST = (
    "the client's transport rewrites kolo's &#34; and &#39; to &quot; and &apos; (mending, in "
    "the library's section of docs/clients.md); without it \" and ' reach the proxy as the "
    "character references, kept as written")
MENDING_KOLO_REPLY = (
    "the client's transport types the reply's untyped strings (mending, as above); "
    "without it kolo's decoder drops the rest of an array or struct after an empty string: "
    "files [\"a\", \"\", \"b\"] is read as [\"a\", \"\"] and the members after it stay empty")
ESCAPES_TCL_SUBMIT = (
    "the client escapes & < > in the texts it sends, decodes the entities of the texts it gets "
    "and sends UTF-8 bytes under a byte-for-byte system encoding (the package does none of it); "
    "unescaped, a text reaches the proxy cut short at its first < (the name as \"tcl \"), "
    "without an error")
DECODES_TCL_HELP = (
    "the client decodes the entities of the help text; the package hands them over as they "
    "came, &apos;proxy.node.job.pause&apos;")
ESCAPES_LUA = (
    "the client escapes & < > in the texts it sends (the library writes them as given); "
    "unescaped, a text reaches the proxy cut short at its first < (the name as \"lua \"), "
    "without an error")

CLIENTS = [
    Client("python", "Python xmlrpc.client", [sys.executable, _script("python_client.py")]),
    Client("ruby", "Ruby xmlrpc", ["ruby", _script("ruby_client.rb")]),
    Client("rpc-xml", "Perl RPC::XML", ["perl", _script("rpc_xml_client.pl")]),
    Client("xmlrpc-lite", "Perl XMLRPC::Lite", ["perl", _script("xmlrpc_lite_client.pl")],
           workarounds={"submit": TYPED_STRINGS_LITE}),
    Client("frontier", "Perl Frontier::Client", ["perl", _script("frontier_client.pl")],
           workarounds={"submit": UTF8_STRINGS_FRONTIER}),
    Client("axmlrpc", "Java aXMLRPC",
           ["java", "-cp", JAVA_CLASSES + ":" + AXMLRPC_JAR, "AxmlrpcClient"], prepare=_build_java,
           workarounds={"submit": NO_STRING_DECODE_AXMLRPC}),
    Client("kolo", "Go kolo/xmlrpc", [os.path.join(WORK_DIR, "kolo-client")], prepare=_build_go,
           workarounds={"submit": MENDING_KOLO_REQUEST, "empties": MENDING_KOLO_REPLY}),
    Client("tcl", "Tcl xmlrpc", ["tclsh", _script("tcl_client.tcl")],
           keep_alive_na=NO_KEEP_ALIVE_TCL,
           workarounds={"method-help": DECODES_TCL_HELP, "submit": ESCAPES_TCL_SUBMIT}),
    Client("lua", "Lua xmlrpc", ["lua5.1", _script("lua_client.lua")],
           omits=("when", "blob", "empty-blob"),
           omits_why="the library has no encoder for dateTime and base64 values",
           keep_alive_na=NO_KEEP_ALIVE_LUA, workarounds={"submit": ESCAPES_LUA}),
    Client("node-xmlrpc", "Node xmlrpc", ["node", os.path.join(NODE_DIR, "xmlrpc_client.js")],
           prepare=_check_node_modules, workarounds={"submit": TEXT_FOR_MARKUP_NODE}),
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
        suite_started = time.monotonic()
        os.makedirs(WORK_DIR, exist_ok=True)
        cls.rows = {c.key: {"title": c.title, "checks": {}, "ms_per_call": None, "notes": [],
                            "seconds": {}}
                    for c in CLIENTS}
        for c in CLIENTS:
            if c.omits:
                cls.rows[c.key]["notes"].append("submit: n/a for %s: %s" % (", ".join(sorted(c.omits)),
                                                                            c.omits_why))
        ready = []
        for c in CLIENTS:
            started = time.monotonic()
            try:
                if c.prepare:
                    c.prepare()
                cls.rows[c.key]["seconds"]["prepare"] = time.monotonic() - started
                ready.append(c)
            except (RuntimeError, OSError, subprocess.SubprocessError) as e:
                detail = getattr(e, "stderr", b"") or b""
                why = ("could not prepare the client: %s %s" % (e, detail.decode(errors="replace"))).strip()
                cls.rows[c.key]["checks"] = {k: ("fail", why) for k in CHECKS}
        prepared = time.monotonic()
        cls.gw = gateway.Gateway(cls.addClassCleanup, sim_args=["--job-duration-ms", str(JOB_DURATION_MS)])
        cls.gw.wait_connected()
        checks_started = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(PARALLEL_CLIENTS) as pool:
            for c, out in zip(ready, pool.map(cls.run_checks, ready)):
                cls.rows[c.key]["checks"].update(out)
        calls_started = time.monotonic()
        records = cls.gw.recorded_commands()
        for c in ready:
            cls.compare_recorded_submission(c, records)
        for c in ready:
            cls.run_calls(c)
        for c in ready:
            cls.mark_known(c)
            cls.mark_workarounds(c)
        done = time.monotonic()
        cls.seconds = {"total": done - suite_started, "prepare": prepared - suite_started,
                       "start": checks_started - prepared, "checks": calls_started - checks_started,
                       "calls": done - calls_started, "parallel_clients": PARALLEL_CLIENTS}
        cls.write_results()
        cls.print_times()

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
        started = time.monotonic()
        out, problem = cls.run_client(client, "checks", CHECKS_TIMEOUT)
        cls.rows[client.key]["seconds"]["checks"] = time.monotonic() - started
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
        started = time.monotonic()
        out, problem = cls.run_client(client, "calls", CALLS_TIMEOUT)
        row["seconds"]["calls"] = time.monotonic() - started
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
        """A failure is known only when it is the known one word for word:
        one more wrong member, or a wrong value of the known one, keeps it a
        failure."""
        checks = cls.rows[client.key]["checks"]
        for check, (failure, why) in client.known.items():
            state, detail = checks.get(check, ("fail", ""))
            if state == "fail" and detail == failure:
                checks[check] = ("known", why)
                cls.rows[client.key].setdefault("known_details", {})[check] = detail

    @classmethod
    def mark_workarounds(cls, client):
        checks = cls.rows[client.key]["checks"]
        for check, what in client.workarounds.items():
            if checks.get(check, ("fail", ""))[0] == "pass":
                checks[check] = ("workaround", what)

    @classmethod
    def write_results(cls):
        with open(RESULTS_JSON, "w") as f:
            json.dump({"checks": CHECKS, "calls": CALLS, "clients": cls.rows, "seconds": cls.seconds},
                      f, indent=1, ensure_ascii=False)
        with open(RESULTS_MD, "w") as f:
            f.write(render(cls.rows, CALLS, cls.seconds))

    @classmethod
    def print_times(cls):
        t = cls.seconds
        lines = ["interop: the suite took %.1f s: preparing the clients %.1f s, starting the gateway "
                 "%.1f s, the checks %.1f s (%d clients at a time), the %d-call runs %.1f s (one "
                 "after the other)" % (t["total"], t["prepare"], t["start"], t["checks"],
                                       t["parallel_clients"], CALLS, t["calls"])]
        for row in cls.rows.values():
            lines.append("interop:   %-22s %s" % (row["title"], client_seconds(row["seconds"])))
        sys.stderr.write("\n".join(lines) + "\n")
        sys.stderr.flush()

    def assert_client(self, client):
        row = self.rows[client.key]
        self.assertEqual(sorted(row["checks"]), sorted(CHECKS))
        failed = {k: v[1] for k, v in row["checks"].items()
                  if v[0] not in ("pass", "workaround", "n/a", "known")}
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
