"""ClientProxySim from the outside: its command line, and raw vxp bytes over
loopback, including clients that misbehave."""

import json
import os
import re
import signal
import subprocess
import tempfile
import time
import unittest

import vxp_raw
import testmain

SIM = os.path.join(os.environ.get("XMLRPCS_BUILD_DIR", "build"), "bin", "ClientProxySim")


class running_sim:
    """ClientProxySim on a free port for one test."""

    def __init__(self, *args):
        self.proc = subprocess.Popen([SIM, "--port", "0", *args], stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, text=True)
        self.line = self.proc.stdout.readline()
        m = re.search(r"listening on 127\.0\.0\.1:(\d+)", self.line)
        if not m:
            self.proc.kill()
            raise RuntimeError("simulator did not start: %r" % self.line)
        self.port = int(m.group(1))

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        stopped_here = self.proc.poll() is None
        if stopped_here:
            self.proc.send_signal(signal.SIGTERM)
        _, err = self.proc.communicate(timeout=10)
        # A clean stop is part of every test: a crash, a sanitizer report or a
        # leak found at exit fails it.
        if stopped_here and self.proc.returncode != 0:
            raise AssertionError("ClientProxySim exited with %d:\n%s" % (self.proc.returncode, err))

    def connect(self, do_hello=True):
        link = vxp_raw.link(self.port)
        if do_hello:
            link.send(vxp_raw.hello())
            reply = link.read_message()
            assert reply[:3] == [0, "vxp", 1], reply
        return link


class CommandLine(unittest.TestCase):
    def test_help_prints_usage_and_exits_0(self):
        r = subprocess.run([SIM, "--help"], capture_output=True, text=True, timeout=10)
        self.assertEqual(r.returncode, 0)
        for option in ("--drop-after", "--delay-ms", "--jitter-ms", "--hang-after"):
            self.assertIn(option, r.stdout)

    def test_bad_options_exit_2_with_a_reason(self):
        for args, reason in ((["--bogus"], "unknown option --bogus"),
                             (["--port", "70000"], "--port"),
                             (["--delay-ms", "-5"], "--delay-ms"),
                             (["--protocol"], "--protocol needs a number")):
            r = subprocess.run([SIM, *args], capture_output=True, text=True, timeout=10)
            self.assertEqual(r.returncode, 2, args)
            self.assertIn(reason, r.stderr, args)

    def test_port_in_use_exits_1(self):
        with running_sim() as sim:
            r = subprocess.run([SIM, "--port", str(sim.port)], capture_output=True, text=True,
                               timeout=10)
            self.assertEqual(r.returncode, 1)
            self.assertIn("cannot bind 127.0.0.1:%d" % sim.port, r.stderr)


class Timing(unittest.TestCase):
    """--delay-ms, --jitter-ms and --hang-after: how the simulator holds
    replies back."""

    def test_delayed_replies_wait_side_by_side(self):
        with running_sim("--delay-ms", "300") as sim:
            link = sim.connect()
            started = time.monotonic()
            for i in range(1, 11):
                link.send(vxp_raw.request(i, "proxy.general.version"))
            ids = [link.read_message()[1] for _ in range(10)]
            took = time.monotonic() - started
            self.assertEqual(ids, list(range(1, 11)))
            # Ten replies of 300 ms each, held back together: not 3 s.
            self.assertGreaterEqual(took, 0.29)
            self.assertLess(took, 1.5)
            link.close()

    def test_jittered_replies_come_out_of_order(self):
        with running_sim("--jitter-ms", "200") as sim:
            link = sim.connect()
            for i in range(1, 31):
                link.send(vxp_raw.request(i, "proxy.general.version"))
            ids = [link.read_message()[1] for _ in range(30)]
            self.assertEqual(sorted(ids), list(range(1, 31)))
            # 30 random holds in arrival order would be a 1 in 30! chance.
            self.assertNotEqual(ids, sorted(ids))
            link.close()

    def test_hang_after_answers_so_many_commands_then_none(self):
        with running_sim("--hang-after", "2") as sim:
            first, second = sim.connect(), sim.connect()
            first.send(vxp_raw.request(1, "proxy.general.version"))
            self.assertEqual(first.read_message()[1], 1)
            second.send(vxp_raw.request(1, "proxy.general.version"))
            self.assertEqual(second.read_message()[1], 1)
            # The third command, on either link, is never answered; the link
            # stays open.
            first.sock.settimeout(1.0)
            first.send(vxp_raw.request(2, "proxy.general.version"))
            with self.assertRaises(TimeoutError):
                first.read_message()
            first.close()
            second.close()


