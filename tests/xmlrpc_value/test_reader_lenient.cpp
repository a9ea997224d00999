// The spellings other XML-RPC clients write that the reader accepts beside
// its own: empty elements, boolean words and ISO 8601 date-times; and the
// texts that keep failing as they always have.
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcValue;

namespace {

struct Read {
  XmlRpcValue value;
  bool ok;
  int offset;
};

Read read(const std::string& xml) {
  Read r{XmlRpcValue(), false, 0};
  r.ok = r.value.fromXml(xml, &r.offset);
  return r;
}

// Reads xml, expecting success up to its end.
XmlRpcValue readWhole(const std::string& xml) {
  Read r = read(xml);
  EXPECT_TRUE(r.ok) << xml;
  EXPECT_EQ(r.offset, static_cast<int>(xml.size())) << xml;
  return r.value;
}

void expectDate(const XmlRpcValue& v, int year, int month, int day, int hour, int minute,
                int second, const std::string& text) {
  ASSERT_EQ(v.getType(), XmlRpcValue::TypeDateTime) << text;
  const std::tm& t = static_cast<const std::tm&>(v);
  EXPECT_EQ(t.tm_year, year) << text;
  EXPECT_EQ(t.tm_mon, month) << text;
  EXPECT_EQ(t.tm_mday, day) << text;
  EXPECT_EQ(t.tm_hour, hour) << text;
  EXPECT_EQ(t.tm_min, minute) << text;
  EXPECT_EQ(t.tm_sec, second) << text;
  EXPECT_EQ(t.tm_isdst, -1) << text;
}

XmlRpcValue dateOf(const std::string& text) {
  return readWhole("<value><dateTime.iso8601>" + text + "</dateTime.iso8601></value>");
}

}  // namespace

TEST(XmlRpcReaderLenient, AnEmptyValueElementIsTheEmptyString) {
  for (const char* xml : {"<value/>", "<value />", "<value \t\r\n/>"}) {
    const XmlRpcValue v = readWhole(xml);
    EXPECT_EQ(v, XmlRpcValue("")) << xml;
  }
  // Nothing after it is taken for its closing tag.
  Read r = read("<value/><value>next</value>");
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.offset, 8);
  EXPECT_EQ(r.value, XmlRpcValue(""));
}

