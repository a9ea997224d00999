// egg_clock: a one-shot timer that rings once its time has passed.
#pragma once

#include <cstdint>

namespace vxbase {

class egg_clock {
 public:
  // Rings milliseconds after construction; 0 makes a clock that never rings
  // (a server's shutdown clock made with 0 must not end its loop).
  explicit egg_clock(std::uint32_t milliseconds);

  // Sets the clock anew: rings milliseconds from now, never for 0.
  void set(std::uint32_t milliseconds);

  bool is_ringing() const noexcept;

 private:
  std::uint64_t deadline_ = 0;  // monotonic ms; 0 = never
};

}  // namespace vxbase
