// callqueue: the process-wide queue of deferred calls, run by the main loop.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>

namespace vxbase {

// Calls posted here run later, on the main loop's thread, in posting order.
class callqueue {
 public:
  static callqueue& instance();

  // Queues call; returns false (and drops it) once exit() has ended the queue.
  bool post(std::function<void()> call);

  // Runs every call queued before this run started; calls posted while it
  // runs wait for the next run, so one run always ends. Returns the number
  // of calls run.
  std::size_t run();

  // Ends the queue: drops what is queued and refuses further posts.
  void exit();

  bool is_exited() const noexcept { return exited_; }
  std::size_t pending() const noexcept { return queue_.size(); }

 private:
  callqueue() = default;
  std::deque<std::function<void()>> queue_;
  bool exited_ = false;
};

}  // namespace vxbase
