// Report dispatch and the debug-stream filters.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vxcore/ds.h>
#include <vxcore/report.h>

namespace {

struct recording_reporter : vxcore::reporter {
  void report(const char*, std::uint32_t line, const char* module, vxcore::kind k,
              vxbase::severity s, const char* message) override {
    lines.push_back(std::string(module) + "|" + std::to_string(line) + "|" +
                    std::to_string(static_cast<int>(k)) + "|" + std::to_string(s) + "|" +
                    (message ? message : "(null)"));
  }
  std::vector<std::string> lines;
};

TEST(report, reaches_the_installed_reporter_only) {
  recording_reporter r;
  EXPECT_EQ(vxcore::set_reporter(&r), nullptr);
  vxcore::report("f", 417, "XMLRPCServer", vxcore::kind::lifecycle, vxbase::sev_debug,
                 "Starting up");
  vxcore::report("f", 1, "vxnet", vxcore::kind::network, vxbase::sev_error, nullptr);
  EXPECT_EQ(vxcore::set_reporter(nullptr), &r);
  vxcore::report("f", 2, "XMLRPCServer", vxcore::kind::general, vxbase::sev_info, "dropped");
  ASSERT_EQ(r.lines.size(), 2u);
  EXPECT_EQ(r.lines[0], "XMLRPCServer|417|8|7|Starting up");
  EXPECT_EQ(r.lines[1], "vxnet|1|2|3|(null)");
}

TEST(report, without_reporter_warnings_go_to_stderr) {
  ::testing::internal::CaptureStderr();
  vxcore::report("f", 1, "m", vxcore::kind::general, vxbase::sev_warning, "seen");
  vxcore::report("f", 1, "m", vxcore::kind::general, vxbase::sev_notice, "unseen");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "m warning: seen\n");
}

TEST(report, fatal_without_reporter_aborts) {
  EXPECT_DEATH(
      vxcore::report("file.cpp", 9, "m", vxcore::kind::general, vxbase::sev_fatal, nullptr),
      "file.cpp:9: Aborting due to fatal report");
}

TEST(ds, filters_push_and_levels) {
  vxcore::ds::clear_filters();
  EXPECT_FALSE(vxcore::ds::enabled("XMLRPCServer"));
  vxcore::ds::push_filt("XMLRPCServer", true);
  EXPECT_TRUE(vxcore::ds::enabled("XMLRPCServer"));
  EXPECT_TRUE(vxcore::ds::enabled("XMLRPCServer:fatal"));
  vxcore::ds::push_filt("XMLRPCServer:fatal", false);
  EXPECT_FALSE(vxcore::ds::enabled("XMLRPCServer:fatal"));
  vxcore::ds::push_filt("XMLRPCServer", false);
  EXPECT_FALSE(vxcore::ds::enabled("XMLRPCServer"));
  vxcore::ds::push_filt("", true);
  EXPECT_TRUE(vxcore::ds::enabled(""));

  vxcore::ds::push_filt("Corvane", true);
  ::testing::internal::CaptureStderr();
  vxcore::ds::print("Corvane:fatal", "printed");
  vxcore::ds::print("Nobody", "not printed");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Corvane:fatal: printed\n");
  vxcore::ds::clear_filters();
}

}  // namespace
