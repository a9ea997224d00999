"""vxdatatool: building the encrypted data files and refusing broken sources."""
import os
import shutil
import subprocess
import tempfile
import unittest
import testmain

BUILD = os.environ["XMLRPCS_BUILD_DIR"]
TOOL = os.path.join(BUILD, "bin", "vxdatatool")
SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "data")


def run(*args):
    return subprocess.run([TOOL, *args], capture_output=True, text=True, timeout=30)


class DataTool(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="datatool-")
        self.addCleanup(shutil.rmtree, self.dir)
        for sub in ("rng", "xml"):
            shutil.copytree(os.path.join(SOURCE, sub), os.path.join(self.dir, sub))
        shutil.copy(os.path.join(SOURCE, "vxp_clientproxy.xml"), self.dir)
        self.etc = os.path.join(self.dir, "etc")
        os.mkdir(self.etc)

    def build(self):
        return run("build", os.path.join(self.dir, "rng"), os.path.join(self.dir, "xml"),
                   os.path.join(self.dir, "vxp_clientproxy.xml"), self.etc)

    def test_build_writes_encrypted_files_that_decrypt_to_the_sources(self):
        r = self.build()
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn("33 commands", r.stdout)
        vxpcp = os.path.join(self.etc, "vxpcp")
        with open(vxpcp, "rb") as f:
            self.assertTrue(f.read().startswith(b"VXAES\x01"))
        plain = os.path.join(self.dir, "plain.xml")
        self.assertEqual(run("decrypt", vxpcp, plain).returncode, 0)
        with open(plain, "rb") as a, open(os.path.join(self.dir, "vxp_clientproxy.xml"), "rb") as b:
            self.assertEqual(a.read(), b.read())
        cdb = os.path.join(self.dir, "cdb.txt")
        self.assertEqual(run("decrypt", os.path.join(self.etc, "cdb"), cdb).returncode, 0)
        with open(cdb) as f:
            self.assertTrue(f.read().startswith("corvane-cdb 1\n"))

    def test_schema_violation_names_the_file(self):
        path = os.path.join(self.dir, "xml", "media-constraints.xml")
        with open(path, "w") as f:
            f.write('<constraints><constraint name="x" type="colour"/></constraints>')
        r = self.build()
        self.assertEqual(r.returncode, 1)
        self.assertIn(path, r.stderr)
        self.assertFalse(os.path.exists(os.path.join(self.etc, "cdb")))

    def test_command_with_unknown_constraint_is_refused(self):
        path = os.path.join(self.dir, "vxp_clientproxy.xml")
        with open(path, "w") as f:
            f.write('<commands><command name="proxy.x"><property name="p" ref="nowhere"/>'
                    "</command></commands>")
        r = self.build()
        self.assertEqual(r.returncode, 1)
        self.assertIn("unknown constraint 'nowhere'", r.stderr)

    def test_decrypting_a_damaged_file_fails(self):
        self.assertEqual(self.build().returncode, 0)
        vxpcp = os.path.join(self.etc, "vxpcp")
        with open(vxpcp, "r+b") as f:
            f.seek(40)
            b = f.read(1)
            f.seek(40)
            f.write(bytes([b[0] ^ 1]))
        r = run("decrypt", vxpcp, os.path.join(self.dir, "out"))
        self.assertEqual(r.returncode, 1)
        self.assertIn("decryption failed", r.stderr)

    def test_decrypt_to_standard_output(self):
        self.assertEqual(self.build().returncode, 0)
        r = subprocess.run([TOOL, "decrypt", os.path.join(self.etc, "cdb"), "-"],
                           capture_output=True, timeout=30)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertTrue(r.stdout.startswith(b"corvane-cdb 1\n"))

    def test_usage(self):
        r = run("frobnicate")
        self.assertEqual(r.returncode, 2)
        self.assertIn("usage:", r.stderr)


if __name__ == "__main__":
    testmain.main()
