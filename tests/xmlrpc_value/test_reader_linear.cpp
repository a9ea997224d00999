// Reading costs time linear in the text, whatever its shape: the reader
// against a plain reference on random broken texts (same values, same
// offsets, whether it remembers or not), and the work it does on hostile
// texts up to 64 KB bounded per byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "reference_reader.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcValue;

namespace {

// Fixed, so a failure can be reproduced.
constexpr unsigned kSeed = 1311;
constexpr int kSamples = 20000;
constexpr int kMaxFragments = 48;

// The pieces the random texts are made of: every tag the reader knows in
// its long spelling, broken tags, texts and entities. No empty elements,
// boolean words or ISO dates: those read differently on purpose.
const std::vector<std::string> kFragments = {
    "<value>",
    "</value>",
    "<value>",
    "</value>",
    "<array>",
    "</array>",
    "<data>",
    "</data>",
    "<struct>",
    "</struct>",
    "<member>",
    "</member>",
    "<name>",
    "</name>",
    "n",
    "m",
    "<i4>",
    "</i4>",
    "<int>",
    "7",
    "-3",
    "<boolean>",
    "1",
    "0",
    "<double>",
    "2.5",
    "<string>",
    "</string>",
    "<base64>",
    "QUJD",
    "<dateTime.iso8601>",
    "20240102T03:04:05",
    "x",
    "&amp;",
    "&lt;",
    " ",
    "\n",
    "<",
    ">",
    "<valu",
    "</val",
    "<nil>",
    "<data",
    "<member",
};

std::string randomText(std::mt19937& random) {
  std::uniform_int_distribution<int> count(1, kMaxFragments);
  std::uniform_int_distribution<std::size_t> pick(0, kFragments.size() - 1);
  std::string text;
  for (int n = count(random); n > 0; --n) text += kFragments[pick(random)];
  return text;
}

struct Outcome {
  bool ok;
  int offset;
  XmlRpcValue value;
};

Outcome readEngine(const std::string& xml, int start, bool remember) {
  XmlRpcValue::TextScan scan;
  if (remember) scan.rememberFromStart();
  Outcome o{false, start, XmlRpcValue()};
  o.ok = o.value.fromXml(xml, &o.offset, scan);
  return o;
}

Outcome readReference(const std::string& xml, int start) {
  Outcome o{false, start, XmlRpcValue()};
  o.ok = reference::readValue(xml, &o.offset, o.value);
  return o;
}

void expectSame(const Outcome& expected, const Outcome& actual, const std::string& xml,
                const char* how) {
  ASSERT_EQ(actual.ok, expected.ok) << how << ": " << xml;
  ASSERT_EQ(actual.offset, expected.offset) << how << ": " << xml;
  ASSERT_EQ(actual.value.getType(), expected.value.getType()) << how << ": " << xml;
  ASSERT_EQ(actual.value.toXml(), expected.value.toXml()) << how << ": " << xml;
  ASSERT_TRUE(actual.value == expected.value) << how << ": " << xml;
}

// The work of reading text as a request's parameters are read: one value
// after each "<param>" in turn, all sharing one scan, until one is missing;
// then the work of reading the text as one value.
std::size_t workOfReading(const std::string& text) {
  XmlRpcValue::TextScan scan;
  const std::size_t params = text.find("<params>");
  int offset = params == std::string::npos ? 0 : static_cast<int>(params + 8);
  while (XmlRpc::XmlRpcUtil::nextTagIs("<param>", text, &offset)) {
    XmlRpcValue v;
    v.fromXml(text, &offset, scan);
    XmlRpc::XmlRpcUtil::nextTagIs("</param>", text, &offset);
  }
  XmlRpcValue::TextScan whole;
  XmlRpcValue v;
  int start = 0;
  v.fromXml(text, &start, whole);
  return scan.work() + whole.work();
}

// Grows a pattern to the size given.
std::string grown(const std::string& head, const std::string& unit, std::size_t size) {
  std::string text = head;
  while (text.size() + unit.size() <= size) text += unit;
  return text;
}

// One segment of the request that made a 4.8 KB multicall cost a second of
// CPU: structs whose members break off inside arrays at several levels.
const std::string kSlowUnit =
    "<params><param><value><array><data><value><struct><member><name>metaho</value></member>"
    "<member><name>pauams</name><value><array><data><value>x\xc4\xd0vstruct></value><value>"
    "<struct><member><name>mtruct><member><nameber><name>methodName</name><value>echo</value>"
    "</member><member><name>params</name><value><array><data><value>x\xc4\xd0vstruct></value>"
    "<value><struct><member><name>methodName</nadName>\r\n";

// Hostile texts, each a function of the size wanted.
const std::vector<std::pair<const char*, std::function<std::string(std::size_t)>>> kHostile = {
    {"the slow multicall's pattern repeated",
     [](std::size_t n) {
       return grown(
           "<?xml version=\"1.0\"?>\r\n<methodCall><methodName>system.multicall"
           "</methodName>\r\n",
           kSlowUnit, n);
     }},
    {"arrays of structs whose last member breaks at every level",
     [](std::size_t n) {
       return grown("",
                    "<value><array><data><value><struct><member><name>a</name><value>1</value>"
                    "</member><member><name>b</name>",
                    n);
     }},
    {"structs nested in members, never closed",
     [](std::size_t n) { return grown("", "<value><struct><member><name>m</name>", n); }},
    {"arrays nested, never closed",
     [](std::size_t n) { return grown("", "<value><array><data>", n); }},
    {"values never closed inside one array",
     [](std::size_t n) { return grown("<value><array><data>", "<value><i4>1", n); }},
    {"members without values",
     [](std::size_t n) { return grown("<value><struct>", "<member><name>a</name>", n); }},
    {"arrays of broken structs, two levels repeated",
     [](std::size_t n) {
       return grown("",
                    "<value><array><data><value><struct><member><name>x</name><value><array>"
                    "<data><value>s</value></data></array></value><member><name>y</name>"
                    "<value><nil/></value></member></struct></value></data></array></value>"
                    "</value></data>",
                    n);
     }},
    {"closing tags far ahead of everything",
     [](std::size_t n) {
       return grown("", "<value><struct><member><value><array><data><value>", n - 40) +
              "</name></value></value></value></value>";
     }},
    {"nesting beyond the limit, broken at the bottom",
     [](std::size_t n) {
       return grown("", "<value><array><data><value><struct><member><name>d</name>", n / 2) +
              grown("", "</value></member></struct></value>", n / 2);
     }},
};

// Work units per byte the reader may spend on any text: reading once costs
// one to two; the plain reader may spend four before it remembers, and
// remembering then costs a small multiple of the text.
constexpr double kMaxWorkPerByte = 24.0;
constexpr std::size_t kLargest = 64 * 1024;

}  // namespace

