"""Reference server for the HTTP benchmark: Python's standard
SimpleXMLRPCServer with the calls of xmlrpc-test-server; prints "port N"."""

import signal
import sys
from xmlrpc.server import SimpleXMLRPCServer


class Server(SimpleXMLRPCServer):
    # The same accept queue as the other servers of the benchmark, so that
    # opening thousands of connections at once does not stall on dropped
    # handshakes.
    request_queue_size = 1024


def main():
    port = int(sys.argv[1]) if len(sys.argv) > 1 else 0
    server = Server(("127.0.0.1", port), logRequests=False)
    server.register_introspection_functions()
    server.register_multicall_functions()
    server.register_function(lambda *params: list(params), "echo")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    print("port %d" % server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
