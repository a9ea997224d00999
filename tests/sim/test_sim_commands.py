"""The simulated cluster behind ClientProxySim's command set, over raw vxp:
creating tasks and sources, submitting, job and watch-folder life cycles,
status filters, and the errors a real proxy would give."""

import itertools
import os
import tempfile
import unittest

import vxp_raw
from test_sim_cli import running_sim
import testmain


def s(text):
    return [1, text]


def i(number):
    return [4, number]


def texts(*values):
    return [8, [s(v) for v in values]]


def struct(**members):
    return [9, False, {k.replace("_", "-"): v for k, v in members.items()}]


def plain(value):
    """A decoded property as a plain Python value (kinds dropped)."""
    if value is None:
        return None
    kind = value[0]
    if kind == 8:
        return [plain(v) for v in value[1]]
    if kind == 9:
        return {k: plain(v) for k, v in value[2].items()}
    if kind == 10:
        return ".".join(str(p) for p in value[1])
    return value[1]


class cluster:
    """One client link to a fresh simulator, calling commands by name."""

    def __init__(self, test):
        self.sim = running_sim()
        test.addCleanup(self.sim.__exit__, None, None, None)
        self.link = self.sim.connect()
        test.addCleanup(self.link.close)
        self.ids = itertools.count(1)

    def call(self, command_name, **props):
        rid = next(self.ids)
        payload = {k.replace("_", "-"): v for k, v in props.items()}
        self.link.send(vxp_raw.request(rid, command_name, payload))
        msg = self.link.read_message()
        assert msg[0] == 2 and msg[1] == rid, msg
        return plain([9, False, msg[4][2]])


