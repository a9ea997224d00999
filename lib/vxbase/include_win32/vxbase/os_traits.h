// Constants that differ between the platforms, Windows side (the build picks
// this folder or include_posix/ by platform).
#pragma once

#include <fcntl.h>
#include <io.h>
#include <unistd.h>

namespace vxbase::os {
// The separator of this platform's paths.
inline constexpr char path_separator = '\\';
// Added to every open(): bytes as they are (no CR-LF translation), and not
// inherited by programs the process starts.
inline constexpr int open_flags = O_BINARY | O_NOINHERIT;
// "C:\\logs" and "C:/logs" are absolute as well as "\\logs".
inline constexpr bool drive_letters = true;
}  // namespace vxbase::os
