// Windows side of the platform layer: the system's own calls.
#include <vxbase/platform.h>

#include <winsock2.h>
// shlobj.h needs the types of windows.h (through winsock2.h) first.
#include <shlobj.h>
#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace vxbase::platform {

unsigned set_error_mode(unsigned mode) noexcept { return ::SetErrorMode(mode); }

// The import slot of abort(): it holds the address of abort() in the C
// runtime the program links.
extern "C" void (*__imp_abort)();

// The setting belongs to the C runtime whose abort() the program calls:
// that is msvcrt.dll (mingw-w64's default), which has no
// _set_abort_behavior, so its abort() keeps writing its message. Other
// runtimes can be loaded in the process as well (under Wine, ucrtbase.dll
// comes with ws2_32.dll); their flags are left alone, since the program's
// abort() never reads them.
bool set_abort_behavior(unsigned flags, unsigned mask, unsigned* previous) noexcept {
  HMODULE runtime = nullptr;
  if (!::GetModuleHandleExA(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCSTR>(reinterpret_cast<void*>(__imp_abort)), &runtime))
    return false;
  using set_abort_fn = unsigned(__cdecl*)(unsigned, unsigned);
  auto fn = reinterpret_cast<set_abort_fn>(
      reinterpret_cast<void*>(::GetProcAddress(runtime, "_set_abort_behavior")));
  if (!fn) return false;
  const unsigned before = fn(flags, mask);
  if (previous) *previous = before;
  return true;
}

std::uint32_t set_thread_execution_state(std::uint32_t state) noexcept {
  return ::SetThreadExecutionState(static_cast<EXECUTION_STATE>(state));
}

int socket_startup(std::uint16_t version_word, std::uint16_t& obtained) noexcept {
  WSADATA data{};
  const int rc = ::WSAStartup(version_word, &data);
  obtained = rc == 0 ? data.wVersion : 0;
  return rc;
}

int socket_cleanup() noexcept { return ::WSACleanup(); }

// Windows sockets are handles without a per-process count limit: nothing
// to raise, and no limit to report.
int raise_descriptor_limit() noexcept { return INT_MAX; }

int common_app_data_folder(int key, std::string& folder) {
  char path[MAX_PATH] = {};
  if (FAILED(::SHGetFolderPathA(nullptr, key, nullptr, SHGFP_TYPE_CURRENT, path))) return -1;
  folder = path;
  return 0;
}

int replace_file(const std::string& from, const std::string& to) noexcept {
  if (::MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    return 0;
  switch (::GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return ENOENT;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
      return EACCES;
    default:
      return EIO;
  }
}

void binary_stream(std::FILE* stream) noexcept { ::_setmode(::_fileno(stream), _O_BINARY); }

namespace {

void (*stop_callback)() = nullptr;

// Windows ends the process as soon as the handler of a console close
// returns; waiting here gives the main loop this long to take the server
// down (Windows allows about 5 s before it ends the process anyway).
constexpr DWORD close_grace_ms = 4500;

BOOL WINAPI on_console_event(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
      if (stop_callback) stop_callback();
      return TRUE;
    case CTRL_CLOSE_EVENT:
      if (stop_callback) stop_callback();
      ::Sleep(close_grace_ms);  // the process normally ends before this returns
      return TRUE;
    default:
      return FALSE;
  }
}

}  // namespace

void on_stop_request(void (*stop)()) noexcept {
  stop_callback = stop;
  ::SetConsoleCtrlHandler(on_console_event, TRUE);
}

}  // namespace vxbase::platform
