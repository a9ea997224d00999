// XmlRpcValue's model: type tags, the three assertion rules with their
// messages, size, members, copies and the comparison rules.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <limits>
#include <string>

#include "xmlrpc/XmlRpcException.h"
#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcException;
using XmlRpc::XmlRpcValue;

namespace {

// Runs f, expecting an XmlRpcException with the given message and code -1.
template <typename F>
void expectThrowsWith(F&& f, const std::string& message) {
  try {
    f();
    ADD_FAILURE() << "no exception, expected \"" << message << "\"";
  } catch (const XmlRpcException& e) {
    EXPECT_EQ(e.getMessage(), message);
    EXPECT_EQ(e.getCode(), -1);
  }
}

std::tm makeTime(int year, int month, int day, int hour, int minute, int second) {
  std::tm t{};
  t.tm_year = year;
  t.tm_mon = month;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_sec = second;
  return t;
}

XmlRpcValue intArray(std::initializer_list<int> items) {
  XmlRpcValue v;
  int i = 0;
  for (int item : items) v[i++] = item;
  return v;
}

}  // namespace

TEST(XmlRpcValueModel, TypeTagsHaveTheirFixedNumbers) {
  EXPECT_EQ(XmlRpcValue::TypeInvalid, 0);
  EXPECT_EQ(XmlRpcValue::TypeBoolean, 1);
  EXPECT_EQ(XmlRpcValue::TypeInt, 2);
  EXPECT_EQ(XmlRpcValue::TypeDouble, 3);
  EXPECT_EQ(XmlRpcValue::TypeString, 4);
  EXPECT_EQ(XmlRpcValue::TypeDateTime, 5);
  EXPECT_EQ(XmlRpcValue::TypeBase64, 6);
  EXPECT_EQ(XmlRpcValue::TypeArray, 7);
  EXPECT_EQ(XmlRpcValue::TypeStruct, 8);
}

TEST(XmlRpcValueModel, ConstructorsSetTheType) {
  const std::tm t = makeTime(2012, 3, 4, 5, 6, 7);
  EXPECT_EQ(XmlRpcValue().getType(), XmlRpcValue::TypeInvalid);
  EXPECT_FALSE(XmlRpcValue().valid());
  EXPECT_EQ(XmlRpcValue(true).getType(), XmlRpcValue::TypeBoolean);
  EXPECT_EQ(XmlRpcValue(7).getType(), XmlRpcValue::TypeInt);
  EXPECT_EQ(XmlRpcValue(1.5).getType(), XmlRpcValue::TypeDouble);
  EXPECT_EQ(XmlRpcValue("text").getType(), XmlRpcValue::TypeString);
  EXPECT_EQ(XmlRpcValue(std::string("text")).getType(), XmlRpcValue::TypeString);
  EXPECT_EQ(XmlRpcValue(&t).getType(), XmlRpcValue::TypeDateTime);
  EXPECT_EQ(XmlRpcValue("abc", 3).getType(), XmlRpcValue::TypeBase64);
  EXPECT_TRUE(XmlRpcValue(0).valid());
}

TEST(XmlRpcValueModel, ScalarAccessorsReadWhatWasStored) {
  XmlRpcValue b(true), i(-42), d(2.25), s("hello");
  EXPECT_TRUE(static_cast<bool&>(b));
  EXPECT_EQ(static_cast<int&>(i), -42);
  EXPECT_EQ(static_cast<double&>(d), 2.25);
  EXPECT_EQ(static_cast<std::string&>(s), "hello");
  XmlRpcValue bin("a\0b", 3);
  const XmlRpcValue::BinaryData& bytes = bin;
  EXPECT_EQ(bytes, (XmlRpcValue::BinaryData{'a', '\0', 'b'}));
}

