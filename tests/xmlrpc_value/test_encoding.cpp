// XmlRpcValue's XML form: the text written for every type, the reader's
// accepted shapes and its deliberate quirks, base64, entities, tag helpers.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>
#include <string>

#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

#include "decimal_comma_locale.h"

using XmlRpc::XmlRpcUtil;
using XmlRpc::XmlRpcValue;

namespace {

// Reads xml from offset 0; returns the value, with ok and the end offset.
struct ReadResult {
  XmlRpcValue value;
  bool ok;
  int offset;
};

ReadResult read(const std::string& xml, int start = 0) {
  ReadResult r{XmlRpcValue(), false, start};
  r.ok = r.value.fromXml(xml, &r.offset);
  return r;
}

std::string bytes(std::size_t n, unsigned seed = 1) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += static_cast<char>((i * 37 + seed) & 0xff);
  return s;
}

std::string base64Text(const std::string& data) {
  return XmlRpcValue(data.data(), static_cast<int>(data.size())).toXml();
}

// The encoded text alone, between "<value><base64>" and "</base64></value>".
std::string base64Inner(const std::string& data) {
  const std::string text = base64Text(data);
  return text.substr(15, text.size() - 15 - 17);
}

}  // namespace

// ---- Writing ----

TEST(XmlRpcValueWriter, WritesEveryTypeWithoutBlanks) {
  EXPECT_EQ(XmlRpcValue().toXml(), "");
  EXPECT_EQ(XmlRpcValue(true).toXml(), "<value><boolean>1</boolean></value>");
  EXPECT_EQ(XmlRpcValue(false).toXml(), "<value><boolean>0</boolean></value>");
  EXPECT_EQ(XmlRpcValue(-17).toXml(), "<value><i4>-17</i4></value>");
  EXPECT_EQ(XmlRpcValue(std::numeric_limits<int>::min()).toXml(),
            "<value><i4>-2147483648</i4></value>");
  EXPECT_EQ(XmlRpcValue("plain").toXml(), "<value>plain</value>");
  EXPECT_EQ(XmlRpcValue("").toXml(), "<value></value>");
  EXPECT_EQ(XmlRpcValue("foo", 3).toXml(), "<value><base64>Zm9v</base64></value>");
  XmlRpcValue array;
  array[0] = 1;
  array[1] = "two";
  EXPECT_EQ(array.toXml(),
            "<value><array><data><value><i4>1</i4></value><value>two</value></data></array>"
            "</value>");
  XmlRpcValue emptyArray;
  emptyArray.setSize(0);
  EXPECT_EQ(emptyArray.toXml(), "<value><array><data></data></array></value>");
  XmlRpcValue s;
  s["b"] = 2;
  s["a"] = true;
  EXPECT_EQ(s.toXml(),
            "<value><struct><member><name>a</name><value><boolean>1</boolean></value></member>"
            "<member><name>b</name><value><i4>2</i4></value></member></struct></value>");
  XmlRpcValue emptyStruct;
  (void)emptyStruct.asStruct();
  EXPECT_EQ(emptyStruct.toXml(), "<value><struct></struct></value>");
}

TEST(XmlRpcValueWriter, InvalidArrayElementsWriteNothing) {
  XmlRpcValue array;
  array.setSize(2);
  array[1] = 5;
  EXPECT_EQ(array.toXml(), "<value><array><data><value><i4>5</i4></value></data></array></value>");
}

TEST(XmlRpcValueWriter, AppendXmlAppendsTheSameText) {
  XmlRpcValue v;
  v["k"][0] = 1.5;
  std::string out = "prefix";
  v.appendXml(out);
  EXPECT_EQ(out, "prefix" + v.toXml());
}

TEST(XmlRpcValueWriter, StringsAndMemberNamesAreEntityEncoded) {
  EXPECT_EQ(XmlRpcValue("a<b>&'\"c").toXml(), "<value>a&lt;b&gt;&amp;&apos;&quot;c</value>");
  XmlRpcValue s;
  s["a<b"] = 1;
  EXPECT_EQ(s.toXml(),
            "<value><struct><member><name>a&lt;b</name><value><i4>1</i4></value></member>"
            "</struct></value>");
}