TEST(XmlRpcReaderLinear, RandomBrokenTextsReadAsTheReferenceReadsThem) {
  std::mt19937 random(kSeed);
  for (int i = 0; i < kSamples; ++i) {
    const std::string xml = randomText(random);
    const Outcome expected = readReference(xml, 0);
    expectSame(expected, readEngine(xml, 0, false), xml, "plain");
    expectSame(expected, readEngine(xml, 0, true), xml, "remembering");
    if (::testing::Test::HasFatalFailure()) return;
  }
}

TEST(XmlRpcReaderLinear, RandomValuesInArraysAndStructsReadAsTheReferenceReadsThem) {
  // The same with a well-formed frame around the soup, so that the outer
  // levels are read and re-read.
  std::mt19937 random(kSeed + 1);
  for (int i = 0; i < kSamples; ++i) {
    const std::string xml = "<value><array><data><value><struct><member><name>k</name>" +
                            randomText(random) + "</member></struct></value>" + randomText(random) +
                            "</data></array></value>";
    const Outcome expected = readReference(xml, 0);
    expectSame(expected, readEngine(xml, 0, false), xml, "plain");
    expectSame(expected, readEngine(xml, 0, true), xml, "remembering");
    if (::testing::Test::HasFatalFailure()) return;
  }
}

TEST(XmlRpcReaderLinear, RandomTextsNearTheNestingLimitReadAsTheReferenceReadsThem) {
  // A text read again at another level may be too deep there: what is
  // remembered must not hide it.
  std::mt19937 random(kSeed + 4);
  std::uniform_int_distribution<int> spare(1, 12);
  for (int i = 0; i < kSamples / 200; ++i) {
    const int levels = XmlRpcValue::kMaxNestingDepth - spare(random);
    std::string xml;
    for (int l = 0; l < levels; ++l) {
      xml += (l % 2 == 0) ? "<value><array><data>" : "<value><struct><member><name>s</name>";
    }
    xml += randomText(random) + randomText(random);
    for (int l = levels; l-- > 0;) {
      xml += (l % 2 == 0) ? "</data></array></value>" : "</member></struct></value>";
      if (l % 7 == 0) xml += randomText(random);
    }
    const Outcome expected = readReference(xml, 0);
    expectSame(expected, readEngine(xml, 0, false), xml, "plain");
    expectSame(expected, readEngine(xml, 0, true), xml, "remembering");
    if (::testing::Test::HasFatalFailure()) return;
  }
}

