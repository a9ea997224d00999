// XmlRpcPoller on Windows: WSAPoll over every entry (no 64-socket window).
#include "XmlRpcPoller.h"

#include <winsock2.h>

#include <vector>

#include "xmlrpc/XmlRpcDispatch.h"

namespace XmlRpc {

struct XmlRpcPoller::Entries {
  std::vector<WSAPOLLFD> fds;
  std::vector<unsigned> masks;
};

XmlRpcPoller::XmlRpcPoller() : _entries(std::make_unique<Entries>()) {}

XmlRpcPoller::~XmlRpcPoller() = default;

void XmlRpcPoller::clear() {
  _entries->fds.clear();
  _entries->masks.clear();
}

size_t XmlRpcPoller::add(int fd, unsigned mask) {
  // WSAPoll refuses POLLPRI: out-of-band data is not watched on Windows.
  short events = 0;
  if (mask & XmlRpcDispatch::ReadableEvent) events |= POLLIN;
  if (mask & XmlRpcDispatch::WritableEvent) events |= POLLOUT;
  WSAPOLLFD entry{};
  entry.fd = static_cast<SOCKET>(static_cast<unsigned>(fd));
  entry.events = events;
  _entries->fds.push_back(entry);
  _entries->masks.push_back(mask);
  return _entries->fds.size() - 1;
}

size_t XmlRpcPoller::size() const { return _entries->fds.size(); }

int XmlRpcPoller::wait(int timeoutMs, bool* interrupted) {
  *interrupted = false;
  auto& fds = _entries->fds;
  // WSAPoll fails on an empty array where poll() waits: wait here.
  if (fds.empty()) {
    ::Sleep(timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs));
    return 0;
  }
  int n = ::WSAPoll(fds.data(), static_cast<ULONG>(fds.size()), timeoutMs);
  if (n < 0) {
    *interrupted = ::WSAGetLastError() == WSAEINTR;
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
  return events & mask;
}

}  // namespace XmlRpc
