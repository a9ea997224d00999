"""A user's session through the gateway: build and submit a workflow, watch
its jobs run to the end, pause and resume one of them, then remove the
workflow from the history."""

import os
import shutil
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gateway  # noqa: E402
import testmain  # noqa: E402

# Each simulated job runs this long once started.
JOB_DURATION_MS = 1500
# Generous: only keeps a broken run from hanging.
WAIT_LIMIT = 60.0
FINISHED = ("finished",)


@gateway.skip_unless_private_network()
class Session(unittest.TestCase):
    def start(self, *sim_args):
        self.gw = gateway.Gateway(self.addCleanup,
                                  sim_args=["--job-duration-ms", str(JOB_DURATION_MS)] + list(sim_args))
        self.gw.wait_connected()
        self.s = self.gw.proxy()

    def ok(self, reply):
        self.assertNotIn("error", reply, reply)
        return reply

    def jobs(self, workflow):
        reply = self.ok(self.s.statusTasks2({"workflow-ids": [workflow]}))
        return {t["job-id"]: t for t in reply["tasks"]}

    def wait_for(self, workflow, condition, what):
        deadline = time.monotonic() + WAIT_LIMIT
        seen = []
        while time.monotonic() < deadline:
            jobs = self.jobs(workflow)
            seen.append(jobs)
            if condition(jobs):
                return seen
            time.sleep(0.1)
        self.fail("%s did not happen; last status: %r" % (what, seen[-1] if seen else None))

    def test_build_submit_watch_pause_resume_and_remove(self):
        self.start()
        s = self.s
        source = self.ok(s.sourceCreateFileList({"files": ["/media/in/interview.mov"]}))["source"]
        transfer = self.ok(s.taskCreateTransfer({"destination": "/media/out"}))["task"]
        mail = self.ok(s.taskCreateMail({"to": ["ops@example.com"]}))["task"]
        built = self.ok(s.submitBuildSubmission({"name": "interview", "priority": 6,
                                                 "sources": [source],
                                                 "tasks": [transfer, mail]}))
        workflow = built["workflow-id"]
        paused_job, other_job = built["job-ids"]

        wfs = self.ok(s.statusWorkflows2({"workflow-ids": [workflow]}))["workflows"]
        self.assertEqual([(w["workflow-id"], w["name"]) for w in wfs], [(workflow, "interview")])

        self.assertEqual(self.ok(s.jobPause({"job-id": paused_job}))["state"], "paused")

        # The other job runs to its end; its progress never goes back.
        seen = self.wait_for(workflow, lambda j: j[other_job]["state"] in FINISHED,
                             "the unpaused job finishing")
        progress = [j[other_job]["progress"] for j in seen]
        self.assertEqual(progress, sorted(progress))
        self.assertEqual(progress[-1], 1.0)
        # Meanwhile the paused job stayed where it was.
        self.assertTrue(all(j[paused_job]["state"] == "paused" for j in seen))
        held = {j[paused_job]["progress"] for j in seen}
        self.assertEqual(len(held), 1, held)

        self.assertNotEqual(self.ok(s.jobResume({"job-id": paused_job}))["state"], "paused")
        self.wait_for(workflow, lambda j: j[paused_job]["state"] in FINISHED,
                      "the resumed job finishing")
        self.assertEqual(self.jobs(workflow)[paused_job]["progress"], 1.0)
        done = self.ok(s.statusTasks2({"workflow-ids": [workflow], "states": ["finished"]}))
        self.assertEqual(sorted(t["job-id"] for t in done["tasks"]), sorted(built["job-ids"]))

        removed = self.ok(s.historyRemoveWorkflow({"workflow-ids": [workflow]}))
        self.assertIn(workflow, removed["removed"])
        self.assertEqual(self.ok(s.statusWorkflows2({"workflow-ids": [workflow]}))["workflows"], [])
        self.assertEqual(self.jobs(workflow), {})

    def test_a_failing_job_shows_as_failed_with_its_reason(self):
        self.start("--fail-every", "2")
        s = self.s
        source = self.ok(s.sourceCreateFileList({"files": ["/media/in/a.mov"]}))["source"]
        transfer = self.ok(s.taskCreateTransfer({"destination": "/media/out"}))["task"]
        built = self.ok(s.submitBuildSubmission({"sources": [source],
                                                 "tasks": [transfer, transfer]}))
        workflow = built["workflow-id"]
        self.wait_for(workflow, lambda j: all(t["state"] in ("finished", "failed")
                                              for t in j.values()), "both jobs ending")
        failed = self.ok(s.statusTasks2({"workflow-ids": [workflow], "states": ["failed"]}))["tasks"]
        self.assertEqual(len(failed), 1)
        self.assertIn(failed[0]["job-id"], failed[0]["failure"])
        # A failed job can be run again.
        self.assertEqual(self.ok(s.jobRequeue({"job-id": failed[0]["job-id"]}))["state"], "queued")

    def test_a_started_watch_folder_turns_each_new_file_into_a_workflow(self):
        self.start()
        s = self.s
        watched = tempfile.mkdtemp(prefix="xmlrpcs-watch-")
        self.addCleanup(shutil.rmtree, watched)
        with open(os.path.join(watched, "old.mov"), "wb") as f:
            f.write(b"present before the watch folder")
        source = self.ok(s.sourceCreateWatchFolder({"path": watched}))["source"]
        transfer = self.ok(s.taskCreateTransfer({"destination": "/media/out"}))["task"]
        monitor = self.ok(s.submitBuildSubmission({"name": "drop", "sources": [source],
                                                   "tasks": [transfer]}))["monitor-ids"][0]

        def made():
            mons = self.ok(s.statusWatchFolders({"monitor-ids": [monitor]}))["monitors"]
            return mons[0]["workflow-ids"]

        self.assertEqual(made(), [])
        # It waits for its start.
        self.assertEqual(self.ok(s.watchFolderStart({"monitor-id": monitor}))["state"], "running")
        with open(os.path.join(watched, "new.mov"), "wb") as f:
            f.write(b"dropped in")
        workflows = made()
        self.assertEqual(len(workflows), 1)
        wf = self.ok(s.statusWorkflows2({"workflow-ids": workflows}))["workflows"][0]
        self.assertEqual((wf["name"], len(wf["job-ids"])), ("new.mov", 1))
        self.wait_for(workflows[0], lambda j: all(t["state"] == "finished" for t in j.values()),
                      "the new file's job finishing")

        # A stopped watch folder takes nothing; started again, it catches up.
        self.ok(s.watchFolderStop({"monitor-id": monitor}))
        with open(os.path.join(watched, "later.mov"), "wb") as f:
            f.write(b"dropped while stopped")
        self.assertEqual(len(made()), 1)
        self.ok(s.watchFolderStart({"monitor-id": monitor}))
        self.assertEqual(len(made()), 2)


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
