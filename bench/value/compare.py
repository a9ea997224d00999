#!/usr/bin/env python3
"""Times Python's xmlrpc.client on the value benchmark's payload and prints
it beside the C++ figures of the same run, as MB/s and C++/Python ratios.

Usage: compare.py <bench_value json output> <payload xml>

MB are 10^6 bytes. Both sides count the same bytes: the length of the payload's XML as the C++
writer produces it, so a ratio of MB/s is a ratio of payloads per second.
"""
import json
import sys
import time
import xmlrpc.client

# Each Python measurement runs for at least this long (seconds of CPU time),
# enough to smooth out timer resolution and warm-up.
MIN_SECONDS = 1.0


def rate(function, payload_bytes):
    """Calls function until MIN_SECONDS of CPU time have passed; returns MB/s.
    CPU time, like Google Benchmark's rates, so that other processes on a
    shared machine weigh on neither side of the ratio."""
    function()  # warm-up
    count = 0
    start = time.process_time()
    while True:
        function()
        count += 1
        elapsed = time.process_time() - start
        if elapsed >= MIN_SECONDS:
            return payload_bytes * count / elapsed / 1e6


def cpp_rates(path):
    with open(path) as f:
        report = json.load(f)
    return {b["name"]: b["bytes_per_second"] / 1e6 for b in report["benchmarks"]
            if "bytes_per_second" in b}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    cpp = cpp_rates(sys.argv[1])
    with open(sys.argv[2]) as f:
        value_xml = f.read()
    payload_bytes = len(value_xml.encode())
    envelope = ("<?xml version='1.0'?>\n<methodResponse><params><param>" + value_xml +
                "</param></params></methodResponse>")
    (payload,), _ = xmlrpc.client.loads(envelope)
    python_text = xmlrpc.client.dumps((payload,), methodresponse=True)

    python_write = rate(lambda: xmlrpc.client.dumps((payload,), methodresponse=True),
                        payload_bytes)
    python_read = rate(lambda: xmlrpc.client.loads(python_text), payload_bytes)

    print()
    print(f"payload: {payload_bytes} bytes of XML as written by toXml "
          f"({len(python_text.encode())} bytes as written by xmlrpc.client.dumps)")
    print(f"{'':28}{'C++ MB/s':>12}{'Python MB/s':>14}{'ratio':>10}")
    for label, name, python in (("write (toXml / dumps)", "BM_ToXml_CallPayload", python_write),
                                ("read (fromXml / loads)", "BM_FromXml_CallPayload",
                                 python_read)):
        if name not in cpp:
            sys.exit(f"compare.py: {name} missing from the C++ results")
        print(f"{label:28}{cpp[name]:12.1f}{python:14.1f}{cpp[name] / python:9.1f}x")


if __name__ == "__main__":
    main()
