// XmlRpcServerMethod: the base of every method a server can call by name.
#pragma once

#include <string>

#include "xmlrpc/XmlRpcCompletion.h"

namespace XmlRpc {

class XmlRpcServer;
class XmlRpcValue;

class XmlRpcServerMethod {
 public:
  // Files the method under `name` with `server` when one is given; the
  // server keeps a plain pointer, so the method must outlive its entry.
  XmlRpcServerMethod(const std::string& name, XmlRpcServer* server = nullptr);
  // Takes the server's entry under this method's name away, whatever object
  // it holds by now.
  virtual ~XmlRpcServerMethod();

  XmlRpcServerMethod(const XmlRpcServerMethod&) = delete;
  XmlRpcServerMethod& operator=(const XmlRpcServerMethod&) = delete;

  // Runs the call: `params` is the request's parameter array (invalid when
  // the request had none), `result` starts invalid. A fault is reported by
  // throwing XmlRpcException; a result left invalid is sent as "".
  virtual void execute(XmlRpcValue& params, XmlRpcValue& result) = 0;

  // Starts the call; the result goes to `completion`, now or later (see
  // XmlRpcCompletion). The connection calls this, not execute(). `params`
  // lives only until this returns: a method that answers later copies what
  // it needs. The default runs execute() and finishes at once, turning an
  // XmlRpcException into fail(); a method that waits for something overrides
  // this and returns as soon as the waiting has begun. Exceptions of other
  // kinds are not caught, as with execute().
  virtual void executeAsync(XmlRpcValue& params, const XmlRpcCompletionPtr& completion);

  // The text system.methodHelp returns for this method.
  virtual std::string help() { return std::string(); }

  const std::string& name() const { return _name; }

 protected:
  std::string _name;
  XmlRpcServer* _server;
};

}  // namespace XmlRpc
