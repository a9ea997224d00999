// The readable constraint files: their names, their order, and reading all
// of them into one constraint database.
#pragma once

#include <array>
#include <string>

#include <vxcore/constraint_db.h>

namespace vxcore {

// In reading order: each file may refer to the constraints of the files
// before it, core to none.
inline constexpr std::array<const char*, 6> constraint_file_names = {
    "core-constraints.xml", "io-constraints.xml",    "media-constraints.xml",
    "node-constraints.xml", "state-constraints.xml", "proxy-constraints.xml"};

// The root element name of a constraint document.
inline constexpr const char* constraint_document_name = "constraints";

// Reads the six files of xml_dir in order, each validated against the
// RELAX NG schema file rng_path, and adds their constraints to db: core with
// no base, every later file with db itself as base. Raises
// vxbase::es::call_error whose message starts with the path of the file at
// fault.
void add_constraint_files(constraint_db& db, const std::string& xml_dir,
                          const std::string& rng_path);

// Adds the constraints of one file, validated against rng_path, with base
// (may be null). Raises as add_constraint_files.
void add_constraint_file(constraint_db& db, const std::string& path, const std::string& rng_path,
                         const constraint_db* base);

}  // namespace vxcore
