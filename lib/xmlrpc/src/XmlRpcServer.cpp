// XmlRpcServer: binding the listening socket, accepting connections, and the
// registry of methods by name.
#include "xmlrpc/XmlRpcServer.h"

#include <algorithm>
#include <vector>

#include "XmlRpcIntrospection.h"
#include "xmlrpc/XmlRpcServerConnection.h"
#include "xmlrpc/XmlRpcServerMethod.h"
#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpc {

namespace {
// Always last in the method list: every connection answers it itself.
const char kMulticallName[] = "system.multicall";
}  // namespace

XmlRpcServer::XmlRpcServer() : XmlRpcSource(-1, false) {
  _disp.setPeriodicTask([this] { sweep(); }, kSweepSeconds);
}

XmlRpcServer::~XmlRpcServer() {
  shutdown();
  _disp.setPeriodicTask(nullptr, 0.0);
  _methods.clear();
  // Their destructors' removeMethod() calls find the map already empty.
  _listMethods.reset();
  _methodHelp.reset();
}

void XmlRpcServer::addMethod(XmlRpcServerMethod* method) { _methods[method->name()] = method; }

void XmlRpcServer::removeMethod(XmlRpcServerMethod* method) { _methods.erase(method->name()); }

void XmlRpcServer::removeMethod(const std::string& name) { _methods.erase(name); }

XmlRpcServerMethod* XmlRpcServer::findMethod(const std::string& name) const {
  auto it = _methods.find(name);
  return it == _methods.end() ? nullptr : it->second;
}

void XmlRpcServer::enableIntrospection(bool enabled) {
  if (_introspectionEnabled == enabled) return;
  _introspectionEnabled = enabled;
  if (enabled) {
    if (!_listMethods) {
      // Their base constructor files them with this server.
      _listMethods = std::make_unique<ListMethods>(this);
      _methodHelp = std::make_unique<MethodHelp>(this);
    } else {
      addMethod(_listMethods.get());
      addMethod(_methodHelp.get());
    }
  } else {
    removeMethod(_listMethods->name());
    removeMethod(_methodHelp->name());
  }
}

