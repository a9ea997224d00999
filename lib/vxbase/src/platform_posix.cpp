// Linux side of the platform layer: the start-up services are no-ops here.
#include <vxbase/platform.h>

#include <sys/resource.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>

namespace vxbase::platform {

unsigned set_error_mode(unsigned) noexcept { return 0; }

bool set_abort_behavior(unsigned, unsigned, unsigned*) noexcept { return false; }

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

int replace_file(const std::string& from, const std::string& to) noexcept {
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

void binary_stream(std::FILE*) noexcept {}

namespace {
void (*stop_callback)() = nullptr;

void on_signal(int) {
  if (stop_callback) stop_callback();
}
}  // namespace

void on_stop_request(void (*stop)()) noexcept {
  stop_callback = stop;
  struct sigaction action {};
  action.sa_handler = on_signal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace vxbase::platform
