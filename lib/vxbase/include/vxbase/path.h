// Path text helpers: joining, the directory part, and the backup name.
#pragma once

#include <string>
#include <string_view>

#include <vxbase/os_traits.h>

namespace vxbase {

// The separator of this platform's paths.
inline constexpr char path_separator = os::path_separator;

// dir joined with name by one separator: path_appended("a/b", "c.xml", '/')
// => "a/b/c.xml"; a separator already ending dir is not doubled; an empty
// dir gives name alone.
std::string path_appended(std::string_view dir, std::string_view name,
                          char separator = path_separator);

// Whether path names a place from the root: it starts with a separator
// (or '/'), or, on Windows, with a drive ("C:").
bool path_is_absolute(std::string_view path);

// Everything before the last separator: path_directory("a/b/c.xml", '/', 0)
// => "a/b"; "" when there is none; "/" for a file in the root. flags is
// reserved and must be 0.
std::string path_directory(std::string_view path, char separator = path_separator, int flags = 0);

// The file name after the last separator.
std::string path_file_name(std::string_view path, char separator = path_separator);

// Replaces the last extension of the file name with suffix:
// path_new_suffix("d/XMLRPCServer.xml", "old.xml", '/', 0) =>
// "d/XMLRPCServer.old.xml"; a name without extension gets ".suffix" appended.
// A dot that starts the name (".hidden") is not an extension. flags is
// reserved and must be 0.
std::string path_new_suffix(std::string_view path, std::string_view suffix,
                            char separator = path_separator, int flags = 0);

}  // namespace vxbase
