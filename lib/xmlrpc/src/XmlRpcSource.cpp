// XmlRpcSource: closing a watched socket, and self-destruction for sources
// that own themselves.
#include "xmlrpc/XmlRpcSource.h"

#include "xmlrpc/XmlRpcSocket.h"
#include "xmlrpc/XmlRpcUtil.h"

namespace XmlRpc {

XmlRpcSource::XmlRpcSource(int fd, bool deleteOnClose) : _fd(fd), _deleteOnClose(deleteOnClose) {}

XmlRpcSource::~XmlRpcSource() = default;

void XmlRpcSource::close() {
  if (_fd != -1) {
    XmlRpcUtil::log(2, "XmlRpcSource::close: closing socket %d.", _fd);
    XmlRpcSocket::close(_fd);
    XmlRpcUtil::log(2, "XmlRpcSource::close: done closing socket %d.", _fd);
    _fd = -1;
  }
  if (_deleteOnClose) {
    XmlRpcUtil::log(2, "XmlRpcSource::close: deleting this");
    // Cleared first so that a destructor calling close() again cannot
    // delete twice.
    _deleteOnClose = false;
    delete this;  // nothing may touch the object from here on
  }
}

}  // namespace XmlRpc
