"""Running the build's programs from black-box tests, in the Linux build and
in the Windows build, whose programs end in ".exe" and run under Wine
through an emulator (scripts/wine-run.sh), both set by the build's test
registration (XMLRPCS_EXE_SUFFIX, XMLRPCS_EMULATOR).

Wine's sockets are made by its wineserver, outside any namespace a program
could be put in; so under Wine a whole script runs in a network namespace of
its own with a Wine prefix whose server runs there too (the e2e gateway sets
that up), and tests use namespace(), which there runs processes as they are.
"""

import os
import signal
import subprocess
import sys
import unittest

from netns import NetNs, is_root

BUILD = os.environ.get("XMLRPCS_BUILD_DIR", "")
EXE_SUFFIX = os.environ.get("XMLRPCS_EXE_SUFFIX", "")
EMULATOR = os.environ.get("XMLRPCS_EMULATOR", "")
WINDOWS = bool(EXE_SUFFIX)


def _sanitized(build):
    """Whether the build under test runs with AddressSanitizer and UBSan."""
    try:
        with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
            return any(line.strip() == "XMLRPCS_SANITIZE:BOOL=ON" for line in cache)
    except OSError:
        return False


# Sanitized programs keep shadow memory and quarantined allocations, and
# their runtime opens files of its own: memory figures and descriptor limits
# measured on them say nothing about the program.
SANITIZED = _sanitized(BUILD)

if WINDOWS:
    sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
    import gateway  # noqa: E402

# How a test asks a program to end cleanly: SIGTERM on Linux; Windows has
# no SIGTERM (Wine ends the process at once), and SIGINT reaches the
# program as Ctrl-C.
STOP_SIGNAL = signal.SIGINT if WINDOWS else signal.SIGTERM


def binary(name):
    """The path of one of the build's programs."""
    return os.path.join(BUILD, "bin", name + EXE_SUFFIX)


def command(path):
    """The argv that runs the program at path (the emulator in front under
    Wine)."""
    return ([EMULATOR] if EMULATOR else []) + [path]


def program_path(path):
    """A file's path as the program sees it: under Wine the Unix root is
    drive Z:."""
    return "Z:" + path.replace("/", "\\") if WINDOWS else path


class SameNs:
    """Stands in for NetNs under Wine: processes run as they are, in the
    script's own namespace."""

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        return False

    def popen(self, argv, **kwargs):
        return subprocess.Popen(argv, **kwargs)

    def run(self, argv, **kwargs):
        return subprocess.run(argv, **kwargs)


def namespace(**kwargs):
    """A network namespace for one test (NetNs), or SameNs under Wine."""
    return SameNs() if WINDOWS else NetNs(**kwargs)


def run_in_private_network():
    """Call before unittest.main(): under Wine, re-executes the script in a
    namespace of its own (as root)."""
    if WINDOWS:
        gateway.run_in_private_network()


def skip_unless_private_network():
    """Skips unless the tests can have their own network: a namespace per
    test (root), or under Wine the script's own namespace."""
    if WINDOWS:
        return gateway.skip_unless_private_network()
    return unittest.skipUnless(
        is_root(), "needs root: the test runs the server in a network namespace of its own "
        "(unshare -n), which only root may create")
