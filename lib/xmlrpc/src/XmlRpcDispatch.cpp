// XmlRpcDispatch: one select() per pass over the watched sources; handlers
// return the mask to watch next.
#include "xmlrpc/XmlRpcDispatch.h"

#include <sys/select.h>

#include <cerrno>
#include <chrono>
#include <cmath>

#include "xmlrpc/XmlRpcSource.h"
#include "xmlrpc/XmlRpcUtil.h"

namespace XmlRpc {

namespace {

// A set watches at most this many descriptors per pass, the size of the
// Windows descriptor set the engine was designed around. Further sockets
// wait for a later pass; the server depends on this bound staying the same
// on every platform.
constexpr int kMaxDescriptorsPerSet = 64;

// Mask a pass starts from: AND-ing the handlers' masks into it leaves it
// unchanged when no handler ran.
constexpr unsigned kAllEvents = 0xFFFFFFFFu;

// One descriptor set with the Windows rules: no duplicates, at most
// kMaxDescriptorsPerSet entries, and (POSIX) never a descriptor that
// FD_SET cannot hold.
class LimitedSet {
 public:
  LimitedSet() { FD_ZERO(&set_); }

  void add(int fd) {
    if (fd < 0 || fd >= FD_SETSIZE || count_ >= kMaxDescriptorsPerSet) return;
    if (FD_ISSET(fd, &set_)) return;
    FD_SET(fd, &set_);
    ++count_;
  }
  bool has(int fd) const { return fd >= 0 && fd < FD_SETSIZE && FD_ISSET(fd, &set_); }
  bool empty() const { return count_ == 0; }
  fd_set* raw() { return &set_; }

 private:
  fd_set set_;
  int count_ = 0;
};

}  // namespace

class XmlRpcDispatch::DescriptorSets {
 public:
  LimitedSet read, write, except;
};

void XmlRpcDispatch::addSource(XmlRpcSource* source, unsigned eventMask) {
  _sources.push_back(MonitoredSource{source, eventMask});
}

void XmlRpcDispatch::removeSource(XmlRpcSource* source) {
  if (source == nullptr) return;  // blanked entries are not sources
  for (auto it = _sources.begin(); it != _sources.end(); ++it) {
    if (it->source == source) {
      forget(it);
      return;
    }
  }
}

void XmlRpcDispatch::setSourceEvents(XmlRpcSource* source, unsigned eventMask) {
  for (auto& entry : _sources) {
    if (entry.source == source && source != nullptr) {
      entry.mask = eventMask;
      return;
    }
  }
}

void XmlRpcDispatch::forget(SourceList::iterator it) {
  // During a pass the loop holds iterators into the list, and handlers may
  // remove any entry (their own, the next one): entries are only blanked
  // then and swept out once the pass is over.
  if (_inPass) {
    it->source = nullptr;
    it->mask = 0;
  } else {
    _sources.erase(it);
  }
}

int XmlRpcDispatch::buildSets(DescriptorSets& sets) const {
  int maxFd = -1;
  for (const auto& entry : _sources) {
    if (entry.source == nullptr) continue;
    int fd = entry.source->getfd();
    if (entry.mask & ReadableEvent) sets.read.add(fd);
    if (entry.mask & WritableEvent) sets.write.add(fd);
    if (entry.mask & Exception) sets.except.add(fd);
    if (entry.mask != 0 && fd > maxFd) maxFd = fd;
  }
  return maxFd;
}

void XmlRpcDispatch::work(double timeout) {
  _endTime = (timeout < 0.0) ? -1.0 : getTime() + timeout;
  _doClear = false;
  _inWork = true;

  while (!_sources.empty()) {
    DescriptorSets sets;
    int maxFd = buildSets(sets);

    // select() copies results over its arguments, so the sets are rebuilt
    // for every pass; the limit is re-applied to the whole pass each time.
    timeval tv{};
    timeval* tvp = nullptr;
    if (timeout >= 0.0) {
      double whole = std::floor(timeout);
      tv.tv_sec = static_cast<int>(whole);
      tv.tv_usec = static_cast<int>(std::floor((timeout - whole) * 1000000.0)) % 1000000;
      tvp = &tv;
    }
    // Windows' select() refuses three empty sets, which ends work() instead
    // of sleeping forever on a list of sources that all wait for nothing.
    int nEvents = -1;
    errno = 0;
    if (!(sets.read.empty() && sets.write.empty() && sets.except.empty())) {
      int nfds = (maxFd + 1 < FD_SETSIZE) ? maxFd + 1 : FD_SETSIZE;
      nEvents = ::select(nfds, sets.read.raw(), sets.write.raw(), sets.except.raw(), tvp);
    }
    if (nEvents < 0 && errno == EINTR) {
      // A signal is no error: the caller gets control back at once to see
      // what it asked for (a stop, most likely).
      _inWork = false;
      return;
    }
    if (nEvents < 0) {
      XmlRpcUtil::error("Error in XmlRpcDispatch::work: error in select (%d).", nEvents);
      _inWork = false;
      return;
    }

    try {
      dispatchEvents(sets, maxFd);
    } catch (...) {
      // An exception a handler lets through leaves work() to the caller;
      // the dispatcher stays usable for the next call.
      _inWork = false;
      throw;
    }

    if (_doClear) {
      closeAll();
      _doClear = false;
    }
    if (_endTime >= 0.0 && getTime() > _endTime) break;
  }
  _inWork = false;
}

void XmlRpcDispatch::dispatchEvents(const DescriptorSets& ready, int maxFd) {
  // Ends the pass however it is left: handlers may throw.
  struct PassScope {
    XmlRpcDispatch& disp;
    explicit PassScope(XmlRpcDispatch& d) : disp(d) { disp._inPass = true; }
    ~PassScope() {
      disp._inPass = false;
      disp._sources.remove_if([](const MonitoredSource& entry) { return entry.source == nullptr; });
    }
  } scope(*this);

  for (auto it = _sources.begin(); it != _sources.end(); ++it) {
    XmlRpcSource* source = it->source;
    if (source == nullptr) continue;  // removed earlier in this pass
    int fd = source->getfd();
    if (fd > maxFd) continue;  // added during this pass, or not watched

    unsigned newMask = kAllEvents;
    if (ready.read.has(fd)) newMask &= source->handleEvent(ReadableEvent);
    if (ready.write.has(fd)) newMask &= source->handleEvent(WritableEvent);
    if (ready.except.has(fd)) newMask &= source->handleEvent(Exception);

    if (it->source != source) continue;  // the handler removed its own entry
    if (newMask == 0) {
      forget(it);
      if (!source->getKeepOpen()) source->close();  // may destroy the source
    } else if (newMask != kAllEvents) {
      it->mask = newMask;
    }
  }
}

void XmlRpcDispatch::clear() {
  if (_inWork) {
    _doClear = true;  // handled after the current pass
  } else {
    closeAll();
  }
}

void XmlRpcDispatch::closeAll() {
  SourceList closing;
  closing.swap(_sources);
  for (auto& entry : closing) {
    if (entry.source != nullptr) entry.source->close();
  }
}

double XmlRpcDispatch::getTime() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace XmlRpc
