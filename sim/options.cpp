// Parsing the simulator's command line: "--name value" or "--name=value".
#include "options.h"

#include <charconv>
#include <limits>
#include <string_view>

namespace sim {
namespace {

bool to_number(std::string_view text, unsigned long long max, unsigned long long& out) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, out);
  return ec == std::errc() && ptr == end && !text.empty() && out <= max;
}

}  // namespace

std::optional<options> parse_options(int argc, const char* const* argv, std::string& error) {
  options o;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      o.help = true;
      continue;
    }
    std::string_view name = arg;
    std::optional<std::string_view> value;
    if (const auto eq = arg.find('='); eq != std::string_view::npos) {
      name = arg.substr(0, eq);
      value = arg.substr(eq + 1);
    }
    if (name == "--record") {
      if (!value) {
        if (i + 1 >= argc) {
          error = "--record needs a file name";
          return std::nullopt;
        }
        value = argv[++i];
      }
      o.record = std::string(*value);
      continue;
    }
    unsigned long long max = 0;
    if (name == "--port")
      max = std::numeric_limits<std::uint16_t>::max();
    else if (name == "--protocol" || name == "--delay-ms" || name == "--drop-after" ||
             name == "--jitter-ms" || name == "--hang-after" || name == "--job-duration-ms" ||
             name == "--fail-every")
      max = std::numeric_limits<std::uint32_t>::max();
    else {
      error = "unknown option " + std::string(arg);
      return std::nullopt;
    }
    if (!value) {
      if (i + 1 >= argc) {
        error = std::string(name) + " needs a number";
        return std::nullopt;
      }
      value = argv[++i];
    }
    unsigned long long n = 0;
    if (!to_number(*value, max, n)) {
      error = std::string(name) + ": \"" + std::string(*value) + "\" is not a number from 0 to " +
              std::to_string(max);
      return std::nullopt;
    }
    if (name == "--port")
      o.port = static_cast<std::uint16_t>(n);
    else if (name == "--protocol")
      o.protocol = static_cast<std::uint32_t>(n);
    else if (name == "--delay-ms")
      o.delay_ms = static_cast<unsigned>(n);
    else if (name == "--jitter-ms")
      o.jitter_ms = static_cast<unsigned>(n);
    else if (name == "--hang-after")
      o.hang_after = n;
    else if (name == "--job-duration-ms")
      o.job_duration_ms = static_cast<unsigned>(n);
    else if (name == "--fail-every")
      o.fail_every = static_cast<unsigned>(n);
    else
      o.drop_after = static_cast<unsigned>(n);
  }
  return o;
}

const char* usage() noexcept {
  return "usage: ClientProxySim [options]\n"
         "  Stands in for the Corvane client proxy: speaks vxp on 127.0.0.1.\n"
         "  --port N        port to listen on (default 40410; 0 picks a free one)\n"
         "  --protocol N    protocol version to announce in the hello (default: this build's)\n"
         "  --delay-ms N    hold every reply back N milliseconds (each on its own:\n"
         "                  replies to many commands come out together)\n"
         "  --jitter-ms N   hold every reply back a further random 0..N milliseconds,\n"
         "                  so that replies come out of order\n"
         "  --hang-after N  answer the first N commands (of all clients), then none\n"
         "  --drop-after N  close a link, unanswered, when its packet N+1 arrives\n"
         "  --record FILE   append one JSON line per command received to FILE\n"
         "  --job-duration-ms N\n"
         "                  a job runs N milliseconds of wall-clock time, its progress\n"
         "                  going from 0 to 1 (default 0: jobs move only on\n"
         "                  proxy.sim.advance)\n"
         "  --fail-every N  every Nth job to reach its end fails instead (default 0: none)\n"
         "  -h, --help      this text\n";
}

}  // namespace sim
