// The error exceptions.
#include <gtest/gtest.h>

#include <vxbase/es.h>

namespace {

TEST(es, raise_formats_and_keeps_location) {
  try {
    vxbase::es::arg_raise("app/common/xmlrpcs/xmlrpcserver", 412, "invalid configuration (%s)",
                          "x");
    FAIL();
  } catch (const vxbase::es::base& e) {
    EXPECT_STREQ(e.what(), "invalid configuration (x)");
    EXPECT_EQ(e.location(), "app/common/xmlrpcs/xmlrpcserver");
    EXPECT_EQ(e.line(), 412u);
    EXPECT_NE(dynamic_cast<const vxbase::es::arg_error*>(&e), nullptr);
  }
  EXPECT_THROW(vxbase::es::call_raise("x", 1, "y"), vxbase::es::call_error);
  EXPECT_THROW(vxbase::es::call_raise("x", 1, "y"), std::exception);
}

}  // namespace
