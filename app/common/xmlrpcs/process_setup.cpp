// The process settings of the program's start and exit.
#include "process_setup.h"

#include <vxbase/es.h>
#include <vxbase/platform.h>

namespace xmlrpcs {

namespace {

unsigned platform_error_mode(unsigned mode) { return vxbase::platform::set_error_mode(mode); }

bool platform_abort_behavior(unsigned flags, unsigned mask, unsigned* previous) {
  return vxbase::platform::set_abort_behavior(flags, mask, previous);
}

std::uint32_t platform_execution_state(std::uint32_t state) {
  return vxbase::platform::set_thread_execution_state(state);
}

int platform_socket_startup(std::uint16_t version_word, std::uint16_t& obtained) {
  return vxbase::platform::socket_startup(version_word, obtained);
}

int platform_socket_cleanup() { return vxbase::platform::socket_cleanup(); }

}  // namespace

process_calls& process_calls_in_use() {
  static process_calls calls{platform_error_mode, platform_abort_behavior,
                             platform_execution_state, platform_socket_startup,
                             platform_socket_cleanup};
  return calls;
}

void prepare_process() {
  process_calls& calls = process_calls_in_use();
  calls.set_error_mode(kErrorMode);
  // A C runtime without the call (msvcrt.dll) keeps its own behaviour.
  calls.set_abort_behavior(kAbortFlags, kAbortMask, nullptr);
  calls.set_thread_execution_state(vxbase::platform::es_continuous |
                                   vxbase::platform::es_system_required);
  std::uint16_t obtained = 0;
  if (calls.socket_startup(kSocketVersion, obtained) != 0) {
    calls.socket_cleanup();
    vxbase::es::call_raise("lib/vxnet/include/vxnet/vxnet", 39, "failed to use Winsock DLL");
  }
  if ((obtained & 0xff) != 2 || (obtained >> 8) != 0) {
    calls.socket_cleanup();
    vxbase::es::call_raise("lib/vxnet/include/vxnet/vxnet", 46,
                           "failed to load correct verion of Winsock DLL");
  }
}

void release_process() {
  process_calls& calls = process_calls_in_use();
  calls.socket_cleanup();
  calls.set_thread_execution_state(vxbase::platform::es_continuous);
}

}  // namespace xmlrpcs
