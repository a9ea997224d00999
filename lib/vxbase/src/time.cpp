// Time stamps, sleeping and the monotonic clock.
#include <vxbase/time.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace vxbase {

std::uint32_t time_in_seconds() noexcept { return static_cast<std::uint32_t>(std::time(nullptr)); }

std::string time_string(std::uint32_t seconds) {
  const std::time_t t = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&t, &local);
  char buf[32];
  const std::size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &local);
  return std::string(buf, n);
}

void sleep_milliseconds(std::uint32_t milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::uint64_t monotonic_milliseconds() noexcept {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(
      duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace vxbase