TEST(XmlRpcValueModel, DateTimeKeepsTheNineFieldsAsGiven) {
  std::tm t = makeTime(2012, 3, 4, 5, 6, 7);
  t.tm_wday = 2;
  t.tm_yday = 63;
  t.tm_isdst = 1;
  XmlRpcValue v(&t);
  const std::tm& stored = v;
  EXPECT_EQ(stored.tm_year, 2012);
  EXPECT_EQ(stored.tm_mon, 3);
  EXPECT_EQ(stored.tm_mday, 4);
  EXPECT_EQ(stored.tm_hour, 5);
  EXPECT_EQ(stored.tm_min, 6);
  EXPECT_EQ(stored.tm_sec, 7);
  EXPECT_EQ(stored.tm_wday, 2);
  EXPECT_EQ(stored.tm_yday, 63);
  EXPECT_EQ(stored.tm_isdst, 1);
}

TEST(XmlRpcValueModel, InvalidValueBecomesTheAccessedTypeWithAnEmptyPayload) {
  {
    XmlRpcValue v;
    EXPECT_FALSE(static_cast<bool&>(v));
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeBoolean);
  }
  {
    XmlRpcValue v;
    EXPECT_EQ(static_cast<int&>(v), 0);
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeInt);
  }
  {
    XmlRpcValue v;
    EXPECT_EQ(static_cast<double&>(v), 0.0);
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeDouble);
  }
  {
    XmlRpcValue v;
    EXPECT_EQ(static_cast<std::string&>(v), "");
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeString);
  }
  {
    XmlRpcValue v;
    const std::tm& t = static_cast<std::tm&>(v);
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeDateTime);
    EXPECT_EQ(t.tm_year, 0);
    EXPECT_EQ(t.tm_mon, 0);
    EXPECT_EQ(t.tm_mday, 0);
    EXPECT_EQ(t.tm_hour, 0);
    EXPECT_EQ(t.tm_min, 0);
    EXPECT_EQ(t.tm_sec, 0);
    EXPECT_EQ(t.tm_wday, 0);
    EXPECT_EQ(t.tm_yday, 0);
    EXPECT_EQ(t.tm_isdst, 0);
  }
  {
    XmlRpcValue v;
    EXPECT_TRUE(static_cast<XmlRpcValue::BinaryData&>(v).empty());
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeBase64);
  }
  {
    XmlRpcValue v;
    EXPECT_TRUE(v.asArray().empty());
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeArray);
  }
  {
    XmlRpcValue v;
    EXPECT_TRUE(v.asStruct().empty());
    EXPECT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  }
}

TEST(XmlRpcValueModel, AssigningThroughTheIntAccessorMakesAnInvalidValueAnInt) {
  XmlRpcValue v;
  static_cast<int&>(v) = 5;
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeInt);
  EXPECT_EQ(v, XmlRpcValue(5));
}

TEST(XmlRpcValueModel, IntAccessorOnAStringThrowsTypeErrorAndKeepsTheString) {
  XmlRpcValue v("abc");
  expectThrowsWith([&] { static_cast<int&>(v) = 5; }, "type error");
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeString);
  EXPECT_EQ(static_cast<std::string&>(v), "abc");
}

TEST(XmlRpcValueModel, NoAccessorConvertsBetweenTypes) {
  XmlRpcValue i(1);
  expectThrowsWith([&] { (void)static_cast<double&>(i); }, "type error");
  expectThrowsWith([&] { (void)static_cast<bool&>(i); }, "type error");
  expectThrowsWith([&] { (void)static_cast<std::string&>(i); }, "type error");
  XmlRpcValue d(1.0);
  expectThrowsWith([&] { (void)static_cast<int&>(d); }, "type error");
  XmlRpcValue s("1");
  expectThrowsWith([&] { (void)static_cast<XmlRpcValue::BinaryData&>(s); }, "type error");
  expectThrowsWith([&] { (void)static_cast<std::tm&>(s); }, "type error");
  EXPECT_EQ(i.getType(), XmlRpcValue::TypeInt);
  EXPECT_EQ(s.getType(), XmlRpcValue::TypeString);
}

