// proxy.sim.*: commands of the simulator alone, for testing the link.
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

}  // namespace

void register_sim_commands(command_registry& registry) {
  registry.add("proxy.sim.echo", echo);
  registry.add("proxy.sim.notify", notify);
}

}  // namespace sim
