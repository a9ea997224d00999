// The number and date-time readers against the C library they imitate:
// random texts read through fromXml must give what strtol, strtod and
// sscanf give for the same text.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>

#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcValue;

namespace {

// Fixed, so a failure can be reproduced.
constexpr unsigned kSeed = 4242;
constexpr int kSamples = 20000;

std::string randomText(std::mt19937& random, const std::string& alphabet, int maxLength) {
  std::uniform_int_distribution<int> length(0, maxLength);
  std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
  std::string text;
  for (int n = length(random); n > 0; --n) text += alphabet[pick(random)];
  return text;
}

}  // namespace

TEST(XmlRpcReaderDifferential, IntegersReadAsStrtolClampedTo32Bits) {
  std::mt19937 random(kSeed);
  for (int i = 0; i < kSamples; ++i) {
    const std::string text = randomText(random, " \t\n+-0123456789999x", 24);
    char* end = nullptr;
    const long expected = std::strtol(text.c_str(), &end, 10);
    const bool digits = end != text.c_str();
    XmlRpcValue v;
    int offset = 0;
    const bool ok = v.fromXml("<value><i4>" + text + "</i4></value>", &offset);
    ASSERT_EQ(ok, digits) << '"' << text << '"';
    if (!ok) continue;
    const long clamped = expected > INT_MAX ? INT_MAX : expected < INT_MIN ? INT_MIN : expected;
    ASSERT_EQ(static_cast<int>(v), clamped) << '"' << text << '"';
  }
}

TEST(XmlRpcReaderDifferential, BooleansReadAsStrtolZeroOrOne) {
  std::mt19937 random(kSeed + 1);
  for (int i = 0; i < kSamples; ++i) {
    const std::string text = randomText(random, " +-0011x", 6);
    char* end = nullptr;
    const long expected = std::strtol(text.c_str(), &end, 10);
    const bool valid = end != text.c_str() && (expected == 0 || expected == 1);
    XmlRpcValue v;
    int offset = 0;
    const bool ok = v.fromXml("<value><boolean>" + text + "</boolean></value>", &offset);
    ASSERT_EQ(ok, valid) << '"' << text << '"';
    if (ok) {
      ASSERT_EQ(static_cast<bool>(v), expected == 1) << '"' << text << '"';
    }
  }
}

TEST(XmlRpcReaderDifferential, DoublesReadAsStrtod) {
  std::mt19937 random(kSeed + 2);
  for (int i = 0; i < kSamples; ++i) {
    const std::string text = randomText(random, " +-.0123456789eEx", 20);
    char* end = nullptr;
    const double expected = std::strtod(text.c_str(), &end);
    const bool parsed = end != text.c_str();
    XmlRpcValue v;
    int offset = 0;
    const bool ok = v.fromXml("<value><double>" + text + "</double></value>", &offset);
    ASSERT_EQ(ok, parsed) << '"' << text << '"';
    if (ok) {
      ASSERT_EQ(static_cast<double>(v), expected) << '"' << text << '"';
    }
  }
}

TEST(XmlRpcReaderDifferential, DateTimesReadAsSscanf) {
  std::mt19937 random(kSeed + 3);
  for (int i = 0; i < kSamples; ++i) {
    const std::string text = randomText(random, "  +-0123456789T:", 22);
    int year, month, day, hour, minute, second;
    const bool matched = std::sscanf(text.c_str(), "%4d%2d%2dT%2d:%2d:%2d", &year, &month, &day,
                                     &hour, &minute, &second) == 6;
    XmlRpcValue v;
    int offset = 0;
    const bool ok =
        v.fromXml("<value><dateTime.iso8601>" + text + "</dateTime.iso8601></value>", &offset);
    ASSERT_EQ(ok, matched) << '"' << text << '"';
    if (!ok) continue;
    const std::tm& t = static_cast<const std::tm&>(v);
    ASSERT_EQ(t.tm_year, year) << '"' << text << '"';
    ASSERT_EQ(t.tm_mon, month) << '"' << text << '"';
    ASSERT_EQ(t.tm_mday, day) << '"' << text << '"';
    ASSERT_EQ(t.tm_hour, hour) << '"' << text << '"';
    ASSERT_EQ(t.tm_min, minute) << '"' << text << '"';
    ASSERT_EQ(t.tm_sec, second) << '"' << text << '"';
  }
}