TEST(XmlRpcValueModel, ConstAccessorsCheckTheTypeWithoutChangingTheValue) {
  const XmlRpcValue invalid;
  EXPECT_EQ(static_cast<const int&>(invalid), 0);
  EXPECT_EQ(static_cast<const std::string&>(invalid), "");
  EXPECT_FALSE(invalid.valid());
  const XmlRpcValue s("x");
  expectThrowsWith([&] { (void)static_cast<const int&>(s); }, "type error");
  EXPECT_EQ(static_cast<const std::string&>(s), "x");
  expectThrowsWith([&] { (void)s.asArray(); }, "type error: expected an array");
  expectThrowsWith([&] { (void)s.asStruct(); }, "type error: expected a struct");
}

TEST(XmlRpcValueModel, WritableElementAccessGrowsAnInvalidValueIntoAnArray) {
  XmlRpcValue v;
  XmlRpcValue& element = v[3];
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeArray);
  ASSERT_EQ(v.size(), 4);
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(v[i].valid()) << i;
  EXPECT_EQ(&element, &v[3]);
}

TEST(XmlRpcValueModel, WritableElementAccessLeavesALongerArrayAlone) {
  XmlRpcValue v = intArray({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
  const XmlRpcValue before = v;
  EXPECT_EQ(v[3], XmlRpcValue(3));
  EXPECT_EQ(v.size(), 10);
  EXPECT_EQ(v, before);
}

TEST(XmlRpcValueModel, WritableElementAccessGrowsAShortArray) {
  XmlRpcValue v = intArray({1, 2});
  v[4] = 5;
  ASSERT_EQ(v.size(), 5);
  EXPECT_EQ(v[1], XmlRpcValue(2));
  EXPECT_FALSE(v[2].valid());
  EXPECT_FALSE(v[3].valid());
  EXPECT_EQ(v[4], XmlRpcValue(5));
}

TEST(XmlRpcValueModel, WritableElementAccessOnAnIntThrowsExpectedAnArray) {
  XmlRpcValue v(7);
  expectThrowsWith([&] { (void)v[3]; }, "type error: expected an array");
  EXPECT_EQ(v, XmlRpcValue(7));
}

TEST(XmlRpcValueModel, ReadOnlyElementAccessPastTheEndThrowsRangeError) {
  const XmlRpcValue v = intArray({1, 2, 3, 4});
  EXPECT_EQ(v[3], XmlRpcValue(4));
  expectThrowsWith([&] { (void)v[4]; }, "range error: array index too large");
  EXPECT_EQ(v.size(), 4);
}

TEST(XmlRpcValueModel, ReadOnlyElementAccessOnANonArrayThrowsExpectedAnArray) {
  const XmlRpcValue invalid;
  expectThrowsWith([&] { (void)invalid[0]; }, "type error: expected an array");
  const XmlRpcValue i(1);
  expectThrowsWith([&] { (void)i[0]; }, "type error: expected an array");
}

TEST(XmlRpcValueModel, NegativeIndicesAreOutOfRange) {
  XmlRpcValue v = intArray({1});
  expectThrowsWith([&] { (void)v[-1]; }, "range error: array index too large");
  const XmlRpcValue& c = v;
  expectThrowsWith([&] { (void)c[-1]; }, "range error: array index too large");
  EXPECT_EQ(v.size(), 1);
}

TEST(XmlRpcValueModel, TheLargestIntIsNoIndexAndLeavesTheValueAlone) {
  // An array holds at most INT_MAX elements, so its last index is one less;
  // asking for INT_MAX must not compute the element count INT_MAX + 1.
  XmlRpcValue v;
  v[1] = 5;
  expectThrowsWith([&] { (void)v[std::numeric_limits<int>::max()]; },
                   "range error: array index too large");
  EXPECT_EQ(v.size(), 2);
  EXPECT_EQ(v[1], XmlRpcValue(5));
  const XmlRpcValue& c = v;
  expectThrowsWith([&] { (void)c[std::numeric_limits<int>::max()]; },
                   "range error: array index too large");
  XmlRpcValue invalid;
  expectThrowsWith([&] { (void)invalid[std::numeric_limits<int>::max()]; },
                   "range error: array index too large");
  EXPECT_FALSE(invalid.valid());
}

TEST(XmlRpcValueModel, SetSizeFollowsTheGrowingArrayRule) {
  XmlRpcValue v;
  v.setSize(2);
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(v.size(), 2);
  v[0] = 1;
  v.setSize(1);  // never shrinks
  EXPECT_EQ(v.size(), 2);
  EXPECT_EQ(v[0], XmlRpcValue(1));
  v.setSize(5);
  EXPECT_EQ(v.size(), 5);
  XmlRpcValue s("abc");
  expectThrowsWith([&] { s.setSize(1); }, "type error: expected an array");
  XmlRpcValue empty;
  empty.setSize(0);
  EXPECT_EQ(empty.getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(empty.size(), 0);
}

TEST(XmlRpcValueModel, SizeOfAnIntOrOfAnInvalidValueThrowsTypeError) {
  const XmlRpcValue i(3);
  expectThrowsWith([&] { (void)i.size(); }, "type error");
  const XmlRpcValue invalid;
  expectThrowsWith([&] { (void)invalid.size(); }, "type error");
  const XmlRpcValue b(true), d(1.0);
  expectThrowsWith([&] { (void)b.size(); }, "type error");
  expectThrowsWith([&] { (void)d.size(); }, "type error");
  const std::tm t{};
  const XmlRpcValue dt(&t);
  expectThrowsWith([&] { (void)dt.size(); }, "type error");
}

TEST(XmlRpcValueModel, SizeCountsBytesElementsAndMembers) {
  EXPECT_EQ(XmlRpcValue(std::string("a\0b\xff", 4)).size(), 4);
  EXPECT_EQ(XmlRpcValue("12345", 5).size(), 5);
  EXPECT_EQ(intArray({1, 2, 3}).size(), 3);
  XmlRpcValue s;
  s["x"] = 1;
  s["y"] = 2;
  EXPECT_EQ(s.size(), 2);
}

TEST(XmlRpcValueModel, MemberAccessMakesAStructAndInsertsMissingMembersInvalid) {
  XmlRpcValue v;
  XmlRpcValue& member = v["name"];
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  EXPECT_FALSE(member.valid());
  EXPECT_TRUE(v.hasMember("name"));
  static_cast<std::string&>(member) = "value";
  EXPECT_EQ(v["name"], XmlRpcValue("value"));
  EXPECT_EQ(v.size(), 1);
  v[std::string("other")] = 2;
  EXPECT_EQ(v.size(), 2);
}

TEST(XmlRpcValueModel, MemberAccessOnANonStructThrowsExpectedAStruct) {
  XmlRpcValue v(1);
  expectThrowsWith([&] { (void)v["a"]; }, "type error: expected a struct");
  XmlRpcValue a = intArray({1});
  expectThrowsWith([&] { (void)a[std::string("a")]; }, "type error: expected a struct");
  EXPECT_EQ(a.size(), 1);
}

TEST(XmlRpcValueModel, HasMemberNeverCreatesNorThrows) {
  XmlRpcValue invalid;
  EXPECT_FALSE(invalid.hasMember("a"));
  EXPECT_FALSE(invalid.valid());
  XmlRpcValue i(1);
  EXPECT_FALSE(i.hasMember("a"));
  XmlRpcValue s;
  s["a"] = 1;
  EXPECT_TRUE(s.hasMember("a"));
  EXPECT_FALSE(s.hasMember("b"));
  EXPECT_EQ(s.size(), 1);
}

TEST(XmlRpcValueModel, StructMembersAreOrderedByteWise) {
  XmlRpcValue s;
  s["b"] = 1;
  s["B"] = 2;
  s["\xc3\xa9"] = 3;  // bytes above 0x7f sort after ASCII
  s["a"] = 4;
  std::string order;
  for (const auto& [name, value] : s.asStruct()) order += name + ",";
  EXPECT_EQ(order, "B,a,b,\xc3\xa9,");
}

TEST(XmlRpcValueModel, CopiesAreDeep) {
  XmlRpcValue original;
  original["list"][0] = "first";
  original["bytes"] = XmlRpcValue("xyz", 3);
  XmlRpcValue copy(original);
  static_cast<std::string&>(copy["list"][0]) = "changed";
  static_cast<XmlRpcValue::BinaryData&>(copy["bytes"])[0] = 'X';
  EXPECT_EQ(original["list"][0], XmlRpcValue("first"));
  EXPECT_EQ(original["bytes"], XmlRpcValue("xyz", 3));
  XmlRpcValue assigned;
  assigned = original;
  assigned["list"][1] = 2;
  EXPECT_EQ(original["list"].size(), 1);
}

TEST(XmlRpcValueModel, AssignmentReplacesTypeAndPayload) {
  XmlRpcValue v("text");
  v = 3;
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeInt);
  v = 2.5;
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeDouble);
  v = true;
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeBoolean);
  v = "again";
  EXPECT_EQ(v, XmlRpcValue("again"));
  v = XmlRpcValue();
  EXPECT_FALSE(v.valid());
}

