// The Windows side of the platform layer, called for real: Winsock start-up,
// the folders, file replacement, and the socket calls (WSAPoll over more
// sockets than a select() set holds, exclusive listener ports).
#include <gtest/gtest.h>

#include <winsock2.h>  // before windows.h, which would pull in the old winsock.h
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include <vxbase/env.h>
#include <vxbase/fileutil.h>
#include <vxbase/net.h>
#include <vxbase/path.h>
#include <vxbase/platform.h>

namespace {

namespace net = vxbase::net;
namespace platform = vxbase::platform;

// More sockets than Windows' select() set (64) holds.
constexpr int kManySockets = 100;

class Winsock : public ::testing::Test {
 protected:
  void SetUp() override {
    std::uint16_t obtained = 0;
    ASSERT_EQ(platform::socket_startup(0x0002, obtained), 0);
    ASSERT_EQ(obtained, 0x0002);
  }
  void TearDown() override { platform::socket_cleanup(); }

  // A listener on a free loopback port; its port in *port.
  int listener(int* port) {
    const int fd = net::open_socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    EXPECT_GE(fd, 0);
    EXPECT_TRUE(net::set_listener_address_reuse(fd));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    EXPECT_EQ(::listen(fd, SOMAXCONN), 0);
    int len = sizeof addr;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    *port = ntohs(addr.sin_port);
    return fd;
  }

