// The TXT record of a DNS-SD service: key=value strings that browsers read
// along with the host and port.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vxnet {

// An ordered list of "key=value" entries, each key at most once.
class txt_record {
 public:
  // One TXT string carries a one-byte length, so "key=value" cannot be longer.
  static constexpr std::size_t kMaxEntrySize = 255;

  // Adds key=value, or replaces the value of a key already there. Throws
  // vxbase::es::arg_error when key is empty, holds '=' or a character outside
  // printable ASCII, or when the entry would exceed kMaxEntrySize.
  void set(const std::string& key, const std::string& value);

  // Removes key; false when it was not there.
  bool remove(const std::string& key);

  // "key=value" strings in the order their keys were first set.
  const std::vector<std::string>& entries() const noexcept { return entries_; }
  bool empty() const noexcept { return entries_.empty(); }

 private:
  std::vector<std::string> entries_;
};

}  // namespace vxnet
