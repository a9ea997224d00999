"""Each script of examples/ run as a user would, against ClientProxySim
behind XMLRPCServer (jobs of 1.5 s), checking what it prints and its exit
code."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
EXAMPLES = os.path.join(SOURCE, "examples")
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))
import gateway  # noqa: E402
import testmain  # noqa: E402
sys.path.insert(0, HERE)
import doc_examples  # noqa: E402

JOB_MS = 1500


def script(name, *args, timeout=60):
    return subprocess.run([sys.executable, os.path.join(EXAMPLES, name)] + list(args),
                          capture_output=True, text=True, timeout=timeout,
                          env=dict(os.environ, CORVANE_XMLRPC_URL=gateway.URL))


@gateway.skip_unless_private_network()
class Examples(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gw = gateway.Gateway(cls.addClassCleanup, sim_args=["--job-duration-ms", str(JOB_MS)])
        cls.gw.wait_connected()

    def ok(self, r):
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        self.assertEqual(r.stderr, "")
        return r.stdout

    def submit(self, *files):
        out = self.ok(script("submit.py", "example", "/media/out", *files))
        self.assertRegex(out, r"^workflow wf-\d+, jobs( job-\d+)+\n$")
        words = out.replace(",", "").split()
        return words[1], words[3:]

    def test_the_readme_snippet_answers_as_it_says(self):
        with open(os.path.join(SOURCE, "README.md")) as f:
            blocks = [text for lang, text, _ in doc_examples.code_blocks(f.read())
                      if lang == "python"]
        self.assertTrue(blocks, "README.md has no Python example")
        names = {}
        exec(blocks[0], names)  # noqa: S102 - the README's own example, as a user pastes it
        s = names["s"]
        version = s.getVersion({})
        self.assertEqual(version["build"], "simulator")
        self.assertEqual(version["product"], "Corvane Client Proxy")
        self.assertTrue(s.system.methodHelp("jobPause").startswith(
            "Pause a job (Corresponding vxp_clientproxy.xml command: "))
        answer = s.jobPause({"job-id": "no-such"})
        self.assertEqual(list(answer), ["error"], answer)

    def test_version(self):
        self.assertEqual(self.ok(script("version.py")), "Corvane Client Proxy 7.0.0.0\n")

    def test_sources_and_tasks(self):
        out = self.ok(script("sources_and_tasks.py", "/media/in/x.mov"))
        self.assertIn("'files': ['/media/in/x.mov']", out)
        self.assertIn("'type': 'file-source'", out)
        self.assertIn("'type': 'transfer'", out)
        self.assertIn("'type': 'mail'", out)

    def test_submit_then_follow_to_the_end(self):
        wf, jobs = self.submit("/media/in/a.mov")
        self.assertEqual(len(jobs), 1)
        # (Text mode turns the bar's carriage returns into line ends.)
        bars = [b for b in self.ok(script("follow.py", wf)).splitlines() if b]
        self.assertEqual(bars[-1].split(), [wf, "[" + "#" * 40 + "]", "100", "%", "finished"])
        # The bar was drawn more than once on the way.
        self.assertGreater(len(bars), 1)
        self.assertIn("running", bars[0])

    def test_pause_resume_cancel(self):
        wf, (job,) = self.submit("/media/in/b.mov")
        self.assertEqual(self.ok(script("control.py", "pause", job)), "%s: paused\n" % job)
        self.assertEqual(self.ok(script("control.py", "resume", job)), "%s: queued\n" % job)
        self.assertEqual(self.ok(script("control.py", "cancel", job)), "%s: cancelled\n" % job)
        r = script("follow.py", wf)
        self.assertEqual(r.returncode, 1)
        self.assertTrue(r.stdout.rstrip().endswith("cancelled"), r.stdout)
        wf2, (job2,) = self.submit("/media/in/c.mov")
        self.assertEqual(self.ok(script("control.py", "cancel-workflow", wf2)),
                         "%s: cancelled %s\n" % (wf2, job2))
        # A refusal is an error message and exit code 1.
        r = script("control.py", "pause", job)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr, "error: jobPause: job '%s' is cancelled, cannot become "
                                   "paused\n" % job)

    def test_watch_folder(self):
        d = tempfile.mkdtemp(prefix="examples-watch-")
        self.addCleanup(shutil.rmtree, d)
        proc = subprocess.Popen([sys.executable, os.path.join(EXAMPLES, "watch_folder.py"), d,
                                 "*.mov", "30"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                text=True, env=dict(os.environ, CORVANE_XMLRPC_URL=gateway.URL))
        self.addCleanup(lambda: proc.poll() is None and (proc.kill(), proc.wait()))
        first = proc.stdout.readline()
        self.assertRegex(first, r"^watching .* for \*\.mov as mon-\d+\n$")
        for name in ("one.mov", "notes.txt", "two.mov"):
            with open(os.path.join(d, name), "wb") as f:
                f.write(b"media")
            time.sleep(0.2)
        names = {proc.stdout.readline().split(": ")[1].strip() for _ in range(2)}
        self.assertEqual(names, {"one.mov", "two.mov"})
        proc.send_signal(signal.SIGINT)
        out, err = proc.communicate(timeout=30)
        self.assertEqual(proc.returncode, 0, err)
        self.assertRegex(out, r"removed mon-\d+ after 2 workflow\(s\)\n$")

    def test_an_unreachable_server_is_one_line_and_exit_1(self):
        r = subprocess.run([sys.executable, os.path.join(EXAMPLES, "version.py")],
                           capture_output=True, text=True, timeout=30,
                           env=dict(os.environ, CORVANE_XMLRPC_URL="http://127.0.0.1:9/"))
        self.assertEqual(r.returncode, 1)
        self.assertTrue(r.stderr.startswith("error: cannot reach http://127.0.0.1:9/"), r.stderr)


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
