// VXBASE_PRINTF(format, first): lets the compiler check a printf-style call
// against the printf the program really links. POSIX side (the build picks
// this folder or include_win32/ by platform): the C library's printf.
#pragma once

#define VXBASE_PRINTF(format_index, first_arg) \
  __attribute__((format(printf, format_index, first_arg)))
