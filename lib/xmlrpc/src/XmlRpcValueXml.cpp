// XmlRpcValue's XML form: the writer appends one growing text, the reader is
// a forward scanner over the request text that works with byte offsets and
// copies only the pieces that become values.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "XmlRpcBase64.h"
#include "XmlRpcText.h"
#include "xmlrpc/XmlRpcUtil.h"
#include "xmlrpc/XmlRpcValue.h"

namespace XmlRpc {

namespace {

constexpr std::string_view kValueTag = "<value>";
constexpr std::string_view kValueEndTag = "</value>";
constexpr std::string_view kDataTag = "<data>";
constexpr std::string_view kDataEndTag = "</data>";
constexpr std::string_view kMemberTag = "<member>";
constexpr std::string_view kMemberEndTag = "</member>";
constexpr std::string_view kNameTag = "<name>";
constexpr std::string_view kNameEndTag = "</name>";

// A double is formatted into a buffer of this size, so at most 255
// characters of it are written (huge magnitudes in "%f" are cut there).
constexpr std::size_t kDoubleBufferSize = 256;
// Room for the longest fixed six-decimal double (309 digits, sign, point
// and decimals) before the cut to the size above.
constexpr std::size_t kFixedDoubleMaxLength = 330;
// A date-time is written as at most 19 characters ("yyyymmddThh:mm:ss" is
// 17; the rest leaves room for unusual years as the format allows).
constexpr std::size_t kDateTimeMaxLength = 19;
// Number texts shorter than this are copied to the stack for conversion.
constexpr std::size_t kNumberStackBuffer = 128;

const char kDefaultDoubleFormat[] = "%f";

std::string& doubleFormat() {
  static std::string format = kDefaultDoubleFormat;
  return format;
}
// The common case, kept as a flag so the writer need not compare texts.
bool doubleFormatIsDefault = true;

// Magnitude at which an integer text stops counting: far beyond any value
// the readers keep (32-bit ints, booleans), and small enough that ten times
// it plus a digit still fits in 64 bits, so accumulating cannot wrap.
constexpr long long kSaturatedMagnitude = 100'000'000'000'000'000;

// Reads a base-10 integer as strtol does in the classic locale (leading
// white space, an optional sign); a magnitude beyond kSaturatedMagnitude
// reads as that magnitude. Returns false, with pos unchanged, if no digit
// follows.
bool scanLong(std::string_view xml, std::size_t& pos, long long& value) {
  std::size_t p = pos;
  while (p < xml.size() && detail::isXmlSpace(xml[p])) ++p;
  bool negative = false;
  if (p < xml.size() && (xml[p] == '+' || xml[p] == '-')) negative = xml[p++] == '-';
  const std::size_t digitsStart = p;
  long long magnitude = 0;
  for (; p < xml.size() && xml[p] >= '0' && xml[p] <= '9'; ++p) {
    magnitude = std::min(magnitude * 10 + (xml[p] - '0'), kSaturatedMagnitude);
  }
  if (p == digitsStart) return false;
  value = negative ? -magnitude : magnitude;
  pos = p;
  return true;
}

// Reads one "%Nd" field of scanf: white space, then at most `width`
// characters of sign and digits, at least one digit.
bool scanField(std::string_view text, std::size_t& pos, int width, int& value) {
  std::size_t p = pos;
  while (p < text.size() && detail::isXmlSpace(text[p])) ++p;
  const std::size_t end = std::min(text.size(), p + static_cast<std::size_t>(width));
  bool negative = false;
  if (p < end && (text[p] == '+' || text[p] == '-')) negative = text[p++] == '-';
  const std::size_t digitsStart = p;
  int magnitude = 0;
  for (; p < end && text[p] >= '0' && text[p] <= '9'; ++p)
    magnitude = magnitude * 10 + (text[p] - '0');
  if (p == digitsStart) return false;
  value = negative ? -magnitude : magnitude;
  pos = p;
  return true;
}

bool scanLiteral(std::string_view text, std::size_t& pos, char literal) {
  if (pos >= text.size() || text[pos] != literal) return false;
  ++pos;
  return true;
}

// The text from pos up to the next "<"; false if no "<" follows at all.
bool textUpToTag(std::string_view xml, std::size_t pos, std::string_view& text) {
  const std::size_t lt = xml.find('<', pos);
  if (lt == std::string_view::npos) return false;
  text = xml.substr(pos, lt - pos);
  return true;
}

using Search = XmlRpcValue::TextScan::Search;

// A forward search for tag that remembers its last answer. Searching again
// from any offset between the last start and the place found gives the same
// place, so a tag that is missing (or far ahead) costs one scan of the text,
// not one per value: without this, a long array whose values lack
// "</value>", or a struct whose members lack "<name>", takes time quadratic
// in its length.
std::size_t findRemembered(Search& search, std::string_view tag, std::string_view xml,
                           std::size_t from) {
  // npos is the largest size_t, so a failed search covers every later start.
  if (search.done && from >= search.from && from <= search.found) return search.found;
  search.done = true;
  search.from = from;
  search.found = xml.find(tag, from);
  return search.found;
}

// findTag through a remembered search: moves *offset just past the tag.
bool findTag(Search& search, std::string_view tag, std::string_view xml, int* offset) {
  if (!detail::offsetInside(xml, offset)) return false;
  const std::size_t found = findRemembered(search, tag, xml, static_cast<std::size_t>(*offset));
  if (found == std::string_view::npos) return false;
  *offset = static_cast<int>(found + tag.size());
  return true;
}

// parseTag("<name>") through remembered searches.
bool parseName(Search& open, Search& close, std::string_view xml, int* offset,
               std::string_view& inner) {
  if (!detail::offsetInside(xml, offset)) return false;
  std::size_t start = findRemembered(open, kNameTag, xml, static_cast<std::size_t>(*offset));
  if (start == std::string_view::npos) return false;
  start += kNameTag.size();
  const std::size_t end = findRemembered(close, kNameEndTag, xml, start);
  if (end == std::string_view::npos) return false;
  inner = xml.substr(start, end - start);
  *offset = static_cast<int>(end + kNameEndTag.size());
  return true;
}

}  // namespace

// The bookkeeping of one fromXml call. Too deep a value fails the whole
// read, not just the level where the limit was hit: an array would otherwise
// take the failure for its end and the outer read would succeed on a
// truncated value. The scan serves the searches that may reach far ahead.
struct XmlRpcValue::ReadState {
  explicit ReadState(TextScan& textScan) : scan(textScan) {}
  int depth = 0;
  bool tooDeep = false;
  TextScan& scan;
};

const std::string& XmlRpcValue::getDoubleFormat() { return doubleFormat(); }

void XmlRpcValue::setDoubleFormat(const char* format) {
  doubleFormat() = format != nullptr ? format : kDefaultDoubleFormat;
  doubleFormatIsDefault = doubleFormat() == kDefaultDoubleFormat;
}

// ---- Writing ----

std::string XmlRpcValue::toXml() const {
  std::string out;
  appendXml(out);
  return out;
}

void XmlRpcValue::appendXml(std::string& out) const {
  switch (_type) {
    case TypeBoolean:
      out += _value.asBool ? "<value><boolean>1</boolean></value>"
                           : "<value><boolean>0</boolean></value>";
      break;
    case TypeInt: {
      char digits[16];
      const auto result = std::to_chars(digits, digits + sizeof digits, _value.asInt);
      out += "<value><i4>";
      out.append(digits, result.ptr);
      out += "</i4></value>";
      break;
    }
    case TypeDouble:
      out += "<value><double>";
      appendDouble(out);
      out += "</double></value>";
      break;
    case TypeString:
      out += kValueTag;
      detail::appendXmlEncoded(out, *_value.asString);
      out += kValueEndTag;
      break;
    case TypeDateTime:
      out += "<value><dateTime.iso8601>";
      appendDateTime(out);
      out += "</dateTime.iso8601></value>";
      break;
    case TypeBase64:
      out += "<value><base64>";
      appendBase64(out);
      out += "</base64></value>";
      break;
    case TypeArray:
      out += "<value><array><data>";
      for (const XmlRpcValue& element : *_value.asArray) element.appendXml(out);
      out += "</data></array></value>";
      break;
    case TypeStruct:
      out += "<value><struct>";
      for (const auto& [name, member] : *_value.asStruct) {
        out += "<member><name>";
        detail::appendXmlEncoded(out, name);
        out += "</name>";
        member.appendXml(out);
        out += kMemberEndTag;
      }
      out += "</struct></value>";
      break;
    default:  // an invalid value writes nothing
      break;
  }
}

void XmlRpcValue::appendDouble(std::string& out) const {
  if (doubleFormatIsDefault) {
    // "%f" without printf: to_chars gives the same correctly rounded digits,
    // is several times faster and never looks at the locale.
    char buffer[kFixedDoubleMaxLength];
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, _value.asDouble, std::chars_format::fixed, 6);
    const std::size_t length = static_cast<std::size_t>(result.ptr - buffer);
    out.append(buffer, std::min(length, kDoubleBufferSize - 1));
    return;
  }
  char buffer[kDoubleBufferSize];
  const int length =
      detail::formatClassic(buffer, sizeof buffer, doubleFormat().c_str(), _value.asDouble);
  if (length > 0) out.append(buffer, std::min(static_cast<std::size_t>(length), sizeof buffer - 1));
}

