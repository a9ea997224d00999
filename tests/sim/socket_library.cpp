// Starts the socket library for the whole test program: Winsock needs it
// before the first socket, Linux has nothing to start.
#include <gtest/gtest.h>

#include <cstdint>

#include <vxbase/platform.h>

namespace {

class socket_library : public ::testing::Environment {
 public:
  void SetUp() override {
    std::uint16_t obtained = 0;
    ASSERT_EQ(vxbase::platform::socket_startup(0x0202, obtained), 0);
  }
  void TearDown() override { vxbase::platform::socket_cleanup(); }
};

::testing::Environment* const registered =
    ::testing::AddGlobalTestEnvironment(new socket_library);

}  // namespace