TEST(XmlRpcReaderLenient, EmptyTypeElementsAreEmptyValuesOfTheirType) {
  EXPECT_EQ(readWhole("<value><string/></value>"), XmlRpcValue(""));
  EXPECT_EQ(readWhole("<value><string /></value>"), XmlRpcValue(""));
  const XmlRpcValue binary = readWhole("<value><base64/></value>");
  ASSERT_EQ(binary.getType(), XmlRpcValue::TypeBase64);
  EXPECT_EQ(binary.size(), 0);
  // As Perl's XMLRPC::Lite writes it, with a blank.
  for (const char* xml : {"<value><base64 /></value>", "<value><base64\t\n /></value>"}) {
    const XmlRpcValue v = readWhole(xml);
    ASSERT_EQ(v.getType(), XmlRpcValue::TypeBase64) << xml;
    EXPECT_EQ(v.size(), 0) << xml;
  }
  const XmlRpcValue array = readWhole("<value><array><data/></array></value>");
  ASSERT_EQ(array.getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(array.size(), 0);
  const XmlRpcValue spaced = readWhole("<value><array>\n  <data  /></array></value>");
  ASSERT_EQ(spaced.getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(spaced.size(), 0);
  const XmlRpcValue structure = readWhole("<value><struct/></value>");
  ASSERT_EQ(structure.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(structure.size(), 0);
  EXPECT_EQ(readWhole("<value><struct /></value>").getType(), XmlRpcValue::TypeStruct);
  // The writer keeps its own spelling for them.
  EXPECT_EQ(array.toXml(), "<value><array><data></data></array></value>");
  EXPECT_EQ(structure.toXml(), "<value><struct></struct></value>");
  EXPECT_EQ(binary.toXml(), "<value><base64></base64></value>");
}

TEST(XmlRpcReaderLenient, AStructWithEmptyMembersArrivesWhole) {
  // As Ruby's xmlrpc and Node's xmlrpc write an empty string, array and
  // struct.
  const XmlRpcValue v = readWhole(
      "<value><struct>"
      "<member><name>name</name><value/></member>"
      "<member><name>text</name><value><string/></value></member>"
      "<member><name>files</name><value><array><data/></array></value></member>"
      "<member><name>options</name><value><struct/></value></member>"
      "<member><name>blob</name><value><base64/></value></member>"
      "<member><name>count</name><value><i4>3</i4></value></member>"
      "</struct></value>");
  ASSERT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  ASSERT_EQ(v.size(), 6);
  XmlRpcValue copy = v;
  EXPECT_EQ(copy["name"], XmlRpcValue(""));
  EXPECT_EQ(copy["text"], XmlRpcValue(""));
  EXPECT_EQ(copy["files"].getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(copy["files"].size(), 0);
  EXPECT_EQ(copy["options"].getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(copy["blob"].getType(), XmlRpcValue::TypeBase64);
  EXPECT_EQ(copy["count"], XmlRpcValue(3));
}

TEST(XmlRpcReaderLenient, AnArrayGoesOnAfterAnEmptyValue) {
  const XmlRpcValue v = readWhole(
      "<value><array><data><value>a</value><value/><value>b</value><value><struct/></value>"
      "<value><i4>4</i4></value></data></array></value>");
  ASSERT_EQ(v.size(), 5);
  const XmlRpcValue& c = v;
  EXPECT_EQ(c[0], XmlRpcValue("a"));
  EXPECT_EQ(c[1], XmlRpcValue(""));
  EXPECT_EQ(c[2], XmlRpcValue("b"));
  EXPECT_EQ(c[3].getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(c[4], XmlRpcValue(4));
}

TEST(XmlRpcReaderLenient, BooleanWordsInAnyCaseWithBlanks) {
  for (const char* text : {"true", "TRUE", "True", " true ", "\ttRuE\n"}) {
    EXPECT_EQ(readWhole(std::string("<value><boolean>") + text + "</boolean></value>"),
              XmlRpcValue(true))
        << text;
  }
  for (const char* text : {"false", "FALSE", "False", "  false  "}) {
    EXPECT_EQ(readWhole(std::string("<value><boolean>") + text + "</boolean></value>"),
              XmlRpcValue(false))
        << text;
  }
  // The digits read as they always have.
  EXPECT_EQ(readWhole("<value><boolean>1</boolean></value>"), XmlRpcValue(true));
  EXPECT_EQ(readWhole("<value><boolean> 0</boolean></value>"), XmlRpcValue(false));
}

TEST(XmlRpcReaderLenient, OtherBooleanTextsStillFail) {
  for (const char* text :
       {"2", "-1", "", "yes", "no", "t", "truex", "true false", "on", "fals", "true1"}) {
    const Read r = read(std::string("<value><boolean>") + text + "</boolean></value>");
    EXPECT_FALSE(r.ok) << text;
    EXPECT_EQ(r.offset, 0) << text;
    EXPECT_FALSE(r.value.valid()) << text;
  }
}

TEST(XmlRpcReaderLenient, ExtendedIsoDateTimesKeepTheFieldsAsWritten) {
  expectDate(dateOf("2024-01-02T03:04:05"), 2024, 1, 2, 3, 4, 5, "extended");
  expectDate(dateOf("2024-01-02T03:04:05.000Z"), 2024, 1, 2, 3, 4, 5, "toISOString");
  expectDate(dateOf("2024-01-02T03:04:05.123456"), 2024, 1, 2, 3, 4, 5, "fraction");
  expectDate(dateOf("2024-01-02T03:04:05Z"), 2024, 1, 2, 3, 4, 5, "Z");
  // The zone is not applied: the fields are those written.
  expectDate(dateOf("2024-01-02T23:59:58+02:00"), 2024, 1, 2, 23, 59, 58, "+hh:mm");
  expectDate(dateOf("2024-12-31T00:00:01-05:30"), 2024, 12, 31, 0, 0, 1, "-hh:mm");
  expectDate(dateOf(" 2024-01-02T03:04:05 "), 2024, 1, 2, 3, 4, 5, "blanks");
}

TEST(XmlRpcReaderLenient, BasicDateTimesWithoutColons) {
  expectDate(dateOf("20240102T030405"), 2024, 1, 2, 3, 4, 5, "aXMLRPC");
  expectDate(dateOf("20240102T030405Z"), 2024, 1, 2, 3, 4, 5, "basic Z");
  expectDate(dateOf("20240102T030405+0100"), 2024, 1, 2, 3, 4, 5, "basic zone");
  expectDate(dateOf("20240102T030405.5"), 2024, 1, 2, 3, 4, 5, "basic fraction");
}

TEST(XmlRpcReaderLenient, TheEngineOwnFormReadsAsBefore) {
  expectDate(dateOf("20120304T05:06:07"), 2012, 3, 4, 5, 6, 7, "own form");
  // Texts the old pattern matched keep its reading, trailing text ignored.
  expectDate(dateOf("20120304T05:06:07Z"), 2012, 3, 4, 5, 6, 7, "own form with zone");
  expectDate(dateOf("2024-1-2T3:4:5"), 2024, -1, -2, 3, 4, 5, "scanf's reading");
  EXPECT_EQ(dateOf("2024-01-02T03:04:05").toXml(),
            "<value><dateTime.iso8601>20240102T03:04:05</dateTime.iso8601></value>");
}

TEST(XmlRpcReaderLenient, MalformedIsoDateTimesStillFail) {
  for (const char* text :
       {"2024-01-02", "2024-01-02T03:04", "2024-01-02 03:04:05", "2024-01-02T03:04:05.",
        "2024-01-02T03:04:05+", "2024-01-02T03:04:05+1",
        "2024-01-02T03:04:05+01:", "2024-01-02T03:04:05 x", "2024-01-02T030405", "20240102T03:0405",
        "2024-0102T03:04:05", "24-01-02T03:04:05", "2024-01-02T03:04:05ZZ", "20240102T0304"}) {
    const Read r =
        read(std::string("<value><dateTime.iso8601>") + text + "</dateTime.iso8601></value>");
    EXPECT_FALSE(r.ok) << text;
    EXPECT_EQ(r.offset, 0) << text;
  }
}

TEST(XmlRpcReaderLenient, NilUnknownTagsAndOtherEmptyElementsStillFail) {
  for (const char* xml :
       {"<value><nil/></value>", "<value><nil /></value>", "<value><ex:nil/></value>",
        "<value><i4/></value>", "<value><int/></value>", "<value><double/></value>",
        "<value><boolean/></value>", "<value><dateTime.iso8601/></value>",
        "<value><array/></value>", "<value><unknown>1</unknown></value>", "<value/ >", "<value/",
        "<valuex/>", "<value><stringx/></value>", "<value><string/ ></value>",
        "<value><array><data /x></array></value>"}) {
    const Read r = read(xml);
    EXPECT_FALSE(r.ok) << xml;
    EXPECT_EQ(r.offset, 0) << xml;
    EXPECT_FALSE(r.value.valid()) << xml;
  }
}

// What docs/clients.md tells integrators about CDATA sections (Node's
// xmlrpc), numeric character references (Frontier::Client, kolo/xmlrpc) and
// unescaped markup (Tcl's and Lua's xmlrpc, left to themselves): these stay
// read as they are today, without an error.
TEST(XmlRpcReaderLenient, CdataReferencesAndRawMarkupReadAsToday) {
  // A text ends at its first "<": a CDATA section is the empty string, and
  // raw markup cuts the text short.
  EXPECT_EQ(readWhole("<value><string><![CDATA[a <b>&amp;</b>]]></string></value>"),
            XmlRpcValue(""));
  EXPECT_EQ(readWhole("<value><string>x <b>&amp;</b> y</string></value>"), XmlRpcValue("x "));
  EXPECT_EQ(readWhole("<value>x <b>y</b></value>"), XmlRpcValue("x "));
  // The struct around such a string is read whole.
  const XmlRpcValue v = readWhole(
      "<value><struct><member><name>name</name><value><string><![CDATA[a <b>]]></string></value>"
      "</member><member><name>count</name><value><i4>1</i4></value></member></struct></value>");
  ASSERT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  ASSERT_EQ(v.size(), 2);
  XmlRpcValue copy = v;
  EXPECT_EQ(copy["name"], XmlRpcValue(""));
  EXPECT_EQ(copy["count"], XmlRpcValue(1));
  // Numeric character references are kept as written; the five named
  // entities are decoded.
  EXPECT_EQ(readWhole("<value><string>caf&#233; &#34;q&#34; &#39;a&#39; &#xA;</string></value>"),
            XmlRpcValue("caf&#233; &#34;q&#34; &#39;a&#39; &#xA;"));
  EXPECT_EQ(readWhole("<value>&lt;&gt;&amp;&apos;&quot;</value>"), XmlRpcValue("<>&'\""));
}

TEST(XmlRpcReaderLenient, ANilMemberStillMakesItsStructFail) {
  const Read r = read(
      "<value><struct><member><name>a</name><value><i4>1</i4></value></member>"
      "<member><name>b</name><value><nil/></value></member></struct></value>");
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.offset, 0);
}

TEST(XmlRpcReaderLenient, EmptyElementsCountTowardsTheNestingLimit) {
  std::string xml;
  for (int i = 0; i < XmlRpcValue::kMaxNestingDepth - 1; ++i) xml += "<value><array><data>";
  std::string closing;
  for (int i = 0; i < XmlRpcValue::kMaxNestingDepth - 1; ++i) closing += "</data></array></value>";
  EXPECT_TRUE(read(xml + "<value/>" + closing).ok);
  EXPECT_FALSE(
      read("<value><array><data>" + xml + "<value/>" + closing + "</data></array></value>").ok);
}
