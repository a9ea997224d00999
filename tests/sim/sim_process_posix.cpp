// Starting and stopping ClientProxySim for the link tests, with fork, a
// pipe and signals.
#include "sim_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <stdexcept>

#ifndef CLIENT_PROXY_SIM
#error "CLIENT_PROXY_SIM must name the simulator executable"
#endif

namespace {

// The simulator prints its line at once; this only bounds a broken start.
constexpr int start_timeout_ms = 10000;

}  // namespace

sim_process::sim_process(const std::vector<std::string>& args) {
  int fds[2];
  if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
  std::vector<std::string> argv_s = {CLIENT_PROXY_SIM, "--port", "0"};
  argv_s.insert(argv_s.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : argv_s) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    ::dup2(fds[1], STDOUT_FILENO);
    ::close(fds[0]);
    ::close(fds[1]);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(fds[1]);
  process_ = pid;
  const int out_fd = fds[0];
  out_ = out_fd;
  std::string got;
  while (got.find('\n') == std::string::npos) {
    pollfd p{out_fd, POLLIN, 0};
    if (::poll(&p, 1, start_timeout_ms) <= 0) break;
    char buf[256];
    const ssize_t n = ::read(out_fd, buf, sizeof buf);
    if (n <= 0) break;
    got.append(buf, static_cast<std::size_t>(n));
  }
  line_ = got.substr(0, got.find('\n'));
  std::smatch m;
  if (!std::regex_search(line_, m, std::regex("listening on 127\\.0\\.0\\.1:([0-9]+)"))) {
    stop(SIGKILL);
    throw std::runtime_error("simulator did not start: \"" + got + "\"");
  }
  port_ = static_cast<std::uint16_t>(std::stoi(m[1].str()));
}

sim_process::~sim_process() {
  if (process_ > 0) stop(SIGTERM);
  if (out_ >= 0) ::close(static_cast<int>(out_));
}

int sim_process::stop(int sig) {
  if (process_ <= 0) return -1;
  const auto pid = static_cast<pid_t>(process_);
  ::kill(pid, sig);
  int status = 0;
  ::waitpid(pid, &status, 0);
  process_ = -1;
  return status;
}

std::string sim_process::rest_of_output() {
  std::string out;
  char buf[256];
  ssize_t n;
  while ((n = ::read(static_cast<int>(out_), buf, sizeof buf)) > 0) out.append(buf, static_cast<std::size_t>(n));
  return out;
}

