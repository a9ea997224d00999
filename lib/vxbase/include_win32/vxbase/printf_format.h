// VXBASE_PRINTF(format, first): lets the compiler check a printf-style call
// against the printf the program really links. Windows side (the build picks
// this folder or include_posix/ by platform).
#pragma once

#include <cstdio>  // brings mingw-w64's _mingw.h, which defines __MINGW_PRINTF_FORMAT

// mingw-w64 compiles printf and vsnprintf as its own C99 implementation,
// which knows %zu and %lld; plain format(printf) would check them against
// the old msvcrt rules and warn about every %zu.
#define VXBASE_PRINTF(format_index, first_arg) \
  __attribute__((format(__MINGW_PRINTF_FORMAT, format_index, first_arg)))
