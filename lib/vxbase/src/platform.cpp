// Linux side of the platform layer: the start-up services are no-ops here.
#include <vxbase/platform.h>

#include <sys/resource.h>

#include <climits>

namespace vxbase::platform {

unsigned set_error_mode(unsigned) noexcept { return 0; }

unsigned set_abort_behavior(unsigned, unsigned) noexcept { return 0; }

std::uint32_t set_thread_execution_state(std::uint32_t) noexcept { return 0; }

int socket_startup(std::uint16_t version_word, std::uint16_t& obtained) noexcept {
  obtained = version_word;
  return 0;
}

int socket_cleanup() noexcept { return 0; }

int raise_descriptor_limit() noexcept {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return -1;
  if (limit.rlim_cur != limit.rlim_max) {
    rlimit raised = limit;
    raised.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur > static_cast<rlim_t>(INT_MAX)) {
    return INT_MAX;
  }
  return static_cast<int>(limit.rlim_cur);
}

int common_app_data_folder(int key, std::string& folder) {
  if (key != folder_common_app_data) return -1;
  folder = "/var/lib";
  return 0;
}

}  // namespace vxbase::platform
