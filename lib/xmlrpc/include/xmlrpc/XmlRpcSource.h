// XmlRpcSource: the base of everything the dispatcher watches, a socket
// descriptor that reacts to readiness events.
#pragma once

namespace XmlRpc {

class XmlRpcSource {
 public:
  // `fd` is the watched socket (-1: none yet). With `deleteOnClose` the
  // object destroys itself at the end of close(), so it must live on the heap.
  explicit XmlRpcSource(int fd = -1, bool deleteOnClose = false);
  virtual ~XmlRpcSource();

  // Closes the socket (if any) and, when deleteOnClose is set, destroys the
  // object: the caller must not touch it after this returns.
  virtual void close();

  // Called by the dispatcher when the socket is ready for `eventType`
  // (one of XmlRpcDispatch::EventType). Returns the mask to watch next:
  // 0 drops the source (closing it unless keepOpen), 0xFFFFFFFF keeps the
  // current mask, any other value replaces it.
  virtual unsigned handleEvent(unsigned eventType) = 0;

  int getfd() const { return _fd; }
  void setfd(int fd) { _fd = fd; }

  // A kept-open source is only forgotten, not closed, when the dispatcher
  // stops watching it.
  bool getKeepOpen() const { return _keepOpen; }
  void setKeepOpen(bool b = true) { _keepOpen = b; }

  XmlRpcSource(const XmlRpcSource&) = delete;
  XmlRpcSource& operator=(const XmlRpcSource&) = delete;

 protected:
  int _fd;
  bool _deleteOnClose;
  bool _keepOpen = false;
};

}  // namespace XmlRpc
