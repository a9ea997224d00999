// XmlRpcValue's XML form: the writer appends one growing text, the reader is
// a forward scanner over the request text that works with byte offsets and
// copies only the pieces that become values.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

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

// "true" or "false" in any case, blanks around, and nothing else before the
// next tag: the words some clients write for a boolean. On success pos is
// past the word and value holds it.
bool scanBooleanWord(std::string_view xml, std::size_t& pos, bool& value) {
  std::size_t p = pos;
  while (p < xml.size() && detail::isXmlSpace(xml[p])) ++p;
  const auto wordAt = [&](std::string_view word) {
    if (xml.size() - p < word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
      if ((xml[p + i] | 0x20) != word[i]) return false;
    }
    return true;
  };
  if (wordAt("true")) {
    value = true;
    p += 4;
  } else if (wordAt("false")) {
    value = false;
    p += 5;
  } else {
    return false;
  }
  std::size_t rest = p;
  while (rest < xml.size() && detail::isXmlSpace(xml[rest])) ++rest;
  if (rest < xml.size() && xml[rest] != '<') return false;
  pos = p;
  return true;
}

// The six fields of a date-time as written.
struct DateTimeFields {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

// The pattern "%4d%2d%2dT%2d:%2d:%2d" of scanf, the form the engine writes.
bool scanBasicDateTime(std::string_view raw, DateTimeFields& f) {
  std::size_t p = 0;
  return scanField(raw, p, 4, f.year) && scanField(raw, p, 2, f.month) &&
         scanField(raw, p, 2, f.day) && scanLiteral(raw, p, 'T') && scanField(raw, p, 2, f.hour) &&
         scanLiteral(raw, p, ':') && scanField(raw, p, 2, f.minute) && scanLiteral(raw, p, ':') &&
         scanField(raw, p, 2, f.second);
}

// Exactly `count` digits at pos.
bool scanDigits(std::string_view text, std::size_t& pos, int count, int& value) {
  if (text.size() - std::min(pos, text.size()) < static_cast<std::size_t>(count)) return false;
  int number = 0;
  for (int i = 0; i < count; ++i) {
    const char c = text[pos + static_cast<std::size_t>(i)];
    if (c < '0' || c > '9') return false;
    number = number * 10 + (c - '0');
  }
  value = number;
  pos += static_cast<std::size_t>(count);
  return true;
}

// ISO 8601 as other clients write it: the extended form
// "2024-01-02T03:04:05" or the basic form without colons "20240102T030405",
// each with an optional fraction of a second (".123") and zone ("Z",
// "+01:00", "-0130", "+01"). The fields are taken as written: the fraction
// and the zone are checked and dropped, not applied.
bool scanIsoDateTime(std::string_view raw, DateTimeFields& f) {
  std::size_t p = 0;
  while (p < raw.size() && detail::isXmlSpace(raw[p])) ++p;
  if (!scanDigits(raw, p, 4, f.year)) return false;
  const bool extended = scanLiteral(raw, p, '-');
  if (!scanDigits(raw, p, 2, f.month) || (extended && !scanLiteral(raw, p, '-')) ||
      !scanDigits(raw, p, 2, f.day) || !scanLiteral(raw, p, 'T') ||
      !scanDigits(raw, p, 2, f.hour) || (extended && !scanLiteral(raw, p, ':')) ||
      !scanDigits(raw, p, 2, f.minute) || (extended && !scanLiteral(raw, p, ':')) ||
      !scanDigits(raw, p, 2, f.second)) {
    return false;
  }
  if (scanLiteral(raw, p, '.') || scanLiteral(raw, p, ',')) {
    const std::size_t digits = p;
    while (p < raw.size() && raw[p] >= '0' && raw[p] <= '9') ++p;
    if (p == digits) return false;
  }
  if (!scanLiteral(raw, p, 'Z') && p < raw.size() && (raw[p] == '+' || raw[p] == '-')) {
    ++p;
    int zone = 0;
    if (!scanDigits(raw, p, 2, zone)) return false;
    const bool colon = scanLiteral(raw, p, ':');
    if (!scanDigits(raw, p, 2, zone) && colon) return false;
  }
  while (p < raw.size() && detail::isXmlSpace(raw[p])) ++p;
  return p == raw.size();
}

// The text from pos up to the next "<" at lt; false if no "<" follows at all.
bool textUpToTag(std::string_view xml, std::size_t pos, std::size_t lt, std::string_view& text) {
  if (lt == std::string_view::npos) return false;
  text = xml.substr(pos, lt - pos);
  return true;
}

using Search = XmlRpcValue::TextScan::Search;

using detail::emptyElementAt;

// True if a tag text taken whole ("<string/>", "<string />") is the empty
// element of that name.
bool isEmptyElement(std::string_view tag, std::string_view open) {
  return emptyElementAt(tag, 0, open) == tag.size();
}

}  // namespace

