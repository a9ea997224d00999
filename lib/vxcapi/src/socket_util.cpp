// Clock helpers of the proxy connection.
#include "socket_util.h"

#include <chrono>

namespace vxcapi::detail {

std::int64_t now_ms() noexcept {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

int remaining_ms(std::int64_t deadline) noexcept {
  const std::int64_t left = deadline - now_ms();
  if (left <= 0) return 0;
  return left > 0x7fffffff ? 0x7fffffff : static_cast<int>(left);
}

}  // namespace vxcapi::detail
