// XmlRpcDispatch: one wait per pass over every watched source; handlers
// return the mask to watch next.
#include "xmlrpc/XmlRpcDispatch.h"

#include <chrono>
#include <cmath>

#include "XmlRpcPoller.h"
#include "xmlrpc/XmlRpcSource.h"
#include "xmlrpc/XmlRpcUtil.h"

namespace XmlRpc {

namespace {

// Mask a pass starts from: AND-ing the handlers' masks into it leaves it
// unchanged when no handler ran.
constexpr unsigned kAllEvents = 0xFFFFFFFFu;

// Seconds to whole milliseconds, rounded up so that a short positive wait
// does not become a busy poll.
int toMilliseconds(double seconds) {
  if (seconds <= 0.0) return 0;
  constexpr double kMaxWaitMs = 24.0 * 3600.0 * 1000.0;  // far beyond any budget
  return static_cast<int>(std::ceil(std::fmin(seconds * 1000.0, kMaxWaitMs)));
}

}  // namespace

XmlRpcDispatch::XmlRpcDispatch() : _poller(std::make_unique<XmlRpcPoller>()) {}

XmlRpcDispatch::~XmlRpcDispatch() = default;

void XmlRpcDispatch::addSource(XmlRpcSource* source, unsigned eventMask) {
  _sources.push_back(MonitoredSource{source, eventMask});
  if (source == nullptr) return;
  // The index points at a source's first entry; a further entry of the same
  // source only counts.
  auto [found, added] = _index.try_emplace(source, IndexEntry{std::prev(_sources.end()), 1});
  if (!added) ++found->second.count;
}

void XmlRpcDispatch::removeSource(XmlRpcSource* source) {
  auto found = _index.find(source);
  if (found != _index.end()) forget(found->second.first);
}

void XmlRpcDispatch::setSourceEvents(XmlRpcSource* source, unsigned eventMask) {
  auto found = _index.find(source);
  if (found != _index.end()) found->second.first->mask = eventMask;
}

void XmlRpcDispatch::forget(SourceList::iterator it) {
  XmlRpcSource* const source = it->source;
  auto found = _index.find(source);
  if (found != _index.end()) {
    IndexEntry& entry = found->second;
    if (--entry.count == 0) {
      _index.erase(found);
    } else if (entry.first == it) {
      // The same source is listed again further on: that entry is first now.
      auto next = std::next(it);
      while (next->source != source) ++next;
      entry.first = next;
    }
  }
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

void XmlRpcDispatch::setPeriodicTask(std::function<void()> task, double interval) {
  _periodicTask = std::move(task);
  _periodicInterval = interval;
  _nextPeriodic = getTime() + interval;
}

void XmlRpcDispatch::setPassEndTask(std::function<void()> task) { _passEndTask = std::move(task); }

bool XmlRpcDispatch::buildPass() {
  _poller->clear();
  _polled.clear();
  for (auto it = _sources.begin(); it != _sources.end(); ++it) {
    if (it->source == nullptr || it->mask == 0) continue;
    const int fd = it->source->getfd();
    if (fd < 0) continue;  // no socket yet: nothing to wait for
    _poller->add(fd, it->mask);
    _polled.push_back(it);
  }
  return !_polled.empty();
}

int XmlRpcDispatch::passWait(double timeout) {
  int waitMs = timeout < 0.0 ? -1 : toMilliseconds(timeout);
  if (_periodicTask) {
    const int untilTask = toMilliseconds(_nextPeriodic - getTime());
    if (waitMs < 0 || untilTask < waitMs) waitMs = untilTask;
  }
  return waitMs;
}

void XmlRpcDispatch::work(double timeout) {
  _endTime = (timeout < 0.0) ? -1.0 : getTime() + timeout;
  _doClear = false;
  _inWork = true;

  while (!_sources.empty()) {
    // Without anything to watch a wait would never end (and Windows'
    // select() refuses it): unless a periodic task gives the wait an end,
    // work() returns with an error.
    if (!buildPass() && !_periodicTask) {
      XmlRpcUtil::error("Error in XmlRpcDispatch::work: error in select (%d).", -1);
      _inWork = false;
      return;
    }
    bool interrupted = false;
    const int nEvents = _poller->wait(passWait(timeout), &interrupted);
    if (interrupted) {
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

    _passTime = getTime();
    try {
      if (nEvents > 0) dispatchEvents();
      runPeriodicTask();
      if (_passEndTask) _passEndTask();
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

void XmlRpcDispatch::sleep(double seconds) {
  _poller->clear();
  bool interrupted = false;
  _poller->wait(toMilliseconds(seconds), &interrupted);
}

void XmlRpcDispatch::dispatchEvents() {
  // Ends the pass however it is left: handlers may throw.
  struct PassScope {
    XmlRpcDispatch& disp;
    explicit PassScope(XmlRpcDispatch& d) : disp(d) { disp._inPass = true; }
    ~PassScope() {
      disp._inPass = false;
      disp._sources.remove_if([](const MonitoredSource& entry) { return entry.source == nullptr; });
    }
  } scope(*this);

  static constexpr unsigned kEventOrder[] = {ReadableEvent, WritableEvent, Exception};
  for (size_t i = 0; i < _polled.size(); ++i) {
    const auto it = _polled[i];
    XmlRpcSource* const source = it->source;
    if (source == nullptr) continue;  // removed earlier in this pass
    const unsigned ready = _poller->ready(i);
    if (ready == 0) continue;

    // A source ready for several events is called once per event, in this
    // order; each call only while its entry is still listed (blanked
    // entries are removed ones, whose source may be gone).
    unsigned newMask = kAllEvents;
    for (unsigned event : kEventOrder) {
      if ((ready & event) && it->source == source) newMask &= source->handleEvent(event);
    }

    if (it->source != source) continue;  // a handler removed the entry
    if (newMask == 0) {
      forget(it);
      if (!source->getKeepOpen()) source->close();  // may destroy the source
    } else if (newMask != kAllEvents) {
      it->mask = newMask;
    }
  }
}

void XmlRpcDispatch::runPeriodicTask() {
  if (!_periodicTask) return;
  const double now = getTime();
  if (now < _nextPeriodic) return;
  _nextPeriodic = now + _periodicInterval;
  _periodicTask();
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
  _index.clear();
  for (auto& entry : closing) {
    if (entry.source != nullptr) entry.source->close();
  }
}

double XmlRpcDispatch::getTime() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace XmlRpc
