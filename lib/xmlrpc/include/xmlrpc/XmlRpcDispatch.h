// XmlRpcDispatch: the single-threaded poll loop over a list of sources.
// It knows nothing of HTTP or XML-RPC: sources get events and return masks.
#pragma once

#include <list>

namespace XmlRpc {

class XmlRpcSource;

class XmlRpcDispatch {
 public:
  // Event mask bits a source can be watched for.
  enum EventType : unsigned {
    ReadableEvent = 1,  // data, end of file or a pending connection to accept
    WritableEvent = 2,  // room in the send buffer
    Exception = 4       // out-of-band data
  };

  XmlRpcDispatch() = default;
  // Releases the list only: the sources are not owned and are not closed.
  ~XmlRpcDispatch() = default;

  XmlRpcDispatch(const XmlRpcDispatch&) = delete;
  XmlRpcDispatch& operator=(const XmlRpcDispatch&) = delete;

  // Appends an entry; the same source may be added more than once.
  void addSource(XmlRpcSource* source, unsigned eventMask);
  // Forgets the first entry of `source` without closing it.
  void removeSource(XmlRpcSource* source);
  // Replaces the mask of the first entry of `source`.
  void setSourceEvents(XmlRpcSource* source, unsigned eventMask);

  // Watches the sources and calls their handlers. A negative `timeout` runs
  // until no source remains (or the poll fails); otherwise it returns after
  // the first pass that ends more than `timeout` seconds after the start.
  // Every pass waits up to the full `timeout`, so a call can last up to
  // about twice the budget. A signal that interrupts the wait ends the call
  // early, so that the caller can look at what the signal asked for.
  void work(double timeout);

  // Makes the current work() call return after the pass in progress.
  void exit() { _endTime = 0.0; }

  // Closes every source. While work() runs this is deferred to the end of
  // the current pass, so handlers may call it.
  void clear();

  // Seconds on a monotonic clock: only differences are meaningful.
  double getTime();

 private:
  struct MonitoredSource {
    XmlRpcSource* source;
    unsigned mask;
  };
  using SourceList = std::list<MonitoredSource>;
  class DescriptorSets;  // the three watch sets with the 64-entry rule

  // Builds the sets of one pass from the list; returns the highest watched
  // descriptor, -1 when no entry has a non-zero mask.
  int buildSets(DescriptorSets& sets) const;
  // Calls the handlers of the entries ready in `ready` and applies the masks
  // they return. Entries may be removed (and destroyed) by the handlers.
  void dispatchEvents(const DescriptorSets& ready, int maxFd);
  // Removes one entry; see the definition for why it may only blank it.
  void forget(SourceList::iterator it);
  // Empties the list first, then closes the sources of a copy of it, so that
  // sources removing themselves while closing find nothing to remove.
  void closeAll();

  SourceList _sources;
  double _endTime = -1.0;  // -1.0: no end time
  bool _doClear = false;   // clear() was called during work()
  bool _inWork = false;
  bool _inPass = false;  // handlers are being called: entries only blanked
};

}  // namespace XmlRpc
