// The constraint database: ordered named entries, nested databases, and the
// validation of a properties tree.
#include <vxcore/constraint_db.h>

namespace vxcore {

void constraint_db::add_constraint(const std::string& name, constraint_ptr rule, int flags) {
  const auto it = index_.find(name);
  if (it != index_.end()) {
    entries_[it->second].rule = std::move(rule);
    entries_[it->second].flags = flags;
    return;
  }
  index_.emplace(name, entries_.size());
  entries_.push_back({name, std::move(rule), flags});
}

bool constraint_db::remove_constraint(const std::string& name) {
  const auto it = index_.find(name);
  if (it == index_.end()) return false;
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(it->second));
  index_.clear();
  for (std::size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].name, i);
  return true;
}

const constraint_db::entry* constraint_db::find(const std::string& name) const {
  const auto it = index_.find(name);
  return it == index_.end() ? nullptr : &entries_[it->second];
}

constraint_db_ptr constraint_db::get_db(const std::string& name) const {
  const entry* e = find(name);
  if (!e || !e->rule) return nullptr;
  return vxbase::dynamic_refcount_cast<const constraint_db>(e->rule);
}

bool constraint_db::is_valid(const properties& tree, int flags) const {
  std::string reason;
  return check_tree(tree, "", flags, reason);
}

bool constraint_db::get_invalid_reason(const properties& tree, std::string& reason,
                                       int flags) const {
  std::string found;
  if (check_tree(tree, "", flags, found)) return false;
  reason = found;
  return true;
}

bool constraint_db::check(const property& value, const std::string& path,
                          std::string& reason) const {
  if (value.get_kind() != kind_properties) {
    reason = path + ": expected " + describe() + ", found " + property::c_str(value.get_kind()) +
             " " + value.to_string();
    return false;
  }
  return check_tree(static_cast<const properties&>(value), path, 0, reason);
}

bool constraint_db::check_tree(const properties& tree, const std::string& path, int flags,
                               std::string& reason) const {
  for (const entry& e : entries_) {
    const std::string key_path = child_path(path, e.name);
    if (!tree.is_present(e.name)) {
      if ((e.flags & required) && !(flags & partial)) {
        reason = key_path + ": missing, expected " +
                 (e.rule ? e.rule->describe() : std::string("a value"));
        return false;
      }
      continue;
    }
    const property_ptr value = tree.get(e.name);
    if (!value) {
      if (e.flags & nullable) continue;
      reason = key_path + ": no value, expected " +
               (e.rule ? e.rule->describe() : std::string("a value"));
      return false;
    }
    if (!e.rule) continue;
    // Nested databases pass the validation flags down.
    if (const auto* db = dynamic_cast<const constraint_db*>(e.rule.get())) {
      if (value->get_kind() != kind_properties) {
        if (!db->check(*value, key_path, reason)) return false;
        continue;
      }
      if (!db->check_tree(static_cast<const properties&>(*value), key_path, flags, reason)) {
        return false;
      }
    } else if (!e.rule->check(*value, key_path, reason)) {
      return false;
    }
  }
  if (!(flags_ & allow_unknown_keys)) {
    for (const auto& [key, value] : tree) {
      if (!find(key)) {
        reason = child_path(path, key) + ": unknown key";
        return false;
      }
    }
  }
  return true;
}

}  // namespace vxcore