class Commands(unittest.TestCase):
    def setUp(self):
        self.c = cluster(self)

    def submit_two_tasks(self, priority=5):
        source = self.c.call("proxy.source.create.file-source", files=texts("a.mov"))["source"]
        self.assertEqual(source["type"], "file-source")
        return self.c.call(
            "proxy.node.submit.build", name=s("nightly"), priority=i(priority),
            sources=[8, [struct(type=s("file-source"), files=texts("a.mov"))]],
            tasks=[8, [struct(type=s("transfer"), name=s("copy")),
                       struct(type=s("mail"))]])

    def test_create_commands_need_what_they_cannot_work_without(self):
        for command, needed, args in (
                ("proxy.task.create.transfer", "destination", {"destination": s("out")}),
                ("proxy.task.create.execute", "command", {"command": s("run.sh")}),
                ("proxy.task.create.mail", "to", {"to": texts("a@b.c")}),
                ("proxy.task.create.mbr", "bitrates", {"bitrates": [8, [i(800)]]}),
                ("proxy.source.create.monitor-source", "path", {"path": s("in")}),
                ("proxy.source.create.edl-source", "clips", {"clips": [8, []]}),
                ("proxy.source.create.iseq-source", "path", {"path": s("seq")})):
            with self.subTest(command):
                self.assertEqual(self.c.call(command)["error"],
                                 "property '%s' is required" % needed)
                made = self.c.call(command, name=s("x"), **args)
                kind = "task" if ".task." in command else "source"
                self.assertEqual(made[kind]["name"], "x")
                self.assertEqual(made[kind]["type"], command.rsplit(".", 1)[1])
        youtube = self.c.call("proxy.task.create.youtube", username=s("u"), password=s("p"))
        self.assertEqual(youtube["error"], "property 'title' is required")

    def test_submit_build_makes_a_workflow_with_one_job_per_task(self):
        reply = self.submit_two_tasks(priority=7)
        self.assertRegex(reply["workflow-id"], r"^wf-\d+$")
        self.assertEqual(len(reply["job-ids"]), 2)
        tasks = self.c.call("proxy.node.status.tasks",
                            workflow_ids=texts(reply["workflow-id"]))["tasks"]
        self.assertEqual([t["name"] for t in tasks], ["copy", "mail"])
        self.assertEqual({t["state"] for t in tasks}, {"queued"})
        self.assertEqual({t["priority"] for t in tasks}, {7})

    def test_submit_build_refuses_bad_input(self):
        self.assertEqual(self.c.call("proxy.node.submit.build", tasks=[8, []])["error"],
                         "property 'sources' is required")
        self.assertEqual(self.c.call("proxy.node.submit.build", sources=[8, []],
                                     tasks=[8, []])["error"], "property 'tasks' is empty")
        self.assertEqual(self.c.call("proxy.node.submit.build", sources=[8, []],
                                     tasks=[8, [struct()]], priority=i(11))["error"],
                         "property 'priority' out of range 0..10: 11")

    def test_job_life_cycle(self):
        job = self.submit_two_tasks()["job-ids"][0]
        self.assertEqual(self.c.call("proxy.node.job.pause", job_id=s(job))["state"], "paused")
        self.assertEqual(self.c.call("proxy.node.job.pause", job_id=s(job))["error"],
                         "job '%s' is paused, cannot become paused" % job)
        self.assertEqual(self.c.call("proxy.node.job.resume", job_id=s(job))["state"], "queued")
        self.assertEqual(self.c.call("proxy.node.job.set-priority", job_id=s(job),
                                     priority=i(9))["priority"], 9)
        self.assertEqual(self.c.call("proxy.node.job.requeue", job_id=s(job))["error"],
                         "job '%s' is queued, cannot become queued" % job)
        self.assertEqual(self.c.call("proxy.node.job.cancel", job_id=s(job))["state"],
                         "cancelled")
        self.assertEqual(self.c.call("proxy.node.job.requeue", job_id=s(job))["state"], "queued")
        self.assertEqual(self.c.call("proxy.node.job.pause", job_id=s("job-999"))["error"],
                         "unknown job 'job-999'")
        self.assertEqual(self.c.call("proxy.node.job.cancel")["error"],
                         "property 'job-id' is required")
        self.assertEqual(self.c.call("proxy.node.job.cancel", job_id=i(3))["error"],
                         "property 'job-id' must be text, got int")

    def test_advance_runs_and_completes_jobs(self):
        wf = self.submit_two_tasks()["workflow-id"]
        self.assertEqual(self.c.call("proxy.sim.advance")["moved"], 2)
        running = self.c.call("proxy.node.status.tasks", states=texts("running"))
        self.assertEqual(running["total"], 2)
        self.c.call("proxy.sim.advance")
        done = self.c.call("proxy.node.status.workflows", states=texts("finished"))
        self.assertEqual([w["workflow-id"] for w in done["workflows"]], [wf])

    def test_status_tasks2_pages(self):
        for _ in range(3):
            self.submit_two_tasks()
        everything = self.c.call("proxy.node.status.tasks2")
        self.assertEqual(everything["total"], 6)
        page = self.c.call("proxy.node.status.tasks2", offset=i(2), max_results=i(3))
        self.assertEqual([t["job-id"] for t in page["tasks"]],
                         [t["job-id"] for t in everything["tasks"]][2:5])
        self.assertEqual(page["total"], 6)
        # The unpaged variant ignores the window.
        self.assertEqual(len(self.c.call("proxy.node.status.tasks", offset=i(2),
                                         max_results=i(3))["tasks"]), 6)

    def test_recall_and_history(self):
        wf = self.submit_two_tasks()["workflow-id"]
        self.assertIn("is not finished", self.c.call("proxy.node.history.remove-workflow",
                                                     workflow_ids=texts(wf))["error"])
        recalled = self.c.call("proxy.node.submission.recall", workflow_id=s(wf))
        self.assertEqual(len(recalled["cancelled-job-ids"]), 2)
        self.assertEqual(self.c.call("proxy.node.history.remove-workflow",
                                     workflow_ids=texts(wf))["removed"], [wf])
        self.assertEqual(self.c.call("proxy.node.status.workflows")["workflows"], [])
        self.assertEqual(self.c.call("proxy.node.submission.recall", workflow_id=s(wf))["error"],
                         "unknown workflow '%s'" % wf)

    def test_submission(self):
        reply = self.c.call("proxy.node.submit.submission",
                            submission=struct(name=s("promo"), priority=i(2)))
        tasks = self.c.call("proxy.node.status.tasks", job_ids=texts(*reply["job-ids"]))["tasks"]
        self.assertEqual([(t["name"], t["priority"]) for t in tasks], [("promo", 2)])
        self.assertEqual(self.c.call("proxy.node.submit.submission")["error"],
                         "property 'submission' is required")

    def test_watch_folders(self):
        reply = self.c.call(
            "proxy.node.submit.build", name=s("watch"),
            sources=[8, [struct(type=s("monitor-source"), path=s("incoming"))]],
            tasks=[8, [struct(type=s("transfer"))]])
        (mon,) = reply["monitor-ids"]
        listed = self.c.call("proxy.node.monitor.list")["monitors"]
        # A new watch folder waits to be started.
        self.assertEqual([(m["monitor-id"], m["path"], m["state"]) for m in listed],
                         [(mon, "incoming", "stopped")])
        self.assertEqual(self.c.call("proxy.node.monitor.start", monitor_id=s(mon))["state"],
                         "running")
        self.assertEqual(self.c.call("proxy.node.monitor.start", monitor_id=s(mon))["error"],
                         "monitor '%s' is running already" % mon)
        self.assertEqual(self.c.call("proxy.node.monitor.stop", monitor_id=s(mon))["state"],
                         "stopped")
        self.assertEqual(self.c.call("proxy.node.monitor.set-priority", monitor_id=s(mon),
                                     priority=i(1))["priority"], 1)
        self.assertEqual(self.c.call("proxy.node.monitor.set-priority",
                                     monitor_id=s(mon))["error"],
                         "property 'priority' is required")
        self.assertEqual(len(self.c.call("proxy.node.status.monitors",
                                         monitor_ids=texts(mon))["monitors"]), 1)
        self.assertTrue(self.c.call("proxy.node.monitor.remove", monitor_id=s(mon))["removed"])
        self.assertEqual(self.c.call("proxy.node.monitor.list")["monitors"], [])

    def test_a_watch_folder_takes_only_the_files_its_pattern_matches_once_started(self):
        with tempfile.TemporaryDirectory() as d:
            def drop(name):
                with open(os.path.join(d, name), "wb") as f:
                    f.write(b"media")

            def made():
                (m,) = self.c.call("proxy.node.status.monitors", monitor_ids=texts(mon))["monitors"]
                return [self.c.call("proxy.node.status.workflows2", workflow_ids=texts(w))
                        ["workflows"][0]["name"] for w in m["workflow-ids"]]

            drop("before.mov")
            reply = self.c.call(
                "proxy.node.submit.build", name=s("drop"),
                sources=[8, [struct(type=s("monitor-source"), path=s(d),
                                    file_pattern=s("*.mov"))]],
                tasks=[8, [struct(type=s("transfer"))]])
            (mon,) = reply["monitor-ids"]
            drop("waiting.mov")
            self.assertEqual(made(), [])  # not started yet
            self.c.call("proxy.node.monitor.start", monitor_id=s(mon))
            self.assertEqual(made(), ["waiting.mov"])
            drop("notes.txt")
            drop("clip.mov")
            drop("clip.mov.part")
            self.assertEqual(made(), ["waiting.mov", "clip.mov"])
            (m,) = self.c.call("proxy.node.monitor.list")["monitors"]
            self.assertEqual(m["file-pattern"], "*.mov")

    def test_lists_come_in_numeric_id_order(self):
        for _ in range(6):
            self.submit_two_tasks()  # wf-1, wf-4, ..., wf-16 and their jobs
        workflows = [w["workflow-id"]
                     for w in self.c.call("proxy.node.status.workflows2")["workflows"]]
        self.assertEqual(workflows, ["wf-%d" % n for n in range(1, 17, 3)])
        jobs = [t["job-id"] for t in self.c.call("proxy.node.status.tasks2")["tasks"]]
        self.assertEqual(jobs, sorted(jobs, key=lambda j: int(j.split("-")[1])))
        self.assertEqual(len(jobs), 12)
        for n in range(11):
            self.c.call("proxy.node.submit.build", name=s("w"),
                        sources=[8, [struct(type=s("monitor-source"), path=s("in"))]],
                        tasks=[8, [struct(type=s("transfer"))]])
        monitors = [m["monitor-id"] for m in self.c.call("proxy.node.monitor.list")["monitors"]]
        self.assertEqual(monitors, sorted(monitors, key=lambda m: int(m.split("-")[1])))
        self.assertEqual(len(monitors), 11)

    def test_status_workflows_report_state_and_progress(self):
        def status(wf):
            (w,) = self.c.call("proxy.node.status.workflows2", workflow_ids=texts(wf))["workflows"]
            return w["state"], w["progress"]

        first = self.submit_two_tasks()
        wf = first["workflow-id"]
        self.assertEqual(status(wf), ("queued", 0.0))
        self.c.call("proxy.sim.advance")  # both jobs run, half done
        self.assertEqual(status(wf), ("running", 0.5))
        self.c.call("proxy.node.job.pause", job_id=s(first["job-ids"][0]))
        self.assertEqual(status(wf)[0], "running")
        self.c.call("proxy.node.job.pause", job_id=s(first["job-ids"][1]))
        self.assertEqual(status(wf)[0], "paused")
        self.c.call("proxy.node.job.cancel", job_id=s(first["job-ids"][0]))
        self.c.call("proxy.node.job.resume", job_id=s(first["job-ids"][1]))
        self.assertEqual(status(wf)[0], "queued")
        self.c.call("proxy.sim.advance")
        self.c.call("proxy.sim.advance")
        self.assertEqual(status(wf), ("finished", 0.75))  # one cancelled at half way
        cancelled = self.submit_two_tasks()["workflow-id"]
        self.c.call("proxy.node.submission.recall", workflow_id=s(cancelled))
        self.assertEqual(status(cancelled), ("cancelled", 0.0))
        # The states filter asks for the workflow's own state.
        self.assertEqual([w["workflow-id"] for w in self.c.call(
            "proxy.node.status.workflows2", states=texts("cancelled"))["workflows"]], [cancelled])
        self.assertEqual([w["workflow-id"] for w in self.c.call(
            "proxy.node.status.workflows", states=texts("finished"))["workflows"]], [wf])

    def test_cluster_bonjour_and_analysis(self):
        info = self.c.call("proxy.node.info.cluster", target_node_info=struct(iid=s("XMLRPC")))
        self.assertEqual(info["nodes"][0]["host"], "127.0.0.1")
        self.assertEqual(len(self.c.call("proxy.status.bonjour")["services"]), 1)
        self.assertEqual(self.c.call("proxy.network.info.bonjour",
                                     cluster=s("other"))["services"], [])
        with tempfile.TemporaryDirectory() as d:
            clip = os.path.join(d, "clip.mxf")
            with open(clip, "wb") as f:
                f.write(b"x" * 1234)
            os.utime(clip, (0, 86400))
            analysis = self.c.call("proxy.analyze.file", file=s(clip))
            self.assertEqual((analysis["file"], analysis["container"], analysis["size"],
                              analysis["modified"]), (clip, "mxf", 1234, "1970-01-02T00:00:00Z"))
            missing = os.path.join(d, "gone.mov")
            self.assertEqual(self.c.call("proxy.analyze.file", file=s(missing))["error"],
                             "cannot analyze '%s': No such file or directory" % missing)
            self.assertEqual(self.c.call("proxy.analyze.file", file=s(d))["error"],
                             "cannot analyze '%s': not a file" % d)
        self.assertEqual(self.c.call("proxy.analyze.file")["error"],
                         "property 'file' is required")

    def test_every_command_of_the_command_set_is_known(self):
        commands = """proxy.general.version proxy.node.info.cluster proxy.status.bonjour
            proxy.network.info.bonjour proxy.node.submit.build proxy.node.submit.submission
            proxy.node.submission.recall proxy.task.create.transfer proxy.task.create.youtube
            proxy.task.create.execute proxy.task.create.mail proxy.task.create.mbr
            proxy.source.create.file-source proxy.source.create.monitor-source
            proxy.source.create.edl-source proxy.source.create.iseq-source
            proxy.node.status.tasks2 proxy.node.status.workflows2 proxy.node.status.tasks
            proxy.node.status.workflows proxy.node.status.monitors proxy.node.monitor.list
            proxy.node.monitor.start proxy.node.monitor.set-priority proxy.node.monitor.stop
            proxy.node.monitor.remove proxy.node.job.cancel proxy.node.job.pause
            proxy.node.job.resume proxy.node.job.requeue proxy.node.job.set-priority
            proxy.node.history.remove-workflow proxy.analyze.file""".split()
        self.assertEqual(len(commands), 33)
        for command in commands:
            with self.subTest(command):
                reply = self.c.call(command)
                self.assertNotIn("unknown command", reply.get("error", ""))


if __name__ == "__main__":
    testmain.main()
