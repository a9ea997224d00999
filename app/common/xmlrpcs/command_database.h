// Loading the constraint database and the command database from the data
// files that sit beside the executable's directory.
#pragma once

#include <array>
#include <string>

#include <vxcore/constraint_db.h>
#include <vxnet/vxp/command_db.h>

namespace xmlrpcs {

// Where the data files are, relative to the executable's directory P:
// P/../rng/constraints.rng, P/../xml/<name>-constraints.xml, P/../etc/cdb,
// P/../etc/vxpcp.
struct data_file_paths {
  std::string constraint_schema;
  std::array<std::string, 6> constraint_files;  // in reading order
  std::string compiled_constraints;
  std::string command_file;
};

data_file_paths data_files_of(const std::string& executable_dir);

// Fills constraints and returns the command database. With
// use_constraint_files true the readable constraint files are read (each
// validated against the schema; core alone, every later file with the
// database as base) and the compiled database is never opened; with false
// only the compiled database is read, and no file under xml/ or rng/ is
// opened. The command file is decrypted and read last. Raises
// vxbase::es::call_error: "Error in file <command file path>" when the
// command file cannot be decrypted; the underlying error for any other
// missing, unreadable or invalid file.
vxnet::vxp::command_db_ptr load_databases(const data_file_paths& paths, bool use_constraint_files,
                                          vxcore::constraint_db& constraints);

}  // namespace xmlrpcs
