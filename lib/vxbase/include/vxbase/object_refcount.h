// Intrusive reference counting: the base of every shared object of the
// platform libraries (property values, configurations, method objects).
#pragma once

#include <atomic>
#include <cstdint>

namespace vxbase {

// A shared object counts its owners itself; ptr_refcount does the counting.
// The count starts at 0: the first ptr_refcount that takes the object makes
// it 1, and the release that brings it back to 0 deletes the object.
// Counting is atomic so that a value may be handed between threads, although
// the program itself is single-threaded.
class object_refcount {
 public:
  object_refcount() = default;
  // A copy is a new object with owners of its own.
  object_refcount(const object_refcount&) noexcept : count_(0) {}
  object_refcount& operator=(const object_refcount&) noexcept { return *this; }
  virtual ~object_refcount() = default;

  // retain and release are const so that pointers to const objects can own
  // them: the count is bookkeeping, not part of the value.
  void retain() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }

  // Drops one owner; deletes the object when it was the last.
  void release() const noexcept {
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  std::uint32_t use_count() const noexcept { return count_.load(std::memory_order_relaxed); }

 private:
  mutable std::atomic<std::uint32_t> count_{0};
};

}  // namespace vxbase
