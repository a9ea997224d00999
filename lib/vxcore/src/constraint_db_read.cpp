// Reading constraint documents (the readable constraint files) into a
// constraint database.
#include <vxcore/constraint_db.h>

#include <map>
#include <utility>

#include <vxbase/es.h>
#include <vxcore/xml_reader.h>

namespace vxcore {

namespace {

constexpr const char* location = "lib/vxcore/constraint_db_read";

// Resolves names while one document is read: first the constraints the
// document defined so far, then the base database.
class document_scope {
 public:
  explicit document_scope(const constraint_db* base) : base_(base) {}

  void define(const std::string& name, constraint_ptr rule) { local_[name] = std::move(rule); }
  bool defines(const std::string& name) const { return local_.count(name) != 0; }

  // The rule of name, or null when neither the document nor the base has it.
  const constraint_ptr* find(const std::string& name) const {
    const auto it = local_.find(name);
    if (it != local_.end()) return &it->second;
    if (base_) {
      if (const constraint_db::entry* e = base_->find(name)) return &e->rule;
    }
    return nullptr;
  }

 private:
  const constraint_db* base_;
  std::map<std::string, constraint_ptr> local_;
};

[[noreturn]] void fail(const std::string& owner, const xml::node& at, const std::string& what) {
  vxbase::es::call_raise(location, __LINE__, "constraint '%s' (line %d): %s", owner.c_str(),
                         at.line, what.c_str());
}

const std::string& required_attribute(const std::string& owner, const xml::node& n,
                                      const char* attr) {
  const std::string* v = n.attribute(attr);
  if (!v || v->empty()) fail(owner, n, std::string("<") + n.name + "> needs a '" + attr + "'");
  return *v;
}

bool flag_attribute(const std::string& owner, const xml::node& n, const char* attr) {
  const std::string* v = n.attribute(attr);
  if (!v || *v == "false" || *v == "0") return false;
  if (*v == "true" || *v == "1") return true;
  fail(owner, n, std::string("'") + attr + "' must be true or false, not '" + *v + "'");
}

constraint_ptr read_rule(const std::string& owner, const xml::node& n, const document_scope& scope);

constraint_ptr resolve(const std::string& owner, const xml::node& n, const std::string& name,
                       const document_scope& scope) {
  const constraint_ptr* rule = scope.find(name);
  if (!rule) fail(owner, n, "refers to unknown constraint '" + name + "'");
  return *rule;
}

constraint_ptr read_enum(const std::string& owner, const xml::node& n) {
  std::vector<std::string> allowed;
  for (const xml::node& c : n.children) {
    if (c.name == "value") allowed.push_back(c.text);
  }
  if (allowed.empty()) fail(owner, n, "an enumeration needs at least one <value>");
  return vxbase::make_refcount<constraint_enum>(std::move(allowed));
}

constraint_ptr read_list(const std::string& owner, const xml::node& n,
                         const document_scope& scope) {
  if (const std::string* of = n.attribute("of")) {
    return vxbase::make_refcount<constraint_list>(resolve(owner, n, *of, scope));
  }
  if (const xml::node* item = n.child("item")) {
    return vxbase::make_refcount<constraint_list>(read_rule(owner, *item, scope));
  }
  // A list of any values.
  return vxbase::make_refcount<constraint_list>(nullptr);
}

constraint_ptr read_struct(const std::string& owner, const xml::node& n,
                           const document_scope& scope) {
  const int db_flags = flag_attribute(owner, n, "open") ? constraint_db::allow_unknown_keys : 0;
  auto db = vxbase::make_refcount<constraint_db>(db_flags);
  for (const xml::node& m : n.children) {
    if (m.name != "member") continue;
    const std::string& member = required_attribute(owner, m, "name");
    if (db->find(member)) fail(owner, m, "member '" + member + "' is defined twice");
    int flags = 0;
    if (flag_attribute(owner, m, "required")) flags |= constraint_db::required;
    if (flag_attribute(owner, m, "nullable")) flags |= constraint_db::nullable;
    db->add_constraint(member, read_rule(owner + "{" + member + "}", m, scope), flags);
  }
  return db;
}

constraint_ptr read_type(const std::string& owner, const xml::node& n, const std::string& type,
                         const document_scope& scope) {
  const std::string* range = n.attribute("range");
  if (range && type != "int") fail(owner, n, "only an int takes a range");
  if (type == "string") return vxbase::make_refcount<constraint_string>();
  if (type == "bool") return vxbase::make_refcount<constraint_bool>();
  if (type == "int") {
    if (!range) return vxbase::make_refcount<constraint_int>();
    try {
      return vxbase::make_refcount<constraint_range_int>(*range);
    } catch (const vxbase::es::base& e) {
      fail(owner, n, e.what());
    }
  }
  if (type == "real") return vxbase::make_refcount<constraint_real>();
  if (type == "uuid") return vxbase::make_refcount<constraint_kind>(kind_uuid);
  if (type == "binary") return vxbase::make_refcount<constraint_kind>(kind_binary);
  if (type == "time") return vxbase::make_refcount<constraint_kind>(kind_time);
  if (type == "path") return vxbase::make_refcount<constraint_kind>(kind_path);
  if (type == "version") return vxbase::make_refcount<constraint_kind>(kind_version);
  if (type == "any") return vxbase::make_refcount<constraint_any>();
  if (type == "enum") return read_enum(owner, n);
  if (type == "list") return read_list(owner, n, scope);
  if (type == "struct") return read_struct(owner, n, scope);
  fail(owner, n, "unknown type '" + type + "'");
}

// A rule is given by exactly one of ref (another constraint's name) and
// type (with the attributes and children that type takes).
constraint_ptr read_rule(const std::string& owner, const xml::node& n,
                         const document_scope& scope) {
  const std::string* ref = n.attribute("ref");
  const std::string* type = n.attribute("type");
  if ((ref != nullptr) == (type != nullptr))
    fail(owner, n, "needs exactly one of 'ref' and 'type'");
  if (ref) return resolve(owner, n, *ref, scope);
  return read_type(owner, n, *type, scope);
}

}  // namespace

void constraint_db::add_constraints(const xml::reader& reader, const constraint_db* base,
                                    const std::string& name, bool flag) {
  const xml::node& root = reader.root();
  if (root.name != name) {
    vxbase::es::call_raise(location, __LINE__, "expected a <%s> document, found <%s>", name.c_str(),
                           root.name.c_str());
  }
  document_scope scope(base);
  // Collected first and entered at the end, so that a failure leaves this
  // database untouched.
  std::vector<std::pair<std::string, constraint_ptr>> found;
  for (const xml::node& c : root.children) {
    if (c.name != "constraint") continue;
    const std::string& cname = required_attribute("?", c, "name");
    if (scope.defines(cname)) fail(cname, c, "is defined twice in this document");
    if (flag && find(cname)) fail(cname, c, "is already defined by an earlier document");
    constraint_ptr rule = read_rule(cname, c, scope);
    scope.define(cname, rule);
    found.emplace_back(cname, std::move(rule));
  }
  for (auto& [cname, rule] : found) add_constraint(cname, std::move(rule), 0);
}

}  // namespace vxcore
