// XmlRpcDispatch: one poll per pass over the watched sources (through the
// socket layer: poll() or WSAPoll()); handlers return the mask to watch next.
#include "xmlrpc/XmlRpcDispatch.h"

#include <chrono>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "xmlrpc/XmlRpcSocket.h"
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

// The poll bit of each of the three sets.
constexpr unsigned kSetBits[3] = {XmlRpcSocket::PollIn, XmlRpcSocket::PollOut,
                                  XmlRpcSocket::PollPri};

}  // namespace

// The three sets of a pass (read, write, except) with the select() rules:
// no duplicates, at most kMaxDescriptorsPerSet entries each; kept as one
// poll entry per descriptor.
class XmlRpcDispatch::DescriptorSets {
 public:
  enum Set { Read = 0, Write = 1, Except = 2 };

  void add(int fd, Set set) {
    if (fd < 0 || counts_[set] >= kMaxDescriptorsPerSet) return;
    auto [it, added] = index_.try_emplace(fd, entries_.size());
    if (added) entries_.push_back(XmlRpcSocket::PollEntry{fd, 0, 0});
    XmlRpcSocket::PollEntry& entry = entries_[it->second];
    if (entry.events & kSetBits[set]) return;
    entry.events |= kSetBits[set];
    ++counts_[set];
  }

  // Whether fd was watched in `set` and is ready for it. Like select(), a
  // hang-up or an error makes a descriptor readable and writable.
  bool has(int fd, Set set) const {
    auto it = index_.find(fd);
    if (it == index_.end()) return false;
    const XmlRpcSocket::PollEntry& entry = entries_[it->second];
    if (!(entry.events & kSetBits[set])) return false;
    unsigned ready = entry.revents;
    if (set != Except && (ready & (XmlRpcSocket::PollHup | XmlRpcSocket::PollErr))) return true;
    return (ready & kSetBits[set]) != 0;
  }

  bool empty() const { return entries_.empty(); }

  int poll(int timeoutMs) {
    return XmlRpcSocket::poll(entries_.data(), entries_.size(), timeoutMs);
  }

 private:
  std::vector<XmlRpcSocket::PollEntry> entries_;
  std::unordered_map<int, size_t> index_;
  int counts_[3] = {0, 0, 0};
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
    if (entry.mask & ReadableEvent) sets.add(fd, DescriptorSets::Read);
    if (entry.mask & WritableEvent) sets.add(fd, DescriptorSets::Write);
    if (entry.mask & Exception) sets.add(fd, DescriptorSets::Except);
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

    // The sets are rebuilt for every pass from the current masks; the limit
    // is re-applied to the whole pass each time. A part of a millisecond is
    // waited as a whole one, so that a short time-out never spins.
    int timeoutMs = -1;
    if (timeout >= 0.0) timeoutMs = static_cast<int>(std::ceil(timeout * 1000.0));
    // A list of sources that all wait for nothing ends work() (as Windows'
    // select() refusing three empty sets did) instead of sleeping forever.
    int nEvents = -1;
    if (!sets.empty()) nEvents = sets.poll(timeoutMs);
    if (nEvents < 0 && !sets.empty() && XmlRpcSocket::nonFatalError()) {
      // A signal is no error: the caller gets control back at once to see
      // what it asked for (a stop, most likely).
      _inWork = false;
      return;
    }
    if (nEvents < 0) {
      XmlRpcUtil::error("Error in XmlRpcDispatch::work: error in poll (%d).", nEvents);
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
    if (ready.has(fd, DescriptorSets::Read)) newMask &= source->handleEvent(ReadableEvent);
    if (ready.has(fd, DescriptorSets::Write)) newMask &= source->handleEvent(WritableEvent);
    if (ready.has(fd, DescriptorSets::Except)) newMask &= source->handleEvent(Exception);

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
