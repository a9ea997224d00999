// Methods that the in-memory connection tests and the connection fuzzer host:
// an echo, a fault with the code and text given as parameters, and one that
// leaves its result unset.
#pragma once

#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpcTest {

class Echo : public XmlRpc::XmlRpcServerMethod {
 public:
  explicit Echo(XmlRpc::XmlRpcServer* s) : XmlRpcServerMethod("echo", s) {}
  void execute(XmlRpc::XmlRpcValue& params, XmlRpc::XmlRpcValue& result) override {
    result = params;
  }
};

// Reads its parameters with the typed accessors, as real methods do, so that
// arbitrary input exercises the type errors too.
class Fault : public XmlRpc::XmlRpcServerMethod {
 public:
  explicit Fault(XmlRpc::XmlRpcServer* s) : XmlRpcServerMethod("fault", s) {}
  void execute(XmlRpc::XmlRpcValue& params, XmlRpc::XmlRpcValue&) override {
    throw XmlRpc::XmlRpcException(params[1], params[0]);
  }
};

class NoResult : public XmlRpc::XmlRpcServerMethod {
 public:
  explicit NoResult(XmlRpc::XmlRpcServer* s) : XmlRpcServerMethod("noResult", s) {}
  void execute(XmlRpc::XmlRpcValue&, XmlRpc::XmlRpcValue&) override {}
};

}  // namespace XmlRpcTest
