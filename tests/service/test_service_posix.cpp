// vxnet::service without an Avahi daemon: a missing system bus, and a bus
// that never answers (standing in for a frozen daemon).
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <vxnet/service.h>

#include "service_test_util.h"
#include "test_support.h"

namespace {

using namespace std::chrono_literals;
using service_test::kPatience;
using service_test::kType;
using service_test::recording_reply;

// Points the D-Bus library at a socket path of the test program's own, so no
// test ever reaches the machine's real system bus. The D-Bus library reads
// the address once per process, so every test shares this one; a test that
// wants a bus there puts its own socket at socket_path().
class private_bus_address {
 public:
  static const private_bus_address& get() {
    static const private_bus_address address;
    return address;
  }
  std::string socket_path() const { return (dir_ / "bus").string(); }

 private:
  private_bus_address() {
    dir_ = test_support::make_temp_dir("vxnet-service-");
    test_support::set_env("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + socket_path());
  }
  ~private_bus_address() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  std::filesystem::path dir_;
};

// A bus that takes connections into its backlog and never says a word, as a
// daemon stopped in the middle of its work would: every D-Bus call made to
// it waits for its full time-out.
class silent_bus {
 public:
  explicit silent_bus(const std::string& path) : path_(path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd_, 8) != 0) {
      throw std::runtime_error("cannot make the silent bus socket");
    }
  }
  ~silent_bus() {
    close(fd_);
    unlink(path_.c_str());
  }

 private:
  std::string path_;
  int fd_ = -1;
};

TEST(VxnetService, KeepsTypeAndPort) {
  private_bus_address::get();
  vxnet::service published(kType, 65535);
  EXPECT_EQ(published.type(), kType);
  EXPECT_EQ(published.port(), 65535);
}

TEST(VxnetService, WithoutASystemBusTheReplyHearsWhyAndThePublicationKeepsTrying) {
  private_bus_address::get();
  recording_reply reply;
  auto published =
      std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr, &reply);
  // Two reasons mean a second attempt was made after the first failed.
  ASSERT_TRUE(reply.wait_for_events(2));
  for (const std::string& event : reply.events()) {
    EXPECT_NE(event.find("not-published cannot reach the system bus"), std::string::npos) << event;
  }
  published.reset();
  const std::size_t told = reply.events().size();
  // Attempts come once a second while the object lives; none may follow its
  // destruction, whose contract is that the reply is not called any more.
  std::this_thread::sleep_for(1500ms);
  EXPECT_EQ(reply.events().size(), told);
}

TEST(VxnetService, WithoutAReplyObjectAMissingBusIsSilent) {
  private_bus_address::get();
  vxnet::service published(kType, 40431);
  std::this_thread::sleep_for(100ms);  // let the first attempt fail
}

TEST(VxnetService, ConstructorAndDestructorDoNotWaitForABusThatNeverAnswers) {
  const private_bus_address& bus = private_bus_address::get();
  silent_bus silent(bus.socket_path());
  recording_reply reply;
  // Both run on a thread of the test so that a blocking one is caught while
  // the bus is still silent (it would hold them for D-Bus's 25 s time-out).
  auto made = std::async(std::launch::async, [&] {
    return std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr, &reply);
  });
  ASSERT_EQ(made.wait_for(kPatience), std::future_status::ready);
  std::unique_ptr<vxnet::service> published = made.get();
  std::this_thread::sleep_for(200ms);  // the loop's thread is now inside its call to the bus
  auto destroyed = std::async(std::launch::async, [&] { published.reset(); });
  ASSERT_EQ(destroyed.wait_for(kPatience), std::future_status::ready);
  destroyed.get();
  // The loop's thread was held by the silent bus all along: it had nothing
  // to tell, neither a publication nor a failure to reach the bus.
  EXPECT_TRUE(reply.events().empty()) << reply.events().front();
}

}  // namespace
