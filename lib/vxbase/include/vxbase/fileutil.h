// Whole-file reading and writing.
#pragma once

#include <string>

namespace vxbase::fileutil {

// The file's bytes. Raises es::call_error naming the path and the system's
// reason when the file cannot be read.
std::string get_file_content(const std::string& path);

// Replaces the file's content with buffer: written to a temporary file
// beside it, then renamed over it, so a reader never sees half a file.
// Raises es::call_error naming the path and the reason on failure.
void set_file_content(const std::string& path, const std::string& buffer);

}  // namespace vxbase::fileutil
