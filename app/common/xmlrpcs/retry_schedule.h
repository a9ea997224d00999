// retry_schedule: when the main loop looks at the proxy connection, counted
// in nominal loop turns so that it can be followed without a clock.
#pragma once

#include <cstdint>

namespace xmlrpcs {

// Each loop turn counts as turn_ms whatever it really took; the turn that
// checks the connection counts nothing. A check happens once the elapsed
// time exceeds the interval; the interval starts at initial_interval_ms,
// grows by interval_step_ms after every check up to max_interval_ms, and
// falls back to 0 (so it restarts at 1000) when a check connects. Without a
// proxy the checks come at nominal 1.5, 4.5, 8.5, 13.5, 19.5 s and every 6 s
// after.
class retry_schedule {
 public:
  // The nominal length of one loop turn: the dispatcher's work(0.5) or the
  // 500 ms sleep.
  static constexpr std::uint32_t turn_ms = 500;
  // The first check comes after this much nominal time (plus one turn).
  static constexpr std::uint32_t initial_interval_ms = 1000;
  // Each check lengthens the wait before the next by this much ...
  static constexpr std::uint32_t interval_step_ms = 1000;
  // ... until the interval reaches this, so a lost proxy is retried at least
  // every 6 s of nominal time.
  static constexpr std::uint32_t max_interval_ms = 5000;

  // Counts one turn. Returns true when this turn must check the connection;
  // the caller then checks (and connects if needed) and calls checked().
  bool turn() {
    if (elapsed_ms_ > interval_ms_) return true;
    // Single precision and truncated, as the loop has always counted it.
    elapsed_ms_ =
        static_cast<std::uint32_t>(static_cast<float>(elapsed_ms_) + static_cast<float>(turn_ms));
    return false;
  }

  // Ends a check; connected_now is true when this check made the connection.
  void checked(bool connected_now) {
    if (connected_now) interval_ms_ = 0;
    if (interval_ms_ < max_interval_ms) interval_ms_ += interval_step_ms;
    elapsed_ms_ = 0;
  }

  std::uint32_t interval_ms() const noexcept { return interval_ms_; }
  std::uint32_t elapsed_ms() const noexcept { return elapsed_ms_; }

 private:
  std::uint32_t interval_ms_ = initial_interval_ms;
  std::uint32_t elapsed_ms_ = 0;
};

}  // namespace xmlrpcs