TEST(XmlRpcValueWriter, DoublesUseSixDecimals) {
  EXPECT_EQ(XmlRpcValue(1.5).toXml(), "<value><double>1.500000</double></value>");
  EXPECT_EQ(XmlRpcValue(-0.25).toXml(), "<value><double>-0.250000</double></value>");
  EXPECT_EQ(XmlRpcValue(0.0).toXml(), "<value><double>0.000000</double></value>");
  EXPECT_EQ(XmlRpcValue(2.0000005).toXml(), "<value><double>2.000001</double></value>");
}

TEST(XmlRpcValueWriter, FixedFormatLosesSmallMagnitudesAndHasNoExponent) {
  EXPECT_EQ(XmlRpcValue(0.0000001).toXml(), "<value><double>0.000000</double></value>");
  EXPECT_EQ(XmlRpcValue(1e20).toXml(),
            "<value><double>100000000000000000000.000000</double></value>");
}

TEST(XmlRpcValueWriter, DoublesMatchPrintfIncludingSpecialValues) {
  const double samples[] = {3.14159265358979,
                            -123456.7890125,
                            0.5e-6,
                            1.0 / 3.0,
                            9007199254740993.0,
                            std::numeric_limits<double>::infinity(),
                            -std::numeric_limits<double>::infinity(),
                            std::numeric_limits<double>::quiet_NaN(),
                            -std::numeric_limits<double>::quiet_NaN(),
                            std::numeric_limits<double>::denorm_min()};
  for (double d : samples) {
    char expected[512];
    std::snprintf(expected, sizeof expected, "%f", d);
    // Special values are written as glibc's printf writes them, on every
    // platform (the Windows C runtimes drop the sign of NaN).
    if (std::isnan(d)) std::snprintf(expected, sizeof expected, "%s", std::signbit(d) ? "-nan" : "nan");
    EXPECT_EQ(XmlRpcValue(d).toXml(),
              std::string("<value><double>") + expected + "</double></value>")
        << expected;
  }
}

TEST(XmlRpcValueWriter, HugeDoublesAreCutAt255Characters) {
  const double huge = std::numeric_limits<double>::max();
  char full[512];
  const int length = std::snprintf(full, sizeof full, "%f", huge);
  ASSERT_GT(length, 255);
  EXPECT_EQ(XmlRpcValue(huge).toXml(),
            "<value><double>" + std::string(full, 255) + "</double></value>");
}

TEST(XmlRpcValueWriter, AnotherDoubleFormatCanBeSet) {
  EXPECT_EQ(XmlRpcValue::getDoubleFormat(), "%f");
  XmlRpcValue::setDoubleFormat("%.2f");
  const std::string written = XmlRpcValue(1.5).toXml();
  XmlRpcValue::setDoubleFormat("%f");
  EXPECT_EQ(written, "<value><double>1.50</double></value>");
  EXPECT_EQ(XmlRpcValue(1.5).toXml(), "<value><double>1.500000</double></value>");
}

