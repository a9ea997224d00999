// Running a piece of code in a child process with its standard output and
// standard error caught in files: for code that re-directs the streams,
// writes to the console or ends the process.
#pragma once

#include <functional>
#include <string>

namespace logging_test {

struct forked_result {
  int status = 0;   // as waitpid gives it
  std::string out;  // everything the child wrote to standard output
  std::string err;  // everything the child wrote to standard error
  bool aborted() const;
  // The exit code, or -1 when the child was killed by a signal.
  int exit_code() const;
};

// Runs body in a forked child; the child exits 0 when body returns.
forked_result run_forked(const std::function<void()>& body);

}  // namespace logging_test
