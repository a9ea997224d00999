// XmlRpcPoller: the operating system's readiness wait for the dispatcher, one
// entry per watched descriptor and no ceiling on their number or value.
#pragma once

#include <cstddef>
#include <memory>

namespace XmlRpc {

// Filled anew for every pass: add() each watched descriptor with its mask
// (XmlRpcDispatch::EventType bits), wait(), then ask ready() per entry.
// POSIX uses poll(); a port swaps in its own call (WSAPoll on Windows)
// behind the same four functions.
class XmlRpcPoller {
 public:
  XmlRpcPoller();
  ~XmlRpcPoller();
  XmlRpcPoller(const XmlRpcPoller&) = delete;
  XmlRpcPoller& operator=(const XmlRpcPoller&) = delete;

  // Forgets the entries of the previous pass (keeps their storage).
  void clear();
  // Watches `fd` for the events of `mask`; returns the entry's index.
  size_t add(int fd, unsigned mask);
  size_t size() const;
  // Waits up to `timeoutMs` milliseconds (negative: without limit) for any
  // entry to be ready; with no entry it just waits. Returns the number of
  // ready entries, 0 on time-out, -1 on failure; *interrupted is set when a
  // signal cut the wait short (that is no failure).
  int wait(int timeoutMs, bool* interrupted);
  // The events entry `index` is ready for, as a mask of the events it was
  // added with. An error or hang-up on the socket counts as every event the
  // entry watches, so that the handler's next read or write finds it.
  unsigned ready(size_t index) const;

 private:
  struct Entries;  // the platform's own array, handed to its call as is
  std::unique_ptr<Entries> _entries;
};

}  // namespace XmlRpc
