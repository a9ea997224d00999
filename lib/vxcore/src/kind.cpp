// The words of the report kinds.
#include "vxcore/kind.h"

#include <array>

namespace vxcore {

namespace {

// Indexed by the kind's number; the order is that of the enumeration.
constexpr std::array<const char*, 9> kind_words = {
    "general", "system",   "network",  "protocol",  "configuration",
    "file",    "database", "security", "lifecycle",
};

}  // namespace

const char* cstr_with_kind(kind k) noexcept {
  const auto index = static_cast<std::uint32_t>(k);
  return index < kind_words.size() ? kind_words[index] : "unknown";
}

}  // namespace vxcore
