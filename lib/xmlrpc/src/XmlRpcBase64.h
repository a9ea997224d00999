// Internal base64 coding of base64 values: RFC 4648 alphabet, "=" padding,
// 72-character lines ended by a bare line feed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace XmlRpc::detail {

// Characters per written line: 18 groups of four.
inline constexpr std::size_t kBase64GroupsPerLine = 18;

// Appends the encoding of n bytes at data to out.
void appendBase64(std::string& out, const char* data, std::size_t n);

// Appends the bytes decoded from text to out. Characters outside the
// alphabet are skipped; "=" or the end of the text ends decoding, keeping
// every complete byte decoded so far.
void decodeBase64(std::string_view text, std::vector<char>& out);

}  // namespace XmlRpc::detail
