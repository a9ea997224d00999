// XmlRpcServer: binding the listening socket, accepting connections, and the
// registry of methods by name.
#include "xmlrpc/XmlRpcServer.h"

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

XmlRpcServer::XmlRpcServer() : XmlRpcSource(-1, false) {}

XmlRpcServer::~XmlRpcServer() {
  shutdown();
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
  acceptConnection();
  return XmlRpcDispatch::ReadableEvent;
}

void XmlRpcServer::acceptConnection() {
  int s = XmlRpcSocket::accept(getfd());
  XmlRpcUtil::log(2, "XmlRpcServer::acceptConnection: socket %d", s);
  if (s < 0) {
    XmlRpcUtil::error("XmlRpcServer::acceptConnection: Could not accept connection (%s).",
                      XmlRpcSocket::getErrorMsg().c_str());
    return;
  }
  if (!XmlRpcSocket::setNonBlocking(s)) {
    XmlRpcSocket::close(s);
    XmlRpcUtil::error(
        "XmlRpcServer::acceptConnection: Could not set socket to non-blocking input mode (%s).",
        XmlRpcSocket::getErrorMsg().c_str());
    return;
  }
  XmlRpcUtil::log(2, "XmlRpcServer::acceptConnection: creating a connection");
  _disp.addSource(createConnection(s), XmlRpcDispatch::ReadableEvent);
}

XmlRpcServerConnection* XmlRpcServer::createConnection(int socket) {
  // Owned by itself from here on: it deletes itself when it is closed.
  return new XmlRpcServerConnection(socket, this, true);
}

void XmlRpcServer::removeConnection(XmlRpcServerConnection* connection) {
  _disp.removeSource(connection);
}

}  // namespace XmlRpc
