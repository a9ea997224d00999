// The ways out of an unusable configuration file on Linux: the systemd
// service, which owns the default folder, or a file in one's home.
#include "config_file.h"

namespace xmlrpcs {

std::string config_file_ways_out() {
  return "  Run it as the service (systemctl start xmlrpcserver), which may write there,\n"
         "  or pass --usecfg FILE with a file you can write, e.g. --usecfg ~/xmlrpcserver.xml\n";
}

}  // namespace xmlrpcs
