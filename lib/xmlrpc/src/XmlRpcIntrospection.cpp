// The introspection methods: the list of method names and the help texts.
#include "XmlRpcIntrospection.h"

#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcServer.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpc {

namespace {
const char kListMethodsName[] = "system.listMethods";
const char kMethodHelpName[] = "system.methodHelp";
}  // namespace

ListMethods::ListMethods(XmlRpcServer* server) : XmlRpcServerMethod(kListMethodsName, server) {}

void ListMethods::execute(XmlRpcValue& /*params*/, XmlRpcValue& result) {
  _server->listMethods(result);
}

std::string ListMethods::help() {
  return "List all methods available on a server as an array of strings";
}

MethodHelp::MethodHelp(XmlRpcServer* server) : XmlRpcServerMethod(kMethodHelpName, server) {}

void MethodHelp::execute(XmlRpcValue& params, XmlRpcValue& result) {
  // Indexing grows the parameters to one element, so a call without any
  // parameter arrives here as an invalid first value.
  XmlRpcValue& wanted = params[0];
  if (wanted.getType() != XmlRpcValue::TypeString) {
    throw XmlRpcException(_name + ": Invalid argument type");
  }
  XmlRpcServerMethod* method = _server->findMethod(static_cast<std::string&>(wanted));
  if (method == nullptr) throw XmlRpcException(_name + ": Unknown method name");
  result = method->help();
}

std::string MethodHelp::help() { return "Retrieve the help string for a named method"; }

}  // namespace XmlRpc