TEST(XmlRpcValueWriter, NumbersKeepADecimalPointUnderAnotherLocale) {
  std::string whyNot;
  const bool switched = xmlrpc_test::switch_to_decimal_comma(whyNot);
  char probe[16];
  std::snprintf(probe, sizeof probe, "%.1f", 1.5);
  std::string written, custom;
  ReadResult r{XmlRpcValue(), false, 0};
  if (switched && std::string(probe) == "1,5") {
    written = XmlRpcValue(1.5).toXml();
    XmlRpcValue::setDoubleFormat("%.1f");
    custom = XmlRpcValue(1.5).toXml();
    XmlRpcValue::setDoubleFormat("%f");
    r = read("<value><double>2.5</double></value>");
  }
  xmlrpc_test::leave_decimal_comma();
  if (!switched) GTEST_SKIP() << whyNot;
  ASSERT_EQ(std::string(probe), "1,5") << "the locale did not switch to a decimal comma";
  EXPECT_EQ(written, "<value><double>1.500000</double></value>");
  EXPECT_EQ(custom, "<value><double>1.5</double></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue(2.5));
}

TEST(XmlRpcValueWriter, DateTimeIsWrittenAsStored) {
  std::tm t{};
  t.tm_year = 2012;
  t.tm_mon = 3;
  t.tm_mday = 4;
  t.tm_hour = 5;
  t.tm_min = 6;
  t.tm_sec = 7;
  EXPECT_EQ(XmlRpcValue(&t).toXml(),
            "<value><dateTime.iso8601>20120304T05:06:07</dateTime.iso8601></value>");
  t.tm_year = 7;
  EXPECT_EQ(XmlRpcValue(&t).toXml(),
            "<value><dateTime.iso8601>   70304T05:06:07</dateTime.iso8601></value>");
}

TEST(XmlRpcValueWriter, DateTimeTextIsCutAt19Characters) {
  std::tm t{};
  t.tm_year = -2000000000;
  t.tm_mon = 12;
  t.tm_mday = 31;
  EXPECT_EQ(XmlRpcValue(&t).toXml(),
            "<value><dateTime.iso8601>-20000000001231T00:"
            "</dateTime.iso8601></value>");
}

// ---- Base64 ----

TEST(XmlRpcBase64, EncodesTheStandardVectors) {
  const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (const auto& [raw, encoded] : vectors) {
    EXPECT_EQ(base64Text(raw), std::string("<value><base64>") + encoded + "</base64></value>")
        << raw;
  }
  EXPECT_EQ(base64Text(std::string("\xfb\xff\xbf", 3)), "<value><base64>+/+/</base64></value>");
}

TEST(XmlRpcBase64, FiftyFourBytesGiveOneFullLineAndALineFeed) {
  const std::string inner = base64Inner(bytes(54));
  ASSERT_EQ(inner.size(), 73u);
  EXPECT_EQ(inner.find('\n'), 72u);
  EXPECT_EQ(inner.back(), '\n');
  EXPECT_EQ(inner.find('\r'), std::string::npos);
}

TEST(XmlRpcBase64, FiftyFiveBytesGiveALineALineFeedAndAPaddedGroup) {
  const std::string inner = base64Inner(bytes(55));
  ASSERT_EQ(inner.size(), 77u);
  EXPECT_EQ(inner[72], '\n');
  EXPECT_EQ(inner.substr(75), "==");
  EXPECT_NE(inner[73], '=');
  EXPECT_NE(inner[74], '=');
}

TEST(XmlRpcBase64, LongDataIsCutIntoLinesOf72) {
  const std::string inner = base64Inner(bytes(1000));
  std::size_t start = 0, lines = 0;
  for (std::size_t nl = inner.find('\n'); nl != std::string::npos; nl = inner.find('\n', start)) {
    EXPECT_EQ(nl - start, 72u);
    start = nl + 1;
    ++lines;
  }
  EXPECT_EQ(lines, 1000u / 54);
  EXPECT_EQ(inner.size() - start, 4 * ((1000 - 54 * lines + 2) / 3));
}

TEST(XmlRpcBase64, MultiplesOf54EndWithALineFeedOthersDoNot) {
  for (std::size_t n : {108u, 162u}) EXPECT_EQ(base64Inner(bytes(n)).back(), '\n') << n;
  for (std::size_t n : {53u, 107u, 109u, 110u}) EXPECT_NE(base64Inner(bytes(n)).back(), '\n') << n;
}

TEST(XmlRpcBase64, LineBreaksAndBlanksAreSkippedWhenReading) {
  const std::string data = bytes(200);
  const std::string text = base64Text(data);
  const ReadResult plain = read(text);
  ASSERT_TRUE(plain.ok);
  EXPECT_EQ(plain.value, XmlRpcValue(data.data(), 200));
  std::string mangled;
  for (char c : base64Inner(data)) {
    if (c == '\n') continue;
    mangled += c;
    if (mangled.size() % 5 == 0) mangled += "\r\n \t";
  }
  const ReadResult r = read("<value><base64>" + mangled + "</base64></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, plain.value);
}

TEST(XmlRpcBase64, PaddingEndsDecoding) {
  const ReadResult r = read("<value><base64>Zg==Zm9v</base64></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("f", 1));
  const ReadResult leading = read("<value><base64>=Zm9v</base64></value>");
  ASSERT_TRUE(leading.ok);
  EXPECT_EQ(leading.value.size(), 0);
}

TEST(XmlRpcBase64, TextEndingInsideAGroupKeepsTheBytesDecodedSoFar) {
  const ReadResult r = read("<value><base64>Zm9vYm</base64></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("foob", 4));
  const ReadResult single = read("<value><base64>Z</base64></value>");
  ASSERT_TRUE(single.ok);
  EXPECT_EQ(single.value.size(), 0);
}

TEST(XmlRpcBase64, EmptyBase64ReadsAsZeroBytes) {
  const ReadResult r = read("<value><base64></base64></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value.getType(), XmlRpcValue::TypeBase64);
  EXPECT_EQ(r.value.size(), 0);
  EXPECT_EQ(base64Text(""), "<value><base64></base64></value>");
}

TEST(XmlRpcBase64, AllByteValuesRoundTrip) {
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  const ReadResult r = read(base64Text(all));
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue(all.data(), 256));
}

// ---- Reading ----

TEST(XmlRpcValueReader, BareTextIsAString) {
  const std::string xml = "<value>abc</value>";
  const ReadResult r = read(xml);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("abc"));
  EXPECT_EQ(r.offset, static_cast<int>(xml.size()));
}

TEST(XmlRpcValueReader, EmptyValueIsTheEmptyString) {
  const ReadResult r = read("<value></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue(""));
}

TEST(XmlRpcValueReader, BlankValueKeepsItsBlanks) {
  const ReadResult r = read("<value>  </value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("  "));
}

TEST(XmlRpcValueReader, BareTextKeepsLeadingBlanks) {
  const ReadResult r = read("<value>  abc </value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("  abc "));
}

TEST(XmlRpcValueReader, StringTagIsDecoded) {
  const ReadResult r = read("<value><string>a&amp;b</string></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("a&b"));
  EXPECT_EQ(r.offset, 39);
}

TEST(XmlRpcValueReader, StringWithoutAFollowingTagFails) {
  const ReadResult r = read("<value>abc");
  EXPECT_FALSE(r.ok);
  EXPECT_FALSE(r.value.valid());
  EXPECT_EQ(r.offset, 0);
}

TEST(XmlRpcValueReader, StringReaderAdvancesByTheDecodedLength) {
  // Without a "</value>" to search for, the offset shows where the string
  // reader stopped: three decoded characters after "<value><string>",
  // although the raw text is seven characters long.
  const ReadResult r = read("<value><string>a&amp;b<");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue("a&b"));
  EXPECT_EQ(r.offset, 15 + 3);
}

TEST(XmlRpcValueReader, ShortStringOffsetResynchronisesOnTheNextValue) {
  const ReadResult r = read(
      "<value><array><data><value>&lt;&lt;&lt;&lt;</value><value><i4>9</i4></value></data>"
      "</array></value>");
  ASSERT_TRUE(r.ok);
  ASSERT_EQ(r.value.size(), 2);
  EXPECT_EQ(r.value[0], XmlRpcValue("<<<<"));
  EXPECT_EQ(r.value[1], XmlRpcValue(9));
}

TEST(XmlRpcValueReader, IntTagIsReadAndWrittenBackAsI4) {
  const ReadResult r = read("<value><int>42</int></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue(42));
  EXPECT_EQ(r.value.toXml(), "<value><i4>42</i4></value>");
  EXPECT_EQ(r.offset, 28);
}

TEST(XmlRpcValueReader, IntegersReadLikeStrtol) {
  EXPECT_EQ(read("<value><i4> +7 </i4></value>").value, XmlRpcValue(7));
  EXPECT_EQ(read("<value><i4>-12abc</i4></value>").value, XmlRpcValue(-12));
  EXPECT_EQ(read("<value><i4>\n\t 0099</i4></value>").value, XmlRpcValue(99));
  EXPECT_FALSE(read("<value><i4>abc</i4></value>").ok);
  EXPECT_FALSE(read("<value><i4></i4></value>").ok);
  EXPECT_FALSE(read("<value><i4>- 1</i4></value>").ok);
  EXPECT_EQ(read("<value><i4>0x10</i4></value>").value, XmlRpcValue(0));
}

TEST(XmlRpcValueReader, OutOfRangeIntegersSaturate) {
  EXPECT_EQ(read("<value><i4>2147483648</i4></value>").value, XmlRpcValue(2147483647));
  EXPECT_EQ(read("<value><i4>99999999999999999999999</i4></value>").value, XmlRpcValue(2147483647));
  EXPECT_EQ(read("<value><i4>-2147483649</i4></value>").value,
            XmlRpcValue(std::numeric_limits<int>::min()));
  EXPECT_EQ(read("<value><i4>-99999999999999999999999</i4></value>").value,
            XmlRpcValue(std::numeric_limits<int>::min()));
  EXPECT_EQ(read("<value><i4>-2147483648</i4></value>").value,
            XmlRpcValue(std::numeric_limits<int>::min()));
  // Magnitudes that would wrap a 64-bit accumulator still saturate.
  EXPECT_EQ(read("<value><i4>18446744073709551626</i4></value>").value, XmlRpcValue(2147483647));
  EXPECT_EQ(read("<value><i4>-18446744073709551626</i4></value>").value,
            XmlRpcValue(std::numeric_limits<int>::min()));
}

TEST(XmlRpcValueReader, BooleanMustBeZeroOrOne) {
  EXPECT_FALSE(read("<value><boolean>2</boolean></value>").ok);
  EXPECT_FALSE(read("<value><boolean>-1</boolean></value>").ok);
  EXPECT_FALSE(read("<value><boolean>yes</boolean></value>").ok);
  EXPECT_FALSE(read("<value><boolean></boolean></value>").ok);
  EXPECT_FALSE(read("<value><boolean>18446744073709551617</boolean></value>").ok);
  EXPECT_FALSE(read("<value><boolean>+</boolean></value>").ok);
  const ReadResult failed = read("<value><boolean>2</boolean></value>");
  EXPECT_EQ(failed.offset, 0);
  EXPECT_FALSE(failed.value.valid());
}

TEST(XmlRpcValueReader, BooleanAcceptsLeadingBlanks) {
  const ReadResult one = read("<value><boolean> 1</boolean></value>");
  ASSERT_TRUE(one.ok);
  EXPECT_EQ(one.value, XmlRpcValue(true));
  const ReadResult zero = read("<value><boolean>0</boolean></value>");
  ASSERT_TRUE(zero.ok);
  EXPECT_EQ(zero.value, XmlRpcValue(false));
}

TEST(XmlRpcValueReader, DoubleIsWrittenBackWithSixDecimals) {
  const ReadResult r = read("<value><double>2.5</double></value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue(2.5));
  EXPECT_EQ(r.value.toXml(), "<value><double>2.500000</double></value>");
}

TEST(XmlRpcValueReader, DoublesReadLikeStrtod) {
  EXPECT_EQ(read("<value><double> -1e3xyz</double></value>").value, XmlRpcValue(-1000.0));
  EXPECT_EQ(read("<value><double>.5</double></value>").value, XmlRpcValue(0.5));
  EXPECT_EQ(read("<value><double>0x10</double></value>").value, XmlRpcValue(16.0));
  EXPECT_TRUE(std::isinf(static_cast<double>(read("<value><double>inf</double></value>").value)));
  EXPECT_FALSE(read("<value><double>abc</double></value>").ok);
  EXPECT_FALSE(read("<value><double></double></value>").ok);
  const std::string longText = "<value><double>" + std::string(300, ' ') + "1.25</double></value>";
  EXPECT_EQ(read(longText).value, XmlRpcValue(1.25));
}

TEST(XmlRpcValueReader, DateTimeIsStoredAsWrittenAndWrittenBackIdentically) {
  const std::string xml = "<value><dateTime.iso8601>20120304T05:06:07</dateTime.iso8601></value>";
  const ReadResult r = read(xml);
  ASSERT_TRUE(r.ok);
  ASSERT_EQ(r.value.getType(), XmlRpcValue::TypeDateTime);
  const std::tm& t = static_cast<const std::tm&>(r.value);
  EXPECT_EQ(t.tm_year, 2012);
  EXPECT_EQ(t.tm_mon, 3);
  EXPECT_EQ(t.tm_mday, 4);
  EXPECT_EQ(t.tm_hour, 5);
  EXPECT_EQ(t.tm_min, 6);
  EXPECT_EQ(t.tm_sec, 7);
  EXPECT_EQ(t.tm_isdst, -1);
  EXPECT_EQ(t.tm_wday, 0);
  EXPECT_EQ(t.tm_yday, 0);
  EXPECT_EQ(r.value.toXml(), xml);
  EXPECT_EQ(r.offset, static_cast<int>(xml.size()));
}

TEST(XmlRpcValueReader, DateTimeFieldsFollowTheirWidths) {
  const ReadResult r = read("<value><dateTime.iso8601>1999 1 2T3:4:5Z</dateTime.iso8601></value>");
  ASSERT_TRUE(r.ok);
  const std::tm& t = static_cast<const std::tm&>(r.value);
  EXPECT_EQ(t.tm_year, 1999);
  EXPECT_EQ(t.tm_mon, 1);
  EXPECT_EQ(t.tm_mday, 2);
  EXPECT_EQ(t.tm_hour, 3);
  EXPECT_EQ(t.tm_min, 4);
  EXPECT_EQ(t.tm_sec, 5);
}

TEST(XmlRpcValueReader, MalformedDateTimeFails) {
  for (const char* text : {"2012-03-04 05:06:07", "20120304 05:06:07", "20120304T05:06", "",
                           "20120304T05-06-07", "x"}) {
    const ReadResult r =
        read(std::string("<value><dateTime.iso8601>") + text + "</dateTime.iso8601></value>");
    EXPECT_FALSE(r.ok) << text;
    EXPECT_EQ(r.offset, 0) << text;
  }
  EXPECT_FALSE(read("<value><dateTime.iso8601>20120304T05:06:07").ok);
}

TEST(XmlRpcValueReader, ArraysReadTheirElementsInOrder) {
  const std::string xml =
      "<value><array><data>\n  <value><i4>1</i4></value>\n  <value>two</value>\n"
      "  <value><array><data></data></array></value>\n</data></array></value>";
  const ReadResult r = read(xml);
  ASSERT_TRUE(r.ok);
  ASSERT_EQ(r.value.size(), 3);
  EXPECT_EQ(r.value[0], XmlRpcValue(1));
  EXPECT_EQ(r.value[1], XmlRpcValue("two"));
  EXPECT_EQ(r.value[2].getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(r.value[2].size(), 0);
  EXPECT_EQ(r.offset, static_cast<int>(xml.size()));
}

TEST(XmlRpcValueReader, AnArrayWithoutDataFails) {
  const ReadResult r = read("<value><array><value><i4>1</i4></value></array></value>");
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.offset, 0);
  EXPECT_FALSE(r.value.valid());
}

TEST(XmlRpcValueReader, AnUnreadableElementEndsTheArrayWithoutError) {
  const ReadResult r = read(
      "<value><array><data><value><i4>1</i4></value><value><nil/></value><value><i4>3</i4>"
      "</value></data></array></value>");
  ASSERT_TRUE(r.ok);
  ASSERT_EQ(r.value.size(), 1);
  EXPECT_EQ(r.value[0], XmlRpcValue(1));
}

TEST(XmlRpcValueReader, StructsReadTheirMembers) {
  const std::string xml =
      "<value><struct>\n<member><name>b</name><value><i4>2</i4></value></member>\n"
      "<member><name>a</name><value><string>x</string></value></member>\n</struct></value>";
  const ReadResult r = read(xml);
  ASSERT_TRUE(r.ok);
  XmlRpcValue v = r.value;
  ASSERT_EQ(v.size(), 2);
  EXPECT_EQ(v["a"], XmlRpcValue("x"));
  EXPECT_EQ(v["b"], XmlRpcValue(2));
  EXPECT_EQ(r.offset, static_cast<int>(xml.size()));
  const ReadResult empty = read("<value><struct></struct></value>");
  ASSERT_TRUE(empty.ok);
  EXPECT_EQ(empty.value.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(empty.value.size(), 0);
}

TEST(XmlRpcValueReader, AnUnreadableMemberFailsTheWholeStruct) {
  const ReadResult r = read(
      "<value><struct><member><name>a</name><value><i4>1</i4></value></member>"
      "<member><name>b</name><value><nil/></value></member></struct></value>");
  EXPECT_FALSE(r.ok);
  EXPECT_FALSE(r.value.valid());
  EXPECT_EQ(r.offset, 0);
}

TEST(XmlRpcValueReader, TheFirstOfTwoEqualMemberNamesWins) {
  const ReadResult r = read(
      "<value><struct><member><name>k</name><value><i4>1</i4></value></member>"
      "<member><name>k</name><value><i4>2</i4></value></member></struct></value>");
  ASSERT_TRUE(r.ok);
  XmlRpcValue v = r.value;
  EXPECT_EQ(v.size(), 1);
  EXPECT_EQ(v["k"], XmlRpcValue(1));
}

TEST(XmlRpcValueReader, MemberNamesAreReadRaw) {
  XmlRpcValue written;
  written["a<b"] = 1;
  const std::string xml = written.toXml();
  EXPECT_NE(xml.find("<name>a&lt;b</name>"), std::string::npos);
  const ReadResult r = read(xml);
  ASSERT_TRUE(r.ok);
  EXPECT_TRUE(r.value.hasMember("a&lt;b"));
  EXPECT_FALSE(r.value.hasMember("a<b"));
}

TEST(XmlRpcValueReader, UnknownTypeTagFailsAndRestoresTheOffset) {
  const std::string xml = "xx<value><nil/></value>";
  ReadResult r = read(xml, 2);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.offset, 2);
  EXPECT_FALSE(r.value.valid());
  EXPECT_FALSE(read("<value><I4>1</I4></value>").ok);
  EXPECT_FALSE(read("<value><int >1</int></value>").ok);
}

TEST(XmlRpcValueReader, FailureInvalidatesAPreviousValue) {
  XmlRpcValue v("old");
  int offset = 0;
  EXPECT_FALSE(v.fromXml("<value><nil/></value>", &offset));
  EXPECT_FALSE(v.valid());
}

TEST(XmlRpcValueReader, MissingValueTagFails) {
  for (const char* xml : {"", "   ", "<i4>1</i4>", "<valu>1</value>", "text"}) {
    const ReadResult r = read(xml);
    EXPECT_FALSE(r.ok) << xml;
    EXPECT_EQ(r.offset, 0) << xml;
  }
}

TEST(XmlRpcValueReader, OffsetsOutsideTheTextFail) {
  XmlRpcValue v;
  int past = 100;
  EXPECT_FALSE(v.fromXml("<value>1</value>", &past));
  EXPECT_EQ(past, 100);
  int negative = -1;
  EXPECT_FALSE(v.fromXml("<value>1</value>", &negative));
  EXPECT_EQ(negative, -1);
  EXPECT_FALSE(v.fromXml("<value>1</value>", nullptr));
}

TEST(XmlRpcValueReader, ReadsFromTheGivenOffsetAndSkipsLeadingBlanks) {
  const std::string xml = "<param>\n  <value><i4>5</i4></value>\n</param>";
  int offset = 7;
  XmlRpcValue v(xml, &offset);
  EXPECT_EQ(v, XmlRpcValue(5));
  EXPECT_EQ(xml.substr(static_cast<std::size_t>(offset)), "\n</param>");
}

TEST(XmlRpcValueReader, TrailingTextBeforeTheClosingTagIsSkipped) {
  const ReadResult r = read("<value><i4>5</i4> junk </value><value>next</value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.value, XmlRpcValue(5));
  EXPECT_EQ(r.offset, 31);
}

TEST(XmlRpcValueReader, ConsecutiveValuesReadOneAfterAnother) {
  const std::string xml =
      "<value><i4>1</i4></value><value>b</value><value><boolean>1</boolean></value>";
  int offset = 0;
  XmlRpcValue a, b, c;
  ASSERT_TRUE(a.fromXml(xml, &offset));
  ASSERT_TRUE(b.fromXml(xml, &offset));
  ASSERT_TRUE(c.fromXml(xml, &offset));
  EXPECT_EQ(offset, static_cast<int>(xml.size()));
  EXPECT_EQ(a, XmlRpcValue(1));
  EXPECT_EQ(b, XmlRpcValue("b"));
  EXPECT_EQ(c, XmlRpcValue(true));
}

// ---- Entities ----

TEST(XmlRpcEntities, EncodesTheFiveCharacters) {
  EXPECT_EQ(XmlRpcUtil::xmlEncode("a<b>&'\"c"), "a&lt;b&gt;&amp;&apos;&quot;c");
  EXPECT_EQ(XmlRpcUtil::xmlEncode("plain text"), "plain text");
  EXPECT_EQ(XmlRpcUtil::xmlEncode(""), "");
  EXPECT_EQ(XmlRpcUtil::xmlEncode("<<"), "&lt;&lt;");
}

TEST(XmlRpcEntities, DecodesTheFiveEntities) {
  EXPECT_EQ(XmlRpcUtil::xmlDecode("a&lt;b&gt;&amp;&apos;&quot;c"), "a<b>&'\"c");
  EXPECT_EQ(XmlRpcUtil::xmlDecode("no entities"), "no entities");
}

TEST(XmlRpcEntities, UnknownEntitiesDecodeToThemselves) {
  EXPECT_EQ(XmlRpcUtil::xmlDecode("&unknown;"), "&unknown;");
  EXPECT_EQ(XmlRpcUtil::xmlDecode("&#60;&#x3c;"), "&#60;&#x3c;");
  EXPECT_EQ(XmlRpcUtil::xmlDecode("&lt"), "&lt");
  EXPECT_EQ(XmlRpcUtil::xmlDecode("a&"), "a&");
  EXPECT_EQ(XmlRpcUtil::xmlDecode("&"), "&");
  EXPECT_EQ(XmlRpcUtil::xmlDecode("&&lt;"), "&<");
}

TEST(XmlRpcEntities, DecodingIsNotRecursive) {
  EXPECT_EQ(XmlRpcUtil::xmlDecode("&amp;lt;"), "&lt;");
}

// ---- Tag helpers ----

TEST(XmlRpcTagHelpers, NextTagIsSkipsBlanksAndMovesPastTheTag) {
  int offset = 0;
  EXPECT_TRUE(XmlRpcUtil::nextTagIs("<a>", " \r\n\t<a>x", &offset));
  EXPECT_EQ(offset, 7);
  offset = 0;
  EXPECT_FALSE(XmlRpcUtil::nextTagIs("<a>", " x<a>", &offset));
  EXPECT_EQ(offset, 0);
  offset = 0;
  EXPECT_FALSE(XmlRpcUtil::nextTagIs("<a>", "   ", &offset));
  EXPECT_EQ(offset, 0);
  offset = 3;
  EXPECT_FALSE(XmlRpcUtil::nextTagIs("<a>", "<a>", &offset));
  EXPECT_EQ(offset, 3);
  offset = 0;
  EXPECT_FALSE(XmlRpcUtil::nextTagIs("<abc>", "<ab", &offset));
  EXPECT_EQ(offset, 0);
}

TEST(XmlRpcTagHelpers, FindTagSearchesForward) {
  int offset = 0;
  EXPECT_TRUE(XmlRpcUtil::findTag("</v>", "abc</v>def", &offset));
  EXPECT_EQ(offset, 7);
  EXPECT_FALSE(XmlRpcUtil::findTag("</v>", "abc</v>def", &offset));
  EXPECT_EQ(offset, 7);
  offset = 10;
  EXPECT_FALSE(XmlRpcUtil::findTag("</v>", "abc</v>def", &offset));
  EXPECT_EQ(offset, 10);
}

TEST(XmlRpcTagHelpers, GetNextTagReturnsTheWholeTag) {
  int offset = 0;
  EXPECT_EQ(XmlRpcUtil::getNextTag("  <dateTime.iso8601>x", &offset), "<dateTime.iso8601>");
  EXPECT_EQ(offset, 20);
  offset = 0;
  EXPECT_EQ(XmlRpcUtil::getNextTag(" text<a>", &offset), "");
  EXPECT_EQ(offset, 0);
  offset = 0;
  EXPECT_EQ(XmlRpcUtil::getNextTag("<unclosed", &offset), "<unclosed");
  EXPECT_EQ(offset, 9);
  offset = 9;
  EXPECT_EQ(XmlRpcUtil::getNextTag("<unclosed", &offset), "");
  EXPECT_EQ(offset, 9);
}

TEST(XmlRpcTagHelpers, ParseTagReturnsTheTextBetweenTagsAndSearches) {
  const std::string xml = "junk<methodName>examples.getStateName</methodName>rest";
  int offset = 0;
  EXPECT_EQ(XmlRpcUtil::parseTag("<methodName>", xml, &offset), "examples.getStateName");
  EXPECT_EQ(xml.substr(static_cast<std::size_t>(offset)), "rest");
  offset = 0;
  EXPECT_EQ(XmlRpcUtil::parseTag("<name>", "<name>unclosed", &offset), "");
  EXPECT_EQ(offset, 0);
  EXPECT_EQ(XmlRpcUtil::parseTag("<missing>", xml, &offset), "");
  EXPECT_EQ(offset, 0);
  offset = static_cast<int>(xml.size());
  EXPECT_EQ(XmlRpcUtil::parseTag("<methodName>", xml, &offset), "");
  offset = 0;
  EXPECT_EQ(XmlRpcUtil::parseTag("<name>", "<name></name>", &offset), "");
  EXPECT_EQ(offset, 13);
}
