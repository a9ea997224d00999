"""docs/methods.md runs as written: against ClientProxySim with the options
scripts/run.sh gives it, every Python example in order and every curl
example answer what the page shows (times aside). Also: the page names every
`error` text the gateway itself can answer."""

import contextlib
import io
import os
import re
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE, "tests", "e2e"))
import gateway  # noqa: E402
import doc_examples as de  # noqa: E402
import testmain  # noqa: E402

PAGE = os.path.join(SOURCE, "docs", "methods.md")
# The simulator's options in scripts/run.sh.
RUN_SH_SIM_ARGS = ["--job-duration-ms", "20000"]


def page():
    with open(PAGE) as f:
        return f.read()


class PageText(unittest.TestCase):
    def test_every_error_text_of_the_gateway_is_listed(self):
        header = os.path.join(SOURCE, "lib", "vxcapi", "include", "vxcapi", "connection.h")
        with open(header) as f:
            texts = [line.split('"')[1] for line in f if "inline constexpr const char* error_" in line]
        # The header must still be readable this way (the texts of the link).
        self.assertGreaterEqual(len(texts), 3)
        text = page()
        for t in texts + ["Wrong input, expected a struct. got ", "Malformed method ",
                          "no command database loaded", ": unknown method name"]:
            self.assertIn(t, text)

    def test_every_method_has_an_example(self):
        calls = set()
        for lang, block, _ in de.code_blocks(page()):
            if lang == "python":
                calls.update(re.findall(r"\bs\.(\w+)\(", block))
        self.assertEqual(sorted(set(gateway.VALID_PARAMS) - calls), [])
        self.assertEqual(len(gateway.VALID_PARAMS), 41)


@gateway.skip_unless_private_network()
class Examples(unittest.TestCase):
    def setUp(self):
        self.gw = gateway.Gateway(self.addCleanup, sim_args=RUN_SH_SIM_ARGS)
        self.gw.wait_connected()
        # A fresh simulator again: the probe above must not use up ids.
        self.gw.sim.stop()
        self.gw.start_sim()
        self.gw.wait_connected()

    def test_the_python_and_curl_examples_answer_as_shown_in_order(self):
        text = page()
        blocks = de.code_blocks(text)
        workdir = tempfile.mkdtemp(prefix="methods-doc-")
        self.addCleanup(subprocess.run, ["rm", "-rf", workdir])
        namespace = {}
        cwd = os.getcwd()
        os.chdir(workdir)
        self.addCleanup(os.chdir, cwd)
        compared = 0
        for i, (lang, block, line) in enumerate(blocks):
            if lang == "python":
                for st in de.python_statements(block, line):
                    with self.subTest(line=st.line, source=st.source):
                        if st.is_expression:
                            self.assertIsNotNone(st.expected_text,
                                                 "the page shows no reply for this call")
                            actual = eval(compile(st.source, PAGE, "eval"), namespace)
                            shown = de.normalize(st.expected())
                            self.assertTrue(de.matches(shown, de.normalize(actual)),
                                            "\nshown:  %r\nactual: %r" % (shown, actual))
                            compared += 1
                        else:
                            self.assertIsNone(st.expected_text, "a reply after a statement")
                            with contextlib.redirect_stdout(io.StringIO()):
                                exec(compile(st.source, PAGE, "exec"), namespace)
            elif lang == "sh" and block.lstrip().startswith("curl "):
                shown = blocks[i + 1][1] if i + 1 < len(blocks) else ""
                with self.subTest(line=line, source=block):
                    r = subprocess.run(["bash", "-c", block], capture_output=True, text=True,
                                       timeout=30)
                    self.assertEqual(r.returncode, 0, r.stderr)
                    self.assertEqual(de.normalize_http(r.stdout), de.normalize_http(shown))
                    compared += 1
        self.assertGreater(compared, 40)



@gateway.skip_unless_private_network()
class SendErrors(unittest.TestCase):
    """The calls the command check lets through but the link to the proxy
    cannot carry: the page lists what they answer."""

    def setUp(self):
        self.gw = gateway.Gateway(self.addCleanup)
        self.gw.wait_connected()

    def assert_listed(self, reply):
        self.assertEqual(list(reply), ["error"], reply)
        self.assertTrue(reply["error"].startswith("cannot send the command: "), reply)
        # The page writes a size that varies as <N>.
        shown = re.sub(r"message of \d+ bytes", "message of <N> bytes", reply["error"])
        self.assertIn("`%s`" % shown, page())

    def test_a_command_larger_than_a_frame(self):
        body = "x" * (17 * 1024 * 1024)
        self.assert_listed(self.gw.proxy().taskCreateMail({"to": ["ops@example.com"],
                                                           "body": body}))

    def test_a_parameter_nested_deeper_than_the_link_carries(self):
        deep = "leaf"
        for _ in range(62):  # with the parameter and `submission`: 65 levels
            deep = {"a": deep}
        self.assert_listed(self.gw.proxy().submitSubmission(
            {"submission": {"name": "deep", "x": deep}}))
        # One level less goes through.
        reply = self.gw.proxy().submitSubmission({"submission": {"name": "deep", "x": deep["a"]}})
        self.assertIn("workflow-id", reply)


if __name__ == "__main__":
    gateway.run_in_private_network()
    testmain.main()
