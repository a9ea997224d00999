// proxy.general.*: what the proxy tells about itself.
#include <vxcore/property_all.h>

#include "../command_registry.h"

namespace sim {
namespace {

// The release the simulator stands in for.
constexpr std::uint32_t version_major = 7;
constexpr std::uint32_t version_minor = 0;
constexpr std::uint32_t version_patch = 0;
constexpr std::uint32_t version_build = 0;

void version(const vxnet::vxp::packet&, vxnet::vxp::packet& out, command_context& context) {
  using vxbase::make_refcount;
  out.set_property("product", make_refcount<vxcore::property_string>("Corvane Client Proxy"));
  out.set_property("version", make_refcount<vxcore::property_version>(
                                  version_major, version_minor, version_patch, version_build));
  out.set_property("build", make_refcount<vxcore::property_string>("simulator"));
  out.set_property("protocol", make_refcount<vxcore::property_int>(context.protocol()));
}

}  // namespace

void register_general_commands(command_registry& registry) {
  registry.add("proxy.general.version", version);
}

}  // namespace sim