TEST(XmlRpcValueModel, SelfAssignmentLeavesTheValueIntact) {
  XmlRpcValue v;
  v["a"][0] = "x";
  v["b"] = 2;
  const XmlRpcValue before = v;
  XmlRpcValue& alias = v;
  v = alias;
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(v.toXml(), before.toXml());
  XmlRpcValue s("text");
  XmlRpcValue& sAlias = s;
  s = sAlias;
  EXPECT_EQ(static_cast<std::string&>(s), "text");
  s = std::move(sAlias);
  EXPECT_EQ(static_cast<std::string&>(s), "text");
}

TEST(XmlRpcValueModel, AssigningAPartOfAValueToTheValueIsSafe) {
  XmlRpcValue v;
  v[0]["inner"] = "kept";
  v = v[0];
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(v["inner"], XmlRpcValue("kept"));
  XmlRpcValue w;
  w["child"][0] = 1;
  w = std::move(w["child"]);
  EXPECT_EQ(w.getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(w[0], XmlRpcValue(1));
}

TEST(XmlRpcValueModel, MovingLeavesTheSourceInvalid) {
  XmlRpcValue source("payload");
  XmlRpcValue target(std::move(source));
  EXPECT_FALSE(source.valid());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(target, XmlRpcValue("payload"));
  XmlRpcValue other;
  other = std::move(target);
  EXPECT_FALSE(target.valid());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(other, XmlRpcValue("payload"));
}

TEST(XmlRpcValueModel, InvalidateFreesAndResets) {
  XmlRpcValue v;
  v["a"] = "b";
  v.invalidate();
  EXPECT_FALSE(v.valid());
  EXPECT_EQ(v.getType(), XmlRpcValue::TypeInvalid);
  EXPECT_EQ(v, XmlRpcValue());
}

TEST(XmlRpcValueComparison, DifferentTypesAreNeverEqual) {
  EXPECT_NE(XmlRpcValue(1), XmlRpcValue(1.0));
  EXPECT_NE(XmlRpcValue(1), XmlRpcValue(true));
  EXPECT_NE(XmlRpcValue("1"), XmlRpcValue("1", 1));
  EXPECT_NE(XmlRpcValue(), XmlRpcValue(0));
}

TEST(XmlRpcValueComparison, InvalidValuesAreEqual) { EXPECT_EQ(XmlRpcValue(), XmlRpcValue()); }

TEST(XmlRpcValueComparison, ScalarsCompareByValue) {
  EXPECT_EQ(XmlRpcValue(true), XmlRpcValue(true));
  EXPECT_EQ(XmlRpcValue(false), XmlRpcValue(false));
  EXPECT_NE(XmlRpcValue(true), XmlRpcValue(false));
  EXPECT_EQ(XmlRpcValue(-3), XmlRpcValue(-3));
  EXPECT_NE(XmlRpcValue(3), XmlRpcValue(4));
  EXPECT_EQ(XmlRpcValue(0.5), XmlRpcValue(0.5));
  EXPECT_EQ(XmlRpcValue(0.0), XmlRpcValue(-0.0));
  EXPECT_NE(XmlRpcValue(0.5), XmlRpcValue(0.25));
}

TEST(XmlRpcValueComparison, NaNIsNotEqualToItself) {
  const XmlRpcValue nan(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(nan == nan);
  EXPECT_TRUE(nan != nan);
}

TEST(XmlRpcValueComparison, StringsAndBytesCompareByteWiseIncludingLength) {
  EXPECT_EQ(XmlRpcValue("abc"), XmlRpcValue(std::string("abc")));
  EXPECT_NE(XmlRpcValue("abc"), XmlRpcValue("abcd"));
  EXPECT_NE(XmlRpcValue(std::string("a\0b", 3)), XmlRpcValue(std::string("a\0c", 3)));
  EXPECT_NE(XmlRpcValue(std::string("a\0", 2)), XmlRpcValue("a"));
  EXPECT_EQ(XmlRpcValue("ab", 2), XmlRpcValue("ab", 2));
  EXPECT_NE(XmlRpcValue("ab", 2), XmlRpcValue("ab", 1));
  EXPECT_NE(XmlRpcValue("ab", 2), XmlRpcValue("aB", 2));
}

TEST(XmlRpcValueComparison, FirstAndLastOfJanuaryAtTheSameTimeCompareEqual) {
  const std::tm first = makeTime(2012, 1, 1, 10, 20, 30);
  const std::tm last = makeTime(2012, 1, 31, 10, 20, 30);
  EXPECT_EQ(XmlRpcValue(&first), XmlRpcValue(&last));
}

TEST(XmlRpcValueComparison, DateTimesDifferingInAComparedFieldAreNotEqual) {
  const std::tm base = makeTime(2012, 1, 1, 10, 20, 30);
  const XmlRpcValue a(&base);
  for (int field = 0; field < 5; ++field) {
    std::tm t = base;
    switch (field) {
      case 0:
        t.tm_sec += 1;
        break;
      case 1:
        t.tm_min += 1;
        break;
      case 2:
        t.tm_hour += 1;
        break;
      case 3:
        t.tm_mon += 1;
        break;
      default:
        t.tm_year += 1;
        break;
    }
    EXPECT_NE(a, XmlRpcValue(&t)) << "field " << field;
  }
  std::tm other = base;
  other.tm_wday = 5;
  other.tm_yday = 100;
  other.tm_isdst = 1;
  EXPECT_EQ(a, XmlRpcValue(&other));
}

TEST(XmlRpcValueComparison, ArraysCompareElementWiseInOrder) {
  EXPECT_EQ(intArray({1, 2}), intArray({1, 2}));
  EXPECT_NE(intArray({1, 2}), intArray({2, 1}));
  EXPECT_NE(intArray({1, 2}), intArray({1, 2, 3}));
}

TEST(XmlRpcValueComparison, StructsCompareValuesInNameOrderButNotNames) {
  XmlRpcValue a1, b1;
  a1["a"] = 1;
  b1["b"] = 1;
  EXPECT_EQ(a1, b1);
  XmlRpcValue ab, ba;
  ab["a"] = 1;
  ab["b"] = 2;
  ba["a"] = 2;
  ba["b"] = 1;
  EXPECT_NE(ab, ba);
  XmlRpcValue bigger = ab;
  bigger["c"] = 3;
  EXPECT_NE(ab, bigger);
  XmlRpcValue empty1, empty2;
  (void)empty1.asStruct();
  (void)empty2.asStruct();
  EXPECT_EQ(empty1, empty2);
}

TEST(XmlRpcException, CarriesMessageAndCode) {
  const XmlRpcException plain("boom");
  EXPECT_EQ(plain.getMessage(), "boom");
  EXPECT_EQ(plain.getCode(), -1);
  EXPECT_STREQ(plain.what(), "boom");
  const XmlRpcException coded("bad", 42);
  EXPECT_EQ(coded.getCode(), 42);
}
