"""The gateway called with Python's xmlrpc.client (see ../README.md for the
checks and the submission every client sends)."""

import datetime
import sys
import time
import xmlrpc.client

URL, TAG, MODE = sys.argv[1], sys.argv[2], sys.argv[3]
NAME = TAG + " <b>&amp;</b> \"q\" 'a' café 日本"
CALLS = 200


def report(check, fn):
    try:
        problem = fn()
        print("RESULT %s %s" % (check, "pass" if problem is None else "fail " + problem))
    except Exception as e:  # noqa: BLE001 - any failure of the library is the check's failure
        print("RESULT %s fail %s: %s" % (check, type(e).__name__, str(e).replace("\n", " ")))
    sys.stdout.flush()


def expect(what, got, want):
    return None if got == want else "%s: got %r, expected %r" % (what, got, want)


s = xmlrpc.client.ServerProxy(URL)


def ok(reply):
    if not isinstance(reply, dict) or "error" in reply:
        raise RuntimeError("unexpected reply %r" % (reply,))
    return reply


def list_methods():
    methods = s.system.listMethods()
    for m in ("getVersion", "submitSubmission", "system.multicall"):
        if m not in methods:
            return "%s missing from %r" % (m, methods)
    return expect("number of methods", len(methods), 44)


def method_help():
    text = s.system.methodHelp("jobPause")
    return None if "'proxy.node.job.pause'" in text else "unexpected help %r" % text


def get_version():
    return expect("version", ok(s.getVersion())["version"], "7.0.0.0")


def submit():
    submission = {
        "name": NAME,
        "priority": 7,
        "sources": [{"type": "file-source", "files": ["/media/in/a.mov"]}],
        "tasks": [{"type": "transfer", "destination": "/media/out"}],
        "ints": [0, -1, 2147483647, -2147483648],
        "yes": True,
        "no": False,
        "ratio": 2.5,
        "small": -0.125,
        "when": datetime.datetime(2024, 1, 2, 3, 4, 5),
        "blob": xmlrpc.client.Binary(b"\x00\x01\xfe\xffbinary"),
        "nested": {"level": 1, "inner": {"level": 2, "items": [1, "two", [3.5, {"four": False}]]}},
        "empty-string": "",
        "empty-array": [],
        "empty-struct": {},
        "empty-blob": xmlrpc.client.Binary(b""),
    }
    reply = ok(s.submitSubmission({"submission": submission}))
    if len(reply["job-ids"]) != 1:
        return "job-ids %r" % reply["job-ids"]
    wf = ok(s.statusWorkflows2({"workflow-ids": [reply["workflow-id"]]}))["workflows"]
    return expect("workflow name", wf[0]["name"], NAME)


def empties():
    src = ok(s.sourceCreateFileList({"name": "", "files": ["a", "", "b"]}))["source"]
    problem = expect("source", (src["name"], src["files"]), ("", ["a", "", "b"]))
    if problem:
        return problem
    task = ok(s.taskCreateExecute({"command": "/bin/true", "arguments": []}))["task"]
    return expect("task", (task["command"], task["arguments"]), ("/bin/true", []))


def multicall():
    calls = [{"methodName": "getVersion", "params": [{}]},
             {"methodName": "jobPause", "params": [{"job-id": "no-such-job"}]},
             {"methodName": "sourceCreateFileList", "params": [{"files": ["x"]}]}]
    results = s.system.multicall(calls)
    if len(results) != 3:
        return "%d results for 3 calls: %r" % (len(results), results)
    if results[0][0].get("version") != "7.0.0.0":
        return "first result %r" % results[0]
    if "error" not in results[1][0]:
        return "second result %r" % results[1]
    return expect("third result files", results[2][0]["source"]["files"], ["x"])


def jobs(workflow):
    return {t["job-id"]: t for t in ok(s.statusTasks2({"workflow-ids": [workflow]}))["tasks"]}


def wait_state(workflow, job, state):
    deadline = time.monotonic() + 60
    while time.monotonic() < deadline:
        got = jobs(workflow)[job]["state"]
        if got == state:
            return None
        time.sleep(0.1)
    return "job %s never reached %s (last %s)" % (job, state, got)


def job_life():
    source = ok(s.sourceCreateFileList({"files": ["/media/in/a.mov"]}))["source"]
    task = ok(s.taskCreateTransfer({"destination": "/media/out"}))["task"]
    built = ok(s.submitBuildSubmission({"name": TAG + " life", "sources": [source],
                                        "tasks": [task, task]}))
    wf = built["workflow-id"]
    first, second = built["job-ids"]
    problem = expect("paused", ok(s.jobPause({"job-id": second}))["state"], "paused")
    problem = problem or wait_state(wf, first, "finished")
    problem = problem or expect("still paused", jobs(wf)[second]["state"], "paused")
    if problem:
        return problem
    if ok(s.jobResume({"job-id": second}))["state"] == "paused":
        return "resumed job still paused"
    ok(s.jobCancel({"job-id": second}))
    return wait_state(wf, second, "cancelled")


if MODE == "checks":
    for check, fn in [("list-methods", list_methods), ("method-help", method_help),
                      ("get-version", get_version), ("submit", submit), ("empties", empties),
                      ("multicall", multicall), ("job-life", job_life)]:
        report(check, fn)
else:
    client = xmlrpc.client.ServerProxy(URL)
    start = time.monotonic()
    for _ in range(CALLS):
        ok(client.getVersion())
    print("TIME %.3f" % ((time.monotonic() - start) * 1000.0 / CALLS))
