// The simulator's commands: one registry from command name to the function
// that answers it; each area of commands registers itself from its own file.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <vxnet/vxp/packet.h>

#include "sim_state.h"

namespace sim {

// What a command may do besides filling its reply.
class command_context {
 public:
  virtual ~command_context() = default;
  // Sends a notice to the calling client ahead of the reply.
  virtual void notify(const vxnet::vxp::packet& notice) = 0;
  // The protocol version the simulator announces.
  virtual std::uint32_t protocol() const noexcept = 0;
  // The simulated cluster, shared by every client.
  virtual sim_state& state() noexcept = 0;
};

// Answers in (a command) by filling out, which arrives as an empty reply
// named after the command. A thrown command_error becomes a reply whose
// `error` member is its text; any other std::exception one whose `error`
// says the command failed.
using command_handler = std::function<void(const vxnet::vxp::packet& in, vxnet::vxp::packet& out,
                                           command_context& context)>;

class command_registry {
 public:
  // Registers handler under name, replacing an earlier one.
  void add(const std::string& name, command_handler handler);
  // The handler of name, or null.
  const command_handler* find(const std::string& name) const;
  std::vector<std::string> names() const;

 private:
  std::map<std::string, command_handler> handlers_;
};

// Every command area, one per file under commands/. A new area is a new
// file there with its register function declared here and called from
// register_all_commands.
void register_general_commands(command_registry& registry);
void register_sim_commands(command_registry& registry);
void register_create_commands(command_registry& registry);
void register_submit_commands(command_registry& registry);
void register_job_commands(command_registry& registry);
void register_monitor_commands(command_registry& registry);
void register_status_commands(command_registry& registry);
void register_info_commands(command_registry& registry);

// Registers all of the above.
void register_all_commands(command_registry& registry);

}  // namespace sim
