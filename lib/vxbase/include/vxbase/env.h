// The process's environment as the libraries need it: where the executable is.
#pragma once

#include <string>

namespace vxbase::env {

// The directory holding the running executable (from /proc/self/exe on
// Linux, GetModuleFileNameA on Windows),
// without a trailing separator. Raises es::call_error when it cannot be read.
std::string get_executable_path();

}  // namespace vxbase::env
