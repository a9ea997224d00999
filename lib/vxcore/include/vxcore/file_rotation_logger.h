// A log file that rotates by size: "name.log" becomes "name.1.log", which
// becomes "name.2.log", and so on up to a number of files; the oldest goes.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vxcore {

// Appends ready-made lines to a rotating set of files. With the path
// "dir/XMLRPCServer.log", at most 3 files and at most 1024 bytes each, the
// files are "dir/XMLRPCServer.log" (the current one), "dir/XMLRPCServer.1.log"
// (the one before) and "dir/XMLRPCServer.2.log" (the oldest kept).
//
// Lines are written exactly as given and flushed at once, so a line is on
// disk even when the process aborts right after writing it. Rotated files
// beyond the number of files (left by an earlier, larger setting) are
// deleted at the first write under the new number. The logger never
// throws after construction: a file that cannot be opened, written or
// rotated loses the line, and the logger tries again later.
class file_rotation_logger {
 public:
  // What a new logger uses until told otherwise: the configuration's defaults.
  static constexpr std::uint64_t default_max_file_size = 1048576;
  static constexpr std::uint32_t default_max_num_files = 5;

  // Opens (creating it and its directory if needed) the file at path for
  // appending. A file that cannot be opened now is retried by write.
  explicit file_rotation_logger(std::string path);
  ~file_rotation_logger();

  file_rotation_logger(const file_rotation_logger&) = delete;
  file_rotation_logger& operator=(const file_rotation_logger&) = delete;

  // The size in bytes that the current file must not pass: a line that
  // would take it past this size first rotates the files. A single line
  // longer than the size still goes whole into a file of its own. 0 counts
  // as 1.
  void set_max_file_size(std::uint64_t bytes);

  // How many files exist at most, the current one included. 0 counts as 1
  // (the current file alone, emptied at each rotation).
  void set_max_num_files(std::uint32_t count);

  std::uint64_t max_file_size() const noexcept { return max_file_size_; }
  std::uint32_t max_num_files() const noexcept { return max_num_files_; }
  const std::string& path() const noexcept { return path_; }

  // Appends text (which carries its own line end) to the current file,
  // rotating first when needed, and flushes. Returns false when the text
  // could not be written; nothing is thrown.
  bool write(std::string_view text) noexcept;

 private:
  struct sink;

  // Makes the file sink for the current limits. Returns false when the file
  // cannot be opened; the next try waits for reopen_delay.
  bool open() noexcept;

  // Deletes "name.N.log", "name.N+1.log", ... for N = the number of files,
  // up to the first that does not exist.
  void remove_surplus_files() noexcept;

  std::string path_;
  std::uint64_t max_file_size_ = default_max_file_size;
  std::uint32_t max_num_files_ = default_max_num_files;
  std::unique_ptr<sink> sink_;    // null while the file is not open
  bool limits_changed_ = false;   // the open sink has the old limits
  bool surplus_checked_ = false;  // surplus files looked for under these limits
  std::chrono::steady_clock::time_point next_open_try_{};
};

}  // namespace vxcore