class RawProtocol(unittest.TestCase):
    def test_hello_and_version(self):
        with running_sim() as sim:
            link = sim.connect()
            link.send(vxp_raw.request(5, "proxy.general.version"))
            kind, rid, ptype, command, payload = link.read_message()
            self.assertEqual((kind, rid, ptype, command), (2, 5, 4, "proxy.general.version"))
            self.assertEqual(payload[0], 9)
            members = payload[2]
            self.assertEqual(members["version"], [10, [7, 0, 0, 0]])
            self.assertEqual(members["protocol"], [4, 1])
            self.assertEqual(members["product"][0], 1)
            link.close()

    def test_wrong_version_gets_the_proxy_hello_then_close(self):
        with running_sim() as sim:
            link = sim.connect(do_hello=False)
            link.send(vxp_raw.hello(version=42))
            self.assertEqual(link.read_message()[:3], [0, "vxp", 1])
            self.assertTrue(link.closed_by_peer())
            link.close()

    def test_unknown_command_gets_an_error_member(self):
        with running_sim() as sim:
            link = sim.connect()
            link.send(vxp_raw.request(1, "proxy.not.there"))
            payload = link.read_message()[4][2]
            self.assertEqual(payload["error"][0], 1)
            self.assertIn('"proxy.not.there"', payload["error"][1])
            link.close()

    def test_replies_keep_request_ids_when_pipelined(self):
        with running_sim() as sim:
            link = sim.connect()
            link.send(b"".join(vxp_raw.request(i, "proxy.sim.echo", {"n": [4, i]})
                               for i in range(1, 51)))
            for i in range(1, 51):
                msg = link.read_message()
                self.assertEqual(msg[1], i)
                self.assertEqual(msg[4][2]["n"], [4, i])
            link.close()

    def test_misbehaving_clients_lose_their_link_not_the_simulator(self):
        junk = {
            "garbage": b"GET / HTTP/1.1\r\nHost: x\r\n\r\n",
            "oversized frame": b"\xff\xff\xff\xff",
            "packet before hello": vxp_raw.request(1, "proxy.general.version"),
            "bad payload": vxp_raw.hello() + vxp_raw.frame(vxp_raw.pack([1, 1, 2, "x", None])),
            "second hello": vxp_raw.hello() + vxp_raw.hello(),
        }
        with running_sim() as sim:
            bystander = sim.connect()
            for name, data in junk.items():
                with self.subTest(name):
                    link = sim.connect(do_hello=False)
                    link.send(data)
                    # Whatever the simulator answers first, it closes the link.
                    self.assertTrue(link.closed_by_peer())
                    link.close()
            # A half-sent frame and an abrupt close.
            cut = sim.connect()
            cut.send(vxp_raw.request(1, "proxy.general.version")[:7])
            cut.close()
            # The simulator still serves the client that behaved.
            bystander.send(vxp_raw.request(9, "proxy.general.version"))
            self.assertEqual(bystander.read_message()[1], 9)
            self.assertIsNone(sim.proc.poll())
            bystander.close()

    def test_drop_after_closes_when_the_next_packet_arrives(self):
        with running_sim("--drop-after", "2") as sim:
            link = sim.connect()
            for i in (1, 2):
                link.send(vxp_raw.request(i, "proxy.general.version"))
                self.assertEqual(link.read_message()[1], i)
            link.send(vxp_raw.request(3, "proxy.general.version"))
            self.assertIsNone(link.read_message())
            link.close()

    def test_record_writes_one_json_line_per_command(self):
        with tempfile.TemporaryDirectory() as tmp:
            record = os.path.join(tmp, "record.jsonl")
            with running_sim("--record", record) as sim:
                link = sim.connect()
                payload = {
                    "text": [1, 'say "hi"\n'],
                    "path": [7, "media/a b.mxf"],
                    "utf8": [1, "caf\u00e9"],
                    "not-utf8": [1, "caf\udce9"],  # the lone byte 0xe9
                    "int": [4, -(2**63)],
                    "real": [6, float("nan")],
                    "bool": [3, True],
                    "bytes": [2, b"\x00\xff"],
                    "null": None,
                    "list": [8, [[4, 1], None, [8, []]]],
                    "map": [9, False, {"inner": [1, "x"]}],
                    "version": [10, [7, 0, 1, 2]],
                }
                link.send(vxp_raw.request(3, "proxy.sim.echo", payload))
                self.assertEqual(link.read_message()[1], 3)
                link.send(vxp_raw.request(4, "proxy.general.version"))
                self.assertEqual(link.read_message()[1], 4)
                link.close()
            with open(record, encoding="utf-8") as f:
                lines = [json.loads(line) for line in f]
        self.assertEqual(len(lines), 2)
        first = lines[0]
        self.assertEqual((first["client"], first["id"], first["type"], first["command"]),
                         (1, 3, 2, "proxy.sim.echo"))
        self.assertEqual(first["properties"], {
            "text": 'say "hi"\n', "path": "media/a b.mxf", "utf8": "caf\u00e9",
            "not-utf8": "caf\u00e9", "int": -(2**63), "real": "nan",
            "bool": True, "bytes": {"binary": "00ff"}, "null": None, "list": [1, None, []],
            "map": {"inner": "x"}, "version": "7.0.1.2"})
        self.assertEqual(lines[1]["properties"], {})

    def test_sigint_stops_cleanly(self):
        sim = running_sim()
        sim.proc.send_signal(signal.SIGINT)
        out, _ = sim.proc.communicate(timeout=10)
        sim.proc.stdout.close()
        self.assertEqual(sim.proc.returncode, 0)
        self.assertIn("ClientProxySim stopped", out)


if __name__ == "__main__":
    testmain.main()
