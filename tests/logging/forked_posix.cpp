// Child processes with caught standard streams.
#include "forked.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "temp_dir.h"

namespace logging_test {

bool forked_result::aborted() const { return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT; }

int forked_result::exit_code() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

forked_result run_forked(const std::function<void()>& body) {
  temp_dir dir;
  const std::string out_path = dir / "stdout";
  const std::string err_path = dir / "stderr";
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!std::freopen(out_path.c_str(), "w", stdout) ||
        !std::freopen(err_path.c_str(), "w", stderr)) {
      ::_exit(126);
    }
    body();
    std::fflush(nullptr);
    ::_exit(0);
  }
  forked_result result;
  while (::waitpid(child, &result.status, 0) < 0 && errno == EINTR) {
  }
  result.out = file_content(out_path);
  result.err = file_content(err_path);
  return result;
}

}  // namespace logging_test
