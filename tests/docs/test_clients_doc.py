"""docs/clients.md runs as written: every code block, with the language's
interpreter or compiler and the client library of the interoperability
suite, against ClientProxySim behind XMLRPCServer. A block that pauses a
job must leave exactly one more job paused; the others must end without an
error. A language whose tools are not installed is skipped, saying so."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))
import gateway  # noqa: E402
import doc_examples as de  # noqa: E402

PAGE = os.path.join(SOURCE, "docs", "clients.md")
BUILD = os.environ.get("XMLRPCS_BUILD_DIR", "")
NODE_MODULES = os.path.join(SOURCE, "tests", "interop", "node", "node_modules")
AXMLRPC_JAR = "/usr/share/java/axmlrpc.jar"
RUN_TIMEOUT = 60
BUILD_TIMEOUT = 300


def blocks():
    with open(PAGE) as f:
        return [(lang, text, line) for lang, text, line in de.code_blocks(f.read())
                if lang in ("python", "ruby", "perl", "java", "go", "tcl", "lua", "js")]


def paused_jobs(proxy):
    return {t["job-id"] for t in proxy.statusTasks2({"states": ["paused"]})["tasks"]}


@gateway.skip_unless_private_network()
class ClientExamples(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gw = gateway.Gateway(cls.addClassCleanup, sim_args=["--job-duration-ms", "20000"])
        cls.gw.wait_connected()

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="clients-doc-", dir=BUILD or None)
        self.addCleanup(shutil.rmtree, self.dir)

    def need(self, *tools):
        missing = [t for t in tools if not shutil.which(t)]
        if missing:
            self.skipTest("%s not installed" % ", ".join(missing))

    def write(self, name, text):
        path = os.path.join(self.dir, name)
        with open(path, "w") as f:
            f.write(text)
        return path

    def command(self, lang, text):
        """The command that runs one block, after building it if needed."""
        if lang == "python":
            return [sys.executable, self.write("example.py", text)]
        if lang in ("ruby", "perl", "lua"):
            tool = {"ruby": "ruby", "perl": "perl", "lua": "lua5.1"}[lang]
            self.need(tool)
            return [tool, self.write("example." + lang, text)]
        if lang == "tcl":
            self.need("tclsh")
            return ["tclsh", self.write("example.tcl", text)]
        if lang == "js":
            self.need("node")
            if not os.path.isdir(os.path.join(NODE_MODULES, "xmlrpc")):
                self.skipTest("tests/interop/node/node_modules is missing (npm ci there)")
            return ["node", self.write("example.js", text)]
        if lang == "java":
            self.need("javac", "java")
            if not os.path.isfile(AXMLRPC_JAR):
                self.skipTest(AXMLRPC_JAR + " not installed")
            name = re.search(r"public class (\w+)", text).group(1)
            src = self.write(name + ".java", text)
            subprocess.run(["javac", "-encoding", "UTF-8", "-cp", AXMLRPC_JAR, "-d", self.dir,
                            src], check=True, capture_output=True, timeout=BUILD_TIMEOUT)
            return ["java", "-cp", AXMLRPC_JAR + os.pathsep + self.dir, name]
        if lang == "go":
            self.need("go")
            src = self.write("main.go", text)
            out = os.path.join(self.dir, "example")
            # The cache lives in the build folder, so that later runs reuse it.
            env = dict(os.environ, GOPATH="/usr/share/gocode", GO111MODULE="off", GOFLAGS="",
                       GOCACHE=os.path.join(BUILD or self.dir, "go-cache-docs"))
            r = subprocess.run(["go", "build", "-o", out, src], env=env, capture_output=True,
                               text=True, timeout=BUILD_TIMEOUT)
            self.assertEqual(r.returncode, 0, r.stderr)
            return [out]
        raise AssertionError("no runner for " + lang)

    def test_every_example_runs_as_written(self):
        found = blocks()
        self.assertGreaterEqual(len(found), 12)
        proxy = self.gw.proxy()
        for lang, text, line in found:
            with self.subTest(line=line, lang=lang):
                argv = self.command(lang, text)
                before = paused_jobs(proxy)
                env = dict(os.environ, NODE_PATH=NODE_MODULES)
                r = subprocess.run(argv, capture_output=True, text=True, timeout=RUN_TIMEOUT,
                                   cwd=self.dir, env=env)
                self.assertEqual((r.returncode, r.stderr), (0, ""), r.stdout)
                if "jobPause" in text:
                    self.assertEqual(len(paused_jobs(proxy) - before), 1,
                                     "the example paused no job (output: %r)" % r.stdout)
                self.assertNotIn("error", r.stdout.lower())


if __name__ == "__main__":
    gateway.run_in_private_network()
    unittest.main()
