// The simulator's command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <vxnet/vxp/wire.h>

namespace sim {

// The port the real client proxy listens on.
inline constexpr std::uint16_t default_port = 40410;

struct options {
  std::uint16_t port = default_port;  // 0: any free port (printed when listening)
  std::uint32_t protocol = vxnet::vxp::protocol_version;
  unsigned delay_ms = 0;                    // every reply waits this long
  unsigned jitter_ms = 0;                   // and a random 0..N ms more
  std::optional<std::uint64_t> hang_after;  // answer no command after the Nth
  std::optional<unsigned> drop_after;       // close a link when packet N+1 arrives
  std::string record;                       // file to append a JSON line per command to
  unsigned job_duration_ms = 0;             // running time of a job; 0: jobs move only on advance
  unsigned fail_every = 0;                  // every nth job to end fails; 0: none
  bool help = false;
};

// Parses argv; returns nullopt with error set when the line is not usable.
std::optional<options> parse_options(int argc, const char* const* argv, std::string& error);

// The --help text.
const char* usage() noexcept;

}  // namespace sim
