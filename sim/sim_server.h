// The simulator's listener: accepts clients on 127.0.0.1, answers their
// hello and their commands through the command registry.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vxnet/vxp/wire.h>

#include "command_registry.h"
#include "options.h"
#include "sim_state.h"

namespace sim {

// Clients served at once. A simulator for tests and trials needs a handful;
// the bound keeps the poll set small whatever connects.
inline constexpr std::size_t max_clients = 256;

class sim_server {
 public:
  sim_server(const options& opts, const command_registry& registry);
  ~sim_server();
  sim_server(const sim_server&) = delete;
  sim_server& operator=(const sim_server&) = delete;

  // Opens the --record file, binds and listens on 127.0.0.1 at the
  // configured port; returns the port in use. Throws std::runtime_error
  // when that is not possible.
  std::uint16_t listen();

  // Serves until a stop is requested (stop_request.h), which the wait
  // always sees at once.
  void run();

 private:
  struct client {
    int fd = -1;
    std::uint64_t number = 0;
    vxnet::vxp::frame_reader reader;
    std::string outbox;
    std::size_t out_pos = 0;
    bool hello_done = false;
    bool closing = false;  // close once the outbox is written
    std::uint64_t packets = 0;
    // Replies held back by --delay-ms and --jitter-ms, by the time they are
    // due; equal times keep their order of arrival.
    std::multimap<std::int64_t, std::string> later;
  };

  void accept_clients();
  // Each returns false when the client is to be closed now.
  bool read_from(client& c);
  bool write_to(client& c);
  bool handle(client& c, vxnet::vxp::message&& m);
  std::string answer(const vxnet::vxp::message& request);
  void release_due(client& c, std::int64_t now);
  int next_timeout_ms(std::int64_t now) const;

  options opts_;
  const command_registry& registry_;
  sim_state state_;
  int listen_fd_ = -1;
  std::FILE* record_ = nullptr;  // the --record file, when given
  std::uint64_t accepted_ = 0;
  // Commands received from all clients, for --hang-after.
  std::uint64_t commands_ = 0;
  // Draws the --jitter-ms of each reply.
  std::minstd_rand jitter_random_;
  std::vector<std::unique_ptr<client>> clients_;
};

}  // namespace sim