namespace detail {

// Every place a tag occurs in a text, listed as far as the text has been
// searched: answers "the next occurrence at or after from" for starts in
// any order while searching each byte once. The remembering reader asks in
// any order, where a single remembered answer would search again and again.
class Occurrences {
 public:
  std::size_t next(std::string_view tag, std::string_view xml, std::size_t from,
                   std::size_t& work) {
    const auto known = std::lower_bound(_at.begin(), _at.end(), from);
    if (known != _at.end()) return *known;
    while (_searchedTo < xml.size()) {
      const std::size_t found = xml.find(tag, _searchedTo);
      if (found == std::string_view::npos) {
        work += xml.size() - _searchedTo;
        _searchedTo = xml.size();
        break;
      }
      work += found + 1 - _searchedTo;
      _at.push_back(found);
      _searchedTo = found + 1;
      if (found >= from) return found;
    }
    return std::string_view::npos;
  }

 private:
  std::vector<std::size_t> _at;  // ascending
  std::size_t _searchedTo = 0;   // every occurrence starting before this is listed
};

// What reading a value, or the rest of an array's elements or of a
// struct's members, gave at one place of the text. The outcome is the same
// at every nesting level except through the nesting limit, hence the
// height: the levels of nesting the reading looked at.
struct ReadMemo {
  struct Answer {
    std::uint32_t end = 0;  // offset after the read (texts are int-sized)
    std::int16_t height = 0;
    bool ok = false;
  };
  enum Kind : std::uint64_t { kValue = 0, kElements = 1, kMembers = 2 };

  const Answer* find(Kind kind, std::size_t pos) const {
    if (_slots.empty()) return nullptr;
    const std::uint64_t k = key(kind, pos);
    for (std::size_t i = slotOf(k);; i = (i + 1) & (_slots.size() - 1)) {
      if (_slots[i].key == k) return &_slots[i].answer;
      if (_slots[i].key == kFree) return nullptr;
    }
  }

  void put(Kind kind, std::size_t pos, std::size_t end, int height, bool ok) {
    if ((_used + 1) * kLoadDenominator > _slots.size() * kLoadNumerator) grow();
    const std::uint64_t k = key(kind, pos);
    std::size_t i = slotOf(k);
    while (_slots[i].key != kFree && _slots[i].key != k) i = (i + 1) & (_slots.size() - 1);
    if (_slots[i].key == kFree) ++_used;
    _slots[i].key = k;
    _slots[i].answer =
        Answer{static_cast<std::uint32_t>(end), static_cast<std::int16_t>(height), ok};
  }

  Occurrences valueEnd, nameOpen, nameClose;

 private:
  // An open-addressing table of 16-byte slots kept at most three quarters
  // full: the answers of a hostile text stay within a few bytes per byte
  // of text, where a node-based map would take several times that.
  struct Slot {
    std::uint64_t key;
    Answer answer;
  };
  static constexpr std::uint64_t kFree = ~std::uint64_t{0};
  static constexpr std::size_t kFirstSlots = 1024;
  static constexpr std::size_t kLoadNumerator = 3, kLoadDenominator = 4;

