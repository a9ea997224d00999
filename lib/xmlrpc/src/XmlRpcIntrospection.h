// The introspection methods every server can carry: "system.listMethods"
// and "system.methodHelp".
#pragma once

#include "xmlrpc/XmlRpcServerMethod.h"

namespace XmlRpc {

// Answers the array of method names the server knows.
class ListMethods : public XmlRpcServerMethod {
 public:
  explicit ListMethods(XmlRpcServer* server);
  void execute(XmlRpcValue& params, XmlRpcValue& result) override;
  std::string help() override;
};

// Answers the help text of the method named by the first parameter.
class MethodHelp : public XmlRpcServerMethod {
 public:
  explicit MethodHelp(XmlRpcServer* server);
  void execute(XmlRpcValue& params, XmlRpcValue& result) override;
  std::string help() override;
};

}  // namespace XmlRpc
