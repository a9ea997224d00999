// XmlRpcServerMethod: a method registers itself with its server on
// construction and takes its entry away on destruction.
#include "xmlrpc/XmlRpcServerMethod.h"

#include <utility>

#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpc {

XmlRpcServerMethod::XmlRpcServerMethod(const std::string& name, XmlRpcServer* server)
    : _name(name), _server(server) {
  if (_server != nullptr) _server->addMethod(this);
}

XmlRpcServerMethod::~XmlRpcServerMethod() {
  if (_server != nullptr) _server->removeMethod(this);
}

void XmlRpcServerMethod::executeAsync(XmlRpcValue& params, const XmlRpcCompletionPtr& completion) {
  XmlRpcValue result;
  try {
    execute(params, result);
  } catch (const XmlRpcException& fault) {
    completion->fail(fault.getMessage(), fault.getCode());
    return;
  }
  completion->finish(std::move(result));
}

}  // namespace XmlRpc
