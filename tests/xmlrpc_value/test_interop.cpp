// Reading what other XML-RPC implementations write: a value exactly as
// Python's standard xmlrpc.client.dumps produces it (int and string tags,
// line breaks between tags, base64 in 76-character lines).
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "xmlrpc/XmlRpcValue.h"

using XmlRpc::XmlRpcValue;

namespace {

// xmlrpc.client.dumps(({"name": "a<b & c", "count": -7, "flags": [True, False],
//   "ratio": 2.5, "when": DateTime("20120304T05:06:07"), "blob": Binary(bytes(range(60))),
//   "nested": {"list": [1, "two", [3.0]], "empty": [], "e": {}}, "uni": "h\u00e9llo"},),
//   methodresponse=True), the text of the parameter's value.
const char kPythonValue[] = R"XML(<value><struct>
<member>
<name>name</name>
<value><string>a&lt;b &amp; c</string></value>
</member>
<member>
<name>count</name>
<value><int>-7</int></value>
</member>
<member>
<name>flags</name>
<value><array><data>
<value><boolean>1</boolean></value>
<value><boolean>0</boolean></value>
</data></array></value>
</member>
<member>
<name>ratio</name>
<value><double>2.5</double></value>
</member>
<member>
<name>when</name>
<value><dateTime.iso8601>20120304T05:06:07</dateTime.iso8601></value>
</member>
<member>
<name>blob</name>
<value><base64>
AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4
OTo7
</base64></value>
</member>
<member>
<name>nested</name>
<value><struct>
<member>
<name>list</name>
<value><array><data>
<value><int>1</int></value>
<value><string>two</string></value>
<value><array><data>
<value><double>3.0</double></value>
</data></array></value>
</data></array></value>
</member>
<member>
<name>empty</name>
<value><array><data>
</data></array></value>
</member>
<member>
<name>e</name>
<value><struct>
</struct></value>
</member>
</struct></value>
</member>
<member>
<name>uni</name>
<value><string>héllo</string></value>
</member>
</struct></value>)XML";

}  // namespace

TEST(XmlRpcInterop, ReadsAValueWrittenByPythonsXmlRpcClient) {
  const std::string xml = kPythonValue;
  XmlRpcValue v;
  int offset = 0;
  ASSERT_TRUE(v.fromXml(xml, &offset));
  EXPECT_EQ(offset, static_cast<int>(xml.size()));
  ASSERT_EQ(v.getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(v.size(), 8);
  EXPECT_EQ(v["name"], XmlRpcValue("a<b & c"));
  EXPECT_EQ(v["count"], XmlRpcValue(-7));
  ASSERT_EQ(v["flags"].size(), 2);
  EXPECT_EQ(v["flags"][0], XmlRpcValue(true));
  EXPECT_EQ(v["flags"][1], XmlRpcValue(false));
  EXPECT_EQ(v["ratio"], XmlRpcValue(2.5));
  const std::tm& when = static_cast<std::tm&>(v["when"]);
  EXPECT_EQ(when.tm_year, 2012);
  EXPECT_EQ(when.tm_mon, 3);
  EXPECT_EQ(when.tm_mday, 4);
  EXPECT_EQ(when.tm_hour, 5);
  EXPECT_EQ(when.tm_min, 6);
  EXPECT_EQ(when.tm_sec, 7);
  std::string blob;
  for (int i = 0; i < 60; ++i) blob += static_cast<char>(i);
  EXPECT_EQ(v["blob"], XmlRpcValue(blob.data(), 60));
  XmlRpcValue& nested = v["nested"];
  ASSERT_EQ(nested.size(), 3);
  ASSERT_EQ(nested["list"].size(), 3);
  EXPECT_EQ(nested["list"][0], XmlRpcValue(1));
  EXPECT_EQ(nested["list"][1], XmlRpcValue("two"));
  ASSERT_EQ(nested["list"][2].size(), 1);
  EXPECT_EQ(nested["list"][2][0], XmlRpcValue(3.0));
  EXPECT_EQ(nested["empty"].getType(), XmlRpcValue::TypeArray);
  EXPECT_EQ(nested["empty"].size(), 0);
  EXPECT_EQ(nested["e"].getType(), XmlRpcValue::TypeStruct);
  EXPECT_EQ(nested["e"].size(), 0);
  EXPECT_EQ(v["uni"], XmlRpcValue("h\xc3\xa9llo"));
}
