// The outcome of a connect attempt to the client proxy.
#pragma once

namespace vxcapi {

enum result_code : int {
  rc_failed = 0,          // any other failure (socket could not be made, ...)
  rc_connected = 1,       // the link is up and the hello was exchanged
  rc_wrong_protocol = 2,  // the proxy announced another protocol version
  rc_timed_out = 3,       // no connection or no hello within the time-out
  rc_unreachable = 4,     // refused or unreachable: nothing listens there
  rc_bad_address = 5,     // the host or port could not be resolved
  rc_bad_peer = 6,        // the peer answered with something not vxp
  rc_declined = 7,        // kept for its number: a declined link is now dropped silently
  rc_in_progress = 8,     // the attempt goes on; status() will hear how it ends
};

// "connected", "wrong protocol version", ...: static text, never null.
const char* c_str(result_code code) noexcept;

}  // namespace vxcapi
