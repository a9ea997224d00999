// proxy_link_source: the client proxy link's socket as a source of the
// XML-RPC dispatcher, so that one loop serves the link and every XML-RPC
// connection, and a turn of it that wakes in time for the link's deadlines.
// The link's writes are batched: what a pass queued goes out at its end.
#pragma once

#include <functional>

#include <vxcapi/connection.h>
#include <xmlrpc/XmlRpcDispatch.h>
#include <xmlrpc/XmlRpcSource.h>

namespace xmlrpcs {

class proxy_link_source : public XmlRpc::XmlRpcSource, public vxcapi::io_watcher {
 public:
  // Watches link's socket in dispatch from now on, and takes dispatch's
  // pass-end task to write the commands of each pass at its end; both must
  // outlive this object or see detach() first.
  proxy_link_source(vxcapi::connection& link, XmlRpc::XmlRpcDispatch& dispatch);
  ~proxy_link_source() override;
  proxy_link_source(const proxy_link_source&) = delete;
  proxy_link_source& operator=(const proxy_link_source&) = delete;

  // Leaves the dispatcher (its pass-end task too), writes what waits and
  // stops following the link.
  void detach();

  // Runs the dispatcher for about seconds, in slices that end at the link's
  // deadlines (its connect time-out, its commands' time-outs) so that those
  // are kept to the millisecond. Returns early when keep_going turns false:
  // a stop signal interrupts the wait, and one that comes while handlers
  // run ends the turn after that pass (a busy server sees it as soon as an
  // idle one).
  template <typename Flag>
  void work(double seconds, const Flag& keep_going);

  // XmlRpcSource: the link's events. The socket belongs to the link: close()
  // only forgets it.
  unsigned handleEvent(unsigned eventType) override;
  void close() override;

  // vxcapi::io_watcher
  void watch_changed(int fd, bool want_write) override;

 private:
  // Brings the dispatcher's entry in line with the link's socket and wishes.
  void sync();
  // Runs one slice of at most max_seconds.
  void work_slice(double max_seconds);
  unsigned mask() const;

  vxcapi::connection* link_;
  XmlRpc::XmlRpcDispatch* dispatch_;
  // Whether the dispatcher has an entry for this source, and for which
  // descriptor (getfd()).
  bool registered_ = false;
  // Inside handleEvent the entry is brought in line by its return value.
  bool in_event_ = false;
  // During work(): true once the caller wants to stop.
  std::function<bool()> stop_requested_;
};

template <typename Flag>
void proxy_link_source::work(double seconds, const Flag& keep_going) {
  const std::int64_t end = vxcapi::connection::now_ms() + static_cast<std::int64_t>(seconds * 1000);
  struct stop_scope {
    std::function<bool()>& check;
    ~stop_scope() { check = nullptr; }
  } scope{stop_requested_};
  stop_requested_ = [&keep_going] { return !keep_going(); };
  for (;;) {
    const std::int64_t left = end - vxcapi::connection::now_ms();
    if (left <= 0 || !keep_going()) return;
    work_slice(static_cast<double>(left) / 1000.0);
  }
}

}  // namespace xmlrpcs
