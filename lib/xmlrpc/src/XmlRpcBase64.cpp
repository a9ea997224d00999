// Base64 coding of base64 values: written in 72-character lines, read
// leniently (line breaks, blanks and stray characters are skipped).
#include "XmlRpcBase64.h"

#include <array>
#include <cstdint>

namespace XmlRpc::detail {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Marks in the decoding table besides the 6-bit values.
constexpr std::int8_t kSkip = -1;
constexpr std::int8_t kPad = -2;

constexpr std::array<std::int8_t, 256> makeDecodeTable() {
  std::array<std::int8_t, 256> table{};
  for (auto& entry : table) entry = kSkip;
  for (int i = 0; i < 64; ++i)
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
  table[static_cast<unsigned char>('=')] = kPad;
  return table;
}

constexpr std::array<std::int8_t, 256> kDecodeTable = makeDecodeTable();

}  // namespace

void appendBase64(std::string& out, const char* data, std::size_t n) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  const std::size_t groups = (n + 2) / 3;
  out.reserve(out.size() + groups * 4 + groups / kBase64GroupsPerLine);
  std::size_t i = 0;
  std::size_t written = 0;  // complete groups so far
  for (; i + 3 <= n; i += 3) {
    const std::uint32_t triple =
        (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    const char group[4] = {kAlphabet[(triple >> 18) & 0x3F], kAlphabet[(triple >> 12) & 0x3F],
                           kAlphabet[(triple >> 6) & 0x3F], kAlphabet[triple & 0x3F]};
    out.append(group, 4);
    if (++written % kBase64GroupsPerLine == 0) out += '\n';
  }
  // The padded last group is never followed by a line feed.
  const std::size_t rest = n - i;
  if (rest == 1) {
    const std::uint32_t first = bytes[i];
    const char group[4] = {kAlphabet[first >> 2], kAlphabet[(first & 0x03) << 4], '=', '='};
    out.append(group, 4);
  } else if (rest == 2) {
    const std::uint32_t pair = (std::uint32_t{bytes[i]} << 8) | bytes[i + 1];
    const char group[4] = {kAlphabet[pair >> 10], kAlphabet[(pair >> 4) & 0x3F],
                           kAlphabet[(pair & 0x0F) << 2], '='};
    out.append(group, 4);
  }
}

void decodeBase64(std::string_view text, std::vector<char>& out) {
  // Every four characters give at most three bytes.
  const std::size_t start = out.size();
  out.resize(start + text.size() / 4 * 3 + 3);
  char* write = out.data() + start;
  const auto* read = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  std::size_t i = 0;
  int position = 0;         // place of the next character in its group
  std::uint32_t carry = 0;  // bits of the group not yet emitted
  while (i < n) {
    // Fast path: a whole group of four alphabet characters.
    if (position == 0 && i + 4 <= n) {
      const std::int8_t a = kDecodeTable[read[i]], b = kDecodeTable[read[i + 1]],
                        c = kDecodeTable[read[i + 2]], d = kDecodeTable[read[i + 3]];
      if ((a | b | c | d) >= 0) {
        const std::uint32_t group =
            (static_cast<std::uint32_t>(a) << 18) | (static_cast<std::uint32_t>(b) << 12) |
            (static_cast<std::uint32_t>(c) << 6) | static_cast<std::uint32_t>(d);
        *write++ = static_cast<char>(group >> 16);
        *write++ = static_cast<char>(group >> 8);
        *write++ = static_cast<char>(group);
        i += 4;
        continue;
      }
    }
    // One character at a time around line breaks, stray characters and
    // padding.
    const std::int8_t sextet = kDecodeTable[read[i++]];
    if (sextet == kSkip) continue;
    if (sextet == kPad) break;
    const auto bits = static_cast<std::uint32_t>(sextet);
    switch (position) {
      case 0:
        carry = bits;
        break;
      case 1:
        *write++ = static_cast<char>((carry << 2) | (bits >> 4));
        carry = bits & 0x0F;
        break;
      case 2:
        *write++ = static_cast<char>((carry << 4) | (bits >> 2));
        carry = bits & 0x03;
        break;
      default:
        *write++ = static_cast<char>((carry << 6) | bits);
        break;
    }
    position = (position + 1) & 3;
  }
  out.resize(static_cast<std::size_t>(write - out.data()));
}

}  // namespace XmlRpc::detail
