// The rotating log file, on spdlog's rotating file sink. spdlog names the
// rotated files "name.1.log", "name.2.log", ... which is the naming we keep.
#include "vxcore/file_rotation_logger.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace vxcore {

namespace {

// spdlog refuses more rotated files than this, and every rotation renames
// each kept file, so more would make one rotation take long anyway.
constexpr std::uint64_t max_rotated_files = 200000;

// A file that could not be opened is tried again after this long, not at
// every line: spdlog spends about 50 ms on each failed open, and a daemon
// that reports a burst into a missing disk must not slow down with it.
constexpr std::chrono::seconds reopen_delay{5};

}  // namespace

struct file_rotation_logger::sink {
  spdlog::sinks::rotating_file_sink_st file;

  sink(const std::string& path, std::size_t max_size, std::size_t max_rotated)
      : file(path, max_size, max_rotated) {
    // The lines arrive formatted and with their line end: write them as
    // they are, without a time stamp, level or extra line end.
    file.set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%v", spdlog::pattern_time_type::local, std::string()));
  }
};

file_rotation_logger::file_rotation_logger(std::string path) : path_(std::move(path)) { open(); }

file_rotation_logger::~file_rotation_logger() = default;

void file_rotation_logger::set_max_file_size(std::uint64_t bytes) {
  bytes = std::max<std::uint64_t>(bytes, 1);
  if (bytes != max_file_size_) {
    max_file_size_ = bytes;
    limits_changed_ = true;
  }
}

void file_rotation_logger::set_max_num_files(std::uint32_t count) {
  count = std::max<std::uint32_t>(count, 1);
  if (count != max_num_files_) {
    max_num_files_ = count;
    limits_changed_ = true;
    surplus_checked_ = false;
  }
}

bool file_rotation_logger::open() noexcept {
  sink_.reset();  // close the old file before the new sink opens it again
  limits_changed_ = false;
  try {
    // spdlog counts the rotated files only, we count the current one too.
    const auto rotated = std::min<std::uint64_t>(max_num_files_ - 1, max_rotated_files);
    sink_ = std::make_unique<sink>(path_, static_cast<std::size_t>(max_file_size_),
                                   static_cast<std::size_t>(rotated));
    return true;
  } catch (...) {
    next_open_try_ = std::chrono::steady_clock::now() + reopen_delay;
    return false;
  }
}

void file_rotation_logger::remove_surplus_files() noexcept {
  surplus_checked_ = true;
  try {
    for (std::uint64_t index = max_num_files_;; ++index) {
      const std::string name = spdlog::sinks::rotating_file_sink_st::calc_filename(
          path_, static_cast<std::size_t>(index));
      if (std::remove(name.c_str()) != 0) return;
    }
  } catch (...) {
    // Out of memory for a name: the surplus stays, logging goes on.
  }
}

bool file_rotation_logger::write(std::string_view text) noexcept {
  // Not at construction: the limits of the configuration are set just
  // after it, and the defaults must not delete files that they keep.
  if (!surplus_checked_) {
    remove_surplus_files();
  }
  if (!sink_ || limits_changed_) {
    if (!sink_ && !limits_changed_ && std::chrono::steady_clock::now() < next_open_try_) {
      return false;
    }
    if (!open()) {
      return false;
    }
  }
  try {
    const spdlog::details::log_msg line(spdlog::string_view_t(), spdlog::level::info,
                                        spdlog::string_view_t(text.data(), text.size()));
    sink_->file.log(line);
    sink_->file.flush();
    return true;
  } catch (...) {
    // A failed rotation has already emptied the current file so that it
    // cannot grow past its limit; the line is lost, the next one goes on.
    return false;
  }
}

}  // namespace vxcore
