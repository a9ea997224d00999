// Constants that differ between the platforms, POSIX side (the build picks
// this folder or include_win32/ by platform).
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace vxbase::os {
// The separator of this platform's paths.
inline constexpr char path_separator = '/';
// Added to every open(): files stay closed in programs the process starts.
inline constexpr int open_flags = O_CLOEXEC;
// No drive letters: every absolute path starts with the separator.
inline constexpr bool drive_letters = false;
}  // namespace vxbase::os
