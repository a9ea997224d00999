// The one-shot timer.
#include <vxbase/egg_clock.h>

#include <vxbase/time.h>

namespace vxbase {

egg_clock::egg_clock(std::uint32_t milliseconds) { set(milliseconds); }

void egg_clock::set(std::uint32_t milliseconds) {
  // The monotonic clock is far above 0 on any running system, so a deadline
  // of now + n is never confused with the "never" mark.
  deadline_ = milliseconds == 0 ? 0 : monotonic_milliseconds() + milliseconds;
}

bool egg_clock::is_ringing() const noexcept {
  return deadline_ != 0 && monotonic_milliseconds() >= deadline_;
}

}  // namespace vxbase
