// vxnet::service on Windows: the publication through Bonjour or the Windows
// DNS-SD API starts and ends without waiting, and tells its reply object
// only what a publication can be told.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <thread>

#include <vxnet/service.h>

#include "service_test_util.h"

namespace {

using namespace std::chrono_literals;
using service_test::kPatience;
using service_test::kType;
using service_test::recording_reply;

TEST(VxnetService, KeepsTypeAndPort) {
  vxnet::service published(kType, 65535);
  EXPECT_EQ(published.type(), kType);
  EXPECT_EQ(published.port(), 65535);
}

TEST(VxnetService, ConstructorAndDestructorReturnWithinThePatience) {
  recording_reply reply;
  auto made = std::async(std::launch::async, [&] {
    return std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr, &reply);
  });
  ASSERT_EQ(made.wait_for(kPatience), std::future_status::ready);
  std::unique_ptr<vxnet::service> published = made.get();
  std::this_thread::sleep_for(500ms);  // room for an answer of the system
  auto destroyed = std::async(std::launch::async, [&] { published.reset(); });
  ASSERT_EQ(destroyed.wait_for(kPatience), std::future_status::ready);
  destroyed.get();
  const std::size_t told = reply.events().size();
  for (const std::string& event : reply.events()) {
    EXPECT_TRUE(event.rfind("published ", 0) == 0 || event.rfind("not-published ", 0) == 0)
        << event;
  }
  // The destructor's contract: the reply is not called any more.
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(reply.events().size(), told);
  std::printf("the publication was told: %s\n",
              told ? reply.events().front().c_str() : "(nothing yet)");
}

}  // namespace
