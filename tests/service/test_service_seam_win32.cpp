// vxnet::service's two publication paths on Windows, through stand-ins for
// the libraries (Wine has neither Bonjour nor Windows' DNS-SD): dnssd.dll
// in the folder dnssd-stub\ and dnsapi.dll in dnsapi-stub\ beside this
// program, put on the library search path one at a time. Each stand-in
// records the calls it gets; the Windows one answers later on threads of
// its own, as the system does, and notes an answer whose request was given
// back too early. Under Wine, dnsapi.dll is Wine's own unless the test runs
// with WINEDLLOVERRIDES=dnsapi=n,b (set by the test registration).
#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <vxnet/service.h>
#include <vxnet/txt_record.h>

#include "dns_stub.h"
#include "service_test_util.h"

namespace {

using namespace std::chrono_literals;
using service_test::kType;
using service_test::recording_reply;

constexpr DWORD kRequestPending = 9506;

// One stand-in, loaded from its folder (and kept loaded by this object, so
// its record outlives the service that frees the library).
class stand_in {
 public:
  stand_in(const char* folder, const char* dll) {
    char self[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string dir(self);
    dir = dir.substr(0, dir.find_last_of('\\')) + "\\" + folder;
    ::SetDllDirectoryA(dir.c_str());
    module_ = ::LoadLibraryA(dll);
    if (!module_) return;
    configure_ = lookup<stub_configure_fn>("stub_configure");
    record_ = lookup<stub_record_fn>("stub_record");
    wait_idle_ = lookup<stub_wait_idle_fn>("stub_wait_idle");
  }
  ~stand_in() {
    if (wait_idle_) wait_idle_(10000);
    if (module_) ::FreeLibrary(module_);
    ::SetDllDirectoryA(nullptr);
  }

  bool loaded() const { return configure_ && record_ && wait_idle_; }
  void configure(int a, int b = 0, int c = 0, int d = 0) { configure_(a, b, c, d); }
  bool wait_idle(int ms) { return wait_idle_(ms); }

  std::vector<std::string> lines() {
    std::vector<char> buffer(1 << 16);
    record_(buffer.data(), static_cast<int>(buffer.size()));
    std::vector<std::string> out;
    std::istringstream in(buffer.data());
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
  }

  // The calls and answers in their order: "construct #n" without its
  // arguments, and without the "answered ..." lines, which the stand-in
  // writes after the callback returned, when the caller may already have
  // gone on (see answers_returned()).
  std::vector<std::string> calls() {
    std::vector<std::string> out;
    for (const std::string& line : lines())
      if (line.rfind("construct", 0) == 0) {
        out.push_back(line.substr(0, line.find(' ', 10)));  // "construct #n"
      } else if (line.rfind("answered ", 0) != 0) {
        out.push_back(line);
      }
    return out;
  }

  // Whether every answer's callback has returned.
  bool answers_returned() {
    int answers = 0, returned = 0;
    for (const std::string& line : lines()) {
      answers += line.rfind("answer ", 0) == 0;
      returned += line.rfind("answered ", 0) == 0;
    }
    return answers == returned;
  }

 private:
  template <typename F>
  F lookup(const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(module_, name)));
  }

  HMODULE module_ = nullptr;
  stub_configure_fn configure_ = nullptr;
  stub_record_fn record_ = nullptr;
  stub_wait_idle_fn wait_idle_ = nullptr;
};

std::chrono::milliseconds time_to_destroy(std::unique_ptr<vxnet::service>& published) {
  const auto start = std::chrono::steady_clock::now();
  published.reset();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

// --- Bonjour (dnssd.dll) ---------------------------------------------------

class Bonjour : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dnssd_.loaded()) << "dnssd-stub\\dnssd.dll not loaded";
  }
  stand_in dnssd_{"dnssd-stub", "dnssd.dll"};
};

TEST_F(Bonjour, AnnouncesThroughDnssdAndDeallocatesAtTheEnd) {
  dnssd_.configure(0);
  recording_reply reply;
  vxnet::txt_record txt;
  txt.set("path", "/RPC2");
  txt.set("version", "7.0");
  auto published = std::make_unique<vxnet::service>(kType, 40431, &txt, nullptr, nullptr, &reply);
  ASSERT_TRUE(reply.wait_for_events(1));
  EXPECT_EQ(reply.events().front(), "published stub host");
  time_to_destroy(published);
  const std::vector<std::string> expected = {
      "register _corvane-xmlrpc._tcp name (default) domain (default) port 40431 flags 0 "
      "interface 0 txt path=/RPC2 txt version=7.0",
      "process", "deallocate"};
  EXPECT_EQ(dnssd_.lines(), expected);
}

TEST_F(Bonjour, ANameAndDomainArePassedOn) {
  dnssd_.configure(0);
  recording_reply reply;
  auto published =
      std::make_unique<vxnet::service>(kType, 8080, nullptr, "gateway one", "example.org", &reply);
  ASSERT_TRUE(reply.wait_for_events(1));
  EXPECT_EQ(reply.events().front(), "published gateway one");
  time_to_destroy(published);
  const std::vector<std::string> expected = {
      "register _corvane-xmlrpc._tcp name gateway one domain example.org port 8080 flags 0 "
      "interface 0",
      "process", "deallocate"};
  EXPECT_EQ(dnssd_.lines(), expected);
}

