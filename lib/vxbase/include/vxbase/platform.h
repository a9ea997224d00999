// The thin layer over operating system services the program's start-up
// uses: the Windows calls themselves on Windows (platform_win32.cpp); on
// Linux most of them have nothing to do, each says why (platform_posix.cpp).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vxbase::platform {

// Suppressing the system's crash dialogs: Linux shows none. No-op; returns
// the previous mode (always 0).
unsigned set_error_mode(unsigned mode) noexcept;

// Choosing whether abort() prints a message (_set_abort_behavior of the C
// runtime the program's abort() belongs to): glibc prints none. Returns
// whether that runtime has the setting (the msvcrt.dll the Windows build
// links has not), with the previous flags in *previous (if not null).
// No-op on Linux: false.
bool set_abort_behavior(unsigned flags, unsigned mask, unsigned* previous = nullptr) noexcept;

// Asking the system to stay awake while the server runs: a server's power
// policy on Linux belongs to systemd-logind inhibitors, which a daemon run
// by systemd does not need. No-op; returns the previous state (always 0).
std::uint32_t set_thread_execution_state(std::uint32_t state) noexcept;

// The states the start-up asks for, with their usual values.
inline constexpr std::uint32_t es_continuous = 0x80000000u;
inline constexpr std::uint32_t es_system_required = 0x00000001u;

// Starting the socket library: Linux sockets need no start-up. Succeeds (0)
// and reports the version asked for, so the version check of the caller
// still runs. version_word: low byte major, high byte minor.
int socket_startup(std::uint16_t version_word, std::uint16_t& obtained) noexcept;
// No-op counterpart of socket_startup.
int socket_cleanup() noexcept;

// Raising the number of descriptors the process may open to the most the
// system allows it (the soft limit to the hard one), so that the server can
// hold as many client connections as it is given. Returns the limit now in
// force (on failure the one that was in force), or -1 when it cannot be
// read; "no limit" reads as the largest int.
int raise_descriptor_limit() noexcept;

// The folder for data shared by all users: "/var/lib". Returns 0, or a
// negative number when the folder is unknown (never on Linux).
int common_app_data_folder(int key, std::string& folder);

// The folder key of the common application data folder.
inline constexpr int folder_common_app_data = 35;

// Renames from over to, replacing a file that is there (Windows' rename
// refuses to). Returns 0, or the errno value of the reason.
int replace_file(const std::string& from, const std::string& to) noexcept;

// Makes a standard stream pass bytes as they are: on Windows the C runtime
// writes "\r\n" for each "\n" of a stream in text mode, the default. No-op
// on Linux, where streams are bytes already.
void binary_stream(std::FILE* stream) noexcept;

// Calls stop() when the user or the system asks the program to end:
// SIGINT and SIGTERM on Linux (and SIGPIPE is ignored, so a peer that hangs
// up cannot kill the process); Ctrl-C, Ctrl-Break and closing the console
// window on Windows. stop() runs in a signal handler or on a thread of the
// system's, so it may only set a flag.
void on_stop_request(void (*stop)()) noexcept;

}  // namespace vxbase::platform
