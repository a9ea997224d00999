// proxy.sim.*: commands of the simulator alone, for testing the link.
#include <string>
#include <vector>

#include <vxcore/property_all.h>

#include "../command_registry.h"

namespace sim {
namespace {

// Answers with the command's own payload, so a tree's trip through both
// encoders can be checked end to end.
void echo(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context&) {
  out.set_properties(in.get_properties());
}

// Sends the caller a notice "proxy.sim.event" carrying the command's payload,
// then answers with sent = true.
void notify(const vxnet::vxp::packet& in, vxnet::vxp::packet& out, command_context& context) {
  context.notify(
      vxnet::vxp::packet(vxnet::vxp::type_notice, "proxy.sim.event", in.get_properties()));
  out.set_property("sent", vxbase::make_refcount<vxcore::property_bool>(true));
}

// Moves the simulated cluster one step on: running jobs complete, queued
// jobs start. Answers with the number of jobs moved.
void advance(const vxnet::vxp::packet&, vxnet::vxp::packet& out, command_context& context) {
  std::int64_t moved = 0;
  std::vector<std::string> queued, running;
  for (const auto& [id, j] : context.state().jobs()) {
    if (j.state == "queued") queued.push_back(id);
    if (j.state == "running") running.push_back(id);
  }
  for (const auto& id : running) {
    job& j = context.state().find_job(id);
    j.state = "finished";
    j.progress = 1.0;
    ++moved;
  }
  for (const auto& id : queued) {
    job& j = context.state().find_job(id);
    j.state = "running";
    j.progress = 0.5;
    ++moved;
  }
  out.set_property("moved", vxbase::make_refcount<vxcore::property_int>(moved));
}

}  // namespace

void register_sim_commands(command_registry& registry) {
  registry.add("proxy.sim.echo", echo);
  registry.add("proxy.sim.notify", notify);
  registry.add("proxy.sim.advance", advance);
}

}  // namespace sim
