// The server's loading of its constraint and command databases.
#include <vxbase/env.h>

#include "command_database.h"
#include "xmlrpcserver.h"

namespace xmlrpcs {

void xmlrpcserver::load_command_database(bool use_constraint_files) {
  const data_file_paths paths = data_files_of(vxbase::env::get_executable_path());
  // A new database replaces the previous one, releasing it.
  command_db_ = load_databases(paths, use_constraint_files, command_constraints_);
}

}  // namespace xmlrpcs
