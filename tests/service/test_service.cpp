// vxnet::service without an Avahi daemon: argument checks, a missing system
// bus, and a bus that never answers (standing in for a frozen daemon).
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vxbase/es.h>
#include <vxnet/service.h>

namespace {

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
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vxnet-service-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    dir_ = pattern;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket_path()).c_str(), 1);
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

TEST(VxnetService, RejectsAnInvalidServiceType) {
  EXPECT_THROW(vxnet::service("", 40431), vxbase::es::arg_error);
  EXPECT_THROW(vxnet::service("corvane-xmlrpc", 40431), vxbase::es::arg_error);
  try {
    vxnet::service bad("not a type", 40431);
    FAIL() << "no error raised";
  } catch (const vxbase::es::arg_error& e) {
    EXPECT_NE(std::string(e.what()).find("not a type"), std::string::npos) << e.what();
  }
}

TEST(VxnetService, RejectsAnInvalidNameOrDomain) {
  EXPECT_THROW(vxnet::service(kType, 40431, nullptr, ""), vxbase::es::arg_error);
  const std::string too_long(64, 'n');  // a DNS label holds at most 63 bytes
  EXPECT_THROW(vxnet::service(kType, 40431, nullptr, too_long.c_str()), vxbase::es::arg_error);
  EXPECT_THROW(vxnet::service(kType, 40431, nullptr, nullptr, "bad..domain"),
               vxbase::es::arg_error);
}

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