TEST_F(Bonjour, ARefusedRegistrationLeavesTheServiceUnannounced) {
  dnssd_.configure(-65563);  // kDNSServiceErr_ServiceNotRunning
  recording_reply reply;
  auto published = std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr,
                                                    &reply);
  // Wine's own dnsapi.dll has no DnsServiceRegister: nothing else to try.
  ASSERT_EQ(reply.events().size(), 1u);
  EXPECT_EQ(reply.events().front(), "not-published no DNS-SD service on this system");
  time_to_destroy(published);
  ASSERT_EQ(dnssd_.lines().size(), 1u);  // the registration, no reference to give back
  EXPECT_EQ(dnssd_.lines().front().rfind("register ", 0), 0u);
}

// --- Windows DNS-SD (dnsapi.dll) -------------------------------------------

class WindowsDnsSd : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(dnsapi_.loaded())
        << "dnsapi-stub\\dnsapi.dll not loaded (under Wine: WINEDLLOVERRIDES=dnsapi=n,b)";
  }
  stand_in dnsapi_{"dnsapi-stub", "dnsapi.dll"};
};

TEST_F(WindowsDnsSd, TheInstanceIsFreedOnlyAfterTheDeregistrationAnswered) {
  dnsapi_.configure(20, 0, kRequestPending, 300);
  recording_reply reply;
  vxnet::txt_record txt;
  txt.set("path", "/RPC2");
  auto published =
      std::make_unique<vxnet::service>(kType, 40431, &txt, "gw", nullptr, &reply);
  ASSERT_TRUE(reply.wait_for_events(1));
  EXPECT_EQ(reply.events().front(), "published gw");
  const auto took = time_to_destroy(published);
  EXPECT_LT(took, vxnet::service::kWithdrawWait + 1s);
  ASSERT_TRUE(dnsapi_.wait_idle(10000));
  EXPECT_TRUE(dnsapi_.answers_returned());
  const std::vector<std::string> expected = {
      "construct #1",  "register #1 cancellable", "answer register 0",
      "deregister #1", "answer deregister 0",     "free #1"};
  EXPECT_EQ(dnsapi_.calls(), expected);
  const std::string construct = dnsapi_.lines().front();
  EXPECT_NE(construct.find("gw._corvane-xmlrpc._tcp.local host "), std::string::npos) << construct;
  EXPECT_NE(construct.find(" port 40431 path=/RPC2"), std::string::npos) << construct;
}

TEST_F(WindowsDnsSd, APendingRegistrationIsCancelledAndNotWithdrawn) {
  dnsapi_.configure(-1, 0, kRequestPending, 20);  // answered only by a cancel
  recording_reply reply;
  auto published = std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr,
                                                    &reply);
  std::this_thread::sleep_for(100ms);
  time_to_destroy(published);
  ASSERT_TRUE(dnsapi_.wait_idle(10000));
  EXPECT_TRUE(dnsapi_.answers_returned());
  const std::vector<std::string> expected = {"construct #1", "register #1 cancellable", "cancel",
                                             "answer register 1223", "free #1"};
  EXPECT_EQ(dnsapi_.calls(), expected);
  // The cancel's answer came while the service was going: not told.
  EXPECT_TRUE(reply.events().empty());
}

TEST_F(WindowsDnsSd, ALateDeregistrationAnswerFreesWhatItWasLeft) {
  dnsapi_.configure(20, 0, kRequestPending, 2000);
  recording_reply reply;
  auto published = std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr,
                                                    &reply);
  ASSERT_TRUE(reply.wait_for_events(1));
  time_to_destroy(published);
  // The destructor gave up waiting: the instance is still the system's.
  const std::vector<std::string> at_return = {"construct #1", "register #1 cancellable",
                                              "answer register 0", "deregister #1"};
  EXPECT_EQ(dnsapi_.calls(), at_return);
  ASSERT_TRUE(dnsapi_.wait_idle(10000));
  // The late answer frees the registration, instance and all, on its way out.
  std::vector<std::string> expected = at_return;
  for (const char* line : {"answer deregister 0", "free #1"})
    expected.push_back(line);
  EXPECT_EQ(dnsapi_.calls(), expected);
  EXPECT_TRUE(dnsapi_.answers_returned());
  EXPECT_EQ(reply.events().size(), 1u);  // only the registration's outcome
}

TEST_F(WindowsDnsSd, AFailedRegistrationIsToldAndNotWithdrawn) {
  dnsapi_.configure(20, 1460, kRequestPending, 20);  // ERROR_TIMEOUT
  recording_reply reply;
  auto published = std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr,
                                                    &reply);
  ASSERT_TRUE(reply.wait_for_events(1));
  EXPECT_EQ(reply.events().front(), "not-published DnsServiceRegister error 1460");
  time_to_destroy(published);
  ASSERT_TRUE(dnsapi_.wait_idle(10000));
  EXPECT_TRUE(dnsapi_.answers_returned());
  const std::vector<std::string> expected = {"construct #1", "register #1 cancellable",
                                             "answer register 1460", "free #1"};
  EXPECT_EQ(dnsapi_.calls(), expected);
}

TEST_F(WindowsDnsSd, ARegistrationRefusedAtOnceLeavesTheServiceUnannounced) {
  dnsapi_.configure(20, 0, 87, 20);  // ERROR_INVALID_PARAMETER, no answer to come
  recording_reply reply;
  auto published = std::make_unique<vxnet::service>(kType, 40431, nullptr, nullptr, nullptr,
                                                    &reply);
  ASSERT_EQ(reply.events().size(), 1u);
  EXPECT_EQ(reply.events().front(), "not-published no DNS-SD service on this system");
  time_to_destroy(published);
  const std::vector<std::string> expected = {"construct #1", "register #1 cancellable",
                                             "free #1"};
  EXPECT_EQ(dnsapi_.calls(), expected);
}

}  // namespace
