"""XMLRPCServer reading its data files from beside its executable: a copied
install tree, with files damaged or removed."""
import contextlib
import os
import shutil
import subprocess
import tempfile
import unittest

from netns import NetNs, is_root
import programs
import testmain

BUILD = os.environ["XMLRPCS_BUILD_DIR"]
WINDOWS = programs.WINDOWS
# Seconds the server may take to start or to fail (Wine starts slower).
RUN_TIMEOUT = 60 if WINDOWS else 20
program_path = programs.program_path


class InstallTree:
    """bin/XMLRPCServer with etc/, xml/ and rng/ beside it, in a scratch
    directory."""

    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="server-data-")
        os.mkdir(os.path.join(self.root, "bin"))
        shutil.copy2(programs.binary("XMLRPCServer"), os.path.join(self.root, "bin"))
        for sub in ("etc", "xml", "rng"):
            shutil.copytree(os.path.join(BUILD, sub), os.path.join(self.root, sub))
        self.server = programs.command(
            os.path.join(self.root, "bin", os.path.basename(programs.binary("XMLRPCServer"))))
        # The path the server builds for its command file.
        self.vxpcp = os.path.join(self.root, "bin", "..", "etc", "vxpcp")
        self.cdb = os.path.join(self.root, "bin", "..", "etc", "cdb")
        self.config = os.path.join(self.root, "XMLRPCServer.xml")
        with open(self.config, "w") as f:
            f.write("<xmlrpcserver-configuration><services><xmlrpc><active>false</active>"
                    "</xmlrpc></services></xmlrpcserver-configuration>")

    def cleanup(self):
        shutil.rmtree(self.root)


def run_until_failure(tree):
    """Runs the server, which must fail during construction, before its loop
    ever dials the proxy; returns the completed process. As root it runs in
    a namespace of its own, so that even a server that wrongly starts never
    reaches a proxy of someone else's on this machine."""
    argv = tree.server + ["--usecfg", tree.config]
    if is_root() and not WINDOWS:
        with NetNs() as ns:
            return ns.run(argv, capture_output=True, text=True, timeout=RUN_TIMEOUT)
    return subprocess.run(argv, capture_output=True, text=True, timeout=RUN_TIMEOUT)


class DamagedFiles(unittest.TestCase):
    def setUp(self):
        self.tree = InstallTree()
        self.addCleanup(self.tree.cleanup)

    def test_corrupt_command_file_is_named_with_its_full_path(self):
        with open(self.tree.vxpcp, "r+b") as f:
            f.seek(50)
            b = f.read(1)
            f.seek(50)
            f.write(bytes([b[0] ^ 0x40]))
        r = run_until_failure(self.tree)
        self.assertEqual(r.returncode, 1, r.stderr)
        self.assertIn("exception: Error in file %s\n" % program_path(self.tree.vxpcp), r.stderr)

    def test_missing_compiled_database_stops_the_server(self):
        os.remove(self.tree.cdb)
        r = run_until_failure(self.tree)
        self.assertEqual(r.returncode, 1, r.stderr)
        self.assertIn(program_path(self.tree.cdb), r.stderr)


@programs.skip_unless_private_network()
class IntactTree(unittest.TestCase):
    def test_compiled_database_alone_is_enough(self):
        tree = InstallTree()
        self.addCleanup(tree.cleanup)
        # The server reads the compiled database by default: xml/ and rng/
        # are never opened.
        shutil.rmtree(os.path.join(tree.root, "xml"))
        shutil.rmtree(os.path.join(tree.root, "rng"))
        argv = tree.server + ["--usecfg", tree.config]
        # Under Wine the script already has a namespace of its own.
        with contextlib.nullcontext() if WINDOWS else NetNs() as ns:
            popen = subprocess.Popen if WINDOWS else ns.popen
            p = popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            try:
                # The first connection attempt comes after construction.
                line = ""
                while "trying to connect to client proxy" not in line:
                    line = p.stdout.readline()
                    if not line:
                        break
            finally:
                p.terminate()
                _, err = p.communicate(timeout=RUN_TIMEOUT)
        self.assertIn("trying to connect to client proxy", line, err)
        self.assertNotIn("exception", err)


if __name__ == "__main__":
    programs.run_in_private_network()
    testmain.main()
