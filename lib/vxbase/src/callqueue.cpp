// The process-wide queue of deferred calls.
#include <vxbase/callqueue.h>

namespace vxbase {

callqueue& callqueue::instance() {
  static callqueue queue;
  return queue;
}

bool callqueue::post(std::function<void()> call) {
  if (exited_ || !call) return false;
  queue_.push_back(std::move(call));
  return true;
}

std::size_t callqueue::run() {
  std::size_t n = queue_.size();
  std::size_t done = 0;
  while (n-- > 0 && !queue_.empty()) {
    std::function<void()> call = std::move(queue_.front());
    queue_.pop_front();
    call();
    ++done;
  }
  return done;
}

void callqueue::exit() {
  exited_ = true;
  queue_.clear();
}

}  // namespace vxbase
