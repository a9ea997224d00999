// handler: what a connection to the client proxy tells its owner.
#pragma once

#include <string>

#include <vxcapi/result_code.h>
#include <vxnet/vxp/packet.h>

namespace vxcapi {

// Implemented by the owner of a connection. Every call comes from inside the
// connection's connect(), its event calls or its timers, on the owner's thread.
class handler {
 public:
  virtual ~handler() = default;

  // The outcome of each connect attempt, with a text for people. connected
  // says whether the link is now up. Returning false on a new link makes the
  // connection drop it again, without a further call.
  virtual bool status(result_code code, const std::string& text, bool connected) = 0;

  // The link went down without the owner asking: reason says why ("proxy
  // closed the connection", "protocol error: ..."); error is false when the
  // proxy closed it in order, true when an error or a protocol violation
  // ended it.
  virtual void disconnected(const std::string& reason, bool error) = 0;

  // A packet the proxy sent on its own. When the proxy asked for an answer,
  // out (prepared as an empty reply named after in) is sent back if handle
  // returns true; on false the proxy gets a reply with an error member.
  // Notices are answered by nobody: out is dropped.
  virtual bool handle(const vxnet::vxp::packet& in, vxnet::vxp::packet& out) = 0;
};

}  // namespace vxcapi
