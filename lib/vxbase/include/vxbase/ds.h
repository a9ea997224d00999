// Debug aborts: end the process with a message naming the source location.
#pragma once

namespace vxbase::ds {

// Prints "file:line: <formatted text>" to standard error and aborts the
// process. Does not return.
[[noreturn]] void abort(const char* file, unsigned line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace vxbase::ds
