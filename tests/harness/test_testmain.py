"""testmain.main(): the exit status ctest sees for a script whose cases
passed, failed, partly skipped or all skipped, however they skip (a skipped
class, SkipTest in setUpClass, skipped subtests)."""

import os
import subprocess
import sys
import tempfile
import textwrap
import unittest

import testmain

COMMON = os.path.dirname(os.path.abspath(testmain.__file__))

SCRIPTS = {
    "all_pass": """
        class T(unittest.TestCase):
            def test_a(self): pass
            def test_b(self): pass
        """,
    "one_fails": """
        class T(unittest.TestCase):
            def test_a(self): pass
            @unittest.skip("not here")
            def test_b(self): pass
            def test_c(self): self.fail("wrong")
        """,
    "partly_skipped": """
        class T(unittest.TestCase):
            def test_a(self): pass
            @unittest.skip("needs a thing this machine lacks")
            def test_b(self): pass
        """,
    "class_skipped": """
        @unittest.skip("needs root")
        class T(unittest.TestCase):
            def test_a(self): pass
            def test_b(self): pass
        """,
    "setupclass_skips": """
        class T(unittest.TestCase):
            @classmethod
            def setUpClass(cls): raise unittest.SkipTest("no daemon")
            def test_a(self): pass
        """,
    "subtests_skipped": """
        class T(unittest.TestCase):
            def test_a(self):
                for i in range(3):
                    with self.subTest(i=i):
                        self.skipTest("sanitized build")
        """,
    "one_subtest_passes": """
        class T(unittest.TestCase):
            def test_a(self):
                for i in range(2):
                    with self.subTest(i=i):
                        if i == 0:
                            self.skipTest("first one skips")
        """,
    "empty": """
        class T(unittest.TestCase):
            pass
        """,
}


class ExitStatus(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.dir.cleanup)

    def run_script(self, name):
        path = os.path.join(self.dir.name, name + ".py")
        with open(path, "w") as f:
            f.write("import unittest\nimport testmain\n")
            f.write(textwrap.dedent(SCRIPTS[name]))
            f.write("\nif __name__ == '__main__':\n    testmain.main()\n")
        env = dict(os.environ, PYTHONPATH=COMMON)
        r = subprocess.run([sys.executable, path, "-v"], capture_output=True, text=True,
                           env=env, timeout=30)
        return r.returncode, r.stderr

    def test_passed_and_partly_skipped_scripts_pass_and_show_the_reason(self):
        self.assertEqual(self.run_script("all_pass")[0], 0)
        status, err = self.run_script("partly_skipped")
        self.assertEqual(status, 0, err)
        self.assertIn("skipped 'needs a thing this machine lacks'", err)
        self.assertEqual(self.run_script("one_subtest_passes")[0], 0)

    def test_a_failure_or_an_empty_run_fails(self):
        status, err = self.run_script("one_fails")
        self.assertEqual(status, 1, err)
        status, err = self.run_script("empty")
        self.assertEqual(status, 1, err)
        self.assertIn("no test ran", err)

    def test_a_script_whose_cases_all_skipped_says_skipped_and_why(self):
        for name, reason in (("class_skipped", "needs root"),
                             ("setupclass_skips", "no daemon"),
                             ("subtests_skipped", "sanitized build")):
            with self.subTest(script=name):
                status, err = self.run_script(name)
                self.assertEqual(status, testmain.SKIPPED, err)
                self.assertEqual(err.strip().splitlines()[-1].split(": ", 1)[1], reason)


if __name__ == "__main__":
    testmain.main()
