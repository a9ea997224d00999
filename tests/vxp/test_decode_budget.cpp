// What decoding one frame may cost: realistic frames fit, frames of the
// cheapest values are refused as a protocol error (the peak memory of
// decoding is measured in test_decode_budget_posix.cpp).
#include <gtest/gtest.h>

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

TEST(DecodeBudget, ALargestFrameOfTinyValuesIsRefusedAsOverBudget) {
  // [3, true] costs 3 bytes on the wire and a property object in memory.
  try {
    vxnet::vxp::decode_message(vxp_samples::reply_with_lists("\x92\x03\xc3", frame));
    FAIL() << "decoded";
  } catch (const protocol_error& e) {
    EXPECT_NE(std::string(e.what()).find("budget"), std::string::npos) << e.what();
  }
}

TEST(DecodeBudget, ALargestFrameOfNullsDecodes) {
  EXPECT_NO_THROW(vxnet::vxp::decode_message(vxp_samples::reply_with_lists("\xc0", frame)));
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
