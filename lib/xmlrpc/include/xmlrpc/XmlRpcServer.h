// XmlRpcServer: the listening socket, the registry of methods by name, the
// introspection methods, and the dispatcher that runs every connection.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "xmlrpc/XmlRpcBodilessRequest.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcSource.h"

namespace XmlRpc {

class XmlRpcServerConnection;
class XmlRpcServerMethod;
class XmlRpcValue;

class XmlRpcServer : public XmlRpcSource {
 public:
  XmlRpcServer();
  // Closes the listening socket and every connection, then forgets all
  // methods; only the two introspection methods are owned and destroyed.
  ~XmlRpcServer() override;

  // Files `method` under its name, silently replacing (not deleting) a
  // method of the same name.
  void addMethod(XmlRpcServerMethod* method);
  // Erases the entry under method->name(), whatever object it holds.
  void removeMethod(XmlRpcServerMethod* method);
  void removeMethod(const std::string& name);
  // The method filed under `name`, or null.
  XmlRpcServerMethod* findMethod(const std::string& name) const;

  // A page for "GET /" (a request without a body; XML-RPC calls are
  // untouched). Without one, "GET /" is answered 404.
  void setStaticPage(const std::string& contentType, const std::string& body);
  // The page, or null.
  const XmlRpcStaticPage* staticPage() const { return _staticPage.get(); }

  // Registers (or takes away) "system.listMethods" and "system.methodHelp".
  // The two objects are made once and reused by a later re-enable.
  void enableIntrospection(bool enabled = true);

  // Creates the non-blocking listening socket on `port` of every IPv4
  // interface and starts watching it. On failure reports the reason, leaves
  // no socket open and returns false.
  bool bindAndListen(int port, int backlog = 5);

  // The port the listening socket is bound to (useful after binding port 0);
  // -1 when not listening.
  int getPort() const;

  // Accepts connections and serves requests for about `timeout` seconds
  // (negative: until the dispatcher has nothing left to watch).
  void work(double timeout);

  // Makes the current work() call return after the pass in progress.
  void exit();

  // Closes the listening socket and every connection.
  void shutdown();

  // The dispatcher that runs the listener and the connections. The program
  // may add sources of its own to it (a link to another process, say), so
  // that one loop serves everything. shutdown() and the destructor close
  // every source of it, so the program removes its own sources first.
  XmlRpcDispatch& getDispatch() { return _disp; }

  // Fills `result` with the registered names in byte order, then
  // "system.multicall", which every connection handles itself.
  void listMethods(XmlRpcValue& result);

  // The listening socket is readable: accept one connection. Keeps the
  // socket watched for reading whatever happened.
  unsigned handleEvent(unsigned eventType) override;

  // Forgets a connection without closing it; its destructor calls this.
  virtual void removeConnection(XmlRpcServerConnection* connection);

 protected:
  // Accepts one pending connection and hands it to the dispatcher.
  virtual void acceptConnection();
  // A new connection for the accepted socket, destroying itself on close.
  virtual XmlRpcServerConnection* createConnection(int socket);

  bool _introspectionEnabled = false;
  XmlRpcDispatch _disp;
  // Not owned: methods belong to whoever made them.
  std::map<std::string, XmlRpcServerMethod*> _methods;
  std::unique_ptr<XmlRpcServerMethod> _listMethods;
  std::unique_ptr<XmlRpcServerMethod> _methodHelp;
  std::unique_ptr<XmlRpcStaticPage> _staticPage;
};

}  // namespace XmlRpc
