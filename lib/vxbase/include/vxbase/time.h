// Wall-clock time stamps, sleeping, and the monotonic millisecond clock.
#pragma once

#include <cstdint>
#include <string>

namespace vxbase {

// Seconds since 1970-01-01T00:00:00Z. Unsigned 32 bits: good until 2106.
std::uint32_t time_in_seconds() noexcept;

// Local time, ISO 8601 to the second without a zone: "2026-11-22T11:19:00".
std::string time_string(std::uint32_t seconds);

void sleep_milliseconds(std::uint32_t milliseconds);

// A monotonic millisecond count; only differences of it mean anything.
std::uint64_t monotonic_milliseconds() noexcept;

}  // namespace vxbase
