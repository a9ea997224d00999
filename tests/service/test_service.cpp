// vxnet::service's argument checks, the same on every system.
#include <gtest/gtest.h>

#include <string>

#include <vxbase/es.h>
#include <vxnet/service.h>

#include "service_test_util.h"

namespace {

using service_test::kType;

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

}  // namespace
