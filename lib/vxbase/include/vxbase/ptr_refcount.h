// ptr_refcount: the owning pointer to an object_refcount (retain on copy,
// release on drop); may be null.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include <vxbase/object_refcount.h>

namespace vxbase {

template <typename T>
class ptr_refcount {
 public:
  using element_type = T;

  ptr_refcount() noexcept = default;
  ptr_refcount(std::nullptr_t) noexcept {}
  // Takes a share of obj (which may be a freshly made object with count 0).
  ptr_refcount(T* obj) noexcept : p_(obj) { retain(); }
  ptr_refcount(const ptr_refcount& o) noexcept : p_(o.p_) { retain(); }
  ptr_refcount(ptr_refcount&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  ptr_refcount(const ptr_refcount<U>& o) noexcept : p_(o.get()) {
    retain();
  }
  template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  ptr_refcount(ptr_refcount<U>&& o) noexcept : p_(o.detach()) {}
  ~ptr_refcount() { release(); }

  ptr_refcount& operator=(const ptr_refcount& o) noexcept {
    ptr_refcount(o).swap(*this);
    return *this;
  }
  ptr_refcount& operator=(ptr_refcount&& o) noexcept {
    ptr_refcount(std::move(o)).swap(*this);
    return *this;
  }
  ptr_refcount& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  void reset() noexcept { ptr_refcount().swap(*this); }
  void swap(ptr_refcount& o) noexcept { std::swap(p_, o.p_); }

  // Gives up ownership without releasing; the caller now holds the share.
  T* detach() noexcept { return std::exchange(p_, nullptr); }

  T* get() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  T* operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  template <typename U>
  bool operator==(const ptr_refcount<U>& o) const noexcept {
    return p_ == o.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

 private:
  void retain() const noexcept {
    if (p_) p_->retain();
  }
  void release() noexcept {
    if (p_) std::exchange(p_, nullptr)->release();
  }

  T* p_ = nullptr;
};

// Makes a new shared object: make_refcount<property_int>(5).
template <typename T, typename... Args>
ptr_refcount<T> make_refcount(Args&&... args) {
  return ptr_refcount<T>(new T(std::forward<Args>(args)...));
}

// Checked down-cast: null when the object is not a U.
template <typename U, typename T>
ptr_refcount<U> dynamic_refcount_cast(const ptr_refcount<T>& p) noexcept {
  return ptr_refcount<U>(dynamic_cast<U*>(p.get()));
}

// Unchecked down-cast, for callers that have checked the kind already.
template <typename U, typename T>
ptr_refcount<U> static_refcount_cast(const ptr_refcount<T>& p) noexcept {
  return ptr_refcount<U>(static_cast<U*>(p.get()));
}

}  // namespace vxbase
