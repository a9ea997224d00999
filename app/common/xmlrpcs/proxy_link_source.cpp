// The proxy link in the XML-RPC dispatcher.
#include "proxy_link_source.h"

#include <algorithm>

namespace xmlrpcs {

using XmlRpc::XmlRpcDispatch;

proxy_link_source::proxy_link_source(vxcapi::connection& link, XmlRpcDispatch& dispatch)
    : XmlRpc::XmlRpcSource(-1, false), link_(&link), dispatch_(&dispatch) {
  // The dispatcher must never close the link's socket.
  setKeepOpen(true);
  link_->set_watcher(this);
  // The commands the XML-RPC handlers of one pass send go out in one write
  // when the pass ends: per call, a send to the proxy costs as much as the
  // rest of the gateway's own work.
  link_->set_batched_writes(true);
  dispatch_->setPassEndTask([this] {
    if (link_) link_->flush_batch();
    if (stop_requested_ && stop_requested_()) dispatch_->exit();
  });
  sync();
}

proxy_link_source::~proxy_link_source() { detach(); }

void proxy_link_source::detach() {
  if (!link_) return;
  link_->set_watcher(nullptr);
  dispatch_->setPassEndTask(nullptr);
  link_->set_batched_writes(false);
  if (registered_) dispatch_->removeSource(this);
  registered_ = false;
  setfd(-1);
  link_ = nullptr;
}

unsigned proxy_link_source::mask() const {
  return link_->wants_write() ? XmlRpcDispatch::ReadableEvent | XmlRpcDispatch::WritableEvent
                              : unsigned{XmlRpcDispatch::ReadableEvent};
}

void proxy_link_source::sync() {
  if (!link_ || in_event_) return;
  const int fd = link_->descriptor();
  if (registered_ && getfd() != fd) {
    dispatch_->removeSource(this);
    registered_ = false;
  }
  setfd(fd);
  if (fd < 0) return;
  if (registered_) {
    dispatch_->setSourceEvents(this, mask());
  } else {
    dispatch_->addSource(this, mask());
    registered_ = true;
  }
}

void proxy_link_source::watch_changed(int, bool) { sync(); }

unsigned proxy_link_source::handleEvent(unsigned eventType) {
  if (!link_) return 0;
  const int fd = getfd();
  in_event_ = true;
  if (eventType & XmlRpcDispatch::WritableEvent) link_->on_writable();
  if ((eventType & (XmlRpcDispatch::ReadableEvent | XmlRpcDispatch::Exception)) &&
      link_->descriptor() == fd)
    link_->on_readable();
  in_event_ = false;
  if (fd >= 0 && link_->descriptor() == fd) return mask();
  // The link went down (or moved to another socket): this entry goes, and a
  // new socket is watched from the next slice on.
  registered_ = false;
  setfd(-1);
  return 0;
}

void proxy_link_source::close() {
  // Called when the dispatcher lets go of its sources: it no longer lists us.
  registered_ = false;
  setfd(-1);
}

void proxy_link_source::work_slice(double max_seconds) {
  if (!link_) return;
  sync();
  double slice = max_seconds;
  if (const std::int64_t next = link_->next_deadline_ms(); next >= 0) {
    const std::int64_t until = std::max<std::int64_t>(0, next - vxcapi::connection::now_ms());
    slice = std::min(slice, static_cast<double>(until) / 1000.0);
  }
  // With nothing to watch (no listener, no link) the dispatcher would
  // return at once: the slice's time passes all the same.
  if (dispatch_->empty()) {
    dispatch_->sleep(slice);
  } else {
    dispatch_->work(slice);
  }
  link_->run_timers();
}

}  // namespace xmlrpcs