  static std::uint64_t key(Kind kind, std::size_t pos) {
    return (static_cast<std::uint64_t>(pos) << 2) | kind;
  }
  std::size_t slotOf(std::uint64_t k) const {
    // Fibonacci hashing spreads the nearby places of one text.
    return static_cast<std::size_t>((k * 0x9E3779B97F4A7C15ull) >> _shift);
  }
  void grow() {
    std::vector<Slot> old = std::move(_slots);
    const std::size_t size = old.empty() ? kFirstSlots : old.size() * 2;
    _slots.assign(size, Slot{kFree, Answer{}});
    _shift = 64 - std::countr_zero(size);
    for (const Slot& slot : old) {
      if (slot.key == kFree) continue;
      std::size_t i = slotOf(slot.key);
      while (_slots[i].key != kFree) i = (i + 1) & (size - 1);
      _slots[i] = slot;
    }
  }

  std::vector<Slot> _slots;
  std::size_t _used = 0;
  int _shift = 64;
};

// The bookkeeping of one fromXml call.
//  - Plain: the straightforward reading, which re-reads text wherever the
//    rules send it back; it stops once it has spent its budget of work.
//  - Measure: the same rules, remembering the outcome of every read by
//    place and building no values, so every place is worked out once.
//  - Build: the plain reading again, which now skips every read the
//    memo knows to fail; it only visits what ends up in the value.
// Too deep a value fails the whole read, not just the level where the
// limit was hit: an array would otherwise take the failure for its end and
// the outer read would succeed on a truncated value.
struct ReadState {
  enum class Mode { Plain, Measure, Build };

  ReadState(Mode m, XmlRpcValue::TextScan::Search& valueEndSearch,
            XmlRpcValue::TextScan::Search& nameOpenSearch,
            XmlRpcValue::TextScan::Search& nameCloseSearch, ReadMemo* readMemo,
            std::size_t workDone, std::size_t workBudget)
      : mode(m),
        valueEnd(valueEndSearch),
        nameOpen(nameOpenSearch),
        nameClose(nameCloseSearch),
        memo(readMemo),
        work(workDone),
        budget(workBudget) {}

  bool stopped() const { return tooDeep || overBudget; }
  void reach(int level) { peak = std::max(peak, level); }

  Mode mode;
  int depth = 0;
  // The deepest level at which a value was found so far.
  int peak = -1;
  bool tooDeep = false;
  bool overBudget = false;
  XmlRpcValue::TextScan::Search& valueEnd;
  XmlRpcValue::TextScan::Search& nameOpen;
  XmlRpcValue::TextScan::Search& nameClose;
  ReadMemo* memo;
  // Work done on the text so far, this read's included; handed back to the
  // scan when the read ends (kept here so it can live in a register).
  std::size_t work;
  std::size_t budget;
};

}  // namespace detail

