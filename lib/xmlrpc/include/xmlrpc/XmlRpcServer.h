// XmlRpcServer: the listening socket, the registry of methods by name, the
// introspection methods, and the dispatcher that runs every connection.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_set>

#include "xmlrpc/XmlRpcBodilessRequest.h"
#include "xmlrpc/XmlRpcDispatch.h"
#include "xmlrpc/XmlRpcSource.h"

namespace XmlRpc {

class XmlRpcServerConnection;
class XmlRpcServerMethod;
class XmlRpcValue;

// Time limits on a connection, in seconds, checked about once a second.
// The server runs with these defaults; tests shorten them through
// XmlRpcServer::setConnectionLimits.
struct XmlRpcConnectionLimits {
  // A request header must be complete this long after its first byte: real
  // clients send it at once, and one that dribbles a byte now and then must
  // not hold a connection (and its descriptor) for ever.
  double headerSeconds = 30.0;
  // Longest pause while a body is received or a response is taken: a
  // client that stops half-way gives its connection and buffers back.
  double stallSeconds = 30.0;
  // A connection waiting for its next request is closed quietly after this
  // long. Browsers and HTTP libraries close theirs far earlier or reconnect
  // without a word; an idle descriptor held for hours helps nobody.
  double idleSeconds = 300.0;
};

class XmlRpcServer : public XmlRpcSource {
 public:
  // Descriptors left to the rest of the process (standard streams, log
  // files, the proxy link, service publication, files read at run time):
  // once the open connections come this close to the descriptor limit, the
  // longest-idle connection is closed for each new one.
  static constexpr int kDescriptorReserve = 16;
  // After accept() ran out of descriptors with no idle connection to close,
  // the listener rests until a connection closes or this many seconds
  // pass; the failure is logged at most once per such period.
  static constexpr double kAcceptPauseSeconds = 1.0;
  // Connections accepted per readable event of the listener at most, so
  // that a burst of clients is taken in a few passes without starving the
  // connections already open.
  static constexpr int kAcceptBatch = 64;
  // How often the connections' time limits are checked.
  static constexpr double kSweepSeconds = 1.0;

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
  // (negative: until the dispatcher has nothing left to watch). With
  // nothing to watch at all (not listening, no connection) it waits out
  // `timeout` all the same; a signal ends the wait early.
  void work(double timeout);

  // Makes the current work() call return after the pass in progress.
  void exit();

  // Closes the listening socket and every connection.
  void shutdown();

  // True while the listening socket is open.
  bool isListening() const { return getfd() >= 0; }

  // The connection time limits in force; changing them is meant for tests.
  const XmlRpcConnectionLimits& getConnectionLimits() const { return _limits; }
  void setConnectionLimits(const XmlRpcConnectionLimits& limits) { _limits = limits; }

  // Open connections.
  int getConnectionCount() const { return static_cast<int>(_connections.size()); }

  // The dispatcher that runs the listener and the connections. The program
  // may add sources of its own to it (a link to another process, say), so
  // that one loop serves everything. shutdown() and the destructor close
  // every source of it, so the program removes its own sources first.
  XmlRpcDispatch& getDispatch() { return _disp; }

  // Fills `result` with the registered names in byte order, then
  // "system.multicall", which every connection handles itself.
  void listMethods(XmlRpcValue& result);

  // The listening socket is readable: accept what is waiting (up to
  // kAcceptBatch connections). Keeps the
  // socket watched for reading, unless descriptors ran out (see
  // kAcceptPauseSeconds).
  unsigned handleEvent(unsigned eventType) override;

  // Forgets a connection without closing it; its destructor calls this.
  virtual void removeConnection(XmlRpcServerConnection* connection);

 protected:
  // Accepts one pending connection and hands it to the dispatcher; false
  // when there was none to accept (or accept() failed).
  virtual bool acceptConnection();
  // A new connection for the accepted socket, destroying itself on close.
  virtual XmlRpcServerConnection* createConnection(int socket);

  // accept() found no free descriptor: make room or rest the listener.
  void onDescriptorShortage();
  // Closes the connection idle the longest (not `spare`); false if none is.
  bool closeLongestIdle(const XmlRpcServerConnection* spare);
  // Closes one connection now, wherever the dispatcher is.
  void closeConnection(XmlRpcServerConnection* connection);
  // Once a second: closes connections past their time limits, and lets a
  // rested listener try again.
  void sweep();
  void pauseListening();
  void resumeListening();

  bool _introspectionEnabled = false;
  XmlRpcDispatch _disp;
  // Not owned: methods belong to whoever made them.
  std::map<std::string, XmlRpcServerMethod*> _methods;
  std::unique_ptr<XmlRpcServerMethod> _listMethods;
  std::unique_ptr<XmlRpcServerMethod> _methodHelp;
  std::unique_ptr<XmlRpcStaticPage> _staticPage;

  XmlRpcConnectionLimits _limits;
  // Every connection accepted and not yet destroyed (not owned).
  std::unordered_set<XmlRpcServerConnection*> _connections;
  bool _listenerPaused = false;
  double _pausedAt = 0.0;
  double _lastShortageReport = -1.0e9;
};

}  // namespace XmlRpc
