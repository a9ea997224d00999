// Fuzz target: arbitrary bytes sent over one connection, through the header,
// the body, the call envelope, the values, the methods and the response.
//
// Input layout: byte 0 picks how the rest is cut into reads (0: one read),
// byte 1 how much one write pass may send (0: everything); the remaining
// bytes are the client's stream, after which the client closes. After
// kMaxReads reads of that size the rest comes in one read.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "memory_connection.h"
#include "test_methods.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

using namespace XmlRpc;
using XmlRpcTest::Echo;
using XmlRpcTest::Fault;
using XmlRpcTest::NoResult;

namespace {

// Write passes tried per response before the input counts as a hang: a
// response is at most a few megabytes and every pass sends at least a byte
// per unit of the write limit, so a healthy connection never gets close.
constexpr int kMaxWritePasses = 1 << 20;

// Reads cut to byte 0's size before the rest comes at once. Every cut the
// connection must resume from (inside the request line, a field name, the
// blank line, the first body bytes) lies in the first kilobyte, even one
// byte at a time; cutting a 16 KB input into 16,384 reads would only repeat
// the same body-collecting step and make that input a hundred times slower.
constexpr size_t kMaxReads = 1024;

class QuietErrors : public XmlRpcErrorHandler {
 public:
  void error(const char*) override {}
};

struct Fixture {
  QuietErrors quiet;
  XmlRpcServer server;
  Echo echo{&server};
  Fault fault{&server};
  NoResult noResult{&server};
  Fixture() {
    XmlRpcErrorHandler::setErrorHandler(&quiet);
    server.enableIntrospection(true);
  }
};

// Runs write passes until the response is out; false when the connection
// asks to be closed.
bool drainWrites(XmlRpcTest::MemoryConnection& conn, unsigned mask) {
  for (int i = 0; mask == XmlRpcDispatch::WritableEvent; ++i) {
    if (i == kMaxWritePasses) __builtin_trap();  // a response that never completes
    mask = conn.handleEvent(XmlRpcDispatch::WritableEvent);
  }
  conn.clearOutput();
  return mask != 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Fixture* fixture = new Fixture;  // lives for the whole run
  if (size < 2) return 0;
  size_t chunk = data[0] == 0 ? size : data[0];
  const int writeLimit = data[1] == 0 ? -1 : data[1];
  const std::string_view stream(reinterpret_cast<const char*>(data) + 2, size - 2);

  XmlRpcTest::MemoryConnection conn(&fixture->server);
  conn.setWriteLimit(writeLimit);
  bool open = true;
  size_t reads = 0;
  for (size_t pos = 0; open && pos < stream.size(); pos += chunk) {
    if (++reads == kMaxReads) chunk = stream.size() - pos;
    conn.feed(stream.substr(pos, chunk));
    open = drainWrites(conn, conn.event());
  }
  if (open) {
    conn.feed("", true);  // the client closes
    drainWrites(conn, conn.event());
  }
  return 0;
}
