// The kinds of reported messages: what area a message is about, and the
// word each kind shows in log lines.
#pragma once

#include <cstdint>

namespace vxcore {

// The category of a reported message. Reports carry it as a number, so any
// value may arrive; the named ones are those the libraries and the program
// report with.
enum class kind : std::uint32_t {
  general = 0,        // nothing more specific applies
  system = 1,         // an operating system service failed or answered oddly
  network = 2,        // sockets, links and name resolution
  protocol = 3,       // a peer speaks the wrong protocol or version
  configuration = 4,  // reading, checking or writing the configuration
  file = 5,           // reading or writing files other than the configuration
  database = 6,       // the command database and its constraints
  security = 7,       // decryption and access checks
  lifecycle = 8,      // starting up and shutting down
};

// The word of a kind as static text: "general", "system", "network",
// "protocol", "configuration", "file", "database", "security", "lifecycle";
// "unknown" for any other number. Never null.
const char* cstr_with_kind(kind k) noexcept;

}  // namespace vxcore
