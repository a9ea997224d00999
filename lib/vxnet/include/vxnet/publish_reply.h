// The listener that a DNS-SD publication tells its outcome.
#pragma once

#include <string>

namespace vxnet {

// Told by vxnet::service whenever its announcement comes up or goes down.
// Calls arrive one at a time on the publication's own thread (or inside the
// service's constructor when its thread cannot even start), never after the
// service object's destructor has returned; they must not block for long and
// must not destroy the service object.
class publish_reply {
 public:
  virtual ~publish_reply() = default;

  // The daemon announces the service under name: the requested one, or an
  // alternative after a name collision.
  virtual void published(const std::string& name) = 0;

  // The service is not (or no longer) announced; reason says why in words.
  // Publication goes on trying where that can help (a daemon or system bus
  // that comes back gets the service again).
  virtual void not_published(const std::string& reason) = 0;
};

}  // namespace vxnet
