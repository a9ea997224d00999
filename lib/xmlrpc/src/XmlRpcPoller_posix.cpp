// XmlRpcPoller on POSIX: poll(), which takes any number of descriptors of
// any value, unlike select() and its FD_SETSIZE sets.
#include "XmlRpcPoller.h"

#include <poll.h>

#include <cerrno>
#include <vector>

#include "xmlrpc/XmlRpcDispatch.h"

namespace XmlRpc {

struct XmlRpcPoller::Entries {
  std::vector<pollfd> fds;
  std::vector<unsigned> masks;
};

XmlRpcPoller::XmlRpcPoller() : _entries(std::make_unique<Entries>()) {}

XmlRpcPoller::~XmlRpcPoller() = default;

void XmlRpcPoller::clear() {
  _entries->fds.clear();
  _entries->masks.clear();
}

size_t XmlRpcPoller::add(int fd, unsigned mask) {
  short events = 0;
  if (mask & XmlRpcDispatch::ReadableEvent) events |= POLLIN;
  if (mask & XmlRpcDispatch::WritableEvent) events |= POLLOUT;
  if (mask & XmlRpcDispatch::Exception) events |= POLLPRI;
  _entries->fds.push_back(pollfd{fd, events, 0});
  _entries->masks.push_back(mask);
  return _entries->fds.size() - 1;
}

size_t XmlRpcPoller::size() const { return _entries->fds.size(); }

int XmlRpcPoller::wait(int timeoutMs, bool* interrupted) {
  *interrupted = false;
  auto& fds = _entries->fds;
  int n = ::poll(fds.data(), static_cast<nfds_t>(fds.size()), timeoutMs);
  if (n < 0) {
    *interrupted = errno == EINTR;
    return *interrupted ? 0 : -1;
  }
  return n;
}

unsigned XmlRpcPoller::ready(size_t index) const {
  const short revents = _entries->fds[index].revents;
  const unsigned mask = _entries->masks[index];
  if (revents & (POLLERR | POLLHUP | POLLNVAL)) return mask;
  unsigned events = 0;
  if (revents & POLLIN) events |= XmlRpcDispatch::ReadableEvent;
  if (revents & POLLOUT) events |= XmlRpcDispatch::WritableEvent;
  if (revents & POLLPRI) events |= XmlRpcDispatch::Exception;
  return events & mask;
}

}  // namespace XmlRpc
