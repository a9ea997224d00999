// Re-direction of the process's standard output and standard error into a
// file, for daemons whose console nobody reads.
#pragma once

#include <cstdio>
#include <string>

namespace vxcore {

// Points standard output and standard error (the descriptors 1 and 2, so
// std::cout, std::cerr, printf and child processes alike) at the file at
// path, created if missing and appended to, so that the output of earlier
// runs stays. Pending output of both streams is flushed to the old target
// first. Returns stdout on success; on failure returns nullptr and leaves
// both streams as they were.
std::FILE* re_direct_stdout_stderr(const std::string& path);

}  // namespace vxcore
