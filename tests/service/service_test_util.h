// What the vxnet::service tests share: the service type, the patience of
// their waits and a reply object that records what it is told.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <vxnet/service.h>

namespace service_test {

using namespace std::chrono_literals;

constexpr const char* kType = "_corvane-xmlrpc._tcp";

// Generous bound for waits that only a broken publication would reach: far
// below D-Bus's 25 s call time-out, far above anything a working one needs.
constexpr auto kPatience = 10s;

// A reply object that keeps what it is told and lets a test wait for it.
class recording_reply : public vxnet::publish_reply {
 public:
  void published(const std::string& name) override { add("published " + name); }
  void not_published(const std::string& reason) override { add("not-published " + reason); }

  // Waits until at least n events arrived; false after kPatience.
  bool wait_for_events(std::size_t n) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return events_.size() >= n; });
  }

  std::vector<std::string> events() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
  }

 private:
  void add(std::string event) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> events_;
};

}  // namespace service_test
