// The command database: reading command documents and checking packets.
#include <vxnet/vxp/command_db.h>

#include <vxbase/es.h>
#include <vxbase/strings.h>
#include <vxcore/xml_reader.h>

namespace vxnet::vxp {

namespace {

constexpr const char* location = "lib/vxnet/vxp/command_db";

// The root element of a command document.
constexpr const char* commands_root = "commands";

[[noreturn]] void fail(const vxcore::xml::node& at, const char* format, const std::string& a,
                       const std::string& b = {}) {
  const std::string what = vxbase::string_with_format(format, a.c_str(), b.c_str());
  vxbase::es::call_raise(location, __LINE__, "command file line %d: %s", at.line, what.c_str());
}

bool flag_attribute(const vxcore::xml::node& n, const char* attr) {
  const std::string* v = n.attribute(attr);
  if (!v || *v == "false" || *v == "0") return false;
  if (*v == "true" || *v == "1") return true;
  fail(n, "'%s' must be true or false, not '%s'", attr, *v);
}

const std::string& name_of(const vxcore::xml::node& n) {
  const std::string* v = n.attribute("name");
  if (!v || v->empty()) fail(n, "<%s> needs a name", n.name);
  return *v;
}

vxcore::constraint_db_ptr read_command(const vxcore::xml::node& c,
                                       const vxcore::constraint_db& constraints) {
  const std::string& command = name_of(c);
  auto props = vxbase::make_refcount<vxcore::constraint_db>(0);
  for (const vxcore::xml::node& p : c.children) {
    if (p.name != "property") fail(p, "command '%s': unexpected <%s>", command, p.name);
    const std::string& name = name_of(p);
    if (props->find(name)) fail(p, "command '%s': property '%s' is listed twice", command, name);
    const std::string* ref = p.attribute("ref");
    if (!ref) fail(p, "command '%s': property '%s' needs a ref", command, name);
    const vxcore::constraint_db::entry* e = constraints.find(*ref);
    if (!e) {
      fail(p, "command '%s': unknown constraint '%s'", command, *ref + "' for property '" + name);
    }
    int flags = 0;
    if (flag_attribute(p, "required")) flags |= vxcore::constraint_db::required;
    if (flag_attribute(p, "nullable")) flags |= vxcore::constraint_db::nullable;
    props->add_constraint(name, e->rule, flags);
  }
  return props;
}

}  // namespace

void command_db::read_commands(const vxcore::xml::reader& reader,
                               const vxcore::constraint_db& constraints) {
  const vxcore::xml::node& root = reader.root();
  if (root.name != commands_root) fail(root, "expected <%s>, found <%s>", commands_root, root.name);
  // Collected first so that a failure leaves the database as it was.
  std::map<std::string, vxcore::constraint_db_ptr> found;
  for (const vxcore::xml::node& c : root.children) {
    if (c.name != "command") fail(c, "unexpected <%s>", c.name);
    const std::string& command = name_of(c);
    if (found.count(command) || commands_.count(command))
      fail(c, "command '%s' is defined twice", command);
    found.emplace(command, read_command(c, constraints));
  }
  commands_.merge(found);
}

bool command_db::verify(const std::string& command, const vxcore::properties& payload,
                        std::string& reason) const {
  const auto it = commands_.find(command);
  if (it == commands_.end()) {
    reason = "unknown command '" + command + "'";
    return false;
  }
  return !it->second->get_invalid_reason(payload, reason);
}

bool command_db::verify_send(const packet& p, std::string& reason) const {
  return verify(p.get_command(), p.get_properties(), reason);
}

vxcore::constraint_db_ptr command_db::find(const std::string& command) const {
  const auto it = commands_.find(command);
  return it == commands_.end() ? nullptr : it->second;
}

std::vector<std::string> command_db::command_names() const {
  std::vector<std::string> names;
  names.reserve(commands_.size());
  for (const auto& [name, props] : commands_) names.push_back(name);
  return names;
}

}  // namespace vxnet::vxp
