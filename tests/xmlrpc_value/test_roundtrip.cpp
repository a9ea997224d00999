// Property test: random values of every type, nested, written with toXml and
// read back with fromXml, compare equal and write the same text again.
#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>

#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcValue;

namespace {

// Fixed, so a failure can be reproduced.
constexpr unsigned kSeed = 20121104;
constexpr int kValues = 3000;
constexpr int kMaxDepth = 4;
constexpr int kMaxChildren = 5;

class ValueGenerator {
 public:
  explicit ValueGenerator(unsigned seed) : _random(seed) {}

  // A value of any type but invalid, nested at most `depth` more levels.
  XmlRpcValue next(int depth) {
    const int type = pick(1, depth > 0 ? 8 : 6);
    switch (type) {
      case XmlRpcValue::TypeBoolean:
        return XmlRpcValue(pick(0, 1) == 1);
      case XmlRpcValue::TypeInt:
        return XmlRpcValue(static_cast<int>(_random()));
      case XmlRpcValue::TypeDouble:
        // k / 64 has at most six decimals, so "%f" writes it exactly.
        return XmlRpcValue(static_cast<double>(pick(-(1 << 24), 1 << 24)) / 64.0);
      case XmlRpcValue::TypeString:
        return XmlRpcValue(randomBytes(pick(0, 40)));
      case XmlRpcValue::TypeDateTime: {
        std::tm t{};
        // Four-digit years: "%4d" pads shorter ones with blanks, which
        // the reader's "%4d" then skips, taking digits of the month.
        t.tm_year = pick(1000, 9999);
        t.tm_mon = pick(1, 12);
        t.tm_mday = pick(1, 31);
        t.tm_hour = pick(0, 23);
        t.tm_min = pick(0, 59);
        t.tm_sec = pick(0, 59);
        return XmlRpcValue(&t);
      }
      case XmlRpcValue::TypeBase64: {
        const std::string data = randomBytes(pick(0, 200));
        return XmlRpcValue(data.data(), static_cast<int>(data.size()));
      }
      case XmlRpcValue::TypeArray: {
        XmlRpcValue array;
        array.setSize(0);
        const int n = pick(0, kMaxChildren);
        for (int i = 0; i < n; ++i) array[i] = next(depth - 1);
        return array;
      }
      default: {
        XmlRpcValue s;
        (void)s.asStruct();
        const int n = pick(0, kMaxChildren);
        for (int i = 0; i < n; ++i) s[memberName()] = next(depth - 1);
        return s;
      }
    }
  }

 private:
  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(_random); }

  // Every byte value, the five special characters included.
  std::string randomBytes(int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += static_cast<char>(pick(0, 255));
    return s;
  }

  // Names are read back raw, so they avoid the characters the writer encodes.
  std::string memberName() {
    static const char kChars[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.- ";
    std::string name;
    const int n = pick(0, 12);
    for (int i = 0; i < n; ++i) name += kChars[pick(0, static_cast<int>(sizeof kChars) - 2)];
    return name;
  }

  std::mt19937 _random;
};

}  // namespace

TEST(XmlRpcRoundTrip, RandomValuesSurviveWritingAndReading) {
  ValueGenerator generator(kSeed);
  int containers = 0;
  for (int i = 0; i < kValues; ++i) {
    const XmlRpcValue original = generator.next(kMaxDepth);
    if (original.getType() >= XmlRpcValue::TypeArray) ++containers;
    const std::string xml = original.toXml();
    XmlRpcValue read;
    int offset = 0;
    ASSERT_TRUE(read.fromXml(xml, &offset)) << "value " << i << ": " << xml;
    ASSERT_EQ(offset, static_cast<int>(xml.size())) << "value " << i;
    ASSERT_EQ(read, original) << "value " << i << ": " << xml;
    // Equality skips the day of month and member names; the text does not.
    ASSERT_EQ(read.toXml(), xml) << "value " << i;
  }
  EXPECT_GT(containers, kValues / 10);
}

TEST(XmlRpcRoundTrip, AnInvalidValueWritesNothingAndReadsBackInvalid) {
  const XmlRpcValue original;
  const std::string xml = original.toXml();
  EXPECT_EQ(xml, "");
  XmlRpcValue read("x");
  int offset = 0;
  EXPECT_FALSE(read.fromXml(xml, &offset));
  EXPECT_EQ(read, original);
}

TEST(XmlRpcRoundTrip, ValuesSideBySideReadBackInSequence) {
  ValueGenerator generator(kSeed + 1);
  std::vector<XmlRpcValue> values;
  std::string xml;
  for (int i = 0; i < 200; ++i) {
    values.push_back(generator.next(2));
    values.back().appendXml(xml);
    xml += "\n ";
  }
  int offset = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    XmlRpcValue read;
    ASSERT_TRUE(read.fromXml(xml, &offset)) << i;
    ASSERT_EQ(read, values[i]) << i;
  }
}
