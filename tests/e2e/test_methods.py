"""Every XML-RPC method of XMLRPCServer against ClientProxySim, over HTTP:
each one answers a realistic call with the simulator's reply, each one with
required properties refuses a call without them, and the deprecated names
reach the same proxy command as their successors."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gateway  # noqa: E402
import testmain  # noqa: E402

# Methods whose command needs properties, with one the empty call lacks.
REQUIRED = {
    "submitBuildSubmission": ("sources", "tasks"),
    "submitSubmission": ("submission",),
    "submissionRecall": ("workflow-id",),
    "taskCreateTransfer": ("destination",),
    "taskCreateUploader": ("destination",),
    "taskCreateYouTube": ("username", "password", "title"),
    "taskCreateExecute": ("command",),
    "taskCreateMail": ("to",),
    "taskCreateMBR": ("bitrates",),
    "sourceCreateFileList": ("files",),
    "sourceCreateWatchFolder": ("path",),
    "sourceCreateMonitor": ("path",),
    "sourceCreateEDL": ("clips",),
    "sourceCreateISEQ": ("path",),
    "watchFolderStart": ("monitor-id",),
    "watchFolderSetPriority": ("monitor-id", "priority"),
    "watchFolderStop": ("monitor-id",),
    "watchFolderRemove": ("monitor-id",),
    "monitorStart": ("monitor-id",),
    "monitorSetPriority": ("monitor-id", "priority"),
    "monitorStop": ("monitor-id",),
    "monitorRemove": ("monitor-id",),
    "jobKill": ("job-id",),
    "jobCancel": ("job-id",),
    "jobPause": ("job-id",),
    "jobResume": ("job-id",),
    "jobRequeue": ("job-id",),
    "jobSetPriority": ("job-id", "priority"),
    "historyRemoveWorkflow": ("workflow-ids",),
    "analyzeFile": ("file",),
}

# Deprecated name -> its successor; both send the same proxy command.
ALIASES = {
    "taskCreateUploader": "taskCreateTransfer",
    "sourceCreateMonitor": "sourceCreateWatchFolder",
    "jobKill": "jobCancel",
    "statusTasks": None,  # a command of its own, older reply shape
    "statusMonitors": "statusWatchFolders",
    "monitorStart": "watchFolderStart",
    "monitorSetPriority": "watchFolderSetPriority",
    "monitorStop": "watchFolderStop",
    "monitorRemove": "watchFolderRemove",
}


@gateway.skip_unless_private_network()
class EveryMethod(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gw = gateway.Gateway(cls.addClassCleanup)
        cls.gw.wait_connected()
        cls.s = cls.gw.proxy()
        cls.methods = [m for m in cls.s.system.listMethods() if not m.startswith("system.")]

    def ok(self, reply):
        self.assertIsInstance(reply, dict)
        self.assertNotIn("error", reply, reply)
        return reply

    def test_the_server_offers_41_methods(self):
        self.assertEqual(len(self.methods), 41)
        self.assertEqual(len(set(self.methods)), 41)

    def test_every_method_answers_a_realistic_call(self):
        s = self.s
        called = set()

        def call(name, params):
            called.add(name)
            return self.ok(getattr(s, name)(params))

        v = call("getVersion", {})
        self.assertEqual(v["version"], "7.0.0.0")
        self.assertIn("product", v)

        # Sources and tasks: the reply wraps what was asked for, with its type.
        files = call("sourceCreateFileList", {"files": ["/media/in/a.mov", "/media/in/b.mov"]})
        self.assertEqual(files["source"]["files"], ["/media/in/a.mov", "/media/in/b.mov"])
        self.assertEqual(files["source"]["type"], "file-source")
        watch = call("sourceCreateWatchFolder", {"path": "/media/watch", "recursive": True})
        self.assertEqual(watch["source"]["type"], "monitor-source")
        monitor = call("sourceCreateMonitor", {"path": "/media/watch2"})
        self.assertEqual(monitor["source"]["path"], "/media/watch2")
        edl = call("sourceCreateEDL", {"clips": [{"file": "/media/in/a.mov", "in": 0, "out": 250}]})
        self.assertEqual(edl["source"]["clips"][0]["out"], 250)
        iseq = call("sourceCreateISEQ", {"path": "/media/seq", "frame-rate": 25.0})
        self.assertEqual(iseq["source"]["frame-rate"], 25.0)

        transfer = call("taskCreateTransfer", {"destination": "/media/out", "overwrite": True})
        self.assertEqual(transfer["task"], {"destination": "/media/out", "overwrite": True,
                                            "type": "transfer"})
        uploader = call("taskCreateUploader", {"destination": "/media/up"})
        self.assertEqual(uploader["task"]["type"], "transfer")
        yt = call("taskCreateYouTube", {"username": "me", "password": "pw", "title": "Demo"})
        self.assertEqual(yt["task"]["type"], "youtube")
        ex = call("taskCreateExecute", {"command": "/usr/local/bin/notify", "arguments": ["done"]})
        self.assertEqual(ex["task"]["arguments"], ["done"])
        mail = call("taskCreateMail", {"to": ["ops@example.com"], "subject": "Encoded"})
        self.assertEqual(mail["task"]["to"], ["ops@example.com"])
        mbr = call("taskCreateMBR", {"bitrates": [800, 1600]})
        self.assertEqual(mbr["task"]["bitrates"], [800, 1600])

        # Submissions make workflows with jobs.
        build = call("submitBuildSubmission", {"name": "e2e", "priority": 5,
                                               "sources": [files["source"]],
                                               "tasks": [transfer["task"], mail["task"]]})
        wf = build["workflow-id"]
        self.assertEqual(len(build["job-ids"]), 2)
        job, job2 = build["job-ids"]
        sub = call("submitSubmission", {"submission": {"name": "one", "priority": 3,
                                                       "sources": [], "tasks": []}})
        self.assertTrue(sub["workflow-id"])
        watched = call("submitBuildSubmission", {"sources": [watch["source"]],
                                                 "tasks": [transfer["task"]]})
        mon = watched["monitor-ids"][0]

        # Status, in the current and the deprecated forms.
        tasks2 = call("statusTasks2", {"workflow-ids": [wf]})
        self.assertEqual(sorted(t["job-id"] for t in tasks2["tasks"]), sorted([job, job2]))
        tasks = call("statusTasks", {"job-ids": [job]})
        self.assertEqual([t["job-id"] for t in tasks["tasks"]], [job])
        wfs2 = call("statusWorkflows2", {"workflow-ids": [wf]})
        self.assertEqual([w["workflow-id"] for w in wfs2["workflows"]], [wf])
        wfs = call("statusWorkflows", {"workflow-ids": [wf]})
        self.assertEqual(wfs["workflows"][0]["name"], "e2e")
        for name in ("statusWatchFolders", "statusMonitors", "monitorList"):
            mons = call(name, {})
            self.assertIn(mon, [m["monitor-id"] for m in mons["monitors"]], name)

        # Jobs.
        self.assertEqual(call("jobSetPriority", {"job-id": job, "priority": 9})["priority"], 9)
        self.assertEqual(call("jobPause", {"job-id": job})["state"], "paused")
        self.assertNotEqual(call("jobResume", {"job-id": job})["state"], "paused")
        self.assertEqual(call("jobCancel", {"job-id": job})["state"], "cancelled")
        self.assertNotEqual(call("jobRequeue", {"job-id": job})["state"], "cancelled")
        self.assertEqual(call("jobKill", {"job-id": job2})["state"], "cancelled")

        # Watch folders, by both names; a new one waits for its start.
        self.assertEqual(call("watchFolderStart", {"monitor-id": mon})["state"], "running")
        self.assertEqual(call("watchFolderStop", {"monitor-id": mon})["state"], "stopped")
        self.assertEqual(call("watchFolderStart", {"monitor-id": mon})["state"], "running")
        self.assertEqual(call("monitorStop", {"monitor-id": mon})["state"], "stopped")
        self.assertEqual(call("monitorStart", {"monitor-id": mon})["state"], "running")
        self.assertEqual(call("watchFolderSetPriority", {"monitor-id": mon, "priority": 2})["priority"], 2)
        self.assertEqual(call("monitorSetPriority", {"monitor-id": mon, "priority": 7})["priority"], 7)
        other = call("submitBuildSubmission", {"sources": [monitor["source"]],
                                               "tasks": [transfer["task"]]})["monitor-ids"][0]
        call("watchFolderRemove", {"monitor-id": mon})
        call("monitorRemove", {"monitor-id": other})
        left = [m["monitor-id"] for m in call("statusWatchFolders", {})["monitors"]]
        self.assertNotIn(mon, left)
        self.assertNotIn(other, left)

        # Recall cancels what is unfinished; the history then forgets it.
        recall = call("submissionRecall", {"workflow-id": sub["workflow-id"]})
        self.assertEqual(recall["cancelled-job-ids"], sub["job-ids"])
        removed = call("historyRemoveWorkflow", {"workflow-ids": [sub["workflow-id"]]})
        self.assertIn(sub["workflow-id"], removed["removed"])
        self.assertEqual(call("statusWorkflows2", {"workflow-ids": [sub["workflow-id"]]})["workflows"], [])

        # Cluster, Bonjour and analysis.
        self.assertTrue(call("nodeInfoCluster", {"target-node-info": {"host": "127.0.0.1"}})["nodes"])
        self.assertTrue(call("statusBonjour", {})["services"])
        self.assertTrue(call("networkInfoBonjour", {})["services"])
        analysis = call("analyzeFile", {"file": os.path.abspath(__file__)})
        self.assertEqual(analysis["file"], os.path.abspath(__file__))

        self.assertEqual(called, set(self.methods))

    def test_calls_without_their_required_properties_are_refused(self):
        for name, required in REQUIRED.items():
            with self.subTest(method=name):
                reply = getattr(self.s, name)({})
                self.assertEqual(list(reply), ["error"])
                prefix = "Malformed method %s (" % name
                self.assertTrue(reply["error"].startswith(prefix), reply)
                reason = reply["error"][len(prefix):]
                self.assertTrue(any(reason.startswith(p + ":") for p in required), reply)
                self.assertIn("missing", reason)

    def test_values_outside_their_constraint_are_refused_with_the_reason(self):
        reply = self.s.jobSetPriority({"job-id": "job-1", "priority": 11})
        self.assertEqual(reply["error"], "Malformed method jobSetPriority (priority: 11 is out "
                         "of range, expected an integer from 0 to 10)")
        reply = self.s.jobPause({"job-id": 42})
        self.assertTrue(reply["error"].startswith("Malformed method jobPause (job-id: "), reply)
        reply = self.s.analyzeFile({"file": "/x", "colour": "red"})
        self.assertTrue(reply["error"].startswith("Malformed method analyzeFile (colour: "), reply)

    def test_a_refused_call_is_not_sent(self):
        before = len(self.gw.recorded_commands())
        self.s.jobPause({})
        self.s.taskCreateMail({"to": "not a list"})
        self.assertEqual(len(self.gw.recorded_commands()), before)

    def test_deprecated_names_reach_their_successors_command(self):
        params = {
            "taskCreateTransfer": {"destination": "/o"},
            "sourceCreateWatchFolder": {"path": "/w"},
            "jobCancel": {"job-id": "job-unknown"},
            "statusWatchFolders": {},
            "watchFolderStart": {"monitor-id": "mon-unknown"},
            "watchFolderSetPriority": {"monitor-id": "mon-unknown", "priority": 1},
            "watchFolderStop": {"monitor-id": "mon-unknown"},
            "watchFolderRemove": {"monitor-id": "mon-unknown"},
        }
        for old, new in ALIASES.items():
            if new is None:
                continue
            with self.subTest(old=old, new=new):
                getattr(self.s, new)(params[new])
                sent_new = self.gw.recorded_commands()[-1]
                getattr(self.s, old)(params[new])
                sent_old = self.gw.recorded_commands()[-1]
                self.assertEqual(sent_old["command"], sent_new["command"])
                self.assertEqual(sent_old["properties"], sent_new["properties"])

    def test_unknown_ids_come_back_as_error_members_not_faults(self):
        reply = self.s.jobPause({"job-id": "job-does-not-exist"})
        self.assertEqual(list(reply), ["error"])
        self.assertIn("job-does-not-exist", reply["error"])


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
