// vxnet::txt_record: the checked key=value entries of a service's TXT record.
#include <vxnet/txt_record.h>

#include <algorithm>

#include <vxbase/es.h>

namespace vxnet {

namespace {

constexpr const char* kLocation = "lib/vxnet/txt_record";

// Keys are printable US-ASCII without '=' (which ends the key).
bool is_valid_key(const std::string& key) {
  return !key.empty() && std::all_of(key.begin(), key.end(),
                                     [](char c) { return c >= 0x20 && c <= 0x7e && c != '='; });
}

}  // namespace

void txt_record::set(const std::string& key, const std::string& value) {
  if (!is_valid_key(key)) {
    vxbase::es::arg_raise(kLocation, __LINE__, "invalid TXT key \"%s\"", key.c_str());
  }
  std::string entry = key + "=" + value;
  if (entry.size() > kMaxEntrySize) {
    vxbase::es::arg_raise(kLocation, __LINE__, "TXT entry \"%s\" is %zu bytes, at most %zu fit",
                          key.c_str(), entry.size(), kMaxEntrySize);
  }
  const std::string prefix = key + "=";
  auto same_key = [&prefix](const std::string& e) {
    return e.compare(0, prefix.size(), prefix) == 0;
  };
  auto it = std::find_if(entries_.begin(), entries_.end(), same_key);
  if (it != entries_.end()) {
    *it = std::move(entry);
  } else {
    entries_.push_back(std::move(entry));
  }
}

bool txt_record::remove(const std::string& key) {
  const std::string prefix = key + "=";
  auto it = std::find_if(entries_.begin(), entries_.end(), [&prefix](const std::string& e) {
    return e.compare(0, prefix.size(), prefix) == 0;
  });
  if (it == entries_.end()) return false;
  entries_.erase(it);
  return true;
}

}  // namespace vxnet
