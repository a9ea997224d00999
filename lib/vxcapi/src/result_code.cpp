// The words of connect's result codes.
#include <vxcapi/result_code.h>

namespace vxcapi {

const char* c_str(result_code code) noexcept {
  switch (code) {
    case rc_failed:
      return "failed";
    case rc_connected:
      return "connected";
    case rc_wrong_protocol:
      return "wrong protocol version";
    case rc_timed_out:
      return "timed out";
    case rc_unreachable:
      return "unreachable";
    case rc_bad_address:
      return "bad address";
    case rc_bad_peer:
      return "not a vxp peer";
    case rc_declined:
      return "declined";
    case rc_in_progress:
      return "in progress";
  }
  return "unknown";
}

}  // namespace vxcapi
