// Re-direction of standard output and standard error into a file. Each case
// runs in a child process so that the test runner's own streams stay put.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>

#include <vxcore/re_direct_stdout_stderr.h>

#include "temp_dir.h"

namespace {

using logging_test::file_content;
using logging_test::temp_dir;

// Runs body in a child whose standard output and error go to the files
// out_path and err_path; returns the child's exit code.
int run_in_child(const std::string& out_path, const std::string& err_path,
                 const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!std::freopen(out_path.c_str(), "w", stdout) ||
        !std::freopen(err_path.c_str(), "w", stderr)) {
      ::_exit(100);
    }
    const int code = body();
    std::fflush(nullptr);
    ::_exit(code);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ReDirectStdoutStderr, BothStreamsOfEveryKindEndInTheFile) {
  temp_dir dir;
  const std::string target = dir / "XMLRPCServer.stdout";
  const int code = run_in_child(dir / "out", dir / "err", [&] {
    std::printf("before\n");
    if (vxcore::re_direct_stdout_stderr(target) != stdout) return 1;
    std::printf("printf line\n");
    std::fflush(stdout);
    std::fprintf(stderr, "stderr line\n");
    std::fflush(stderr);
    std::cout << "cout line" << std::endl;
    std::cerr << "cerr line" << std::endl;
    if (::write(STDOUT_FILENO, "raw line\n", 9) != 9) return 2;
    return 0;
  });
  ASSERT_EQ(code, 0);
  EXPECT_EQ(file_content(target), "printf line\nstderr line\ncout line\ncerr line\nraw line\n");
  // What was pending before the re-direction went to the old target.
  EXPECT_EQ(file_content(dir / "out"), "before\n");
  EXPECT_EQ(file_content(dir / "err"), "");
}

TEST(ReDirectStdoutStderr, AppendsToTheOutputOfEarlierRuns) {
  temp_dir dir;
  const std::string target = dir / "XMLRPCServer.stdout";
  { std::ofstream(target) << "earlier run\n"; }
  ASSERT_EQ(run_in_child(dir / "out", dir / "err",
                         [&] {
                           if (!vxcore::re_direct_stdout_stderr(target)) return 1;
                           std::printf("this run\n");
                           return 0;
                         }),
            0);
  EXPECT_EQ(file_content(target), "earlier run\nthis run\n");
}

TEST(ReDirectStdoutStderr, FailureReturnsNullAndLeavesTheStreamsAlone) {
  temp_dir dir;
  const std::string target = dir / "missing-folder/XMLRPCServer.stdout";
  ASSERT_EQ(run_in_child(dir / "out", dir / "err",
                         [&] {
                           if (vxcore::re_direct_stdout_stderr(target) != nullptr) return 1;
                           std::printf("still out\n");
                           std::fprintf(stderr, "still err\n");
                           return 0;
                         }),
            0);
  EXPECT_EQ(file_content(dir / "out"), "still out\n");
  EXPECT_EQ(file_content(dir / "err"), "still err\n");
}

}  // namespace
