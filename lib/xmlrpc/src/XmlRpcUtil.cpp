// The engine's log and error functions with their default handlers, and the
// tag helpers and entity coding the XML readers and writers are built from.
#include "xmlrpc/XmlRpcUtil.h"

#include <cstdarg>
#include <cstdio>

#include "XmlRpcText.h"

namespace XmlRpc {

namespace {

// Process-wide defaults; constant-initialised, so they are installed before
// any other static initialiser could log.
DefaultErrorHandler defaultErrorHandler;
DefaultLogHandler defaultLogHandler;

// Size of the stack buffer a diagnostic is formatted into.
constexpr int kMessageBufferSize = XmlRpcUtil::kMaxMessageLength + 1;

// The raw characters and their entities (without the ampersand), in the
// order the decoder tries them.
constexpr std::string_view kRawChars = "<>&'\"";
constexpr std::string_view kEntities[] = {"lt;", "gt;", "amp;", "apos;", "quot;"};

}  // namespace

XmlRpcErrorHandler* XmlRpcErrorHandler::_errorHandler = &defaultErrorHandler;
XmlRpcLogHandler* XmlRpcLogHandler::_logHandler = &defaultLogHandler;
int XmlRpcLogHandler::_verbosity = 0;

void DefaultErrorHandler::error(const char* message) {
  std::fputs(message, stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

void DefaultLogHandler::log(int level, const char* message) {
  if (level > getVerbosity()) return;
  std::fputs(message, stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void XmlRpcUtil::log(int level, const char* format, ...) {
  // Checked before formatting: at the default verbosity most calls are
  // suppressed, and they should cost nothing.
  if (level > XmlRpcLogHandler::getVerbosity()) return;
  char buffer[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  buffer[kMessageBufferSize - 1] = '\0';
  XmlRpcLogHandler::getLogHandler()->log(level, buffer);
}

void XmlRpcUtil::error(const char* format, ...) {
  char buffer[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  buffer[kMessageBufferSize - 1] = '\0';
  XmlRpcErrorHandler::getErrorHandler()->error(buffer);
}

std::string XmlRpcUtil::parseTag(std::string_view tag, std::string_view xml, int* offset) {
  if (tag.empty() || !detail::offsetInside(xml, offset)) return {};
  std::size_t start = xml.find(tag, static_cast<std::size_t>(*offset));
  if (start == std::string_view::npos) return {};
  start += tag.size();
  // "<name>" closes with "</name>".
  std::string closing;
  closing.reserve(tag.size() + 1);
  closing += "</";
  closing += tag.substr(1);
  const std::size_t end = xml.find(closing, start);
  if (end == std::string_view::npos) return {};
  *offset = static_cast<int>(end + closing.size());
  return std::string(xml.substr(start, end - start));
}

bool XmlRpcUtil::findTag(std::string_view tag, std::string_view xml, int* offset) {
  return detail::findTag(tag, xml, offset);
}

std::string XmlRpcUtil::getNextTag(std::string_view xml, int* offset) {
  return std::string(detail::nextTag(xml, offset));
}

bool XmlRpcUtil::nextTagIs(std::string_view tag, std::string_view xml, int* offset) {
  return detail::nextTagIs(tag, xml, offset);
}

namespace {

// Which bytes are written as entities, one flag per byte value: a table
// lookup per byte. (The search for any of several characters,
// find_first_of, runs one memchr over the set for every byte of the text.)
struct RawCharTable {
  bool raw[256] = {};
  constexpr RawCharTable() {
    for (char c : kRawChars) raw[static_cast<unsigned char>(c)] = true;
  }
};
constexpr RawCharTable kRawCharTable;

std::size_t nextRaw(std::string_view raw, std::size_t from) {
  const unsigned char* const data = reinterpret_cast<const unsigned char*>(raw.data());
  for (std::size_t i = from; i < raw.size(); ++i) {
    if (kRawCharTable.raw[data[i]]) return i;
  }
  return std::string_view::npos;
}

}  // namespace

void detail::appendXmlEncoded(std::string& out, std::string_view raw) {
  std::size_t pos = nextRaw(raw, 0);
  if (pos == std::string_view::npos) {
    out += raw;
    return;
  }
  out.reserve(out.size() + raw.size() + 16);
  std::size_t copied = 0;
  while (pos != std::string_view::npos) {
    out.append(raw.data() + copied, pos - copied);
    out += '&';
    out += kEntities[kRawChars.find(raw[pos])];
    copied = pos + 1;
    pos = nextRaw(raw, copied);
  }
  out.append(raw.data() + copied, raw.size() - copied);
}

std::string XmlRpcUtil::xmlEncode(std::string_view raw) {
  std::string out;
  detail::appendXmlEncoded(out, raw);
  return out;
}

std::string XmlRpcUtil::xmlDecode(std::string_view encoded) {
  std::size_t amp = encoded.find('&');
  if (amp == std::string_view::npos) return std::string(encoded);
  std::string out;
  out.reserve(encoded.size());
  std::size_t copied = 0;
  while (amp != std::string_view::npos) {
    out.append(encoded.data() + copied, amp - copied);
    const std::string_view rest = encoded.substr(amp + 1);
    std::size_t next = amp + 1;  // an unknown entity keeps its ampersand
    char replacement = '&';
    for (std::size_t i = 0; i < kRawChars.size(); ++i) {
      if (rest.starts_with(kEntities[i])) {
        replacement = kRawChars[i];
        next += kEntities[i].size();
        break;
      }
    }
    out += replacement;
    copied = next;
    amp = encoded.find('&', copied);
  }
  out.append(encoded.data() + copied, encoded.size() - copied);
  return out;
}

}  // namespace XmlRpc
