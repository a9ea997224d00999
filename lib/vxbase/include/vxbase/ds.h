// Debug aborts: end the process with a message naming the source location.
#pragma once

#include <vxbase/printf_format.h>

namespace vxbase::ds {

// Prints "file:line: <formatted text>" to standard error and aborts the
// process. Does not return.
[[noreturn]] void abort(const char* file, unsigned line, const char* format, ...)
    VXBASE_PRINTF(3, 4);

}  // namespace vxbase::ds