void XmlRpcValue::appendDateTime(std::string& out) const {
  const struct tm& t = *_value.asTime;
  // Big enough for six ints of any value, then cut to the written maximum.
  char buffer[96];
  const int length = std::snprintf(buffer, sizeof buffer, "%4d%02d%02dT%02d:%02d:%02d", t.tm_year,
                                   t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
  if (length > 0)
    out.append(buffer, std::min(static_cast<std::size_t>(length), kDateTimeMaxLength));
}

void XmlRpcValue::appendBase64(std::string& out) const {
  detail::appendBase64(out, _value.asBinary->data(), _value.asBinary->size());
}

// ---- Reading ----

bool XmlRpcValue::fromXml(std::string_view xml, int* offset) {
  TextScan scan;
  return fromXml(xml, offset, scan);
}

bool XmlRpcValue::fromXml(std::string_view xml, int* offset, TextScan& scan) {
  if (scan._text != xml.data() || scan._size != xml.size()) {
    scan = TextScan();
    scan._text = xml.data();
    scan._size = xml.size();
  }
  ReadState state(scan);
  return readValue(xml, offset, state);
}

bool XmlRpcValue::readValue(std::string_view xml, int* offset, ReadState& state) {
  invalidate();
  if (!detail::offsetInside(xml, offset)) return false;
  const int start = *offset;
  if (!detail::nextTagIs(kValueTag, xml, offset)) return false;
  if (state.depth >= kMaxNestingDepth) {
    state.tooDeep = true;
    *offset = start;
    return false;
  }
  ++state.depth;
  const int afterValueTag = *offset;
  const std::string_view tag = detail::nextTag(xml, offset);
  bool ok = false;
  if (tag == "<boolean>") {
    ok = readBoolean(xml, offset);
  } else if (tag == "<i4>" || tag == "<int>") {
    ok = readInt(xml, offset);
  } else if (tag == "<double>") {
    ok = readDouble(xml, offset);
  } else if (tag.empty() || tag == "<string>") {
    ok = readString(xml, offset);  // a bare text without a type tag is a string
  } else if (tag == "<dateTime.iso8601>") {
    ok = readDateTime(xml, offset);
  } else if (tag == "<base64>") {
    ok = readBase64(xml, offset);
  } else if (tag == "<array>") {
    ok = readArray(xml, offset, state);
  } else if (tag == "<struct>") {
    ok = readStruct(xml, offset, state);
  } else if (tag == kValueEndTag) {
    // An empty value: the text between the tags (blanks included) is a string.
    *offset = afterValueTag;
    ok = readString(xml, offset);
  }
  --state.depth;
  if (ok && !state.tooDeep) {
    // Skips whatever the type reader left: closing type tags, trailing text.
    findTag(state.scan._valueEnd, kValueEndTag, xml, offset);
    return true;
  }
  invalidate();
  *offset = start;
  return false;
}

bool XmlRpcValue::readBoolean(std::string_view xml, int* offset) {
  std::size_t pos = static_cast<std::size_t>(*offset);
  long long number = 0;
  if (!scanLong(xml, pos, number) || (number != 0 && number != 1)) return false;
  _type = TypeBoolean;
  _value.asBool = number == 1;
  *offset = static_cast<int>(pos);
  return true;
}

bool XmlRpcValue::readInt(std::string_view xml, int* offset) {
  std::size_t pos = static_cast<std::size_t>(*offset);
  long long number = 0;
  if (!scanLong(xml, pos, number)) return false;
  // Out-of-range text saturates at the limits of the 32-bit value.
  if (number > std::numeric_limits<int>::max()) number = std::numeric_limits<int>::max();
  if (number < std::numeric_limits<int>::min()) number = std::numeric_limits<int>::min();
  _type = TypeInt;
  _value.asInt = static_cast<int>(number);
  *offset = static_cast<int>(pos);
  return true;
}

bool XmlRpcValue::readDouble(std::string_view xml, int* offset) {
  // strtod needs a terminated text; no number reaches past the next tag.
  const std::size_t pos = static_cast<std::size_t>(*offset);
  std::size_t end = xml.find('<', pos);
  if (end == std::string_view::npos) end = xml.size();
  const std::string_view text = xml.substr(pos, end - pos);
  char stackBuffer[kNumberStackBuffer];
  std::string heapBuffer;
  const char* terminated = stackBuffer;
  if (text.size() < sizeof stackBuffer) {
    std::memcpy(stackBuffer, text.data(), text.size());
    stackBuffer[text.size()] = '\0';
  } else {
    heapBuffer.assign(text);
    terminated = heapBuffer.c_str();
  }
  char* parsedEnd = nullptr;
  const double number = detail::parseClassic(terminated, &parsedEnd);
  if (parsedEnd == terminated) return false;
  _type = TypeDouble;
  _value.asDouble = number;
  *offset = static_cast<int>(pos + static_cast<std::size_t>(parsedEnd - terminated));
  return true;
}

bool XmlRpcValue::readString(std::string_view xml, int* offset) {
  std::string_view raw;
  if (!textUpToTag(xml, static_cast<std::size_t>(*offset), raw)) return false;
  _value.asString = new std::string(XmlRpcUtil::xmlDecode(raw));
  _type = TypeString;
  // Advances by the decoded length on purpose: where entities shortened the
  // text this lands short of the next tag, and the search for "</value>"
  // that follows every value catches up.
  *offset += static_cast<int>(_value.asString->size());
  return true;
}

bool XmlRpcValue::readDateTime(std::string_view xml, int* offset) {
  std::string_view raw;
  if (!textUpToTag(xml, static_cast<std::size_t>(*offset), raw)) return false;
  // The pattern "%4d%2d%2dT%2d:%2d:%2d", field by field.
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::size_t p = 0;
  if (!(scanField(raw, p, 4, year) && scanField(raw, p, 2, month) && scanField(raw, p, 2, day) &&
        scanLiteral(raw, p, 'T') && scanField(raw, p, 2, hour) && scanLiteral(raw, p, ':') &&
        scanField(raw, p, 2, minute) && scanLiteral(raw, p, ':') && scanField(raw, p, 2, second))) {
    return false;
  }
  struct tm* t = new std::tm();
  // Stored as written: the year is not counted from 1900, the month from 1.
  t->tm_year = year;
  t->tm_mon = month;
  t->tm_mday = day;
  t->tm_hour = hour;
  t->tm_min = minute;
  t->tm_sec = second;
  t->tm_isdst = -1;
  _value.asTime = t;
  _type = TypeDateTime;
  *offset += static_cast<int>(raw.size());
  return true;
}

bool XmlRpcValue::readBase64(std::string_view xml, int* offset) {
  std::string_view raw;
  if (!textUpToTag(xml, static_cast<std::size_t>(*offset), raw)) return false;
  auto* bytes = new BinaryData();
  detail::decodeBase64(raw, *bytes);
  _value.asBinary = bytes;
  _type = TypeBase64;
  *offset += static_cast<int>(raw.size());
  return true;
}

bool XmlRpcValue::readArray(std::string_view xml, int* offset, ReadState& state) {
  _value.asArray = new ValueArray();
  _type = TypeArray;
  if (!detail::nextTagIs(kDataTag, xml, offset)) return false;
  ValueArray& elements = *_value.asArray;
  XmlRpcValue element;
  // The first value that cannot be read ends the array.
  while (element.readValue(xml, offset, state)) elements.push_back(std::move(element));
  if (state.tooDeep) return false;
  detail::nextTagIs(kDataEndTag, xml, offset);
  return true;
}

bool XmlRpcValue::readStruct(std::string_view xml, int* offset, ReadState& state) {
  _value.asStruct = new ValueStruct();
  _type = TypeStruct;
  ValueStruct& members = *_value.asStruct;
  while (detail::nextTagIs(kMemberTag, xml, offset)) {
    // Names are taken raw, not entity-decoded, although the writer encodes
    // them; a missing name reads as the empty name.
    std::string_view name;
    parseName(state.scan._nameOpen, state.scan._nameClose, xml, offset, name);
    XmlRpcValue member;
    if (!member.readValue(xml, offset, state)) return false;
    // Members mostly arrive in name order, so the end is the likely place;
    // a name already present keeps its first value.
    members.try_emplace(members.end(), std::string(name), std::move(member));
    detail::nextTagIs(kMemberEndTag, xml, offset);
  }
  return true;
}

}  // namespace XmlRpc
