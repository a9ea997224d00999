// The ways out of an unusable configuration file on Windows: a command
// prompt run as administrator, which may write under ProgramData, or a file
// in one's profile folder.
#include "config_file.h"

namespace xmlrpcs {

std::string config_file_ways_out() {
  return "  Run it from a command prompt started as administrator, which may write there,\n"
         "  or pass --usecfg FILE with a file you can write, e.g. "
         "--usecfg %USERPROFILE%\\xmlrpcserver.xml\n";
}

}  // namespace xmlrpcs
