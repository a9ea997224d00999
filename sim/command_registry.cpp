// The command registry of the simulator.
#include "command_registry.h"

namespace sim {

void command_registry::add(const std::string& name, command_handler handler) {
  handlers_[name] = std::move(handler);
}

const command_handler* command_registry::find(const std::string& name) const {
  const auto it = handlers_.find(name);
  return it == handlers_.end() ? nullptr : &it->second;
}

std::vector<std::string> command_registry::names() const {
  std::vector<std::string> out;
  out.reserve(handlers_.size());
  for (const auto& entry : handlers_) out.push_back(entry.first);
  return out;
}

void register_all_commands(command_registry& registry) {
  register_general_commands(registry);
  register_sim_commands(registry);
  register_create_commands(registry);
  register_submit_commands(registry);
  register_job_commands(registry);
  register_monitor_commands(registry);
  register_status_commands(registry);
  register_info_commands(registry);
}

}  // namespace sim
