// The executable's directory, from GetModuleFileNameA.
#include <vxbase/env.h>

#include <windows.h>

#include <vxbase/es.h>
#include <vxbase/path.h>

namespace vxbase::env {

namespace {
// Longer than MAX_PATH: a program under a long folder name still finds
// its data files.
constexpr DWORD max_path = 32768;
}  // namespace

std::string get_executable_path() {
  std::string buf(max_path, '\0');
  const DWORD n = ::GetModuleFileNameA(nullptr, buf.data(), max_path);
  if (n == 0 || n >= max_path) {
    es::call_raise(
        "lib/vxbase/env", __LINE__, "cannot resolve the executable path: error %lu",
        n == 0 ? ::GetLastError() : static_cast<unsigned long>(ERROR_INSUFFICIENT_BUFFER));
  }
  buf.resize(n);
  return path_directory(buf);
}

}  // namespace vxbase::env
