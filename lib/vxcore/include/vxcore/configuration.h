// configuration: a properties tree checked by a constraint database, with
// defaults, key descriptions, and its XML file form (read, written, and
// described as XSD and RELAX NG schemas).
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <vxbase/object_refcount.h>
#include <vxbase/ptr_refcount.h>
#include <vxcore/constraint_db.h>
#include <vxcore/properties.h>
#include <vxcore/property_info_db.h>

namespace vxcore {

class configuration : public vxbase::object_refcount {
 public:
  // Results of read_config.
  enum read_result : int {
    read_ok = 0,
    read_not_well_formed = 1,  // not well-formed XML (or no root element)
    read_wrong_root = 2,       // the root element is not the configuration's
    read_bad_value = 3,        // an element is not a key of the schema, a key
                               // is given twice, or a value cannot be read as
                               // its key's type
    read_bad_format = 4,       // the format number asked for is not known
  };

  // File forms for write_config and read_config.
  static constexpr int format_any = 0;       // reading: either form
  static constexpr int format_compact = 1;   // one line, no comments
  static constexpr int format_readable = 2;  // indented, titles and
                                             // descriptions as comments

  // constraints validate the tree and give its key order; root names the
  // file's root element and pairs it with the schema version, written as the
  // root's "version" attribute (a file may leave it out).
  configuration(constraint_db_ptr constraints, std::pair<std::string, int> root);

  void set_default_config_info(property_info_db_ptr info) { info_ = std::move(info); }
  const property_info_db* get_default_config_info() const noexcept { return info_.get(); }

  // Both copy the tree.
  void set_default_config(const properties& tree);
  void set_config(const properties& tree);
  const properties& get_default_config() const noexcept { return *default_; }
  const properties& get_config() const noexcept { return *config_; }
  const constraint_db& get_config_constraints() const noexcept { return *constraints_; }
  const std::string& get_root_name() const noexcept { return root_.first; }
  int get_root_version() const noexcept { return root_.second; }

  // Whether the current tree satisfies the constraints (flags as
  // constraint_db::is_valid).
  bool is_valid(int flags = 0) const { return constraints_->is_valid(*config_, flags); }

  // The value at a key path such as "services{xmlrpc}{listen-port}"; null
  // when a part of the path is missing.
  property_ptr get(const std::string& path) const;
  // Typed reads; raise vxbase::es::arg_error naming the path when the key is
  // missing or of another kind.
  bool get_bool(const std::string& path) const;
  std::int64_t get_int(const std::string& path) const;
  std::string get_string(const std::string& path) const;

  // Writes the current tree in format (format_compact or format_readable):
  // keys in the constraint database's order, keys it does not name after
  // them. Null values are left out. Raises vxbase::es::arg_error for an
  // unknown format or a key that is not an XML name.
  void write_config(std::string& buffer, int format) const;

  // Reads a file form (format_any, format_compact or format_readable). On
  // read_ok the tree read becomes the current configuration (only the keys
  // the file has; merge it over the defaults to fill the rest); on any
  // other result nothing changes and last_read_error() says why.
  int read_config(const std::string& buffer, int format = format_any);
  const std::string& last_read_error() const noexcept { return read_error_; }

  // Schemas of the file form: every key optional, values typed and bounded
  // as the constraints say, any order.
  void write_config_xsd(std::string& buffer) const;
  void write_config_rng(std::string& buffer) const;

 private:
  constraint_db_ptr constraints_;
  std::pair<std::string, int> root_;
  property_info_db_ptr info_;
  properties_ptr default_;
  properties_ptr config_;
  std::string read_error_;
};

using configuration_ptr = vxbase::ptr_refcount<configuration>;

}  // namespace vxcore