namespace {

using detail::ReadMemo;
using detail::ReadState;
using Mode = detail::ReadState::Mode;

// Work units of one value read beyond the bytes it scans: its tag compares
// and bookkeeping.
constexpr std::size_t kValueWork = 16;
// The plain reading may spend this many units per byte of text, plus the
// slack, before the remembering reading takes over. A text read once costs
// one to two units per byte; only texts that send the reader back over the
// same bytes again and again (broken nesting, values that fail deep inside)
// exceed it, and for them remembering is cheaper than re-reading.
constexpr std::size_t kWorkPerByte = 4;
constexpr std::size_t kWorkSlack = 4096;

// A forward search for tag that remembers its last answer. Searching again
// from any offset between the last start and the place found gives the same
// place, so a tag that is missing (or far ahead) costs one scan of the text,
// not one per value, as long as the searches move forward.
inline std::size_t findRemembered(Search& search, std::string_view tag, std::string_view xml,
                                  std::size_t from, std::size_t& work) {
  // npos is the largest size_t, so a failed search covers every later start.
  if (search.done && from >= search.from && from <= search.found) return search.found;
  search.done = true;
  search.from = from;
  search.found = xml.find(tag, from);
  work += (search.found == std::string_view::npos ? xml.size() : search.found + tag.size()) - from;
  return search.found;
}

// The next tag at or after from: the memo's list when measuring (which
// searches in any order), the remembered answer otherwise.
inline std::size_t findNext(ReadState& state, Search& remembered,
                            detail::Occurrences ReadMemo::*listed, std::string_view tag,
                            std::string_view xml, std::size_t from) {
  if (state.mode == Mode::Measure) return (state.memo->*listed).next(tag, xml, from, state.work);
  return findRemembered(remembered, tag, xml, from, state.work);
}

// findTag("</value>"): moves *offset just past it.
inline void skipToValueEnd(ReadState& state, std::string_view xml, int* offset) {
  if (!detail::offsetInside(xml, offset)) return;
  const std::size_t found = findNext(state, state.valueEnd, &ReadMemo::valueEnd, kValueEndTag, xml,
                                     static_cast<std::size_t>(*offset));
  if (found != std::string_view::npos) *offset = static_cast<int>(found + kValueEndTag.size());
}

// parseTag("<name>"): the raw text between "<name>" (searched from the
// offset on) and "</name>"; false, offset unchanged, when either is missing.
bool parseName(ReadState& state, std::string_view xml, int* offset, std::string_view& inner) {
  if (!detail::offsetInside(xml, offset)) return false;
  std::size_t start = findNext(state, state.nameOpen, &ReadMemo::nameOpen, kNameTag, xml,
                               static_cast<std::size_t>(*offset));
  if (start == std::string_view::npos) return false;
  start += kNameTag.size();
  const std::size_t end =
      findNext(state, state.nameClose, &ReadMemo::nameClose, kNameEndTag, xml, start);
  if (end == std::string_view::npos) return false;
  inner = xml.substr(start, end - start);
  *offset = static_cast<int>(end + kNameEndTag.size());
  return true;
}

// The offset after the white space at pos, counting it as work.
inline std::size_t skipSpace(ReadState& state, std::string_view xml, std::size_t pos) {
  const std::size_t from = pos;
  while (pos < xml.size() && detail::isXmlSpace(xml[pos])) ++pos;
  state.work += pos - from;
  return pos;
}

// nextTagIs, counting the white space it skips.
inline bool nextTagIs(ReadState& state, std::string_view tag, std::string_view xml, int* offset) {
  if (!detail::offsetInside(xml, offset)) return false;
  const std::size_t pos = skipSpace(state, xml, static_cast<std::size_t>(*offset));
  if (xml.size() - pos < tag.size() || std::memcmp(xml.data() + pos, tag.data(), tag.size()) != 0) {
    return false;
  }
  *offset = static_cast<int>(pos + tag.size());
  return true;
}

// The empty element "<name/>" after white space: moves *offset past it.
inline bool nextEmptyElementIs(ReadState& state, std::string_view open, std::string_view xml,
                               int* offset) {
  if (!detail::offsetInside(xml, offset)) return false;
  const std::size_t pos = skipSpace(state, xml, static_cast<std::size_t>(*offset));
  const std::size_t end = emptyElementAt(xml, pos, open);
  if (end == std::string_view::npos) return false;
  *offset = static_cast<int>(end);
  return true;
}

}  // namespace

XmlRpcValue::TextScan::TextScan() = default;
XmlRpcValue::TextScan::~TextScan() = default;
XmlRpcValue::TextScan::TextScan(TextScan&&) noexcept = default;
XmlRpcValue::TextScan& XmlRpcValue::TextScan::operator=(TextScan&&) noexcept = default;

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
    const bool remember = scan._rememberFromStart;
    scan = TextScan();
    scan._rememberFromStart = remember;
    scan._text = xml.data();
    scan._size = xml.size();
  }
  const auto state = [&](Mode mode, std::size_t budget) {
    return ReadState(mode, scan._valueEnd, scan._nameOpen, scan._nameClose, scan._memo.get(),
                     scan._work, budget);
  };
  if (!scan._memo && !scan._rememberFromStart) {
    ReadState plain = state(Mode::Plain, kWorkPerByte * xml.size() + kWorkSlack);
    const bool ok = readValue(xml, offset, plain);
    scan._work = plain.work;
    if (ok) return true;
    if (!plain.overBudget) return false;
    // This text sends the reader back over the same bytes: from here on
    // every read of it remembers what it finds.
  }
  if (!scan._memo) scan._memo = std::make_unique<ReadMemo>();
  ReadState measure = state(Mode::Measure, 0);
  XmlRpcValue outcome;
  int probe = offset != nullptr ? *offset : 0;
  const bool readable = offset != nullptr && outcome.readValue(xml, &probe, measure);
  scan._work = measure.work;
  if (!readable) {
    invalidate();
    return false;
  }
  ReadState build = state(Mode::Build, 0);
  const bool ok = readValue(xml, offset, build);
  scan._work = build.work;
  return ok;
}