bool XmlRpcServer::bindAndListen(int port, int backlog) {
  int fd = XmlRpcSocket::socket();
  if (fd < 0) {
    XmlRpcUtil::error("XmlRpcServer::bindAndListen: Could not create socket (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }
  setfd(fd);

  // Each failure closes first and fetches the error text afterwards, so the
  // text is the last socket error at that moment.
  if (!XmlRpcSocket::setNonBlocking(fd)) {
    close();
    XmlRpcUtil::error(
        "XmlRpcServer::bindAndListen: Could not set socket to non-blocking input mode (%s).",
        XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }
  if (!XmlRpcSocket::setReuseAddr(fd)) {
    close();
    XmlRpcUtil::error("XmlRpcServer::bindAndListen: Could not set SO_REUSEADDR socket option (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }
  if (!XmlRpcSocket::bind(fd, port)) {
    close();
    XmlRpcUtil::error("XmlRpcServer::bindAndListen: Could not bind to specified port (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }
  if (!XmlRpcSocket::listen(fd, backlog)) {
    close();
    XmlRpcUtil::error("XmlRpcServer::bindAndListen: Could not set socket in listening mode (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return false;
  }

  XmlRpcUtil::log(2, "XmlRpcServer::bindAndListen: server listening on port %d fd %d", port, fd);
  _disp.addSource(this, XmlRpcDispatch::ReadableEvent);
  return true;
}

int XmlRpcServer::getPort() const {
  if (getfd() < 0) return -1;
  return XmlRpcSocket::getPort(getfd());
}

void XmlRpcServer::work(double timeout) {
  XmlRpcUtil::log(2, "XmlRpcServer::work: waiting for a connection");
  // Not listening and no connection: the dispatcher would return at once,
  // and a caller that counts on the time passing (a reconnect schedule
  // counted in turns, say) would spin. The time passes here instead.
  if (_disp.empty() && timeout > 0.0) {
    _disp.sleep(timeout);
    return;
  }
  _disp.work(timeout);
}

void XmlRpcServer::exit() { _disp.exit(); }

void XmlRpcServer::shutdown() { _disp.clear(); }

void XmlRpcServer::listMethods(XmlRpcValue& result) {
  int i = 0;
  result.setSize(static_cast<int>(_methods.size()) + 1);
  for (const auto& entry : _methods) result[i++] = entry.first;
  result[i] = kMulticallName;
}

unsigned XmlRpcServer::handleEvent(unsigned /*eventType*/) {
  // Several per event: one per pass would let a burst of clients overflow
  // the kernel's accept queue while each pass walks every connection.
  for (int i = 0; i < kAcceptBatch && !_listenerPaused; ++i) {
    if (!acceptConnection()) break;
  }
  // A rested listener keeps the empty mask pauseListening() gave it.
  return _listenerPaused ? 0xFFFFFFFFu : XmlRpcDispatch::ReadableEvent;
}

bool XmlRpcServer::acceptConnection() {
  int s = XmlRpcSocket::accept(getfd());
  XmlRpcUtil::log(2, "XmlRpcServer::acceptConnection: socket %d", s);
  if (s < 0) {
    if (XmlRpcSocket::outOfDescriptors()) {
      onDescriptorShortage();
    } else if (!XmlRpcSocket::nonFatalError()) {
      // (A connection the client gave up before it was accepted leaves
      // nothing to accept: no error.)
      XmlRpcUtil::error("XmlRpcServer::acceptConnection: Could not accept connection (%s).",
                        XmlRpcSocket::getErrorMsg().c_str());
    }
    return false;
  }
  if (!XmlRpcSocket::setNonBlocking(s)) {
    XmlRpcSocket::close(s);
    XmlRpcUtil::error(
        "XmlRpcServer::acceptConnection: Could not set socket to non-blocking input mode (%s).",
        XmlRpcSocket::getErrorMsg().c_str());
    return true;
  }
  XmlRpcUtil::log(2, "XmlRpcServer::acceptConnection: creating a connection");
  XmlRpcServerConnection* connection = createConnection(s);
  _connections.insert(connection);
  _disp.addSource(connection, XmlRpcDispatch::ReadableEvent);
  // Near the limit every new connection pushes out the longest-idle one, so
  // that a client with a request to make always gets in.
  if (getConnectionCount() + kDescriptorReserve >= XmlRpcSocket::getDescriptorLimit()) {
    closeLongestIdle(connection);
  }
  return true;
}

void XmlRpcServer::onDescriptorShortage() {
  const double now = _disp.getTime();
  if (now - _lastShortageReport >= kAcceptPauseSeconds) {
    _lastShortageReport = now;
    XmlRpcUtil::error("XmlRpcServer::acceptConnection: Could not accept connection (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
  }
  // The pending connection stays in the backlog: accepted in the next pass
  // if an idle one made room, else once the listener wakes again.
  if (!closeLongestIdle(nullptr)) pauseListening();
}

bool XmlRpcServer::closeLongestIdle(const XmlRpcServerConnection* spare) {
  std::vector<XmlRpcServerConnection*> idle;
  for (XmlRpcServerConnection* c : _connections) {
    if (c != spare && c->isIdle()) idle.push_back(c);
  }
  // Only the longest idle is wanted, once per accept near the limit: a scan
  // for the oldest rather than a sort of them all, which with hundreds of
  // thousands of descriptors would cost more than the accept.
  const auto older = [](const auto* a, const auto* b) {
    return a->waitingSince() < b->waitingSince();
  };
  while (!idle.empty()) {
    auto oldest = std::min_element(idle.begin(), idle.end(), older);
    XmlRpcServerConnection* c = *oldest;
    // A request may have arrived that the connection has not read yet (a
    // connection accepted a moment ago, say): such a one is not idle.
    if (c->hasDataWaiting()) {
      *oldest = idle.back();
      idle.pop_back();
      continue;
    }
    XmlRpcUtil::log(3,
                    "XmlRpcServer: descriptors running short, closing the longest-idle "
                    "connection");
    closeConnection(c);
    return true;
  }
  return false;
}

void XmlRpcServer::closeConnection(XmlRpcServerConnection* connection) {
  _disp.removeSource(connection);
  connection->close();  // destroys it; its destructor unregisters it
}

void XmlRpcServer::sweep() {
  const double now = _disp.getTime();
  std::vector<XmlRpcServerConnection*> expired;
  for (XmlRpcServerConnection* c : _connections) {
    if (c->timedOut(now)) expired.push_back(c);
  }
  for (XmlRpcServerConnection* c : expired) closeConnection(c);
  if (_listenerPaused && now - _pausedAt >= kAcceptPauseSeconds) resumeListening();
}

void XmlRpcServer::pauseListening() {
  _listenerPaused = true;
  _pausedAt = _disp.getTime();
  _disp.setSourceEvents(this, 0);
}

void XmlRpcServer::resumeListening() {
  _listenerPaused = false;
  _disp.setSourceEvents(this, XmlRpcDispatch::ReadableEvent);
}

XmlRpcServerConnection* XmlRpcServer::createConnection(int socket) {
  // Owned by itself from here on: it deletes itself when it is closed.
  return new XmlRpcServerConnection(socket, this, true);
}

void XmlRpcServer::removeConnection(XmlRpcServerConnection* connection) {
  _disp.removeSource(connection);
  // A descriptor has come free: a rested listener may accept again.
  if (_connections.erase(connection) != 0 && _listenerPaused) resumeListening();
}

void XmlRpcServer::setStaticPage(const std::string& contentType, const std::string& body) {
  _staticPage = std::make_unique<XmlRpcStaticPage>(XmlRpcStaticPage{contentType, body});
}

}  // namespace XmlRpc
