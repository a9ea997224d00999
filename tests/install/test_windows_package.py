"""The Windows package, XMLRPCServer-<version>-win64.zip: unpacked into a
folder of its own, its layout is the one the programs expect, its programs
import only DLLs that are part of Windows, the unpacked server prints its
default configuration, and vxdatatool does what README-windows.txt tells
the user it does. The programs run under Wine."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
import zipfile

import programs

BUILD = programs.BUILD
SOURCE = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
VERSION = os.environ.get("XMLRPCS_VERSION", "")
OBJDUMP = os.environ.get("XMLRPCS_OBJDUMP", "x86_64-w64-mingw32-objdump")
PROGRAMS = ("XMLRPCServer.exe", "ClientProxySim.exe", "vxdatatool.exe")
CONSTRAINT_FILES = ("core", "io", "media", "node", "state", "proxy")
# Under Wine the first run in a prefix may take a while.
TIMEOUT = 120

# What the programs import, each a DLL of every Windows 10 system's
# System32 folder, and what for. Anything else (libstdc++-6.dll,
# libgcc_s_seh-1.dll, libwinpthread-1.dll, libxml2.dll, ...) would have to
# be shipped beside the programs: the static link is meant to leave none.
SYSTEM_DLLS = {
    "kernel32.dll": "processes, files, threads, the console",
    "msvcrt.dll": "the C runtime mingw-w64 links",
    "ws2_32.dll": "Winsock 2",
    "advapi32.dll": "the event log (the server)",
    "shell32.dll": "SHGetFolderPathA",
    "bcrypt.dll": "AES-256-GCM and SHA-256 through CNG (the data files)",
}


def imported_dlls(path):
    """The DLL names in a program's import table, as objdump -p shows them."""
    out = subprocess.run([OBJDUMP, "-p", path], capture_output=True, text=True, check=True,
                         timeout=60).stdout
    return re.findall(r"^\s*DLL Name: (\S+)\s*$", out, re.MULTILINE)


def wine(argv, cwd):
    return subprocess.run(programs.command(argv[0]) + argv[1:], cwd=cwd, capture_output=True,
                          timeout=TIMEOUT)


@unittest.skipUnless(programs.WINDOWS, "the zip is made by the Windows build")
class WindowsPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # The zip is the target package-zip, which scripts/build.sh windows
        # builds after the programs. Building it here would relink programs
        # that other tests are running.
        cls.name = "XMLRPCServer-%s-win64" % VERSION
        cls.zip = os.path.join(BUILD, cls.name + ".zip")
        if not os.path.isfile(cls.zip):
            raise AssertionError("%s missing: build the target package-zip" % cls.zip)
        for program in PROGRAMS:
            built = os.path.join(BUILD, "bin", program)
            if os.path.getmtime(built) > os.path.getmtime(cls.zip):
                raise AssertionError("%s is older than %s: build the target package-zip"
                                     % (cls.zip, built))
        cls.tmp = tempfile.mkdtemp(prefix="windows-zip-test-", dir=BUILD)
        with zipfile.ZipFile(cls.zip) as z:
            cls.members = z.namelist()
            z.extractall(cls.tmp)
        cls.root = os.path.join(cls.tmp, cls.name)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def path(self, *parts):
        return os.path.join(self.root, *parts)

    def test_one_folder_named_after_the_version(self):
        self.assertTrue(VERSION, "XMLRPCS_VERSION not set by the test registration")
        tops = {m.split("/", 1)[0] for m in self.members}
        self.assertEqual(tops, {self.name})

    def test_layout_is_the_one_the_programs_expect(self):
        self.assertEqual(sorted(os.listdir(self.path("bin"))), sorted(PROGRAMS))
        for name in ("cdb", "vxpcp"):
            self.assertGreater(os.path.getsize(self.path("etc", name)), 0, name)
        for name in CONSTRAINT_FILES:
            self.assertTrue(os.path.isfile(self.path("xml", name + "-constraints.xml")), name)
        for name in ("constraints.rng", "commands.rng"):
            self.assertTrue(os.path.isfile(self.path("rng", name)), name)
        self.assertEqual(sorted(os.listdir(self.root)),
                         ["README-windows.txt", "bin", "etc", "rng", "xml"])

    def test_readme_names_every_program(self):
        with open(self.path("README-windows.txt"), encoding="utf-8") as f:
            readme = f.read()
        for program in PROGRAMS:
            self.assertIn("bin\\" + program, readme)

    def test_programs_import_only_windows_system_dlls(self):
        for program in PROGRAMS:
            dlls = imported_dlls(self.path("bin", program))
            self.assertIn("kernel32.dll", [d.lower() for d in dlls], program)
            foreign = [d for d in dlls if d.lower() not in SYSTEM_DLLS]
            self.assertEqual(foreign, [], "%s imports %s" % (program, dlls))
            print("%s imports %s" % (program, ", ".join(dlls)))

    def test_unpacked_server_prints_the_default_configuration(self):
        r = wine([self.path("bin", "XMLRPCServer.exe"), "--cfg"], cwd=self.root)
        self.assertEqual(r.returncode, 0, r.stderr.decode(errors="replace"))
        out = r.stdout.decode()
        self.assertTrue(out.startswith("<?xml"), out[:200])
        self.assertIn("<listen-port>40431</listen-port>", out)
        # The same text as the build tree's program prints.
        built = wine([programs.binary("XMLRPCServer"), "--cfg"], cwd=self.tmp)
        self.assertEqual(built.returncode, 0)
        self.assertEqual(out, built.stdout.decode())

    def test_vxdatatool_shows_and_rebuilds_the_data_files(self):
        tool = self.path("bin", "vxdatatool.exe")
        # decrypt etc\vxpcp -: the command file the build started from.
        r = wine([tool, "decrypt", "etc\\vxpcp", "-"], cwd=self.root)
        self.assertEqual(r.returncode, 0, r.stderr.decode(errors="replace"))
        with open(os.path.join(SOURCE, "data", "vxp_clientproxy.xml"), "rb") as f:
            self.assertEqual(r.stdout, f.read())
        # decrypt into a file, build again into a folder of its own: the same
        # databases, encrypted afresh.
        r = wine([tool, "decrypt", "etc\\vxpcp", "commands.xml"], cwd=self.root)
        self.assertEqual(r.returncode, 0, r.stderr.decode(errors="replace"))
        os.mkdir(self.path("etc2"))
        try:
            r = wine([tool, "build", "rng", "xml", "commands.xml", "etc2"], cwd=self.root)
            self.assertEqual(r.returncode, 0, r.stderr.decode(errors="replace"))
            for name in ("cdb", "vxpcp"):
                old = wine([tool, "decrypt", "etc\\" + name, "-"], cwd=self.root)
                new = wine([tool, "decrypt", "etc2\\" + name, "-"], cwd=self.root)
                self.assertEqual(old.returncode, 0, name)
                self.assertEqual(new.returncode, 0, name)
                self.assertGreater(len(old.stdout), 0, name)
                self.assertEqual(new.stdout, old.stdout, name)
        finally:
            shutil.rmtree(self.path("etc2"), ignore_errors=True)
            os.remove(self.path("commands.xml"))


if __name__ == "__main__":
    unittest.main()