bool XmlRpcValue::readValue(std::string_view xml, int* offset, ReadState& state) {
  invalidate();
  if (!detail::offsetInside(xml, offset)) return false;
  if (state.mode == Mode::Plain && state.work > state.budget) {
    state.overBudget = true;
    return false;
  }
  state.work += kValueWork;
  const int start = *offset;
  const std::size_t tagPos = skipSpace(state, xml, static_cast<std::size_t>(start));
  std::size_t afterValueTag = tagPos + kValueTag.size();
  bool emptyValue = false;
  if (xml.size() - tagPos < kValueTag.size() ||
      std::memcmp(xml.data() + tagPos, kValueTag.data(), kValueTag.size()) != 0) {
    afterValueTag = emptyElementAt(xml, tagPos, "<value");
    if (afterValueTag == std::string_view::npos) return false;
    emptyValue = true;
  }
  if (state.depth >= kMaxNestingDepth) {
    state.tooDeep = true;
    return false;
  }
  state.reach(state.depth);
  if (emptyValue) {
    // "<value/>" is the empty string; it has no closing tag to look for.
    _value.asString = new std::string();
    _type = TypeString;
    *offset = static_cast<int>(afterValueTag);
    return true;
  }
  if (state.memo != nullptr) {
    if (const ReadMemo::Answer* known = state.memo->find(ReadMemo::kValue, tagPos)) {
      if (state.depth + known->height > kMaxNestingDepth) {
        state.tooDeep = true;
        return false;
      }
      state.reach(state.depth + known->height - 1);
      if (!known->ok) return false;
      if (state.mode == Mode::Measure) {
        *offset = static_cast<int>(known->end);
        return true;  // measuring keeps no value
      }
      // Building: read it again, now that every failing part is known.
    }
  }

  *offset = static_cast<int>(afterValueTag);
  const int outerPeak = state.peak;
  state.peak = state.depth;
  ++state.depth;
  const std::string_view tag = detail::nextTag(xml, offset);
  state.work += static_cast<std::size_t>(*offset) - afterValueTag;
  bool ok = false;
  if (tag == "<array>") {
    ok = readArray(xml, offset, state);
  } else if (tag == "<struct>") {
    ok = readStruct(xml, offset, state);
  } else {
    // The scalar readers look no further than the next tag.
    const std::size_t next = xml.find('<', static_cast<std::size_t>(*offset));
    state.work += (next == std::string_view::npos ? xml.size() : next) - *offset;
    if (tag == "<boolean>") {
      ok = readBoolean(xml, offset);
    } else if (tag == "<i4>" || tag == "<int>") {
      ok = readInt(xml, offset);
    } else if (tag == "<double>") {
      ok = readDouble(xml, offset, next);
    } else if (tag.empty() || tag == "<string>") {
      ok = readString(xml, offset, next);  // a bare text without a type tag is a string
    } else if (tag == "<dateTime.iso8601>") {
      ok = readDateTime(xml, offset, next);
    } else if (tag == "<base64>") {
      ok = readBase64(xml, offset, next);
    } else if (tag == kValueEndTag) {
      // An empty value: the text between the tags (blanks included) is a
      // string, up to the closing tag's "<".
      *offset = static_cast<int>(afterValueTag);
      ok = readString(xml, offset, xml.find('<', afterValueTag));
    } else if (isEmptyElement(tag, "<string")) {
      _value.asString = new std::string();
      _type = TypeString;
      ok = true;
    } else if (isEmptyElement(tag, "<base64")) {
      _value.asBinary = new BinaryData();
      _type = TypeBase64;
      ok = true;
    } else if (isEmptyElement(tag, "<struct")) {
      _value.asStruct = new ValueStruct();
      _type = TypeStruct;
      ok = true;
    }
  }
  --state.depth;
  const int height = state.peak - state.depth + 1;
  state.peak = std::max(outerPeak, state.peak);
  if (state.stopped()) {
    invalidate();
    *offset = start;
    return false;
  }
  // Skips whatever the type reader left: closing type tags, trailing text.
  if (ok) skipToValueEnd(state, xml, offset);
  if (state.mode == Mode::Measure) {
    state.memo->put(ReadMemo::kValue, tagPos, static_cast<std::size_t>(*offset), height, ok);
  }
  if (ok) return true;
  invalidate();
  *offset = start;
  return false;
}

