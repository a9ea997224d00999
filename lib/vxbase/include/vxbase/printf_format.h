// VXBASE_PRINTF(format, first): lets the compiler check a printf-style call
// against the printf the program really links.
#pragma once

#include <cstdio>  // on mingw-w64 this brings _mingw.h, which defines __MINGW_PRINTF_FORMAT

// mingw-w64 compiles printf and vsnprintf as its own C99 implementation,
// which knows %zu and %lld; plain format(printf) would check them against
// the old msvcrt rules there and warn about every %zu.
#if defined(__MINGW32__)
#define VXBASE_PRINTF(format_index, first_arg) \
  __attribute__((format(__MINGW_PRINTF_FORMAT, format_index, first_arg)))
#else
#define VXBASE_PRINTF(format_index, first_arg) \
  __attribute__((format(printf, format_index, first_arg)))
#endif
