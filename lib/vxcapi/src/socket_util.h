// Internal: the few POSIX socket steps the connection needs, with errno
// turned into text.
#pragma once

#include <cstdint>
#include <string>

namespace vxcapi::detail {

// Milliseconds of a monotonic clock; only differences are meaningful.
std::int64_t now_ms() noexcept;

// Milliseconds left until deadline (0 when passed), clamped for poll().
int remaining_ms(std::int64_t deadline) noexcept;

// "Connection refused (errno 111)".
std::string errno_text(int error);

}  // namespace vxcapi::detail
