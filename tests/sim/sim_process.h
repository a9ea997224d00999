// Runs ClientProxySim as a child process on a free port for one test
// (sim_process_posix.cpp: fork and a pipe; sim_process_win32.cpp:
// CreateProcess and a pipe).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class sim_process {
 public:
  // Starts the simulator with --port 0 and the extra arguments, and waits
  // for its "listening" line. Throws std::runtime_error when it fails.
  explicit sim_process(const std::vector<std::string>& args = {});
  // Stops it with SIGTERM (Windows: ends it) if it still runs.
  ~sim_process();
  sim_process(const sim_process&) = delete;
  sim_process& operator=(const sim_process&) = delete;

  std::uint16_t port() const noexcept { return port_; }
  std::string port_text() const { return std::to_string(port_); }
  const std::string& listening_line() const noexcept { return line_; }

  // Sends sig and waits for the exit; returns the wait status. Windows has
  // no signals to send: the process is ended and its exit code returned.
  int stop(int sig);
  // Whatever the simulator wrote to standard output after its first line.
  std::string rest_of_output();

 private:
  // The process id and the read end of its standard output (Windows: the
  // process handle and the pipe handle).
  std::intptr_t process_ = -1;
  std::intptr_t out_ = -1;
  std::uint16_t port_ = 0;
  std::string line_;
};

// A loopback port that nothing listens on (bound and released again).
std::uint16_t unused_port();
