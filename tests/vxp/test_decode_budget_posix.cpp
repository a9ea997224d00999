// The peak memory of decoding a frame of the largest size made of the
// cheapest values, measured in a forked child through /proc/self/status.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include <vxcore/property_all.h>
#include <vxnet/vxp/wire.h>

#include "vxp_sample_tree.h"

namespace {

using vxnet::vxp::protocol_error;

constexpr std::size_t frame = vxnet::vxp::max_frame_size;

// Resident set size and its peak, in bytes, from /proc/self/status.
std::size_t status_kb(const char* field) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(field, 0) == 0) return std::stoul(line.substr(std::strlen(field))) * 1024;
  return 0;
}

struct decode_outcome {
  bool refused = false;
  std::string what;
  std::size_t peak_growth = 0;  // bytes of peak RSS above the RSS before decoding
};

// Decodes body in a forked child, so that its peak RSS is its own.
decode_outcome decode_in_child(const std::string& body) {
  int fds[2];
  if (::pipe(fds) != 0) throw std::runtime_error("pipe");
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    const std::size_t before = status_kb("VmRSS:");
    std::string what = "decoded";
    char refused = '0';
    try {
      vxnet::vxp::decode_message(body);
    } catch (const protocol_error& e) {
      refused = '1';
      what = e.what();
    }
    const std::size_t growth = status_kb("VmHWM:") - before;
    const std::string report = std::string(1, refused) + std::to_string(growth) + " " + what;
    if (::write(fds[1], report.data(), report.size()) < 0) ::_exit(2);
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string report;
  char buf[512];
  ssize_t n;
  while ((n = ::read(fds[0], buf, sizeof buf)) > 0) report.append(buf, static_cast<std::size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  decode_outcome out;
  if (report.empty()) throw std::runtime_error("the decoding child died");
  out.refused = report[0] == '1';
  const auto space = report.find(' ');
  out.peak_growth = std::stoul(report.substr(1, space - 1));
  out.what = report.substr(space + 1);
  return out;
}

TEST(DecodeBudget, ALargestFrameOfTinyValuesIsRefusedWithinTheBudget) {
  // [3, true] costs 3 bytes on the wire and a property object in memory.
  const decode_outcome out = decode_in_child(vxp_samples::reply_with_lists("\x92\x03\xc3", frame));
  EXPECT_TRUE(out.refused);
  EXPECT_NE(out.what.find("budget"), std::string::npos) << out.what;
  EXPECT_LE(out.peak_growth, frame * vxnet::vxp::decode_cost_factor)
      << "peak growth " << out.peak_growth;
  std::printf("16 MiB frame of bools: refused, peak growth %zu MiB\n", out.peak_growth >> 20);
}

TEST(DecodeBudget, ALargestFrameOfNullsDecodesWithinTheBudget) {
  const decode_outcome out = decode_in_child(vxp_samples::reply_with_lists("\xc0", frame));
  EXPECT_FALSE(out.refused) << out.what;
  EXPECT_LE(out.peak_growth, frame * vxnet::vxp::decode_cost_factor)
      << "peak growth " << out.peak_growth;
  std::printf("16 MiB frame of nulls: decoded, peak growth %zu MiB\n", out.peak_growth >> 20);
}

}  // namespace
