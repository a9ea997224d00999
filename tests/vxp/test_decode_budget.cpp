// What decoding one frame may cost: frames of the largest size made of the
// cheapest values either decode within a small multiple of their size or
// are refused as a protocol error, and the peak memory of decoding is
// measured in a child process of its own.
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

constexpr std::size_t frame = vxnet::vxp::max_frame_size;

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

TEST(DecodeBudget, StatusListsOfABusyClusterFitEasily) {
  // The shape of the proxy's status lists, 20,000 jobs (about 2 MB).
  auto tasks = vxbase::make_refcount<vxcore::property_list>();
  for (int i = 0; i < 20000; ++i) {
    auto job = vxbase::make_refcount<vxcore::properties>(false);
    (*job)["job-id"] = vxbase::make_refcount<vxcore::property_string>("job-" + std::to_string(i));
    (*job)["workflow-id"] =
        vxbase::make_refcount<vxcore::property_string>("wf-" + std::to_string(i / 4));
    (*job)["name"] = vxbase::make_refcount<vxcore::property_string>("clip.mov");
    (*job)["state"] = vxbase::make_refcount<vxcore::property_string>("running");
    (*job)["priority"] = vxbase::make_refcount<vxcore::property_int>(i % 11);
    (*job)["progress"] = vxbase::make_refcount<vxcore::property_real>(0.25);
    tasks->push_back(job);
  }
  vxnet::vxp::packet reply(vxnet::vxp::type_reply, "proxy.node.status.tasks");
  reply.set_property("tasks", tasks);
  reply.set_property("total", vxbase::make_refcount<vxcore::property_int>(20000));
  const std::string body = vxnet::vxp::encode_message(vxnet::vxp::make_reply(5, reply));
  const auto decoded = vxnet::vxp::decode_message(body);
  EXPECT_TRUE(decoded.body.equals(reply));
}

TEST(DecodeBudget, ChargesBeyondTheAllowanceAreProtocolErrors) {
  // 2 bytes of properties with one entry "" -> nil: tiny, within the slack.
  EXPECT_NO_THROW(vxnet::vxp::decode_property(std::string("\x93\x09\xc2\x81\xa0\xc0", 6)));
  // A list declaring more items than there are bytes is refused before
  // anything is reserved.
  EXPECT_THROW(vxnet::vxp::decode_property(std::string("\x92\x08\xdd\x00\x10\x00\x00\xc0", 8)),
               protocol_error);
}

}  // namespace
