// FakeSource: a dispatcher source whose handler is a test function, shared
// by the dispatcher tests of every platform.
#pragma once

#include <functional>
#include <vector>

#include "engine_test_platform.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcSource.h"

namespace XmlRpcTest {

constexpr unsigned kKeepMask = 0xFFFFFFFFu;

// A source whose handler is a test function; it counts what happens to it.
class FakeSource : public XmlRpc::XmlRpcSource {
 public:
  explicit FakeSource(int fd, bool deleteOnClose = false, int* destroyed = nullptr)
      : XmlRpc::XmlRpcSource(fd, deleteOnClose), destroyed_(destroyed) {}
  ~FakeSource() override {
    if (destroyed_ != nullptr) ++*destroyed_;
  }

  unsigned handleEvent(unsigned eventType) override {
    events.push_back(eventType);
    return handler ? handler(eventType) : kKeepMask;
  }
  void close() override {
    ++closes;
    XmlRpc::XmlRpcSource::close();  // may delete this
  }

  std::function<unsigned(unsigned)> handler;
  std::vector<unsigned> events;
  int closes = 0;

 private:
  int* destroyed_;
};

// Makes `fd` readable: one byte from its peer.
inline bool sendByte(int fd) { return sendBytes(fd, "x", 1) == 1; }

}  // namespace XmlRpcTest