bool XmlRpcValue::readChild(XmlRpcValue& child, std::string_view xml, int* offset, ReadState& state,
                            int& height) {
  // The child's levels are measured from its parent's.
  const int outerPeak = state.peak;
  state.peak = state.depth - 1;
  const bool ok = child.readValue(xml, offset, state);
  height = state.peak - (state.depth - 1);
  state.peak = std::max(outerPeak, state.peak);
  return ok;
}

bool XmlRpcValue::readBoolean(std::string_view xml, int* offset) {
  std::size_t pos = static_cast<std::size_t>(*offset);
  long long number = 0;
  if (!scanLong(xml, pos, number) || (number != 0 && number != 1)) {
    // The words some clients write instead of the digits.
    bool word = false;
    if (!scanBooleanWord(xml, pos = static_cast<std::size_t>(*offset), word)) return false;
    number = word ? 1 : 0;
  }
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

bool XmlRpcValue::readDouble(std::string_view xml, int* offset, std::size_t nextTag) {
  // strtod needs a terminated text; no number reaches past the next tag.
  const std::size_t pos = static_cast<std::size_t>(*offset);
  const std::size_t end = nextTag == std::string_view::npos ? xml.size() : nextTag;
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

bool XmlRpcValue::readString(std::string_view xml, int* offset, std::size_t nextTag) {
  std::string_view raw;
  if (!textUpToTag(xml, static_cast<std::size_t>(*offset), nextTag, raw)) return false;
  _value.asString = new std::string(XmlRpcUtil::xmlDecode(raw));
  _type = TypeString;
  // Advances by the decoded length on purpose: where entities shortened the
  // text this lands short of the next tag, and the search for "</value>"
  // that follows every value catches up.
  *offset += static_cast<int>(_value.asString->size());
  return true;
}

bool XmlRpcValue::readDateTime(std::string_view xml, int* offset, std::size_t nextTag) {
  std::string_view raw;
  if (!textUpToTag(xml, static_cast<std::size_t>(*offset), nextTag, raw)) return false;
  DateTimeFields f;
  // The pattern "%4d%2d%2dT%2d:%2d:%2d" first, field by field, as it has
  // always been read; then the ISO 8601 spellings other clients write.
  if (!scanBasicDateTime(raw, f) && !scanIsoDateTime(raw, f)) return false;
  struct tm* t = new std::tm();
  // Stored as written: the year is not counted from 1900, the month from 1.
  t->tm_year = f.year;
  t->tm_mon = f.month;
  t->tm_mday = f.day;
  t->tm_hour = f.hour;
  t->tm_min = f.minute;
  t->tm_sec = f.second;
  t->tm_isdst = -1;
  _value.asTime = t;
  _type = TypeDateTime;
  *offset += static_cast<int>(raw.size());
  return true;
}

bool XmlRpcValue::readBase64(std::string_view xml, int* offset, std::size_t nextTag) {
  std::string_view raw;
  if (!textUpToTag(xml, static_cast<std::size_t>(*offset), nextTag, raw)) return false;
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
  // "<data/>": an array without elements.
  if (nextEmptyElementIs(state, "<data", xml, offset)) return true;
  if (!nextTagIs(state, kDataTag, xml, offset)) return false;
  if (state.mode == Mode::Measure) {
    if (!measureElements(xml, offset, state)) return false;
  } else {
    ValueArray& elements = *_value.asArray;
    XmlRpcValue element;
    // The first value that cannot be read ends the array.
    while (element.readValue(xml, offset, state)) elements.push_back(std::move(element));
    if (state.stopped()) return false;
  }
  nextTagIs(state, kDataEndTag, xml, offset);
  return true;
}

bool XmlRpcValue::measureElements(std::string_view xml, int* offset, ReadState& state) {
  // The places of the elements read, with their heights: each of them ends
  // the array where this chain ends.
  std::vector<std::pair<std::size_t, int>> chain;
  std::size_t at = static_cast<std::size_t>(*offset);
  std::size_t end = at;
  int lastHeight = 0;
  for (;;) {
    if (const ReadMemo::Answer* known = state.memo->find(ReadMemo::kElements, at)) {
      if (state.depth + known->height > kMaxNestingDepth) {
        state.tooDeep = true;
        return false;
      }
      state.reach(state.depth + known->height - 1);
      end = known->end;
      lastHeight = known->height;
      break;
    }
    XmlRpcValue element;
    int next = static_cast<int>(at);
    int height = 0;
    const bool ok = readChild(element, xml, &next, state, height);
    if (state.stopped()) return false;
    if (!ok) {
      end = at;
      lastHeight = height;
      state.memo->put(ReadMemo::kElements, at, end, height, true);
      break;
    }
    chain.emplace_back(at, height);
    at = static_cast<std::size_t>(next);
  }
  int height = lastHeight;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    height = std::max(height, it->second);
    state.memo->put(ReadMemo::kElements, it->first, end, height, true);
  }
  *offset = static_cast<int>(end);
  return true;
}

bool XmlRpcValue::readStruct(std::string_view xml, int* offset, ReadState& state) {
  _value.asStruct = new ValueStruct();
  _type = TypeStruct;
  if (state.mode == Mode::Measure) return measureMembers(xml, offset, state);
  ValueStruct& members = *_value.asStruct;
  while (nextTagIs(state, kMemberTag, xml, offset)) {
    // Names are taken raw, not entity-decoded, although the writer encodes
    // them; a missing name reads as the empty name.
    std::string_view name;
    parseName(state, xml, offset, name);
    XmlRpcValue member;
    if (!member.readValue(xml, offset, state)) return false;
    // Members mostly arrive in name order, so the end is the likely place;
    // a name already present keeps its first value.
    members.try_emplace(members.end(), std::string(name), std::move(member));
    nextTagIs(state, kMemberEndTag, xml, offset);
  }
  return true;
}

bool XmlRpcValue::measureMembers(std::string_view xml, int* offset, ReadState& state) {
  std::vector<std::pair<std::size_t, int>> chain;
  std::size_t at = static_cast<std::size_t>(*offset);
  std::size_t end = at;
  int lastHeight = 0;
  bool ok = true;
  for (;;) {
    if (const ReadMemo::Answer* known = state.memo->find(ReadMemo::kMembers, at)) {
      if (state.depth + known->height > kMaxNestingDepth) {
        state.tooDeep = true;
        return false;
      }
      state.reach(state.depth + known->height - 1);
      end = known->end;
      lastHeight = known->height;
      ok = known->ok;
      break;
    }
    int next = static_cast<int>(at);
    if (!nextTagIs(state, kMemberTag, xml, &next)) {
      state.memo->put(ReadMemo::kMembers, at, at, 0, true);
      break;
    }
    std::string_view name;
    parseName(state, xml, &next, name);
    XmlRpcValue member;
    int height = 0;
    const bool memberOk = readChild(member, xml, &next, state, height);
    if (state.stopped()) return false;
    if (!memberOk) {
      ok = false;
      lastHeight = height;
      state.memo->put(ReadMemo::kMembers, at, at, height, false);
      break;
    }
    nextTagIs(state, kMemberEndTag, xml, &next);
    chain.emplace_back(at, height);
    at = static_cast<std::size_t>(next);
    end = at;
  }
  int height = lastHeight;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    height = std::max(height, it->second);
    state.memo->put(ReadMemo::kMembers, it->first, end, height, ok);
  }
  if (!ok) return false;
  *offset = static_cast<int>(end);
  return true;
}

}  // namespace XmlRpc
