// The order in which the data files are read and how their failures show.
#include "command_database.h"

#include <vxbase/env.h>
#include <vxbase/es.h>
#include <vxbase/fileutil.h>
#include <vxbase/path.h>
#include <vxcore/aes.h>
#include <vxcore/constraint_files.h>
#include <vxcore/xml_document.h>

namespace xmlrpcs {

namespace {

// Errors of the command file are the server's own.
constexpr const char* server_location = "app/common/xmlrpcs/xmlrpcserver";
constexpr unsigned command_file_error_line = 360;

std::string beside(const std::string& dir, const char* sub, const char* name) {
  return vxbase::path_appended(vxbase::path_appended(vxbase::path_appended(dir, ".."), sub), name);
}

}  // namespace

data_file_paths data_files_of(const std::string& executable_dir) {
  data_file_paths p;
  p.constraint_schema = beside(executable_dir, "rng", "constraints.rng");
  for (std::size_t i = 0; i < p.constraint_files.size(); ++i)
    p.constraint_files[i] = beside(executable_dir, "xml", vxcore::constraint_file_names[i]);
  p.compiled_constraints = beside(executable_dir, "etc", "cdb");
  p.command_file = beside(executable_dir, "etc", "vxpcp");
  return p;
}

vxnet::vxp::command_db_ptr load_databases(const data_file_paths& paths, bool use_constraint_files,
                                          vxcore::constraint_db& constraints) {
  if (use_constraint_files) {
    bool first = true;
    for (const std::string& file : paths.constraint_files) {
      vxcore::add_constraint_file(constraints, file, paths.constraint_schema,
                                  first ? nullptr : &constraints);
      first = false;
    }
  } else {
    const std::string sealed = vxbase::fileutil::get_file_content(paths.compiled_constraints);
    std::string compiled;
    vxcore::decrypt_AES("", sealed, compiled);
    constraints = vxcore::constraint_db(compiled);
  }

  const std::string sealed = vxbase::fileutil::get_file_content(paths.command_file);
  std::string text;
  try {
    vxcore::decrypt_AES("", sealed, text);
  } catch (const vxbase::es::base&) {
    // The decryption's own words (tag mismatch, ...) mean nothing to the
    // person who has to replace the file; its path does.
    vxbase::es::call_raise(server_location, command_file_error_line, "Error in file %s",
                           paths.command_file.c_str());
  }
  vxcore::xml::reader reader;
  vxcore::xml::read_document(reader, text, paths.command_file);
  vxnet::vxp::command_db_ptr db = vxbase::make_refcount<vxnet::vxp::command_db>();
  db->read_commands(reader, constraints);
  return db;
}

}  // namespace xmlrpcs