  // A blocking client connected to port.
  int client(int port) {
    const int fd = static_cast<int>(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<u_short>(port));
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    return fd;
  }
};

TEST(Platform, CommonAppDataIsProgramData) {
  std::string folder;
  ASSERT_EQ(platform::common_app_data_folder(platform::folder_common_app_data, folder), 0);
  EXPECT_EQ(folder, "C:\\ProgramData");
}

TEST(Platform, PathsUseBackslashes) {
  EXPECT_EQ(vxbase::path_separator, '\\');
  EXPECT_EQ(vxbase::path_appended("C:\\ProgramData", "x.xml"), "C:\\ProgramData\\x.xml");
}

TEST(Platform, DrivePathsAreAbsolute) {
  EXPECT_TRUE(vxbase::path_is_absolute("C:\\logs"));
  EXPECT_TRUE(vxbase::path_is_absolute("d:/logs"));
  EXPECT_TRUE(vxbase::path_is_absolute("\\logs"));
  EXPECT_FALSE(vxbase::path_is_absolute("logs\\C:"));
}

TEST(Platform, ExecutableFolderHoldsThisTest) {
  const std::string dir = vxbase::env::get_executable_path();
  ASSERT_FALSE(dir.empty());
  EXPECT_NE(dir.back(), '\\');
  char self[MAX_PATH] = {};
  ::GetModuleFileNameA(nullptr, self, MAX_PATH);
  EXPECT_EQ(dir + "\\" + vxbase::path_file_name(self), std::string(self));
}

TEST(Platform, SetErrorModeReturnsThePreviousMode) {
  const unsigned before = platform::set_error_mode(SEM_FAILCRITICALERRORS);
  EXPECT_EQ(platform::set_error_mode(before), static_cast<unsigned>(SEM_FAILCRITICALERRORS));
}

TEST(Platform, SetThreadExecutionStateReturnsThePreviousState) {
  const std::uint32_t awake = platform::es_continuous | platform::es_system_required;
  EXPECT_EQ(awake, static_cast<std::uint32_t>(ES_CONTINUOUS | ES_SYSTEM_REQUIRED));
  EXPECT_EQ(platform::es_continuous, static_cast<std::uint32_t>(ES_CONTINUOUS));
  platform::set_thread_execution_state(awake);
  // The state asked for is the one in force: the next call reports it.
  EXPECT_EQ(platform::set_thread_execution_state(platform::es_continuous), awake);
  EXPECT_EQ(platform::set_thread_execution_state(platform::es_continuous),
            platform::es_continuous);
}

TEST(Platform, AbortBehaviourBelongsToTheProgramsOwnRuntime) {
  // The program's abort() is msvcrt.dll's, which has no _set_abort_behavior:
  // the call reports that it could not be made.
  unsigned previous = 0xdead;
  EXPECT_FALSE(platform::set_abort_behavior(0, 1, &previous));
  EXPECT_EQ(previous, 0xdeadu);  // untouched

  // Another runtime in the process (Wine's ws2_32.dll brings ucrtbase.dll)
  // keeps its flags: the program's abort() never reads them.
  HMODULE ucrt = ::LoadLibraryA("ucrtbase.dll");
  ASSERT_NE(ucrt, nullptr);
  using set_abort_fn = unsigned(__cdecl*)(unsigned, unsigned);
  auto ucrt_set = reinterpret_cast<set_abort_fn>(
      reinterpret_cast<void*>(::GetProcAddress(ucrt, "_set_abort_behavior")));
  ASSERT_NE(ucrt_set, nullptr);
  const unsigned before = ucrt_set(0, 0);  // mask 0: reads only
  ASSERT_EQ(before & 1u, 1u) << "_WRITE_ABORT_MSG is set by default";
  EXPECT_FALSE(platform::set_abort_behavior(0, 1, &previous));
  EXPECT_EQ(ucrt_set(0, 0), before);
  ::FreeLibrary(ucrt);
}

TEST(Platform, ReplaceFileOverwritesAnExistingFile) {
  char dir[MAX_PATH] = {};
  ASSERT_GT(::GetTempPathA(MAX_PATH, dir), 0u);
  const std::string target = std::string(dir) + "xmlrpcs-platform-test.xml";
  vxbase::fileutil::set_file_content(target, "first\r\n");
  vxbase::fileutil::set_file_content(target, "second\n");
  // Bytes as written: no CR-LF translation either way.
  EXPECT_EQ(vxbase::fileutil::get_file_content(target), "second\n");
  EXPECT_EQ(platform::replace_file(target + ".missing", target), ENOENT);
  std::remove(target.c_str());
}

TEST_F(Winsock, PollWatchesEverySocketBeyondSixtyFour) {
  int port = 0;
  const int lfd = listener(&port);
  std::vector<int> clients, accepted;
  for (int i = 0; i < kManySockets; ++i) {
    clients.push_back(client(port));
    int fd = -1;
    for (int tries = 0; fd < 0 && tries < 100; ++tries) {
      pollfd p = net::watch(lfd, POLLIN);
      net::poll(&p, 1, 1000);
      fd = net::accept_socket(lfd);
    }
    ASSERT_GE(fd, 0);
    accepted.push_back(fd);
  }
  // Only the last accepted socket gets data: a 64-entry window would not
  // even look at it.
  ASSERT_EQ(::send(static_cast<SOCKET>(clients.back()), "x", 1, 0), 1);
  std::vector<pollfd> fds;
  for (int fd : accepted) fds.push_back(net::watch(fd, POLLIN));
  ASSERT_EQ(net::poll(fds.data(), fds.size(), 5000), 1);
  EXPECT_TRUE(fds.back().revents & POLLIN);
  char byte = 0;
  EXPECT_EQ(net::recv_some(accepted.back(), &byte, 1), 1);
  // Nothing more: the non-blocking socket reports a transient error.
  EXPECT_LT(net::recv_some(accepted.back(), &byte, 1), 0);
  EXPECT_TRUE(net::is_transient(net::last_error()));
  for (int fd : clients) net::close_socket(fd);
  for (int fd : accepted) net::close_socket(fd);
  net::close_socket(lfd);
}

TEST_F(Winsock, ExclusiveListenerKeepsASecondOneOffItsPort) {
  int port = 0;
  const int first = listener(&port);
  const int second = net::open_socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  ASSERT_GE(second, 0);
  net::set_listener_address_reuse(second);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<u_short>(port));
  EXPECT_NE(::bind(second, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  EXPECT_EQ(net::last_error(), WSAEADDRINUSE);
  net::close_socket(second);
  net::close_socket(first);
}

TEST_F(Winsock, RefusedConnectIsReportedAsRefused) {
  int port = 0;
  const int lfd = listener(&port);
  net::close_socket(lfd);  // nobody listens there any more
  const int fd = net::open_socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<u_short>(port));
  int error = 0;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    error = net::last_error();
    ASSERT_TRUE(net::is_in_progress(error)) << error;
    pollfd p = net::watch(fd, POLLOUT);
    net::poll(&p, 1, 5000);
    error = net::pending_error(fd);
  }
  EXPECT_TRUE(net::is_refused(error)) << net::error_text(error);
  EXPECT_NE(net::error_text(error).find("(error 10061)"), std::string::npos);
  net::close_socket(fd);
}

}  // namespace
