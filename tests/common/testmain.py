"""unittest.main() for the black-box scripts, telling ctest when a script
tested nothing because every case skipped.

    import testmain
    ...
    if __name__ == "__main__":
        testmain.main()

The exit status is 0 when every case passed (some may have skipped, with
their reasons in the -v output), 1 when one failed or none ran, and
SKIPPED (77) when all cases skipped: xmlrpcs_add_pytest registers that code
as the test's SKIP_RETURN_CODE, so ctest reports the script as skipped,
not passed. The reasons are repeated on the last line.
"""

import sys
import unittest

# Registered as SKIP_RETURN_CODE by xmlrpcs_add_pytest (tests/CMakeLists.txt).
SKIPPED = 77


class _Result(unittest.TextTestResult):
    """Also counts what was tested: cases and subtests that passed (or
    failed as expected)."""

    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        self.tested = 0

    def addSuccess(self, test):
        super().addSuccess(test)
        self.tested += 1

    def addExpectedFailure(self, test, err):
        super().addExpectedFailure(test, err)
        self.tested += 1

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is None:
            self.tested += 1


class _Runner(unittest.TextTestRunner):
    resultclass = _Result


def exit_status(result):
    """The script's exit status for a finished run (see the module's text)."""
    if not result.wasSuccessful():
        return 1
    if result.tested == 0 and result.skipped:
        return SKIPPED
    if result.tested == 0:
        return 1  # nothing ran, nothing skipped: a wrong name, an empty script
    return 0


def main(**kwargs):
    """Runs the script's tests like unittest.main(**kwargs) and exits."""
    program = unittest.main(testRunner=_Runner, exit=False, **kwargs)
    result = program.result
    status = exit_status(result)
    if status == SKIPPED:
        reasons = sorted({reason for _, reason in result.skipped})
        print("all %d cases skipped: %s" % (len(result.skipped), "; ".join(reasons)),
              file=sys.stderr)
    elif status == 1 and result.wasSuccessful():
        print("no test ran", file=sys.stderr)
    sys.stdout.flush()
    sys.exit(status)