TEST(XmlRpcReaderLinear, AValueRememberedAtOneLevelIsStillTooDeepAtAnother) {
  // The first parameter's struct looks for its member name far ahead and
  // reads the value W there two levels down; the second parameter reaches
  // W again 255 levels down, where W's int is one level too many.
  const std::string w = "<value><array><data><value><i4>1</i4></value></data></array></value>";
  const int levels = XmlRpcValue::kMaxNestingDepth - 2;
  std::string xml = "<param><value><array><data><value><struct><member></value></param><param>";
  for (int i = 0; i < levels; ++i) xml += "<value><array><data>";
  xml += "<value><struct><member><name>n</name>" + w +
         "</member><member><name>z</name><value><nil/></value></member></struct></value>";
  for (int i = 0; i < levels; ++i) xml += "</data></array></value>";
  xml += "</param>";
  for (bool remember : {false, true}) {
    XmlRpcValue::TextScan scan;
    if (remember) scan.rememberFromStart();
    int offset = 0, reference = 0;
    for (int param = 0; param < 2; ++param) {
      ASSERT_TRUE(XmlRpc::XmlRpcUtil::nextTagIs("<param>", xml, &offset)) << param;
      reference = offset;
      Outcome actual{false, offset, XmlRpcValue()};
      actual.ok = actual.value.fromXml(xml, &actual.offset, scan);
      const Outcome expected = readReference(xml, reference);
      expectSame(expected, actual, xml, remember ? "remembering" : "plain");
      EXPECT_EQ(actual.ok, param == 0);
      offset = actual.offset;
      XmlRpc::XmlRpcUtil::nextTagIs("</param>", xml, &offset);
    }
  }
}

TEST(XmlRpcReaderLinear, ASharedRememberingScanReadsEachParameterAsTheReference) {
  std::mt19937 random(kSeed + 2);
  for (int i = 0; i < kSamples / 4; ++i) {
    std::string xml;
    for (int p = 0; p < 4; ++p) xml += "<param>" + randomText(random);
    XmlRpcValue::TextScan scan;
    scan.rememberFromStart();
    int offset = 0, refOffset = 0;
    for (int p = 0; p < 4; ++p) {
      const std::size_t at = xml.find("<param>", static_cast<std::size_t>(offset));
      if (at == std::string::npos) break;
      offset = refOffset = static_cast<int>(at + 7);
      Outcome actual{false, offset, XmlRpcValue()};
      actual.ok = actual.value.fromXml(xml, &actual.offset, scan);
      expectSame(readReference(xml, refOffset), actual, xml, "shared scan");
      if (::testing::Test::HasFatalFailure()) return;
      offset = actual.offset;
    }
  }
}

TEST(XmlRpcReaderLinear, HostileTextsReadTheSameAsTheReferenceWhileSmall) {
  // Small enough for the reference, which re-reads, to finish.
  for (const auto& [name, make] : kHostile) {
    for (std::size_t size : {120u, 400u, 900u}) {
      const std::string xml = make(size);
      for (int start : {0, 7}) {
        if (static_cast<std::size_t>(start) >= xml.size()) continue;
        const Outcome expected = readReference(xml, start);
        expectSame(expected, readEngine(xml, start, false), xml, name);
        expectSame(expected, readEngine(xml, start, true), xml, name);
        if (::testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

TEST(XmlRpcReaderLinear, WorkOnHostileTextsUpTo64KBIsBoundedPerByte) {
  for (const auto& [name, make] : kHostile) {
    for (std::size_t size = 1024; size <= kLargest; size *= 4) {
      const std::string xml = make(size);
      const std::size_t work = workOfReading(xml);
      const double perByte = static_cast<double>(work) / static_cast<double>(xml.size());
      EXPECT_LE(perByte, kMaxWorkPerByte) << name << ", " << xml.size() << " bytes";
      RecordProperty(std::string(name) + " " + std::to_string(xml.size()), std::to_string(perByte));
    }
  }
}

TEST(XmlRpcReaderLinear, WorkOnRandomTextsUpTo64KBIsBoundedPerByte) {
  std::mt19937 random(kSeed + 3);
  for (int i = 0; i < 40; ++i) {
    std::string xml;
    const std::size_t size = std::uniform_int_distribution<std::size_t>(1024, kLargest)(random);
    while (xml.size() < size) xml += randomText(random);
    const std::size_t work = workOfReading(xml);
    EXPECT_LE(static_cast<double>(work) / static_cast<double>(xml.size()), kMaxWorkPerByte) << i;
  }
}

TEST(XmlRpcReaderLinear, AWellFormedTextIsReadWithoutRemembering) {
  // Plain reading stays within its budget: about one unit per byte.
  std::string xml = "<value><array><data>";
  for (int i = 0; i < 2000; ++i) {
    xml += "<value><struct><member><name>n</name><value><i4>" + std::to_string(i) +
           "</i4></value></member><member><name>s</name><value>text &amp; more</value>"
           "</member></struct></value>";
  }
  xml += "</data></array></value>";
  XmlRpcValue::TextScan scan;
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset, scan));
  EXPECT_EQ(v.size(), 2000);
  EXPECT_LE(scan.work(), 2 * xml.size());
}
