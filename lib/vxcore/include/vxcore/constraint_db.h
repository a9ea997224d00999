// constraint_db: named constraints and nested databases that validate a
// properties tree key by key.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <vxcore/constraint.h>
#include <vxcore/properties.h>

namespace vxcore {

namespace xml {
class reader;
}

class constraint_db;
using constraint_db_ptr = vxbase::ptr_refcount<const constraint_db>;

// A database is itself a constraint (on a properties map), so databases
// nest: a section of a configuration or a member of a command is one entry
// whose constraint is another database.
class constraint_db : public constraint {
 public:
  // Database flags (constructor).
  // Keys the database does not name are allowed (and not checked); without
  // this flag such a key makes the tree invalid.
  static constexpr int allow_unknown_keys = 1;

  // Entry flags (add_constraint).
  // The key must be present.
  static constexpr int required = 1;
  // The key may hold a null pointer.
  static constexpr int nullable = 2;

  // Validation flags (is_valid, get_invalid_reason).
  // Required keys may be missing: for checking part of a tree.
  static constexpr int partial = 1;

  struct entry {
    std::string name;
    constraint_ptr rule;
    int flags;
  };

  explicit constraint_db(int flags = 0) : flags_(flags) {}

  // Builds the database that the compiled text describes (the text that
  // to_compiled() writes; see docs/command-database.md). Raises
  // vxbase::es::call_error naming what is wrong when the text is not such a
  // database. Defined in constraint_db_compiled.cpp.
  explicit constraint_db(const std::string& compiled);

  // The compiled text of this database: every entry with its rule written
  // out in full, references resolved. Raises vxbase::es::call_error for a
  // constraint class that has no compiled form.
  std::string to_compiled() const;

  // Adds the constraints that the parsed constraint document of reader
  // defines. The root element must be called name. A reference in the
  // document resolves to a constraint defined before it in the same
  // document, else to an entry of base (none: same-document references
  // only). With flag true a name that this database already holds is an
  // error; with false the new rule replaces it. Raises
  // vxbase::es::call_error naming the constraint and the line on any
  // problem; the database is then left as it was. Defined in
  // constraint_db_read.cpp.
  void add_constraints(const xml::reader& reader, const constraint_db* base,
                       const std::string& name, bool flag);

  int get_flags() const noexcept { return flags_; }

  // Enters rule under name. Entries keep the order they were first added in
  // (the order in which files list them); adding a name again replaces its
  // rule and flags in place.
  void add_constraint(const std::string& name, constraint_ptr rule, int flags);
  // Removes the entry; returns whether it was there.
  bool remove_constraint(const std::string& name);

  const std::vector<entry>& entries() const noexcept { return entries_; }
  // The entry of name, or null.
  const entry* find(const std::string& name) const;
  // The nested database entered under name, or null.
  constraint_db_ptr get_db(const std::string& name) const;
  bool empty() const noexcept { return entries_.empty(); }

  bool is_valid(const properties& tree, int flags = 0) const;

  // Checks tree. Returns true and sets reason to "<key path>: <what is
  // wrong>" at the first problem found (entries in order, then unknown
  // keys); returns false and leaves reason alone when the tree is valid.
  bool get_invalid_reason(const properties& tree, std::string& reason, int flags = 0) const;

  int value_kind() const noexcept override { return kind_properties; }
  std::string describe() const override { return "a section of keys"; }
  bool check(const property& value, const std::string& path, std::string& reason) const override;

 private:
  bool check_tree(const properties& tree, const std::string& path, int flags,
                  std::string& reason) const;

  std::vector<entry> entries_;
  std::map<std::string, std::size_t> index_;
  int flags_;
};

}  // namespace vxcore
