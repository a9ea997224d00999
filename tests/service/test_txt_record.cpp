// vxnet::txt_record: entry order, replacement, removal and the checks on keys
// and entry size.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <vxbase/es.h>
#include <vxnet/txt_record.h>

namespace {

using entries = std::vector<std::string>;

TEST(VxnetTxtRecord, KeepsEntriesInTheOrderKeysWereFirstSet) {
  vxnet::txt_record txt;
  EXPECT_TRUE(txt.empty());
  txt.set("path", "/RPC2");
  txt.set("version", "7");
  txt.set("empty", "");
  EXPECT_FALSE(txt.empty());
  EXPECT_EQ(txt.entries(), (entries{"path=/RPC2", "version=7", "empty="}));
}

TEST(VxnetTxtRecord, SettingAKeyAgainReplacesItsValueInPlace) {
  vxnet::txt_record txt;
  txt.set("a", "1");
  txt.set("ab", "2");
  txt.set("a", "3");
  EXPECT_EQ(txt.entries(), (entries{"a=3", "ab=2"}));
}

TEST(VxnetTxtRecord, RemoveTakesOnlyTheExactKey) {
  vxnet::txt_record txt;
  txt.set("ab", "1");
  txt.set("a", "2");
  EXPECT_FALSE(txt.remove("b"));
  EXPECT_TRUE(txt.remove("a"));
  EXPECT_EQ(txt.entries(), (entries{"ab=1"}));
  EXPECT_FALSE(txt.remove("a"));
}

TEST(VxnetTxtRecord, ValuesMayHoldAnyBytes) {
  vxnet::txt_record txt;
  txt.set("k", std::string("a=b\0c\xff", 6));
  EXPECT_EQ(txt.entries().at(0), std::string("k=a=b\0c\xff", 8));
}

TEST(VxnetTxtRecord, RejectsEmptyKeysKeysWithEqualsAndUnprintableKeys) {
  vxnet::txt_record txt;
  EXPECT_THROW(txt.set("", "x"), vxbase::es::arg_error);
  EXPECT_THROW(txt.set("a=b", "x"), vxbase::es::arg_error);
  EXPECT_THROW(txt.set("tab\there", "x"), vxbase::es::arg_error);
  EXPECT_THROW(txt.set("caf\xc3\xa9", "x"), vxbase::es::arg_error);
  EXPECT_TRUE(txt.empty());
}

TEST(VxnetTxtRecord, AnEntryFillsAtMostOneTxtString) {
  vxnet::txt_record txt;
  const std::size_t room = vxnet::txt_record::kMaxEntrySize - 2;  // "k="
  txt.set("k", std::string(room, 'v'));
  EXPECT_EQ(txt.entries().at(0).size(), vxnet::txt_record::kMaxEntrySize);
  EXPECT_THROW(txt.set("k", std::string(room + 1, 'v')), vxbase::es::arg_error);
  // The failed set leaves the previous value alone.
  EXPECT_EQ(txt.entries().at(0).size(), vxnet::txt_record::kMaxEntrySize);
}

TEST(VxnetTxtRecord, TheErrorNamesTheKey) {
  vxnet::txt_record txt;
  try {
    txt.set("bad=key", "x");
    FAIL() << "no error raised";
  } catch (const vxbase::es::arg_error& e) {
    EXPECT_NE(std::string(e.what()).find("bad=key"), std::string::npos) << e.what();
  }
}

}  // namespace
