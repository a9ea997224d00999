// The reader's nesting limit: values nested deeper than the limit fail to
// read as a whole, cleanly, instead of exhausting the stack.
#include <gtest/gtest.h>

#include <string>

#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcValue;

namespace {

std::string nestedArrays(int depth, const std::string& innermost = "<value><i4>1</i4></value>") {
  std::string xml;
  xml.reserve(static_cast<std::size_t>(depth) * 44 + innermost.size());
  for (int i = 0; i < depth; ++i) xml += "<value><array><data>";
  xml += innermost;
  for (int i = 0; i < depth; ++i) xml += "</data></array></value>";
  return xml;
}

std::string nestedStructs(int depth) {
  std::string xml;
  for (int i = 0; i < depth; ++i) xml += "<value><struct><member><name>m</name>";
  xml += "<value>leaf</value>";
  for (int i = 0; i < depth; ++i) xml += "</member></struct></value>";
  return xml;
}

int arrayDepth(const XmlRpcValue& v) {
  int depth = 0;
  const XmlRpcValue* p = &v;
  while (p->getType() == XmlRpcValue::TypeArray) {
    ++depth;
    p = &(*p)[0];
  }
  return depth;
}

}  // namespace

TEST(XmlRpcReaderLimits, AHundredThousandNestedArraysFailCleanly) {
  const std::string xml = "  " + nestedArrays(100000);
  XmlRpcValue v("previous");
  int offset = 2;
  EXPECT_FALSE(v.fromXml(xml, &offset));
  EXPECT_EQ(offset, 2);
  EXPECT_FALSE(v.valid());
}

TEST(XmlRpcReaderLimits, AHundredThousandNestedStructsFailCleanly) {
  const std::string xml = nestedStructs(100000);
  XmlRpcValue v;
  int offset = 0;
  EXPECT_FALSE(v.fromXml(xml, &offset));
  EXPECT_EQ(offset, 0);
  EXPECT_FALSE(v.valid());
}

TEST(XmlRpcReaderLimits, NestingUpToTheLimitIsRead) {
  // The limit counts values: the innermost int is one of them.
  const int arrays = XmlRpcValue::kMaxNestingDepth - 1;
  const std::string xml = nestedArrays(arrays);
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset));
  EXPECT_EQ(offset, static_cast<int>(xml.size()));
  EXPECT_EQ(arrayDepth(v), arrays);
  EXPECT_EQ(v.toXml(), xml);
}

TEST(XmlRpcReaderLimits, OneLevelBeyondTheLimitFailsTheWholeRead) {
  const std::string xml = nestedArrays(XmlRpcValue::kMaxNestingDepth);
  XmlRpcValue v;
  int offset = 0;
  EXPECT_FALSE(v.fromXml(xml, &offset));
  EXPECT_EQ(offset, 0);
  EXPECT_FALSE(v.valid());
}

TEST(XmlRpcReaderLimits, TooDeepAValueInsideAnArrayIsNotTakenForItsEnd) {
  // Without the whole read failing, the outer array would end quietly at the
  // deep element and succeed with a truncated value.
  const std::string xml = "<value><array><data><value><i4>1</i4></value>" +
                          nestedArrays(XmlRpcValue::kMaxNestingDepth + 5) +
                          "</data></array></value>";
  XmlRpcValue v;
  int offset = 0;
  EXPECT_FALSE(v.fromXml(xml, &offset));
  EXPECT_EQ(offset, 0);
}

TEST(XmlRpcReaderLimits, TheLimitAppliesPerReadNotPerText) {
  // Many shallow values side by side are fine.
  std::string xml = "<value><array><data>";
  for (int i = 0; i < 3 * XmlRpcValue::kMaxNestingDepth; ++i) xml += nestedArrays(3);
  xml += "</data></array></value>";
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset));
  EXPECT_EQ(v.size(), 3 * XmlRpcValue::kMaxNestingDepth);
  XmlRpcValue again;
  offset = 0;
  EXPECT_TRUE(again.fromXml(nestedArrays(XmlRpcValue::kMaxNestingDepth - 1), &offset));
}

TEST(XmlRpcReaderLimits, ValuesMissingTheirClosingTagsAreReadOneAfterAnother) {
  std::string xml = "<value><array><data>";
  for (int i = 0; i < 1000; ++i) xml += "<value><i4>" + std::to_string(i);
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset));
  ASSERT_EQ(v.size(), 1000);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(v[i], XmlRpcValue(i)) << i;
  EXPECT_EQ(offset, static_cast<int>(xml.size()));
}

TEST(XmlRpcReaderLimits, MembersWithoutNamesShareTheEmptyName) {
  std::string xml = "<value><struct>";
  for (int i = 0; i < 1000; ++i)
    xml += "<member><value><i4>" + std::to_string(i) + "</i4></value></member>";
  xml += "</struct></value>";
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset));
  EXPECT_EQ(v.size(), 1);
  EXPECT_EQ(v[""], XmlRpcValue(0));
  EXPECT_EQ(offset, static_cast<int>(xml.size()));
}

TEST(XmlRpcReaderLimits, ANameFoundFarAheadIsTakenByTheFirstMemberOnly) {
  // The first member's name search skips over the second member entirely.
  const std::string xml =
      "<value><struct><member><value><i4>1</i4></value></member>"
      "<member><name>late</name><value><i4>2</i4></value></member></struct></value>";
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset));
  EXPECT_EQ(v.size(), 1);
  EXPECT_EQ(v["late"], XmlRpcValue(2));
}

TEST(XmlRpcReaderLimits, ASharedScanReadsConsecutiveValuesLikeSeparateReads) {
  const std::string xml =
      "<param><value><i4>1</i4></value></param><param><value><struct><member><name>a</name>"
      "<value>x</value></member></struct></value></param><param><value><i4>3";
  int plainOffset = 0, scannedOffset = 0;
  XmlRpcValue::TextScan scan;
  for (int i = 0; i < 3; ++i) {
    XmlRpcValue plain, scanned;
    ASSERT_TRUE(XmlRpc::XmlRpcUtil::findTag("<param>", xml, &plainOffset));
    ASSERT_TRUE(XmlRpc::XmlRpcUtil::findTag("<param>", xml, &scannedOffset));
    ASSERT_TRUE(plain.fromXml(xml, &plainOffset)) << i;
    ASSERT_TRUE(scanned.fromXml(xml, &scannedOffset, scan)) << i;
    EXPECT_EQ(scanned.toXml(), plain.toXml()) << i;
    EXPECT_EQ(scannedOffset, plainOffset) << i;
  }
  EXPECT_EQ(scannedOffset, static_cast<int>(xml.size()));
}

TEST(XmlRpcReaderLimits, AScanHandedAnotherTextStartsAfresh) {
  XmlRpcValue::TextScan scan;
  // The blank after the number makes the reader search for "</value>".
  const std::string unclosed = "<value><i4>1 ";
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(unclosed, &offset, scan));
  EXPECT_EQ(offset, static_cast<int>(unclosed.size()) - 1);
  // The failed search for "</value>" above must not be taken for this text.
  const std::string closed = "<value><i4>2</i4>   </value>tail";
  offset = 0;
  ASSERT_TRUE(v.fromXml(closed, &offset, scan));
  EXPECT_EQ(v, XmlRpcValue(2));
  EXPECT_EQ(offset, static_cast<int>(closed.size()) - 4);
}
