"""Black-box tests of the engine's connection limits: many idle and
dribbling connections, a slow HTTP/1.0 reader of a big response, the time
limits, a big multicall's memory, and accept() at the descriptor limit.

Each scenario of load_scenarios.py runs in a network namespace of its own,
so that its thousands of connections meet nothing else on the machine."""

import os
import subprocess
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "common"))

from netns import NetNs, skip_unless_root  # noqa: E402
from programs import SANITIZED  # noqa: E402
import testmain  # noqa: E402

SCENARIOS = os.path.join(HERE, "load_scenarios.py")
# Generous: each scenario takes seconds; this only stops a hung one.
SCENARIO_TIMEOUT = 240


@skip_unless_root()
class ConnectionLimitsTest(unittest.TestCase):
    def run_scenario(self, name):
        with NetNs() as ns:
            done = ns.run([sys.executable, SCENARIOS, name], capture_output=True, text=True,
                          timeout=SCENARIO_TIMEOUT, cwd=HERE)
        figures = [line for line in done.stdout.splitlines() if line.startswith("figure: ")]
        for line in figures:
            print("%s %s" % (name, line))
        self.assertEqual(done.returncode, 0, "scenario %s failed:\n%s\n%s" % (
            name, done.stdout, done.stderr))
        self.assertIn("scenario %s: ok" % name, done.stdout)

    def test_new_client_answered_among_idle_and_dribbling_connections(self):
        self.run_scenario("idle_and_dribbling")

    def test_memory_of_idle_connections(self):
        self.run_scenario("idle_memory")

    def test_memory_of_half_sent_bodies(self):
        self.run_scenario("half_sent_bodies")

    def test_big_response_to_a_slow_http10_reader_arrives_whole(self):
        self.run_scenario("http10_slow_reader")

    def test_time_limits(self):
        self.run_scenario("time_limits")

    @unittest.skipIf(SANITIZED, "the memory bound holds for the program, not for "
                     "AddressSanitizer's shadow memory and quarantine")
    def test_multicall_memory_bound(self):
        self.run_scenario("multicall_memory")

    @unittest.skipIf(SANITIZED, "the sanitizers' runtime needs descriptors of its own "
                     "at the limit (UBSan aborts when it cannot open one)")
    def test_accept_at_the_descriptor_limit(self):
        self.run_scenario("accept_at_the_limit")

    def test_idle_connections_make_room_at_the_limit(self):
        self.run_scenario("idle_make_room")


if __name__ == "__main__":
    testmain.main(verbosity=2)
