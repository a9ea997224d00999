// MemoryConnection: a server connection whose transport is two strings, so
// the whole request cycle runs without a socket (unit tests, the fuzzer).
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "engine_test_platform.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcServerConnection.h"

namespace XmlRpcTest {

class MemoryConnection : public XmlRpc::XmlRpcServerConnection {
 public:
  // Bytes one read takes at most, as XmlRpcSocket::nbRead does.
  static constexpr size_t kChunk = 4095;

  explicit MemoryConnection(XmlRpc::XmlRpcServer* server)
      : XmlRpc::XmlRpcServerConnection(-1, server, false) {}

  // Makes `bytes` readable; with `eof` the peer closes after them.
  void feed(std::string_view bytes, bool eof = false) {
    input_ += bytes;
    eof_ = eof;
  }
  // Each write pass sends at most this much, then reports would-block
  // (negative: no limit).
  void setWriteLimit(int bytes) { writeLimit_ = bytes; }
  // Makes the next read fail with a real error.
  void failNextRead() { failRead_ = true; }

  // One readable event, as the dispatcher would deliver it.
  unsigned event() { return handleEvent(XmlRpc::XmlRpcDispatch::ReadableEvent); }
  // An exception event: how the dispatcher reports an error or a hang-up
  // of a connection that watches only for exceptions.
  unsigned exceptionEvent() { return handleEvent(XmlRpc::XmlRpcDispatch::Exception); }

  // Bytes fed but not read by the connection yet.
  size_t pending() const { return input_.size(); }

  // Storage held by the connection's buffers.
  size_t bufferCapacity() const {
    return _header.capacity() + _request.capacity() + _response.capacity();
  }

  // Everything the connection has sent so far.
  const std::string& output() const { return output_; }
  void clearOutput() { output_.clear(); }

 protected:
  // Like a socket read in chunks of kChunk bytes: stops at the first chunk
  // that reaches `maxSize`.
  bool readAvailable(std::string& s, bool* eof, size_t maxSize) override {
    if (failRead_) {
      failRead_ = false;
      setSocketError(errorConnectionReset());
      return false;
    }
    while (!input_.empty() && s.size() < maxSize) {
      size_t n = std::min(input_.size(), kChunk);
      s.append(input_, 0, n);
      input_.erase(0, n);
    }
    *eof = eof_ && input_.empty();
    setSocketError(errorWouldBlock());
    return true;
  }

  bool writeAvailable(const std::string& s, int* bytesSoFar) override {
    size_t rest = s.size() - static_cast<size_t>(*bytesSoFar);
    size_t n = writeLimit_ < 0 ? rest : std::min(rest, static_cast<size_t>(writeLimit_));
    output_.append(s, static_cast<size_t>(*bytesSoFar), n);
    *bytesSoFar += static_cast<int>(n);
    return true;
  }

  bool peekAvailable(bool* eof, bool* data) override {
    *eof = eof_ && input_.empty();
    *data = !input_.empty();
    return true;
  }

 private:
  std::string input_;
  bool eof_ = false;
  bool failRead_ = false;
  int writeLimit_ = -1;
  std::string output_;
};

}  // namespace XmlRpcTest
