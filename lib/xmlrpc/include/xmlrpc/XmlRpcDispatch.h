// XmlRpcDispatch: the single-threaded readiness loop over a list of sources.
// It knows nothing of HTTP or XML-RPC: sources get events and return masks.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

namespace XmlRpc {

class XmlRpcSource;
class XmlRpcPoller;

class XmlRpcDispatch {
 public:
  // Event mask bits a source can be watched for.
  enum EventType : unsigned {
    ReadableEvent = 1,  // data, end of file or a pending connection to accept
    WritableEvent = 2,  // room in the send buffer
    Exception = 4       // out-of-band data
  };

  XmlRpcDispatch();
  // Releases the list only: the sources are not owned and are not closed.
  ~XmlRpcDispatch();

  XmlRpcDispatch(const XmlRpcDispatch&) = delete;
  XmlRpcDispatch& operator=(const XmlRpcDispatch&) = delete;

  // Appends an entry; the same source may be added more than once.
  void addSource(XmlRpcSource* source, unsigned eventMask);
  // Forgets the first entry of `source` without closing it.
  void removeSource(XmlRpcSource* source);
  // Replaces the mask of the first entry of `source`.
  void setSourceEvents(XmlRpcSource* source, unsigned eventMask);

  // Watches the sources and calls their handlers. A negative `timeout` runs
  // until no source remains (or the wait fails); otherwise it returns after
  // the first pass that ends more than `timeout` seconds after the start.
  // Every pass waits up to the full `timeout`, so a call can last up to
  // about twice the budget. A signal that interrupts the wait ends the call
  // early, so that the caller can look at what the signal asked for.
  //
  // Every entry with a non-zero mask is watched in every pass, whatever
  // their number. In a pass the handlers run in list order; before each
  // handleEvent call the entry is checked to be still listed, so a handler
  // may remove (and destroy) any source, its own included. Entries added
  // during a pass are watched from the next one on.
  void work(double timeout);

  // Runs `task` from work() after a pass, every `interval` seconds or a
  // little later: a pass never waits past the task's next time, and with
  // nothing to watch work() waits for it instead of failing. The task may
  // remove and close sources. An empty task switches it off.
  void setPeriodicTask(std::function<void()> task, double interval);

  // Runs `task` from work() once at the end of every pass, after the
  // handlers and the periodic task, whether or not a source was ready (not
  // after a pass cut short by a signal, a failed wait or a handler's
  // exception). It lets a source that collected output from several
  // handlers of one pass write it all at once. The task may add, remove and
  // close sources and change masks: the next pass sees the changes. An
  // empty task switches it off.
  void setPassEndTask(std::function<void()> task);

  // True when no source is listed (work() would return at once).
  bool empty() const { return _sources.empty(); }
  // Waits `seconds` without watching anything; a signal ends it early.
  void sleep(double seconds);

  // Makes the current work() call return after the pass in progress.
  void exit() { _endTime = 0.0; }

  // Closes every source. While work() runs this is deferred to the end of
  // the current pass, so handlers may call it.
  void clear();

  // Seconds on a monotonic clock: only differences are meaningful.
  double getTime();
  // The same clock as read when the current pass began (handlers need no
  // finer time, and a pass serves many of them); outside work() the clock
  // itself.
  double passTime() { return _inWork ? _passTime : getTime(); }

 private:
  struct MonitoredSource {
    XmlRpcSource* source;
    unsigned mask;
  };
  using SourceList = std::list<MonitoredSource>;

  // Hands every watched entry to the poller; false when none is watched.
  bool buildPass();
  // How long the coming pass may wait, in milliseconds (-1: no limit).
  int passWait(double timeout);
  // Calls the handlers of the entries the poller found ready and applies
  // the masks they return. Entries may be removed (and destroyed) by the
  // handlers.
  void dispatchEvents();
  // Runs the periodic task when its time has come.
  void runPeriodicTask();
  // Removes one entry; see the definition for why it may only blank it.
  void forget(SourceList::iterator it);
  // Empties the list first, then closes the sources of a copy of it, so that
  // sources removing themselves while closing find nothing to remove.
  void closeAll();

  SourceList _sources;
  // Each listed source's first entry and its number of entries, so that
  // removing a source and changing its mask take constant time however
  // many connections are open.
  struct IndexEntry {
    SourceList::iterator first;
    int count;
  };
  std::unordered_map<XmlRpcSource*, IndexEntry> _index;
  std::unique_ptr<XmlRpcPoller> _poller;      // reused pass after pass
  std::vector<SourceList::iterator> _polled;  // the entry of each poller index
  std::function<void()> _periodicTask;
  std::function<void()> _passEndTask;
  double _periodicInterval = 0.0;
  double _nextPeriodic = 0.0;
  double _endTime = -1.0;  // -1.0: no end time
  bool _doClear = false;   // clear() was called during work()
  bool _inWork = false;
  double _passTime = 0.0;
  bool _inPass = false;  // handlers are being called: entries only blanked
};

}  // namespace XmlRpc
