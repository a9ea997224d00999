// Internal: the clock steps of the connection's time-outs.
#pragma once

#include <cstdint>

namespace vxcapi::detail {

// Milliseconds of a monotonic clock; only differences are meaningful.
std::int64_t now_ms() noexcept;

// Milliseconds left until deadline (0 when passed), clamped for poll().
int remaining_ms(std::int64_t deadline) noexcept;

}  // namespace vxcapi::detail
