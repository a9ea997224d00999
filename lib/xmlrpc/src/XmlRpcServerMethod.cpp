// XmlRpcServerMethod: a method registers itself with its server on
// construction and takes its entry away on destruction.
#include "xmlrpc/XmlRpcServerMethod.h"

#include "xmlrpc/XmlRpcServer.h"

namespace XmlRpc {

XmlRpcServerMethod::XmlRpcServerMethod(const std::string& name, XmlRpcServer* server)
    : _name(name), _server(server) {
  if (_server != nullptr) _server->addMethod(this);
}

XmlRpcServerMethod::~XmlRpcServerMethod() {
  if (_server != nullptr) _server->removeMethod(this);
}

}  // namespace XmlRpc
